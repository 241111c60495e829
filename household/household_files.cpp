#include "household/household_files.h"

#include <cerrno>
#include <stdexcept>

#include "household/household_settings.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"

FILE* openOutput(const std::string& sub, const std::string& name)
{
    std::string dir = hh.directory + sub;
    if (!sub.empty()) os::createDirectory(dir);
    std::string path = dir + name;
    FILE* f = safeOutput::open(path);
    if (!f) throw std::runtime_error("open " + path + " " + os::errorText(errno));
    return f;
}

void closeOutput(FILE* f)
{
    if (!f) return;
    if (!safeOutput::owns(f)) {
        std::fclose(f);
        return;
    }
    std::string path = safeOutput::target(f);
    if (int err = safeOutput::commit(f)) throw std::runtime_error(path + ": " + os::errorText(err));
}

void dropOutput(FILE* f)
{
    if (!f) return;
    if (safeOutput::owns(f)) safeOutput::discard(f);
    else std::fclose(f);
}
