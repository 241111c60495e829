// Table lines gathered in one growing byte buffer and handed to the file in large blocks, and
// tables whose parts are formatted in parallel batches and written in their order by one writer.
#pragma once
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

// where a block of bytes goes; csvWrite unless a caller redirects it
using BlockSink = void (*)(FILE* file, const char* data, size_t length);

class BlockWriter {
public:
    static constexpr size_t BLOCK = size_t(1) << 18;
    explicit BlockWriter(FILE* file, BlockSink sink = nullptr);
    ~BlockWriter() { flush(); }
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    // the buffer to append lines to; call done() after each line or group of lines
    std::string& text() { return buffer_; }
    void done()
    {
        if (buffer_.size() >= BLOCK) flush();
    }
    // a text formatted elsewhere, written behind what is gathered
    void write(const std::string& text);
    void flush();

private:
    FILE* file_;
    BlockSink sink_;
    std::string buffer_;
};

// Writes the texts of parts 0 .. count-1 in that order. format(first, last, out) appends the
// text of the parts first .. last-1 to out. Batches of batchSize parts are formatted in parallel
// when the run works in parallel (a few batches at a time), and one writer hands them to the
// file in order; otherwise they are formatted and written one after the other. The file gets
// the same bytes either way.
void writeInOrder(BlockWriter& out, int count, int batchSize,
                  const std::function<void(int first, int last, std::string& out)>& format);
// The same for two files written side by side from one formatting: format appends the text of
// the first file to out and that of the second to second.
void writeInOrder(BlockWriter& out, BlockWriter& second, int count, int batchSize,
                  const std::function<void(int first, int last, std::string& out, std::string& second)>& format);
