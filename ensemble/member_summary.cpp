#include "ensemble/member_summary.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "ensemble/result_tables.h"
#include "platform/settings.h"

const char* const componentNames[COMPONENTS] = {"births", "deaths", "moves_in", "moves_out", "net_migration"};

namespace {

// the movement columns of bewgem.csv behind year and key: deaths, six moves out, six moves in,
// leaving and joining by group change
constexpr int MOVEMENTS = 15;
constexpr int movementSign[MOVEMENTS] = {-1, -1, -1, -1, -1, -1, -1, +1, +1, +1, +1, +1, +1, -1, +1};
bool isMove(int k) { return k >= 1 && k <= 12; }

bool whole(const std::string& text, long long& value)
{
    const char* first = text.data();
    const char* last = first + text.size();
    auto [p, ec] = std::from_chars(first, last, value);
    return ec == std::errc() && p == last;
}

double cellValue(const std::string& text) { return text.empty() ? 0.0 : si::parseNumber(text); }

// population by year, area, group, sex, band (0-based group, sex, band)
struct Populations {
    const Dimensions& d;
    std::map<std::pair<int, long long>, std::vector<double>> cells;   // (year, area) -> cells
    explicit Populations(const Dimensions& dims) : d(dims) {}
    size_t index(int g, int s, int b) const { return (size_t(g) * d.sexes + size_t(s)) * d.bands() + size_t(b); }
    std::vector<double>& of(int year, long long area)
    {
        auto& v = cells[{year, area}];
        if (v.empty()) v.assign(size_t(d.groups) * d.sexes * d.bands(), 0.0);
        return v;
    }
    double total(int year, long long area) const
    {
        auto it = cells.find({year, area});
        double t = 0;
        if (it != cells.end())
            for (double x : it->second) t += x;
        return t;
    }
};

// reads year; area; group; sex; age; value into the populations
bool readPopulation(const std::string& path, Populations& pop, std::string& error)
{
    long line = 0;
    return readResultRows(path, [&](const std::vector<std::string>& r) {
        ++line;
        long long year, area, g, s, a;
        if (r.size() < 6 || !whole(r[0], year) || !whole(r[1], area) || !whole(r[2], g) || !whole(r[3], s) ||
            !whole(r[4], a) || g < 1 || g > pop.d.groups || s < 1 || s > pop.d.sexes || a < 0 || a >= pop.d.ages) {
            error = path + ": data row " + std::to_string(line) + ": not a population row";
            return false;
        }
        pop.of(int(year), area)[pop.index(int(g - 1), int(s - 1), int(a / 5))] += cellValue(r[5]);
        return true;
    }, error);
}

// reads year; area; movements into net movement and the components
bool readMovements(const std::string& path, std::map<std::pair<int, long long>, std::array<double, COMPONENTS>>& comp,
                   std::map<std::pair<int, long long>, double>& net, std::string& error)
{
    std::vector<std::vector<std::string>> rows;
    if (!readResultTable(path, rows, error)) return false;
    long line = 0;
    for (const auto& r : rows) {
        ++line;
        long long year, area;
        if (r.size() < 2 + MOVEMENTS || !whole(r[0], year) || !whole(r[1], area)) {
            error = path + ": data row " + std::to_string(line) + ": not a movement row";
            return false;
        }
        auto& c = comp[{int(year), area}];
        double& n = net[{int(year), area}];
        for (int k = 0; k < MOVEMENTS; ++k) {
            double v = cellValue(r[size_t(2 + k)]);
            n += movementSign[k] * v;
            if (k == 0) c[DEATHS] += v;
            else if (isMove(k) && movementSign[k] > 0) c[MOVES_IN] += v;
            else if (isMove(k)) c[MOVES_OUT] += v;
        }
    }
    return true;
}

struct Writer {
    FILE* f;
    SummaryTable table;
    void row(const SummaryKey& k, double v)
    {
        std::string s = keyCells(table, k) + plainNumber(v) + "\n";
        fwrite(s.data(), 1, s.size(), f);
    }
};

} // namespace

std::string plainNumber(double value)
{
    if (value == 0) return "0";
    char buffer[64];
    auto [p, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, p);
}

std::string summaryHeader(SummaryTable table, const std::string& valueColumns)
{
    return std::string(table == SummaryTable::Population ? "year,area,group,sex,age_band," : "year,area,component,") +
           valueColumns;
}

std::string keyCells(SummaryTable table, const SummaryKey& k)
{
    std::string s = std::to_string(k.year) + ",";
    if (k.kind == AREA_ALL) s += "all,";
    else if (k.kind == AREA_AGGREGATE) s += "agg" + std::to_string(k.area) + ",";
    else s += std::to_string(k.area) + ",";
    auto cell = [&](int v, int factor) { s += (v == ALL ? std::string("all") : std::to_string(v * factor)) + ","; };
    if (table == SummaryTable::Components) {
        s += std::string(componentNames[k.a]) + ",";
        return s;
    }
    cell(k.a, 1);
    cell(k.b, 1);
    cell(k.c, 5);
    return s;
}

