// A run of 10,000 regions writes gigabytes of results. Left to the page cache, they fill it
// until the kernel throttles the writer, and every new page of the cache costs the kernel more
// than the copy into it; the results also push out what else the machine had cached. Started for
// the disk a window at a time and dropped once clean, the file's pages are reused instead: the
// cache holds about two windows of each file. Only clean pages leave the cache, so nothing
// written is lost, and the run never waits for the disk here: a part not yet written back stays
// cached. Below the amount the kernel lets stand unwritten before it writes back on its own,
// results are left to the cache as before (handing them to the disk early would only cost),
// unless a file is one the run only appends to and never reads back; files below one window are
// never touched.
#include "platform/write_behind.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <limits>
#include <string>

namespace {

// where each open file stands: the file (device and inode, as a descriptor's number is reused),
// the end of the part started for the disk, the end of the part dropped, the bytes since
struct Progress {
    dev_t device = 0;
    ino_t inode = 0;
    off_t started = 0, dropped = 0;
    size_t since = 0;
    bool always = false;
};

// by descriptor; a file is written by one thread at a time, and files of higher descriptors
// are written as before
constexpr int TRACKED = 256;
Progress progress[TRACKED];

// a descriptor that now stands for another file starts afresh
void follow(Progress& p, const struct stat& st)
{
    if (st.st_dev != p.device || st.st_ino != p.inode) p = {st.st_dev, st.st_ino, 0, 0, 0, false};
}

std::atomic<uint64_t> written{0};
constexpr uint64_t UNSET = writeBehind::KERNEL_LIMIT;
// where the system does not say its limit: never
constexpr uint64_t NEVER = UNSET - 1;
std::atomic<uint64_t> start{UNSET};

uint64_t numberIn(const char* path)
{
    std::ifstream in(path);
    uint64_t value = 0;
    in >> value;
    return in ? value : 0;
}

// the kernel's background limit of dirty pages: given in bytes, or as a share of the memory
// available; where the system does not say, files are never written behind
uint64_t backgroundLimit()
{
    if (uint64_t bytes = numberIn("/proc/sys/vm/dirty_background_bytes")) return bytes;
    const uint64_t percent = numberIn("/proc/sys/vm/dirty_background_ratio");
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    uint64_t kb = 0;
    while (meminfo >> key >> kb) {
        if (key == "MemAvailable:") return percent > 0 ? kb * 1024 / 100 * percent : NEVER;
        meminfo.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return NEVER;
}

uint64_t startBytes()
{
    uint64_t s = start.load(std::memory_order_relaxed);
    if (s == UNSET) {
        s = backgroundLimit();
        start.store(s, std::memory_order_relaxed);
    }
    return s;
}

} // namespace

void writeBehind::startAfter(uint64_t bytes)
{
    start.store(bytes, std::memory_order_relaxed);
    written.store(0, std::memory_order_relaxed);
}

void writeBehind::fromStart(int fd)
{
    struct stat st;
    if (fd < 0 || fd >= TRACKED || fstat(fd, &st) != 0) return;
    Progress& p = progress[fd];
    follow(p, st);
    p.always = true;
}

void writeBehind::wrote(int fd, size_t bytes)
{
    const uint64_t total = written.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    if (fd < 0 || fd >= TRACKED) return;
    Progress& p = progress[fd];
    p.since += bytes;
    if (p.since < WINDOW) return;
    p.since = 0;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return;
    follow(p, st);
    if (!p.always && total < startBytes()) return;
    const off_t end = lseek(fd, 0, SEEK_CUR);
    if (end < 0) return;
    // a file cut back or written anew starts again
    if (end < p.started) p.started = p.dropped = 0;
    if (end == p.started) return;
    // advice only: where the system has no such calls or refuses them, the file is as before
    sync_file_range(fd, p.started, end - p.started, SYNC_FILE_RANGE_WRITE);
    if (p.started > p.dropped) posix_fadvise(fd, p.dropped, p.started - p.dropped, POSIX_FADV_DONTNEED);
    p.dropped = p.started;
    p.started = end;
}
