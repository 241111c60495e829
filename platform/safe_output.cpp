#include "platform/safe_output.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <vector>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/operating_system.h"

namespace safeOutput {
namespace {

struct Entry {
    std::string temp, target;
    bool append = false;          // temp is the target moved aside while it grows
    bool existed = false;         // the target of an append was there before
    off_t size = 0;               // of the target before an append, to cut back to
    bool keep = false;
    // the buffer of an append: a year's rows go to the file in as few writes as fit in it, so
    // that a process killed meanwhile rarely leaves a line cut
    std::shared_ptr<char> buffer;
};

constexpr size_t kAppendBuffer = size_t(8) << 20;

// Append buffers are kept for the next append when their stream is done: a table of all years
// is opened again every year, and a fresh buffer would be cleared and faulted in page by page
// each time. Their bytes are never read before the stream writes them.
std::shared_ptr<char> appendBuffer()
{
    // both left to the end of the process, for streams still put into place when it ends
    static std::mutex* poolLock = new std::mutex;
    static std::vector<char*>* pool = new std::vector<char*>;
    char* memory = nullptr;
    {
        std::lock_guard<std::mutex> g(*poolLock);
        if (!pool->empty()) {
            memory = pool->back();
            pool->pop_back();
        }
    }
    if (!memory) memory = new char[kAppendBuffer];
    return std::shared_ptr<char>(memory, [](char* done) {
        std::lock_guard<std::mutex> g(*poolLock);
        pool->push_back(done);
    });
}

// undoes what an output did to its target: a new file is dropped, an appended one is cut
// back to its former length and put back under its name
void undo(const Entry& e)
{
    if (!e.append) {
        ::unlink(e.temp.c_str());
        return;
    }
    if (!e.existed) {
        ::unlink(e.temp.c_str());
        return;
    }
    if (::truncate(e.temp.c_str(), e.size) != 0 || ::rename(e.temp.c_str(), e.target.c_str()) != 0) {
        // nothing more to be done: the cause is reported by the caller
    }
}

std::mutex& lock()
{
    static std::mutex m;
    return m;
}

std::map<FILE*, Entry>& outputs()
{
    static std::map<FILE*, Entry> open;
    return open;
}

std::atomic<long long> g_limit{-2};     // -2: not yet read from the environment
std::atomic<long long> g_written{0};
std::atomic<unsigned> g_serial{0};

long long writeLimit()
{
    long long l = g_limit.load();
    if (l != -2) return l;
    const char* v = std::getenv("VELDOR_WRITE_LIMIT");
    l = v && *v ? std::atoll(v) : -1;
    g_limit.store(l);
    return l;
}

// all bytes of buffer to fd; false with errno set
bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// the stream of an output under the write limit: it passes bytes to the file until the
// budget of all such streams is spent, then reports a full disk
struct Limited {
    int fd;
};

// A write function of a cookie stream returns the bytes it took, and 0 for a failure, never a
// negative number: the C library's buffer handling breaks on one (a large fwrite then copies
// into a buffer it has given up). A write cut by the limit takes what fits; the next is refused.
ssize_t limitedWrite(void* cookie, const char* data, size_t size)
{
    int fd = static_cast<Limited*>(cookie)->fd;
    long long limit = writeLimit();
    long long before = g_written.fetch_add(static_cast<long long>(size));
    size_t allowed = size;
    if (limit >= 0 && before + static_cast<long long>(size) > limit) {
        allowed = before < limit ? static_cast<size_t>(limit - before) : 0;
        g_written.fetch_sub(static_cast<long long>(size - allowed));
    }
    if (allowed > 0 && !writeAll(fd, data, allowed)) return 0;
    // a short count is a failure to the caller: the cause it will read is the full disk
    if (allowed < size) errno = ENOSPC;
    return static_cast<ssize_t>(allowed);
}

int limitedSeek(void* cookie, off64_t* offset, int whence)
{
    off64_t r = lseek64(static_cast<Limited*>(cookie)->fd, *offset, whence);
    if (r < 0) return -1;
    *offset = r;
    return 0;
}

int limitedClose(void* cookie)
{
    Limited* l = static_cast<Limited*>(cookie);
    int r = ::close(l->fd);
    delete l;
    return r;
}

std::string tempName(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    // hidden and without the ending of the target, so that no search for tables finds it
    return dir + ".~" + base + "." + std::to_string(getpid()) + "." + std::to_string(++g_serial);
}

void exitHandler() { finishAll(); }

std::function<void()> g_abortHook;

bool take(FILE* f, Entry& e)
{
    std::lock_guard<std::mutex> g(lock());
    auto it = outputs().find(f);
    if (it == outputs().end()) return false;
    e = it->second;
    outputs().erase(it);
    return true;
}

} // namespace

FILE* open(const std::string& path, bool append, bool keepOnAbort)
{
    static std::once_flag registered;
    std::call_once(registered, [] {
        // made before the handler is registered, so that they still exist when it runs
        lock();
        outputs();
        std::atexit(exitHandler);
    });

    Entry entry;
    entry.target = path;
    entry.append = append;
    entry.keep = keepOnAbort;
    entry.temp = tempName(path);
    int fd;
    if (append) {
        // a table of all years grows by a year at a time. It is moved aside under a hidden name
        // while the year's lines are appended, and put back by the commit: the cost stays that
        // of the new lines, and a process killed meanwhile leaves no table with a cut line
        // under the table's name (the next run removes the hidden file and writes anew).
        entry.existed = ::rename(path.c_str(), entry.temp.c_str()) == 0;
        if (!entry.existed && errno != ENOENT) return nullptr;
        fd = ::open(entry.temp.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) {
            int err = errno;
            if (entry.existed) (void)::rename(entry.temp.c_str(), path.c_str());
            errno = err;
            return nullptr;
        }
        struct stat st;
        entry.size = fstat(fd, &st) == 0 ? st.st_size : 0;
    } else {
        struct stat st;
        bool exists = ::stat(path.c_str(), &st) == 0;
        fd = ::open(entry.temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, exists ? (st.st_mode & 07777) : 0666);
        if (fd < 0) return nullptr;
        if (exists) (void)fchmod(fd, st.st_mode & 07777);
    }
    FILE* f;
    if (writeLimit() >= 0) {
        cookie_io_functions_t io{nullptr, limitedWrite, limitedSeek, limitedClose};
        f = fopencookie(new Limited{fd}, "w", io);
    } else {
        f = fdopen(fd, "w");
    }
    if (!f) {
        int err = errno;
        ::close(fd);
        undo(entry);
        errno = err;
        return nullptr;
    }
    if (append) {
        entry.buffer = appendBuffer();
        setvbuf(f, entry.buffer.get(), _IOFBF, kAppendBuffer);
    }
    std::lock_guard<std::mutex> g(lock());
    outputs()[f] = entry;
    return f;
}

bool owns(FILE* f)
{
    std::lock_guard<std::mutex> g(lock());
    return outputs().count(f) != 0;
}

std::string target(FILE* f)
{
    std::lock_guard<std::mutex> g(lock());
    auto it = outputs().find(f);
    return it == outputs().end() ? std::string() : it->second.target;
}

std::string writingPath(FILE* f)
{
    std::lock_guard<std::mutex> g(lock());
    auto it = outputs().find(f);
    if (it == outputs().end()) return std::string();
    return it->second.temp;
}

int commit(FILE* f)
{
    Entry e;
    if (!take(f, e)) return EBADF;
    errno = 0;
    int err = 0;
    if (fflush(f) != 0 || ferror(f)) err = errno ? errno : EIO;
    if (fclose(f) != 0 && !err) err = errno ? errno : EIO;
    if (!err && ::rename(e.temp.c_str(), e.target.c_str()) != 0) err = errno ? errno : EIO;
    if (err) undo(e);
    return err;
}

bool finish(FILE* f, bool ok, const std::string& path, std::string& error)
{
    if (!ok) {
        discard(f);
        return false;
    }
    if (int err = commit(f)) {
        error = path + ": " + std::strerror(err);
        return false;
    }
    return true;
}

void discard(FILE* f)
{
    Entry e;
    if (!take(f, e)) return;
    fclose(f);
    undo(e);
}

void close(FILE* f)
{
    if (!f) return;
    if (!owns(f)) {
        fclose(f);
        return;
    }
    std::string path = target(f);
    if (int err = commit(f)) fatalPath(path, err);
}

void fatal(FILE* f, int err)
{
    fatalPath(target(f), err);
}

void setAbortHook(std::function<void()> hook) { g_abortHook = std::move(hook); }

namespace {
std::string g_fatalText;
} // namespace

std::string fatalText() { return g_fatalText; }

void fatalPath(const std::string& path, int err)
{
    static std::atomic<bool> ending{false};
    thread_local bool here = false;
    if (here) std::_Exit(1);              // a second failure on the way out
    here = true;
    if (ending.exchange(true))
        for (;;) pause();                 // another thread is ending the process
    // a stream of another writer has no path here: the cause alone is shown then
    g_fatalText = path.empty() ? std::string(std::strerror(err ? err : EIO))
                               : path + ": " + std::strerror(err ? err : EIO);
    os::messageBox("Fatal output error in csv", "%s", g_fatalText.c_str());
    // the tables of all years back under their names first, so that the hook finds them
    dropAppends();
    if (g_abortHook) g_abortHook();
    finishAll();
    fflush(stdout);
    fflush(stderr);
    // no exit handlers and destructors: other threads may still be writing tables
    std::_Exit(1);
}

int writeFile(const std::string& path, const std::string& data)
{
    FILE* f = open(path);
    if (!f) return errno ? errno : EIO;
    if (!data.empty() && fwrite(data.data(), 1, data.size(), f) != data.size()) {
        int err = errno ? errno : EIO;
        discard(f);
        return err;
    }
    return commit(f);
}

void setWriteLimit(long long limit)
{
    g_written.store(0);
    g_limit.store(limit < 0 ? -1 : limit);
}

void dropAppends()
{
    std::vector<FILE*> appends;
    {
        std::lock_guard<std::mutex> g(lock());
        for (auto& [f, e] : outputs())
            if (e.append) appends.push_back(f);
    }
    for (FILE* f : appends) discard(f);
}

void finishAll()
{
    std::map<FILE*, Entry> all;
    {
        std::lock_guard<std::mutex> g(lock());
        all = outputs();
    }
    for (auto& [f, e] : all) {
        if (e.keep)
            commit(f);
        else
            discard(f);
    }
}

} // namespace safeOutput