bool summariseRun(const std::string& runDirectory, const Dimensions& d, const std::string& populationFile,
                  const std::string& componentsFile, std::string& error)
{
    std::string dir = runDirectory;
    if (!dir.empty() && dir.back() != '/') dir += '/';
    Populations regions(d), aggregates(d);
    if (!readPopulation(dir + "gem.csv", regions, error)) return false;
    std::ifstream probe(dir + "agg.csv");
    const bool haveAggregates = probe.good();
    probe.close();
    if (haveAggregates && !readPopulation(dir + "agg.csv", aggregates, error)) return false;
    std::map<std::pair<int, long long>, std::array<double, COMPONENTS>> compRegions, compAggregates;
    std::map<std::pair<int, long long>, double> netRegions, netAggregates;
    if (d.endYear >= d.startYear) {
        if (!readMovements(dir + "bewgem.csv", compRegions, netRegions, error)) return false;
        if (haveAggregates && !readMovements(dir + "bewgemagg.csv", compAggregates, netAggregates, error)) return false;
    }

    FILE* pf = fopen(populationFile.c_str(), "w");
    FILE* cf = pf ? fopen(componentsFile.c_str(), "w") : nullptr;
    if (!pf || !cf) {
        error = (pf ? componentsFile : populationFile) + ": " + std::strerror(errno);
        if (pf) fclose(pf);
        return false;
    }
    fprintf(pf, "%s\n", summaryHeader(SummaryTable::Population, "population").c_str());
    fprintf(cf, "%s\n", summaryHeader(SummaryTable::Components, "value").c_str());
    Writer pw{pf, SummaryTable::Population}, cw{cf, SummaryTable::Components};

    // the areas of each year: regions and aggregates as the tables name them
    std::map<int, std::vector<long long>> regionsOf, aggregatesOf;
    for (const auto& [ya, v] : regions.cells) regionsOf[ya.first].push_back(ya.second);
    for (const auto& [ya, v] : aggregates.cells) aggregatesOf[ya.first].push_back(ya.second);
    for (int year = d.startYear - 1; year <= d.endYear; ++year) {
        // the study area: the sum of the regions
        std::vector<double> all(size_t(d.groups) * d.sexes * d.bands(), 0.0);
        for (long long z : regionsOf[year]) {
            const auto& v = regions.cells[{year, z}];
            for (size_t i = 0; i < v.size(); ++i) all[i] += v[i];
        }
        auto writeArea = [&](int kind, long long area, const std::vector<double>& v, bool bySex) {
            double total = 0;
            for (double x : v) total += x;
            pw.row({year, kind, area, ALL, ALL, ALL}, total);
            if (bySex)
                for (int s = 0; s < d.sexes; ++s)
                    for (int b = 0; b < d.bands(); ++b) {
                        double x = 0;
                        for (int g = 0; g < d.groups; ++g) x += v[regions.index(g, s, b)];
                        pw.row({year, kind, area, ALL, s + 1, b}, x);
                    }
            for (int g = 0; g < d.groups; ++g)
                for (int s = 0; s < d.sexes; ++s)
                    for (int b = 0; b < d.bands(); ++b) {
                        double x = v[regions.index(g, s, b)];
                        if (x != 0) pw.row({year, kind, area, g + 1, s + 1, b}, x);
                    }
        };
        writeArea(AREA_ALL, 0, all, true);
        for (long long a : aggregatesOf[year]) writeArea(AREA_AGGREGATE, a, aggregates.cells[{year, a}], false);
        for (long long z : regionsOf[year]) writeArea(AREA_REGION, z, regions.cells[{year, z}], false);

        if (year < d.startYear) continue;
        // components: births are what the change of the population leaves after the movements
        auto components = [&](Populations& pop, auto& comp, auto& net, long long area) {
            std::array<double, COMPONENTS> c = comp[{year, area}];
            c[BIRTHS] = pop.total(year, area) - pop.total(year - 1, area) - net[{year, area}];
            c[NET_MIGRATION] = c[MOVES_IN] - c[MOVES_OUT];
            return c;
        };
        std::array<double, COMPONENTS> allc{};
        std::vector<std::pair<long long, std::array<double, COMPONENTS>>> regionRows;
        std::vector<long long> keys = regionsOf[year];
        for (const auto& [ya, v] : compRegions)
            if (ya.first == year && !regions.cells.count({year, ya.second})) keys.push_back(ya.second);
        std::sort(keys.begin(), keys.end());
        for (long long z : keys) {
            auto c = components(regions, compRegions, netRegions, z);
            for (int k = 0; k < COMPONENTS; ++k) allc[size_t(k)] += c[size_t(k)];
            regionRows.push_back({z, c});
        }
        for (int k = 0; k < COMPONENTS; ++k) cw.row({year, AREA_ALL, 0, k}, allc[size_t(k)]);
        for (long long a : aggregatesOf[year]) {
            auto c = components(aggregates, compAggregates, netAggregates, a);
            for (int k = 0; k < COMPONENTS; ++k) cw.row({year, AREA_AGGREGATE, a, k}, c[size_t(k)]);
        }
        for (const auto& [z, c] : regionRows)
            for (int k = 0; k < COMPONENTS; ++k) cw.row({year, AREA_REGION, z, k}, c[size_t(k)]);
    }
    bool failed = ferror(pf) || ferror(cf);
    failed = (fclose(pf) != 0) || failed;
    failed = (fclose(cf) != 0) || failed;
    if (failed) {
        error = populationFile + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

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
