// The plain cells of a table: whole numbers, intervals and unsigned decimal numbers.
#include "tables/plain_cells.h"

#include <charconv>
#include <system_error>

namespace {

inline bool digit(char c) { return c >= '0' && c <= '9'; }

// the digits from p on, at most 18 of them; p behind them
bool bound(const char*& p, long long& value)
{
    const char* start = p;
    long long v = 0;
    // more than 18 digits would overflow: such a cell is no plain one
    while (digit(*p)) {
        if (p - start == 18) return false;
        v = v * 10 + (*p++ - '0');
    }
    if (p == start) return false;
    value = v;
    return true;
}

} // namespace

bool plainIndexCell(const char* cell, long long& lo, long long& hi, int& length)
{
    const char* p = cell;
    if (!bound(p, lo)) return false;
    if (*p == 0) {
        hi = lo;
        length = static_cast<int>(p - cell);
        return true;
    }
    if (p[0] != '.' || p[1] != '.') return false;
    p += 2;
    if (!bound(p, hi) || *p != 0) return false;
    length = static_cast<int>(p - cell);
    return true;
}

bool plainIndexCell(const char* cell, long long& lo, long long& hi)
{
    int length;
    return plainIndexCell(cell, lo, hi, length);
}

bool plainNumberCell(const char* cell, double& value)
{
    const char* p = cell;
    if (!digit(*p)) return false;
    while (digit(*p)) ++p;
    if (*p == '.') {
        ++p;
        if (!digit(*p)) return false;
        while (digit(*p)) ++p;
    }
    if (*p != 0) return false;
    // up to 15 digits: the digits as a whole number and a power of ten are both exact doubles, so
    // one division rounds correctly, as the language's own reading of a number does
    static const double tens[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    if (p - cell <= 16) {
        unsigned long long whole = 0;
        int digits = 0, fraction = -1;
        for (const char* q = cell; q < p; ++q) {
            if (*q == '.') {
                fraction = 0;
                continue;
            }
            whole = whole * 10 + static_cast<unsigned>(*q - '0');
            ++digits;
            if (fraction >= 0) ++fraction;
        }
        if (digits <= 15) {
            value = fraction > 0 ? static_cast<double>(whole) / tens[fraction] : static_cast<double>(whole);
            return true;
        }
    }
    // longer: correctly rounded by the library
    auto r = std::from_chars(cell, p, value, std::chars_format::fixed);
    return r.ec == std::errc() && r.ptr == p;
}
