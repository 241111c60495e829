// Fuzz target: adeton's reading of its table (cells, comment lines, targets) and the adjustment
// of what it accepts. A table of more than 40 lines is left out: the decomposition of a large
// system only costs time.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>

#include "fuzz/fuzz_support.h"
#include "statistics/table_adjustment.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string dir = [] {
        std::string d = fuzzing::scratch();
        // the log of the tool goes to Data/ of the scratch installation
        std::filesystem::create_directories(d + "Data");
        FILE* ini = std::fopen((d + "Data/veldor.ini").c_str(), "wb");
        if (ini) std::fclose(ini);
        si::programPath = d + "App/orvane";
        return d;
    }();
    if (std::count(data, data + size, '\n') > 40) return 0;
    static size_t calls = 0;
    if (++calls % 4096 == 0) std::remove((dir + "Data/log.txt").c_str());
    std::string in = dir + "adeton_in.csv", out = dir + "adeton_out.csv";
    fuzzing::writeFile(in, data, size);
    std::string a = in, b = out;
    char* argv[] = {a.data(), b.data(), nullptr};
    adeton(2, argv);
    return 0;
}
