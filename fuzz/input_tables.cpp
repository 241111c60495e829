// Fuzz target: the input table reader with its index cells, guards, commands and expressions,
// reading a table of three indices (with a check number column) and one of two.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_support.h"
#include "kernel/stages.h"
#include "platform/variant_settings.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "tables/input_reader.h"
#include "tables/labelled_array.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& dir = fuzzing::scratch();
    static size_t calls = 0;
    fuzzing::trimConsole(calls);
    ini::STARTJAHR = 2020;
    JAHR = 2020;
    keyScale = 1;
    traceLevel = 0;
    // the first byte chooses the table's shape and checks
    int shape = size ? data[0] : 0;
    if (size) {
        ++data;
        --size;
    }
    fuzzing::writeFile(dir + "var/v/fz2020.csv", data, size);
    FileEntry entry;
    entry.name = "fz%d";
    entry.kind = 1;
    entry.lastIndexFromZero = shape & 1;
    entry.checkMode = (shape >> 1) & 3;
    entry.regionColumn = 0;
    entry.yearOffset = 0;
    int valueCheck = (shape >> 3) & 1 ? 2 : ((shape >> 4) & 1 ? 4 : 0);
    try {
        if (shape & 0x20) {
            LA2 target("FZ", {4, 6}, 0);
            readTable(entry, target, "A\0B\0", valueCheck);
        } else {
            LA3 target("FZ", {3, 2, 5}, 0);
            readTable(entry, target, "A\0B\0C\0", valueCheck);
        }
    } catch (const std::runtime_error&) {
        // an error message ends the read, as it ends a run
    }
    exprClearTable();
    opt::clear();
    checkUndef = 1;
    return 0;
}
