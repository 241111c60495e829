// Fuzz target: texts that reach themselves. The input is written as the statement file
// rec.txt and run through eval_file('rec') and as an option text, so that files and variables
// which evaluate themselves, each other or eval_file('rec') are explored. Nothing may crash:
// a nesting too deep ends in an error message.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tables/expression.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& dir = fuzzing::scratch();
    static size_t calls = 0;
    fuzzing::trimConsole(calls);
    fuzzing::writeFile(dir + "var/rec.txt", data, size);
    std::string text(reinterpret_cast<const char*>(data), size);
    text = text.c_str();
    runOptionText("eval_file('rec')");
    runOptionText(text);
    exprClearTable();
    opt::clear();
    return 0;
}
