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

void writeInOrder(BlockWriter& out, int count, int batchSize,
                  const std::function<void(int first, int last, std::string& out)>& format)
{
    if (count <= 0) return;
    batchSize = std::max(batchSize, 1);
    if (!os::parallel()) {
        for (int first = 0; first < count; first += batchSize) {
            format(first, std::min(count, first + batchSize), out.text());
            out.done();
        }
        return;
    }
    // a batch in flight holds its text in one slot; batches leave the writer in order, so the
    // slot of batch i is free again when batch i + tokens enters
    const size_t tokens = static_cast<size_t>(std::max(2, 2 * tbb::this_task_arena::max_concurrency()));
    std::vector<std::string> slots(tokens);
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
                                           std::string& text = slots[static_cast<size_t>(batch) % tokens];
                                           text.clear();
                                           int first = batch * batchSize;
                                           format(first, std::min(count, first + batchSize), text);
                                           return batch;
                                       }) &
            tbb::make_filter<int, void>(tbb::filter_mode::serial_in_order, [&](int batch) {
                out.write(slots[static_cast<size_t>(batch) % tokens]);
            }));
    out.flush();
}
