// Numbers in table cells as the statistics tools read them: whole cells only, with "." or ","
// as decimal point whatever the locale, "undef" for the undefined value.
#pragma once
#include <charconv>
#include <cmath>
#include <cstring>

// a decimal 64-bit integer filling the whole cell
inline bool cellInteger(const char* cell, long long& value)
{
    const char* end = cell + std::strlen(cell);
    const char* p = cell;
    if (p < end && *p == '+') ++p;
    auto [stop, error] = std::from_chars(p, end, value);
    return error == std::errc() && stop == end && p != end;
}

// a number filling the whole cell
inline bool cellNumber(const char* cell, double& value)
{
    size_t n = std::strlen(cell);
    if (n == 0 || n >= 64) return false;
    if (std::strcmp(cell, "undef") == 0) {
        value = INFINITY;
        return true;
    }
    char text[64];
    std::memcpy(text, cell, n);
    for (size_t i = 0; i < n; ++i)
        if (text[i] == ',') text[i] = '.';
    const char* p = text[0] == '+' ? text + 1 : text;
    auto [stop, error] = std::from_chars(p, text + n, value);
    return error == std::errc() && stop == text + n;
}
