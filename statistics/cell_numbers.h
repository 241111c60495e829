// Numbers in table cells as the statistics tools read them: whole cells only, with "." or ","
// as decimal point whatever the locale, "undef" for the undefined value.
#pragma once
#include <charconv>
#include <cmath>
#include <cstring>

// a decimal 64-bit integer filling the whole cell [begin, end)
inline bool cellInteger(const char* begin, const char* end, long long& value)
{
    const char* p = begin;
    if (p < end && *p == '+') ++p;
    auto [stop, error] = std::from_chars(p, end, value);
    return error == std::errc() && stop == end && p != end;
}

inline bool cellInteger(const char* cell, long long& value) { return cellInteger(cell, cell + std::strlen(cell), value); }

// The common cell "-ddd.ddd" with at most 15 digits at once: the digits as a whole number and a
// power of ten are both exact, so their quotient is the correctly rounded value, the same
// that from_chars gives. false for anything else, which from_chars then reads.
inline bool plainDecimal(const char* p, const char* end, double& value)
{
    static constexpr double POWERS[16] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                          1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    bool negative = p < end && *p == '-';
    if (negative) ++p;
    if (end - p > 16) return false;
    long long digits = 0;
    int count = 0, fraction = -1;
    for (; p < end; ++p) {
        unsigned d = unsigned(*p - '0');
        if (d < 10) {
            digits = digits * 10 + d;
            ++count;
            if (fraction >= 0) ++fraction;
        } else if (*p == '.' && fraction < 0 && count > 0) {
            fraction = 0;
        } else {
            return false;
        }
    }
    if (count == 0 || count > 15 || fraction == 0) return false;
    double v = double(digits);
    if (fraction > 0) v /= POWERS[fraction];
    value = negative ? -v : v;
    return true;
}

// a number filling the whole cell [begin, end)
inline bool cellNumber(const char* begin, const char* end, double& value)
{
    size_t n = size_t(end - begin);
    if (n == 0 || n >= 64) return false;
    if (n == 5 && std::memcmp(begin, "undef", 5) == 0) {
        value = INFINITY;
        return true;
    }
    char text[64];
    if (std::memchr(begin, ',', n)) {
        std::memcpy(text, begin, n);
        for (size_t i = 0; i < n; ++i)
            if (text[i] == ',') text[i] = '.';
        begin = text;
        end = text + n;
    }
    const char* p = *begin == '+' ? begin + 1 : begin;
    if (plainDecimal(p, end, value)) return true;
    auto [stop, error] = std::from_chars(p, end, value);
    return error == std::errc() && stop == end;
}

inline bool cellNumber(const char* cell, double& value) { return cellNumber(cell, cell + std::strlen(cell), value); }
