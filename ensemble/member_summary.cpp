#include "ensemble/member_summary.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>
#include <vector>

namespace {

bool whole(const std::string& text, long long& value)
{
    const char* first = text.data();
    const char* last = first + text.size();
    auto [p, ec] = std::from_chars(first, last, value);
    return ec == std::errc() && p == last;
}

} // namespace

// ---------------------------------------------------------------- reading back

SummaryReader::SummaryReader(SummaryTable t, const std::string& p) : table(t), path(p)
{
    file = fopen(path.c_str(), "r");
    if (!file) {
        error = path + ": " + std::strerror(errno);
        return;
    }
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
    std::vector<std::string> cells;
    std::string text(buffer);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    std::stringstream ss(text);
    std::string cell;
    while (std::getline(ss, cell, ',')) cells.push_back(cell);
    const size_t want = table == SummaryTable::Population ? 6 : 4;
    auto bad = [&] {
        error = path + ": line " + std::to_string(line) + ": " + text;
        return false;
    };
    if (cells.size() != want) return bad();
    long long n;
    if (!whole(cells[0], n)) return bad();
    k = SummaryKey{};
    k.year = int(n);
    const std::string& area = cells[1];
    if (area == "all") k.kind = AREA_ALL;
    else if (area.rfind("agg", 0) == 0 && whole(area.substr(3), n)) k.kind = AREA_AGGREGATE, k.area = n;
    else if (whole(area, n)) k.kind = AREA_REGION, k.area = n;
    else return bad();
    auto field = [&](const std::string& c, int factor, int& out) {
        if (c == "all") return out = ALL, true;
        if (!whole(c, n)) return false;
        out = int(n / factor);
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
    const std::string& v = cells[want - 1];
    auto [p, ec] = std::from_chars(v.data(), v.data() + v.size(), value);
    if (ec != std::errc() || p != v.data() + v.size()) return bad();
    return true;
}
