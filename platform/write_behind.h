// Large result files written behind: once a run's results outgrow what the kernel keeps unwritten
// on its own, what a large file has written is handed to the disk while the run goes on, and its
// pages leave the page cache once they are on the disk.
#pragma once

#include <cstddef>
#include <cstdint>

namespace writeBehind {

// bytes were written to the file of descriptor fd; every WINDOW bytes its newest part starts
// for the disk and the part before it, written back by then, is dropped from the cache
void wrote(int fd, size_t bytes);

// the file of descriptor fd is written behind from its first byte, whatever the process wrote
// before: a table the run only ever appends to, never reads back
void fromStart(int fd);

// the bytes of one window
constexpr size_t WINDOW = size_t(32) << 20;

// the bytes of results a process writes before its files are written behind; by default
// (KERNEL_LIMIT) the amount of dirty pages at which the kernel starts writing back in the
// background; tests set it lower
constexpr uint64_t KERNEL_LIMIT = UINT64_MAX;
void startAfter(uint64_t bytes);

} // namespace writeBehind
