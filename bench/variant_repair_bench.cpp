// Times the repair of a variant file whose obsolete section holds many keys: one read and one
// write of the file whatever their number, and the hints about them capped. With "repeated"
// the keys are one misspelt key of a read section (two slips away, so that the repair goes
// on), repeated with changing values: the repair keeps the last one, as a comment, and stays
// linear in the lines.
// usage: variant_repair_bench [keys] [repeated]   (default 10000; run from build/, where App/ stands)
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
    const bool repeated = argc > 2 && std::string(argv[2]) == "repeated";
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
        ini << "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2030\n" << (repeated ? "" : "[ALT]\n");
        for (int i = 0; i < keys; ++i) {
            if (repeated)
                ini << "STRTJHAR=" << (i % 2 ? 2024 : i) << "\n";
            else
                ini << "K" << i << "=" << i << "\n";
        }
    }
    // the hints of a run without a protocol page go to the console: not to the bench's
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    auto t0 = std::chrono::steady_clock::now();
    int result = mkvers();
    Prot::summariseAlike();
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    fprintf(stderr, "repair of %d %s keys: %.3f s (result %d, file %ju bytes)\n", keys, repeated ? "repeated" : "obsolete", s, result,
            static_cast<uintmax_t>(fs::file_size(dir + "v.ini")));
    fs::remove_all(dir);
    return 0;
}
