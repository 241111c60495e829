// The bridge to gnuplot.
#include "tables/gnuplot_bridge.h"

#include <cerrno>
#include <filesystem>
#include <csignal>
#include <cstring>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"

namespace plot {
int saveCmd = 0;
int saveLog = 1;
std::string background = "#ffffff";
} // namespace plot

namespace {

char g_terminal[100];
char g_separator[60];
bool g_separatorBuilt = false;

// the open streams: true for a pipe, false for a command file
std::map<FILE*, bool> g_streams;
// the error log of each pipe: what gnuplot says goes into the protocol, not onto the console
std::map<FILE*, std::string> g_pipeLogs;

// the lines gnuplot wrote to its error stream, as a warning block of the protocol; the note on
// the decimal sign and the count of frames of an animation are no warnings
void reportLog(FILE* protocol, const std::string& logPath)
{
    FILE* log = fopen(logPath.c_str(), "r");
    if (!log) return;
    char line[256];
    bool warned = false;
    while (fgets(line, sizeof line, log)) {
        if (std::strncmp(line, "decimal_sign", 12) == 0) continue;
        if (std::strstr(line, "frames in animation sequence")) continue;
        if (protocol) {
            if (!warned) fputs("<pre>gnuplot warning\n", protocol);
            fputs(line, protocol);
        }
        warned = true;
    }
    if (warned && protocol) fputs("</pre>\n", protocol);
    fclose(log);
    remove(logPath.c_str());
}
int g_pipes = 0;
struct sigaction g_oldPipeAction;

void buildTerminal()
{
    snprintf(g_terminal, sizeof g_terminal,
             "set term pngcairo color solid font 'Arial,8' size 22.6cm, 16.94cm background rgb '%s'",
             plot::background.c_str());
}

// a path as one word of a shell command line
std::string quotePath(const std::string& path)
{
    if (path.find_first_of(" \t'\"\\$`&;|<>()*?[]#~!{}") == std::string::npos && !path.empty()) return path;
    std::string q = "'";
    for (char c : path) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q + "'";
}

// the exit code of a child from the status of pclose or system; -1 when it did not run
int exitCode(int status)
{
    if (status == -1) return -1;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return status;
}

// while a pipe is open a gnuplot that died must not take the run with it
void pipeOpened()
{
    if (g_pipes++ == 0) {
        struct sigaction ignore;
        std::memset(&ignore, 0, sizeof ignore);
        ignore.sa_handler = SIG_IGN;
        sigemptyset(&ignore.sa_mask);
        sigaction(SIGPIPE, &ignore, &g_oldPipeAction);
    }
}

void pipeClosed()
{
    if (g_pipes > 0 && --g_pipes == 0) sigaction(SIGPIPE, &g_oldPipeAction, nullptr);
}

// a bare program name is started through the search path; a shell would report the missing
// program only by its exit status, after the commands were written into the pipe
bool onSearchPath(const std::string& program)
{
    if (program.find('/') != std::string::npos) return true;
    const char* path = os::getenv("PATH");
    std::string dirs = path ? path : "";
    size_t start = 0;
    for (;;) {
        size_t end = dirs.find(':', start);
        std::string dir = dirs.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (dir.empty()) dir = ".";
        if (access((dir + "/" + program).c_str(), X_OK) == 0) return true;
        if (end == std::string::npos) return false;
        start = end + 1;
    }
}

std::string commandFile(const char* name) { return Prot::filePath(std::string("plt") + name + ".txt"); }

} // namespace

void plotSetup()
{
    plot::saveCmd = si::getInt("GNUPLOT", "saveCmd", 0);
    plot::saveLog = si::getInt("GNUPLOT", "saveLog", 1);
    plot::background = si::getString("GNUPLOT", "background", "#ffffff");
    buildTerminal();
}

void gnuplotSettings() { plotSetup(); }

const char* plotTerminal()
{
    if (!g_terminal[0]) buildTerminal();
    return g_terminal;
}

const char* plotSeparator()
{
    if (!g_separatorBuilt) {
        char s[2] = {si::separator, 0};
        snprintf(g_separator, sizeof g_separator, "set datafile separator '%s'", s);
        g_separatorBuilt = true;
    }
    return g_separator;
}

std::string plotPath(const std::string& installDirectory, FILE* protocol, int level)
{
    const char* suffix = "";   // executables have no suffix here
    std::string candidate = installDirectory + "gnuplot" + "64" + "/bin/gnuplot" + suffix;
    if (os::isFile(candidate)) return quotePath(candidate);
    std::string plain = std::string("gnuplot") + suffix;
    if (level > 2 && protocol) {
        const char* path = os::getenv("PATH");
        fprintf(protocol, "<pre>%s not found, try %s in PATH=%s</pre>", quotePath(candidate).c_str(), plain.c_str(),
                path ? path : "");
    }
    return plain;
}

