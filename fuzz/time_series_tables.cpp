// Fuzz target: zrgem's reading of the yearly population tables, plain lines cut in place and
// odd lines through the table reader, with and without aggregation, and its checks of the
// records. Inputs the table reader refuses outright (a NUL byte, a quote, a line longer than a
// cell) end the process by design and are left out.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "statistics/time_series.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) return 0;
    const char* text = reinterpret_cast<const char*>(data + 1);
    size_t length = size - 1;
    if (std::memchr(text, 0, length) || std::memchr(text, '"', length)) return 0;
    size_t line = 0;
    for (size_t i = 0; i < length; ++i) {
        line = text[i] == '\n' ? 0 : line + 1;
        if (line > 1000) return 0;
    }
    const std::string& dir = fuzzing::scratch();
    static size_t calls = 0;
    fuzzing::trimConsole(calls);
    // the year before from the variant's parent, the year itself in the result directory
    std::string results = si::Directory + si::Version + "/";
    fuzzing::writeFile(si::Directory + "gem2023.csv", data + 1, length);
    fuzzing::writeFile(results + "gem2024.csv", data + 1, length);
    (void)dir;
    // the first byte chooses the column forms
    static const std::vector<std::string> plain = {"$i", "$i", "$i", "$i", "$i"};
    static const std::vector<std::string> summed = {"/1", "$i", "0", "^1", "^90"};
    zrgem("zr_fuzz", data[0] & 1 ? summed : plain, si::Directory, si::Version, 2024, data[0] & 2, 2024, data[0] & 4,
          "%.6g");
    return 0;
}
