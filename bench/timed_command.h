// A whole command timed by /usr/bin/time -v: wall and CPU seconds, peak memory, exit status.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/wait.h>

struct Measure {
    double seconds = -1, cpu = 0;
    long peakKb = -1;
    int status = -1;
};

// h:mm:ss or m:ss.ss
inline double parseClock(const std::string& text)
{
    double total = 0;
    std::stringstream s(text);
    std::string part;
    while (std::getline(s, part, ':')) total = total * 60 + std::atof(part.c_str());
    return total;
}

// runs command in root, its output into out, and reads what time reported of it
inline Measure timedCommand(const std::filesystem::path& root, const std::string& command,
                            const std::filesystem::path& out)
{
    std::filesystem::path timeLog = root / "time.log";
    std::string cmd = "cd '" + root.string() + "' && /usr/bin/time -v -o '" + timeLog.string() + "' " + command +
                      " >'" + out.string() + "' 2>&1";
    Measure m;
    int rc = std::system(cmd.c_str());
    m.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    std::ifstream f(timeLog);
    std::string line;
    while (std::getline(f, line)) {
        if (auto p = line.find("Elapsed (wall clock) time"); p != std::string::npos)
            m.seconds = parseClock(line.substr(line.rfind(' ') + 1));
        if (auto p = line.find("User time (seconds):"); p != std::string::npos) m.cpu += std::atof(line.c_str() + p + 20);
        if (auto p = line.find("System time (seconds):"); p != std::string::npos) m.cpu += std::atof(line.c_str() + p + 22);
        if (auto p = line.find("Maximum resident set size (kbytes):"); p != std::string::npos)
            m.peakKb = std::atol(line.c_str() + p + 35);
    }
    return m;
}
