#include "platform/operating_system.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cctype>
#include <clocale>
#include <locale.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <liblnk.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <tbb/parallel_for.h>

#include "platform/dictionary.h"
#include "platform/protocol.h"
#include "platform/text_format.h"

namespace {
bool g_parallel = false;
double g_loopTime = 0;
long g_regions = 0;

} // namespace

int os::glob(const std::string& dir, const std::string& pattern, const GlobCallback& cb)
{
    std::string d = dir;
    if (d.empty() || d.back() != '/') d += '/';
    DIR* h = opendir(d.c_str());
    if (!h) return 0;
    int calls = 0;
    while (dirent* e = readdir(h)) {
        if (fnmatch(pattern.c_str(), e->d_name, FNM_PERIOD) != 0) continue;
        if (!isFile(d + e->d_name)) continue;
        ++calls;
        if (cb(d, e->d_name) != 0) break;
    }
    closedir(h);
    return calls;
}

std::vector<std::string> os::glob(const std::string& dir, const std::string& pattern)
{
    std::vector<std::string> names;
    glob(dir, pattern, [&](const std::string&, const std::string& name) {
        names.push_back(name);
        return 0;
    });
    std::sort(names.begin(), names.end());
    return names;
}

void os::copyFile(const std::string& src, const std::string& dst, bool failIfExists)
{
    std::error_code ec;
    auto opts = failIfExists ? std::filesystem::copy_options::none
                             : std::filesystem::copy_options::overwrite_existing;
    if (!std::filesystem::copy_file(src, dst, opts, ec)) {
        errno = ec.value();
        fatal("copyFile " + src + " " + dst);
    }
}

int os::createDirectory(const std::string& path)
{
    if (mkdir(path.c_str(), 0777) == 0) return 0;
    if (errno == EEXIST && isDirectory(path)) return 1;
    fatal("CreateDirectory(" + path + ")");
}

