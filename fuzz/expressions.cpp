// Fuzz target: the expression language of table cells and of the option -o: parse and run
// any text. Errors are messages (caught as the option reader does); nothing may crash.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tables/expression.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzing::scratch();
    static size_t calls = 0;
    fuzzing::trimConsole(calls);
    std::string text(reinterpret_cast<const char*>(data), size);
    text = text.c_str();     // a C string, as the command line gives it
    runOptionText(text);
    exprClearTable();
    opt::clear();
    return 0;
}