// where gnuplot's error stream of a plot is kept: beside the forecast's protocol pages; none for a
// tool whose protocol stands elsewhere, so that nothing is written outside its directories
static std::string protocolLog(const std::string& name)
{
    std::string path = Prot::filePath(name);
    std::error_code e;
    return std::filesystem::is_directory(std::filesystem::path(path).parent_path(), e) ? path : "";
}

FILE* plotOpen(FILE* protocol, int level, const std::string& installDirectory, const char* name)
{
    if (!protocol) level = 0;
    if (!plot::saveCmd) {
        std::string program = plotPath(installDirectory, protocol, level);
        pipeOpened();
        if (level > 2) {
            std::string version = program + " -V";
            if (FILE* v = popen(version.c_str(), "r")) {
                fputs("<pre>", protocol);
                char buffer[256];
                size_t n;
                while ((n = fread(buffer, 1, sizeof buffer, v)) > 0) fwrite(buffer, 1, n, protocol);
                pclose(v);
                fputs("</pre>\n", protocol);
            } else {
                fprintf(protocol, "can not open %s\n", version.c_str());
            }
        }
        errno = 0;
        FILE* pipe = nullptr;
        // with saveLog the error stream goes to a log of this plot, read into the protocol at the close
        std::string logPath = plot::saveLog && protocol ? protocolLog(std::string("gnuplot_") + name + ".log") : "";
        if (onSearchPath(program))
            pipe = popen(logPath.empty() ? program.c_str() : (program + " 2>" + quotePath(logPath)).c_str(), "w");
        else
            errno = ENOENT;
        int e = errno;
        if (level > 2) {
            fprintf(protocol, "PLOT_OPEN_PIPE(%s, %s)\n", os::currentDirectory().c_str(), program.c_str());
            if (!pipe) fprintf(protocol, "%s\n", strerror(e));
        }
        if (!pipe) {
            pipeClosed();
            return nullptr;
        }
        g_streams[pipe] = true;
        if (!logPath.empty()) g_pipeLogs[pipe] = logPath;
        return pipe;
    }
    std::string path = commandFile(name);
    FILE* file = fopen(path.c_str(), "w");
    int e = errno;
    if (level > 2) {
        fprintf(protocol, "<code>PLOT_OPEN_FILE(%s)</code><br>\n", path.c_str());
        if (!file) fprintf(protocol, "<code>%s</code><br>\n", strerror(e));
    }
    if (file) g_streams[file] = false;
    return file;
}

int plotClose(FILE* protocol, int level, FILE* stream, const std::string& installDirectory, const char* name)
{
    if (!stream) return 0;
    if (!protocol) level = 0;
    auto it = g_streams.find(stream);
    bool isPipe = it != g_streams.end() ? it->second : !plot::saveCmd;
    if (it != g_streams.end()) g_streams.erase(it);

    if (isPipe) {
        // the stream's log is looked up while the stream is still open: its address is its key
        auto log = g_pipeLogs.find(stream);
        int status = exitCode(pclose(stream));
        pipeClosed();
        if (log != g_pipeLogs.end()) {
            reportLog(protocol, log->second);
            g_pipeLogs.erase(log);
        }
        if (level > 2)
            fprintf(protocol, "<pre>CD=%s\n%d=PLOT_CLOSE_PIPE\n</pre>\n", os::currentDirectory().c_str(), status);
        if (status != 0) Prot::message(SEV_WARNING, "gnuplot call failed");
        return status;
    }

    fclose(stream);
    std::string program = plotPath(installDirectory, protocol, level);
    std::string logPath = plot::saveLog ? protocolLog("gnuplot.log") : "";
    char command[2054];
    snprintf(command, sizeof command, "%s %s%s%s", program.c_str(), quotePath(commandFile(name)).c_str(),
             logPath.empty() ? "" : " 2>", logPath.empty() ? "" : quotePath(logPath).c_str());
    fflush(nullptr);
    errno = 0;
    int status = exitCode(std::system(command));
    int e = errno;
    if (level > 2) {
        fprintf(protocol, "<code>CD=%s<br>\nPLOT_CLOSE_FILE %d=system(%s)</code><br>\n", os::currentDirectory().c_str(),
                status, command);
        if (status != 0) fprintf(protocol, "<code>%s</code><br>\n", strerror(e));
    }
    if (!logPath.empty()) reportLog(protocol, logPath);
    return status;
}

bool plotPictureComplete(const std::string& path)
{
    static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    static const unsigned char end[12] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return false;
    unsigned char head[8] = {}, tail[12] = {};
    bool whole = fread(head, 1, 8, f) == 8 && std::memcmp(head, signature, 8) == 0 && fseek(f, -12, SEEK_END) == 0 &&
                 fread(tail, 1, 12, f) == 12 && std::memcmp(tail, end, 12) == 0;
    fclose(f);
    return whole;
}
