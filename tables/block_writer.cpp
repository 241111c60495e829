// The block writer and the ordered writing of parts formatted in parallel.
#include "tables/block_writer.h"

#include <algorithm>
#include <vector>

#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include "platform/operating_system.h"
#include "tables/table_text.h"

BlockWriter::BlockWriter(FILE* file, BlockSink sink) : file_(file), sink_(sink ? sink : csvWrite)
{
    buffer_.reserve(BLOCK + BLOCK / 4);
}

void BlockWriter::write(const std::string& text)
{
    if (buffer_.size() + text.size() < BLOCK) {
        buffer_ += text;
        done();
        return;
    }
    flush();
    sink_(file_, text.data(), text.size());
}

void BlockWriter::flush()
{
    if (buffer_.empty()) return;
    sink_(file_, buffer_.data(), buffer_.size());
    buffer_.clear();
}

namespace {

// the writing in order for one or more files; texts holds outs.size() strings per slot
void writeAllInOrder(const std::vector<BlockWriter*>& outs, int count, int batchSize,
                     const std::function<void(int first, int last, std::string* texts)>& format)
{
    if (count <= 0) return;
    batchSize = std::max(batchSize, 1);
    const size_t files = outs.size();
    if (!os::parallel()) {
        for (int first = 0; first < count; first += batchSize) {
            if (files == 1) {
                format(first, std::min(count, first + batchSize), &outs[0]->text());
            } else {
                // each file's text is gathered in its own writer
                std::vector<std::string> parts(files);
                for (size_t i = 0; i < files; ++i) parts[i].swap(outs[i]->text());
                format(first, std::min(count, first + batchSize), parts.data());
                for (size_t i = 0; i < files; ++i) parts[i].swap(outs[i]->text());
            }
            for (BlockWriter* out : outs) out->done();
        }
        return;
    }
    // a batch in flight holds its texts in one slot; batches leave the writer in order, so the
    // slot of batch i is free again when batch i + tokens enters
    const size_t tokens = static_cast<size_t>(std::max(2, 2 * tbb::this_task_arena::max_concurrency()));
    std::vector<std::string> slots(tokens * files);
    int next = 0;
    tbb::parallel_pipeline(
        tokens,
        tbb::make_filter<void, int>(tbb::filter_mode::serial_in_order,
                                    [&](tbb::flow_control& fc) -> int {
                                        if (next * static_cast<long long>(batchSize) >= count) {
                                            fc.stop();
                                            return 0;
                                        }
                                        return next++;
                                    }) &
            tbb::make_filter<int, int>(tbb::filter_mode::parallel,
                                       [&](int batch) {
                                           std::string* texts = &slots[static_cast<size_t>(batch) % tokens * files];
                                           for (size_t i = 0; i < files; ++i) texts[i].clear();
                                           int first = batch * batchSize;
                                           format(first, std::min(count, first + batchSize), texts);
                                           return batch;
                                       }) &
            tbb::make_filter<int, void>(tbb::filter_mode::serial_in_order, [&](int batch) {
                const std::string* texts = &slots[static_cast<size_t>(batch) % tokens * files];
                for (size_t i = 0; i < files; ++i) outs[i]->write(texts[i]);
            }));
    for (BlockWriter* out : outs) out->flush();
}

} // namespace

void writeInOrder(BlockWriter& out, int count, int batchSize,
                  const std::function<void(int first, int last, std::string& out)>& format)
{
    writeAllInOrder({&out}, count, batchSize,
                    [&](int first, int last, std::string* texts) { format(first, last, texts[0]); });
}

void writeInOrder(BlockWriter& out, BlockWriter& second, int count, int batchSize,
                  const std::function<void(int first, int last, std::string& out, std::string& second)>& format)
{
    writeAllInOrder({&out, &second}, count, batchSize,
                    [&](int first, int last, std::string* texts) { format(first, last, texts[0], texts[1]); });
}
