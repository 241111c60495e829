#include "ensemble/member_summary.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

// ---------------------------------------------------------------- reading back

SummaryReader::SummaryReader(SummaryTable t, const std::string& p) : table(t), path(p)
{
    file = fopen(path.c_str(), "r");
    if (!file) {
        error = path + ": " + std::strerror(errno);
        return;
    }
    setvbuf(file, nullptr, _IOFBF, 1 << 16);
    char buffer[256];
    if (!fgets(buffer, sizeof buffer, file)) error = path + ": empty";
    line = 1;
}

SummaryReader::~SummaryReader()
{
    if (file) fclose(file);
}

bool SummaryReader::next(SummaryKey& k, double& value)
{
    if (!ok()) return false;
    char buffer[256];
    if (!fgets(buffer, sizeof buffer, file)) return false;
    ++line;
    // the cells in place, without copies: the ensemble reads millions of rows
    const char* end = buffer + std::strlen(buffer);
    while (end > buffer && (end[-1] == '\n' || end[-1] == '\r')) --end;
    const size_t want = table == SummaryTable::Population ? 6 : 4;
    std::string_view cells[6];
    size_t n = 0;
    for (const char* p = buffer;;) {
        const char* comma = static_cast<const char*>(std::memchr(p, ',', size_t(end - p)));
        const char* stop = comma ? comma : end;
        if (n < 6) cells[n] = std::string_view(p, size_t(stop - p));
        ++n;
        if (!comma) break;
        p = comma + 1;
    }
    auto bad = [&] {
        error = path + ": line " + std::to_string(line) + ": " + std::string(buffer, size_t(end - buffer));
        return false;
    };
    auto number = [](std::string_view c, long long& v) {
        auto [q, ec] = std::from_chars(c.data(), c.data() + c.size(), v);
        return !c.empty() && ec == std::errc() && q == c.data() + c.size();
    };
    long long x;
    if (n != want || !number(cells[0], x)) return bad();
    k = SummaryKey{};
    k.year = int(x);
    const std::string_view area = cells[1];
    if (area == "all") k.kind = AREA_ALL;
    else if (area.substr(0, 3) == "agg" && number(area.substr(3), x)) k.kind = AREA_AGGREGATE, k.area = x;
    else if (number(area, x)) k.kind = AREA_REGION, k.area = x;
    else return bad();
    auto field = [&](std::string_view c, int factor, int& out) {
        if (c == "all") return out = ALL, true;
        if (!number(c, x)) return false;
        out = int(x / factor);
        return true;
    };
    if (table == SummaryTable::Components) {
        k.a = -2;
        for (int i = 0; i < COMPONENTS; ++i)
            if (cells[2] == componentNames[i]) k.a = i;
        if (k.a < 0) return bad();
    } else if (!field(cells[2], 1, k.a) || !field(cells[3], 1, k.b) || !field(cells[4], 5, k.c)) {
        return bad();
    }
    const std::string_view v = cells[want - 1];
    auto [p, ec] = std::from_chars(v.data(), v.data() + v.size(), value);
    if (v.empty() || ec != std::errc() || p != v.data() + v.size()) return bad();
    return true;
}
