// Whether a table's last line has its line end: a file that stops inside a line may have been
// cut while it was written or copied.
#pragma once
#include <cstdio>

// true when the file is not empty and its last byte is no line feed; the file is read from its
// start again afterwards
inline bool lastLineOpen(FILE* f)
{
    if (std::fseek(f, -1, SEEK_END) != 0) {
        std::rewind(f);
        return false;
    }
    int c = std::fgetc(f);
    std::rewind(f);
    return c != EOF && c != '\n';
}