bool os::isDirectory(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool os::isFile(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool os::isReadOnly(const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return false;
    // the read-only attribute: nobody may write the file
    return (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

uint64_t os::fileSize(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? uint64_t(st.st_size) : 0;
}

std::string os::currentDirectory()
{
    char buffer[4096];
    return getcwd(buffer, sizeof buffer) ? buffer : "";
}

bool os::setCurrentDirectory(const std::string& path) { return chdir(path.c_str()) == 0; }

std::string os::userName()
{
    if (const char* u = ::getenv("USER"); u && *u) return u;
    if (passwd* pw = getpwuid(getuid()); pw && pw->pw_name) return pw->pw_name;
    return "NOUNAME";
}

const char* os::getenv(const char* name) { return ::getenv(name); }

char os::separatorDefault(const std::string& text, char decimalPoint)
{
    if (!text.empty()) return text[0];
    return decimalPoint == ',' ? ';' : ',';
}

os::SystemInfo os::systemInfo()
{
    SystemInfo info;
    utsname u;
    const bool known = uname(&u) == 0;
    info.x64 = known && std::strstr(u.machine, "64") != nullptr;
    info.platform = known ? std::string(u.sysname) + " " + u.machine : "unknown";
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    info.cores = n > 0 ? int(n) : 1;
    return info;
}

os::MemoryInfo os::memoryInfo()
{
    MemoryInfo m{};
    struct sysinfo si;
    if (sysinfo(&si) == 0) {
        unsigned long long unit = si.mem_unit ? si.mem_unit : 1;
        m.totalPhys = si.totalram * unit;
        m.availPhys = (si.freeram + si.bufferram) * unit;
        m.totalPage = (si.totalram + si.totalswap) * unit;
        m.availPage = (si.freeram + si.bufferram + si.freeswap) * unit;
        m.load = m.totalPhys ? (unsigned long)(100 - 100 * m.availPhys / m.totalPhys) : 0;
    }
    // the address space of the process: what /proc tells of its limit and use
    m.totalVirtual = 1ULL << 47;
    m.availVirtual = m.totalVirtual;
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmSize:", 0) == 0) {
            unsigned long long kb = std::strtoull(line.c_str() + 7, nullptr, 10);
            m.availVirtual = m.totalVirtual - kb * 1024;
        }
    }
    return m;
}

std::string os::dateTime()
{
    char buffer[128];
    time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    // a German run keeps the locale of the settings; another language its own, where the
    // machine has it, else the neutral one
    if (!DD::german()) {
        static std::string timeLanguage;
        static locale_t timeLocale = locale_t(0);
        if (timeLanguage != DD::language()) {
            if (timeLocale) freelocale(timeLocale);
            timeLanguage = DD::language();
            timeLocale = locale_t(0);
            std::string lang = timeLanguage, upper = lang;
            for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
            for (const std::string& name : {lang + "_" + upper + ".UTF-8", std::string(lang == "en" ? "en_GB.UTF-8" : ""),
                                            std::string(lang == "en" ? "en_US.UTF-8" : "")})
                if (!name.empty() && !timeLocale) timeLocale = newlocale(LC_TIME_MASK, name.c_str(), locale_t(0));
            if (!timeLocale) timeLocale = newlocale(LC_TIME_MASK, "C", locale_t(0));
        }
        if (timeLocale && strftime_l(buffer, sizeof buffer, "%c", &local, timeLocale) != 0) return buffer;
    }
    if (strftime(buffer, sizeof buffer, "%c", &local) == 0) return "strftime failed";
    return buffer;
}

std::string os::toBackslashes(std::string text)
{
    std::replace(text.begin(), text.end(), '/', '\\');
    return text;
}

namespace {
// the target of a Windows shell link: the relative path first (taken from the link's
// directory), else the local path with its separators turned
int readShellLink(const std::string& path, std::string& result)
{
    liblnk_file_t* file = nullptr;
    liblnk_error_t* error = nullptr;
    if (liblnk_file_initialize(&file, &error) != 1) {
        liblnk_error_free(&error);
        return 2;
    }
    int rc = 2;
    if (liblnk_file_open(file, path.c_str(), LIBLNK_OPEN_READ, &error) == 1) {
        auto get = [&](auto sizeFn, auto valueFn) -> std::string {
            size_t size = 0;
            if (sizeFn(file, &size, &error) != 1 || size == 0) return "";
            std::string s(size, '\0');
            if (valueFn(file, reinterpret_cast<uint8_t*>(s.data()), size, &error) != 1) return "";
            s.resize(std::strlen(s.c_str()));
            return s;
        };
        std::string rel = get(liblnk_file_get_utf8_relative_path_size, liblnk_file_get_utf8_relative_path);
        std::replace(rel.begin(), rel.end(), '\\', '/');
        std::string base = std::filesystem::path(path).parent_path().string();
        if (!rel.empty()) {
            std::string candidate = base.empty() ? rel : base + "/" + rel;
            if (os::isFile(candidate)) {
                result = candidate;
                rc = 0;
            }
        }
        if (rc != 0) {
            std::string local = get(liblnk_file_get_utf8_local_path_size, liblnk_file_get_utf8_local_path);
            std::replace(local.begin(), local.end(), '\\', '/');
            if (!local.empty()) {
                result = local;
                rc = 0;
            } else if (!rel.empty()) {
                result = base.empty() ? rel : base + "/" + rel;
                rc = 0;
            }
        }
        liblnk_file_close(file, &error);
    }
    if (error) liblnk_error_free(&error);
    liblnk_file_free(&file, nullptr);
    return rc;
}
} // namespace

int os::readLink(const std::string& path, std::string& result)
{
    auto endsWith = [&](const char* tail) {
        size_t n = std::strlen(tail);
        return path.size() >= n && path.compare(path.size() - n, n, tail) == 0;
    };
    if (endsWith("csv.lnk") || endsWith("txt.lnk")) {
        // links of old versions carried no file extension: name.lnk instead of name.csv.lnk
        std::string old = path.substr(0, path.size() - 7) + "lnk";
        if (isFile(old)) {
            // a batch run cannot ask: the question goes to the protocol, the answer is "no"
            Prot::message(SEV_HINT, "Datei ümbenennen ?: ungültige Link Datei:\n%s\nseit VELDOR 9.3 muss "
                                    "Link Dateierweiterung enthalten:\n%s",
                          old.c_str(), path.c_str());
        }
    }
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return errno ? errno : 2;
    if (S_ISLNK(st.st_mode)) {
        std::error_code ec;
        auto target = std::filesystem::read_symlink(path, ec);
        if (ec) return ec.value();
        if (target.is_relative()) target = std::filesystem::path(path).parent_path() / target;
        result = target.string();
        return 0;
    }
    return readShellLink(path, result);
}

void os::messageBox(const char* title, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    std::string text = vformat(format, ap);
    va_end(ap);
    fprintf(stderr, "%s: %s\n", title, text.c_str());
    fflush(stderr);
}

bool os::messageBoxYesNo(const char* title, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    std::string text = vformat(format, ap);
    va_end(ap);
    fprintf(stderr, "%s: %s\n", title, text.c_str());
    fflush(stderr);
    return false;
}

void os::fatal(const std::string& text)
{
    int err = errno;
    char buffer[1200];
    snprintf(buffer, sizeof buffer, "%s failed with error %lu: %s", text.c_str(), (unsigned long)err,
             std::strerror(err));
    messageBox("Error", "%s", buffer);
    // the exit status of the program is 0 or 1; the cause stands in the message
    std::exit(1);
}

bool os::parallel() { return g_parallel; }
void os::setParallel(bool on) { g_parallel = on; }

void os::adviseHugePages(void* p, size_t bytes)
{
#ifdef MADV_HUGEPAGE
    // advice only: a system without huge pages keeps the small ones
    madvise(p, bytes, MADV_HUGEPAGE);
#else
    (void)p;
    (void)bytes;
#endif
}
void os::addLoopTime(double ms) { g_loopTime += ms; }
double os::loopTime() { return g_loopTime; }
void os::countRegion() { ++g_regions; }
long os::regions() { return g_regions; }

void os::parallelFor(int begin, int end, const std::function<void(int)>& body)
{
    if (begin >= end) return;
    if (!g_parallel) {
        for (int i = begin; i < end; ++i) body(i);
        return;
    }
    auto t0 = std::chrono::steady_clock::now();
    tbb::parallel_for(begin, end, [&](int i) { body(i); });
    ++g_regions;
    g_loopTime += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

int os::system(const std::string& command)
{
    fflush(nullptr);
    int rc = std::system(command.c_str());
    if (rc == -1) return -1;
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

std::string os::errorText(int err) { return std::strerror(err); }
