#include "platform/run_lock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

// directories locked by this process: their descriptors stay open until it ends
std::map<std::string, int> g_held;

// the command line of a process, its arguments joined by blanks
std::string commandLine(long pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    while (!text.empty() && text.back() == '\0') text.pop_back();
    for (char& c : text)
        if (c == '\0') c = ' ';
    return text;
}

// the process that holds a whole-file lock on the file st names, from the kernel's lock table
long lockHolder(const struct stat& st)
{
    std::ifstream locks("/proc/locks");
    std::string line;
    char device[64];
    snprintf(device, sizeof device, "%02x:%02x:%ju", major(st.st_dev), minor(st.st_dev),
             static_cast<uintmax_t>(st.st_ino));
    while (std::getline(locks, line)) {
        // "1: FLOCK  ADVISORY  WRITE 4711 08:01:1234 0 EOF"; waiting requests begin with "->"
        if (line.find("->") != std::string::npos) continue;
        std::istringstream fields(line);
        std::string number, kind, mode, access, where;
        long pid = 0;
        if (!(fields >> number >> kind >> mode >> access >> pid >> where)) continue;
        if (kind == "FLOCK" && where == device && pid > 0) return pid;
    }
    return 0;
}

} // namespace

bool runLock::acquire(const std::string& directory, std::string& holder, std::string& errorText)
{
    holder.clear();
    errorText.clear();
    if (g_held.count(directory)) return true;
    int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        errorText = std::strerror(errno);
        return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
        g_held[directory] = fd;
        return true;
    }
    int err = errno;
    if (err != EWOULDBLOCK) {
        errorText = std::strerror(err);
        ::close(fd);
        return false;
    }
    struct stat st;
    long pid = fstat(fd, &st) == 0 ? lockHolder(st) : 0;
    ::close(fd);
    if (pid <= 0) {
        holder = "unknown";
    } else {
        std::string command = commandLine(pid);
        holder = std::to_string(pid) + (command.empty() ? "" : " (" + command + ")");
    }
    return false;
}
