// Times the repair of a variant file whose obsolete section holds many keys: one read and one
// write of the file whatever their number, and the hints about them capped.
// usage: variant_repair_bench [keys]   (default 10000; run from build/, where App/ stands)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kernel/variant_file.h"
#include "platform/protocol.h"
#include "platform/settings.h"

namespace fs = std::filesystem;

int main(int argc, char** argv)
{
    const int keys = argc > 1 ? std::atoi(argv[1]) : 10000;
    fs::path app = fs::absolute(fs::path(argv[0])).parent_path().parent_path() / "App";
    si::appDir = app.string() + "/";
    std::string dir = (fs::temp_directory_path() / "variant_repair_bench").string() + "/";
    fs::remove_all(dir);
    fs::create_directories(dir + "v");
    si::Directory = dir;
    si::Version = "v";
    Prot::setup(dir, "v", 1, 0);
    {
        std::ofstream ini(dir + "v.ini");
        ini << "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2030\n[ALT]\n";
        for (int i = 0; i < keys; ++i) ini << "K" << i << "=" << i << "\n";
    }
    // the hints of a run without a protocol page go to the console: not to the bench's
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    auto t0 = std::chrono::steady_clock::now();
    int result = mkvers();
    Prot::summariseAlike();
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    fprintf(stderr, "repair of %d obsolete keys: %.3f s (result %d, file %ju bytes)\n", keys, s, result,
            static_cast<uintmax_t>(fs::file_size(dir + "v.ini")));
    fs::remove_all(dir);
    return 0;
}
