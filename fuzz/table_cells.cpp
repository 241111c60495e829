// Fuzz target: the cell reader of the semicolon tables. Every status must be one of the
// documented ones, a cell must fit its buffer, and the reader must come to the end.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tables/table_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) return 0;
    // the first byte chooses the buffer size, so that overflow is reached as well
    int bufferSize = 1 + data[0] % 64;
    FILE* f = fmemopen(const_cast<uint8_t*>(data + 1), size - 1, "rb");
    if (!f) return 0;
    CsvReader reader(f, ";");
    char cell[65];
    size_t calls = 0;
    for (;;) {
        int status = reader.next(cell, bufferSize);
        if (std::strlen(cell) >= static_cast<size_t>(bufferSize)) std::abort();
        if (status < -5 || (status < 0 && status != -1 && CsvReader::errorText(status) == "unknown error code"))
            std::abort();
        if (status == -1) break;
        if (status < 0 && std::feof(f)) break;
        if (++calls % 7 == 0) reader.currentLine();
        if (calls > 4 * size + 16) std::abort();     // no progress
    }
    std::fclose(f);
    return 0;
}
