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
    while (digit(*p)) v = v * 10 + (*p++ - '0');
    if (p == start || p - start > 18) return false;
    value = v;
    return true;
}

} // namespace

bool plainIndexCell(const char* cell, long long& lo, long long& hi)
{
    const char* p = cell;
    if (!bound(p, lo)) return false;
    if (*p == 0) {
        hi = lo;
        return true;
    }
    if (p[0] != '.' || p[1] != '.') return false;
    p += 2;
    return bound(p, hi) && *p == 0;
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
    // correctly rounded, as the language's own reading of a number
    auto r = std::from_chars(cell, p, value, std::chars_format::fixed);
    return r.ec == std::errc() && r.ptr == p;
}
