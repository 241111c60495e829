#include "commands/run_failure.h"

#include <cstdarg>
#include <cstdio>
#include <filesystem>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/settings.h"

namespace {

// one line on standard error; the text comes from the dictionary, and a run without a readable
// dictionary still gets the English one
void tell(const char* key, const char* fallback, ...)
{
    std::string format = DD::lookup(key, fallback);
    char text[2048];
    va_list ap;
    va_start(ap, fallback);
    vsnprintf(text, sizeof text, format.c_str(), ap);
    va_end(ap);
    fprintf(stderr, "orvane: %s\n", text);
}

std::string absolute(const std::string& path)
{
    std::error_code ec;
    auto p = std::filesystem::absolute(path.empty() ? "." : path, ec);
    return ec ? path : p.lexically_normal().string();
}

} // namespace

void tellMissingVariant(const VariantRequest& request)
{
    const std::string& dir = si::Directory;
    const std::string& version = si::Version;
    std::string path = si::variantPath();
    tell("orvane_noVariant", "variant file %s not found (%s)", path.c_str(), absolute(path).c_str());
    if (request.directoryGiven && !dir.empty() && dir.back() != '/' && dir.back() != '\\')
        tell("orvane_dirSeparator", "-d %s does not end with \"/\": directory and variant are joined as they stand; you probably mean -d %s/",
             dir.c_str(), dir.c_str());
    if (request.versionGiven && !request.directoryGiven)
        tell("orvane_noDirectory", "-v %s without -d: the directory comes from Directory=%s in %s",
             version.c_str(), dir.c_str(), si::settingsPath().c_str());
    // the variants that stand where the file was looked for
    std::string where = dir.empty() ? "." : dir;
    std::string names;
    for (const auto& name : os::glob(where.empty() ? "." : where, "*.ini"))
        names += " " + name.substr(0, name.size() - 4);
    if (!names.empty())
        tell("orvane_variants", "variant files in %s:%s", absolute(where).c_str(), names.c_str());
}

void tellInvalidVariant()
{
    tell("orvane_invalidVariant", "%s holds an invalid value (named above); no forecast", si::variantPath().c_str());
}

void tellFailedRun(int status)
{
    std::string protocol = si::Directory + si::Version + "/prot/index.html";
    if (os::isFile(protocol))
        tell("orvane_failed", "the forecast ended with status %d; its protocol: %s", status, absolute(protocol).c_str());
    else
        tell("orvane_failedNoProtocol", "the forecast ended with status %d", status);
}

void tellBusyDirectory(const std::string& directory, const std::string& holder, const std::string& errorText)
{
    std::string dir = absolute(directory) + "/";
    if (!errorText.empty())
        tell("orvane_lockFailed", "cannot lock the result directory %s: %s; no forecast", dir.c_str(), errorText.c_str());
    else
        tell("orvane_busy", "the result directory %s is in use by the running process %s; this run stops and leaves it untouched",
             dir.c_str(), holder.c_str());
}
