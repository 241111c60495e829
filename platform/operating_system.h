// Thin wrapper of the operating system: files, directories, links, message boxes,
// system data and the bookkeeping of parallel loops.
#pragma once
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class os {
public:
    using GlobCallback = std::function<int(const std::string& dir, const std::string& name)>;

    // Lists the files of dir matching pattern (shell wildcards) and calls cb with
    // (dir with trailing "/", name) for each, in the file system's order; a non-zero
    // result of cb stops. Returns the number of calls.
    static int glob(const std::string& dir, const std::string& pattern, const GlobCallback& cb);
    // The same, collecting the names; returned sorted.
    static std::vector<std::string> glob(const std::string& dir, const std::string& pattern);

    static void copyFile(const std::string& src, const std::string& dst, bool failIfExists);
    // 0 when created, 1 when it already existed; other failures are fatal.
    static int createDirectory(const std::string& path);

    static bool isDirectory(const std::string& path);
    static bool isFile(const std::string& path);
    static bool isReadOnly(const std::string& path);
    static uint64_t fileSize(const std::string& path);   // 0 for a missing file

    static std::string currentDirectory();
    static bool setCurrentDirectory(const std::string& path);
    static std::string userName();                       // "NOUNAME" on failure
    static const char* getenv(const char* name);

    // First character of text; for an empty text ";" when the decimal point is ",", else ",".
    static char separatorDefault(const std::string& text, char decimalPoint);

    // platform: the system and machine the program runs on ("Linux x86_64")
    struct SystemInfo { bool x64; int cores; std::string platform; };
    static SystemInfo systemInfo();
    struct MemoryInfo {
        unsigned long load;  // percent of memory in use
        unsigned long long totalPhys, availPhys, totalPage, availPage, totalVirtual, availVirtual; // bytes
    };
    static MemoryInfo memoryInfo();

    // "%c" of the current local time; "strftime failed" when that yields nothing.
    static std::string dateTime();
    static std::string toBackslashes(std::string text);

    // Follows a shortcut: a Windows shell link file read by liblnk, or a symbolic link.
    // Returns 0 and the target in result, or a non-zero code.
    static int readLink(const std::string& path, std::string& result);

    // Message boxes of the original: "title: text" on standard error, never waiting.
    static void messageBox(const char* title, const char* format, ...) __attribute__((format(printf, 2, 3)));
    // The question form cannot be answered in a batch run: it is shown and taken as "no".
    static bool messageBoxYesNo(const char* title, const char* format, ...) __attribute__((format(printf, 2, 3)));
    // "%s failed with error %lu: %s", box titled "Error", process ends with status 1.
    [[noreturn]] static void fatal(const std::string& text);

    // Asks the kernel to back [p, p + bytes) with huge pages (transparent huge pages, where the
    // system offers them on request): a large table walked in order then costs a page-table walk
    // per 2 MB instead of per 4 kB. p and bytes are multiples of hugePageBytes; nothing happens
    // where the system has no such pages.
    static constexpr size_t hugePageBytes = size_t(2) << 20;
    static void adviseHugePages(void* p, size_t bytes);

    // parallel flag and the bookkeeping of the parallel loops
    static bool parallel();
    static void setParallel(bool on);
    static void addLoopTime(double ms);
    static double loopTime();
    static void countRegion();
    static long regions();

    // Runs body(i) for i in [begin, end): through tbb::parallel_for when the parallel
    // flag is set, else in a plain loop.
    static void parallelFor(int begin, int end, const std::function<void(int)>& body);

    // Starts a command line through the shell; returns its status, -1 when it could not start.
    static int system(const std::string& command);

    static std::string errorText(int err);               // strerror
};
