// Fuzz target: the settings reader and the repair of a variant file: any text as
// <Directory><Version>.ini, read, repaired and read again.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_support.h"
#include "kernel/variant_file.h"
#include "platform/variant_settings.h"
#include "tables/expression.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& dir = fuzzing::scratch();
    static size_t calls = 0;
    fuzzing::trimConsole(calls);
    std::string path = dir + "var/v.ini";
    fuzzing::writeFile(path, data, size);
    si::profileString(path, "DEFAULTS", "STARTJAHR", "");
    try {
        mkvers();
    } catch (const std::runtime_error&) {
    }
    // the repaired file must read back
    si::varInt("DEFAULTS", "STARTJAHR", 0, si::Directory, si::Version);
    return 0;
}
