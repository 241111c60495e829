// Shared set-up of the fuzz targets: a scratch installation in a temporary directory, the
// program's messages kept off the terminal, and the input written to a file.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/protocol.h"
#include "platform/settings.h"

namespace fuzzing {

// the scratch directory as made, for its removal at the end of the process
inline std::string& scratchRoot()
{
    static std::string root;
    return root;
}

// the scratch directory (ends with "/"), made on first use with App/ holding the program's
// files from the source tree, and the protocol set up for variant "v" without a page
inline const std::string& scratch()
{
    static std::string dir = [] {
        char tmpl[] = "/tmp/veldor-fuzz-XXXXXX";
        std::string d = mkdtemp(tmpl);
        // removed when the target ends (a crash leaves it, with what the input wrote)
        scratchRoot() = d;
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(scratchRoot(), ec);
        });
        d += "/";
        std::filesystem::create_directories(d + "App");
        std::filesystem::create_directories(d + "var/v");
        for (const char* f : {"constant.csv", "datadict_de.xml", "style.css"})
            std::filesystem::copy_file(std::string(VELDOR_SOURCE_DIR) + "/app/" + f, d + "App/" + f,
                                       std::filesystem::copy_options::overwrite_existing);
        si::appDir = d + "App/";
        si::separator = ';';
        si::Directory = d + "var/";
        si::Version = "v";
        Prot::setup(si::Directory, si::Version, 0, 0);
        Prot::setThrow(true);
        // messages go to the console: not to the fuzzer's terminal, unless a single input is
        // run to see what it says (VELDOR_FUZZ_ECHO=1)
        if (!std::getenv("VELDOR_FUZZ_ECHO") && !std::freopen("/dev/null", "w", stdout)) std::abort();
        return d;
    }();
    return dir;
}

inline void writeFile(const std::string& path, const uint8_t* data, size_t size)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    if (size) std::fwrite(data, 1, size, f);
    std::fclose(f);
}

// the console file grows with every message: started afresh now and then
inline void trimConsole(size_t& calls)
{
    if (++calls % 4096 == 0) std::remove((si::Directory + si::Version + "/prot.tmp").c_str());
}

} // namespace fuzzing
