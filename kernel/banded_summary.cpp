// The compact summary of a run, written from the year's tables themselves: the population
// summed into five-year bands per region, aggregate and the study area, and the components of
// change per region, aggregate and the study area.
#include "kernel/banded_summary.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <vector>

#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

const char* const componentNames[COMPONENTS] = {"births", "deaths", "moves_in", "moves_out", "net_migration"};

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
    if (table == SummaryTable::Components) return s + componentNames[k.a] + ",";
    auto cell = [&](int v, int factor) { s += (v == ALL ? std::string("all") : std::to_string(v * factor)) + ","; };
    cell(k.a, 1);
    cell(k.b, 1);
    cell(k.c, 5);
    return s;
}

bool summaryOnly() { return opt::get("$SUMMARY_ONLY", 0) != 0; }

namespace {

// the cells of a banded population: group, sex, five-year band (the last one open)
struct Bands {
    size_t groups, sexes, bands;
    explicit Bands(const Orvane& c)
        : groups(size_t(c.NBG)), sexes(size_t(c.NGG)), bands(c.NAG > 0 ? size_t(c.NAG - 1) / 5 + 1 : 0) {}
    size_t index(size_t g, size_t s, size_t b) const { return (g * sexes + s) * bands + b; }
    size_t size() const { return groups * sexes * bands; }
};

// One of the two files, opened for a year's rows: new with its header before the first year,
// appended to after it. A file that cannot be written is an error of the run.
class SummaryFile {
public:
    SummaryFile(SummaryTable t, const char* name, bool first) : table(t), path(variantDirectory() + name)
    {
        f = fopen(path.c_str(), first ? "w" : "a");
        if (!f) {
            fail("open");
            return;
        }
        if (first) fprintf(f, "%s\n", summaryHeader(table, table == SummaryTable::Population ? "population" : "value").c_str());
    }
    ~SummaryFile()
    {
        if (!f) return;
        const bool bad = ferror(f) != 0;
        if (fclose(f) != 0 || bad) fail("write");
    }
    void row(const SummaryKey& k, double v)
    {
        if (!f) return;
        text = keyCells(table, k);
        text += plainNumber(v);
        text += '\n';
        fwrite(text.data(), 1, text.size(), f);
    }
    SummaryFile(const SummaryFile&) = delete;
    SummaryFile& operator=(const SummaryFile&) = delete;

private:
    void fail(const char* what)
    {
        int err = errno;
        Prot::message(SEV_ERROR, "%s %s %s", what, path.c_str(), os::errorText(err).c_str());
    }
    SummaryTable table;
    std::string path, text;
    FILE* f = nullptr;
};

// the population rows of one year: the study area (the sum of the regions, also by sex and
// band over all groups), the aggregates and the regions, each with its total and its cells
void populationRows(const Orvane& c, const GemTable& t, int label, SummaryFile& out)
{
    const Bands d(c);
    const size_t regions = t.extents()[0];
    const int aggregates = aggregateRows();
    std::vector<std::vector<double>> byRegion(regions, std::vector<double>(d.size(), 0.0));
    std::vector<std::vector<double>> byAggregate(size_t(std::max(aggregates, 0)), std::vector<double>(d.size(), 0.0));
    std::vector<double> all(d.size(), 0.0);
    for (size_t gz = 0; gz < regions; ++gz) {
        std::vector<double>& r = byRegion[gz];
        const int row = aggregateRowOf(c, int(gz));
        std::vector<double>* agg = row >= 0 && row < aggregates ? &byAggregate[size_t(row)] : nullptr;
        t.forRegion(gz, [&](size_t, size_t b, size_t g, size_t a, double v) {
            const size_t i = d.index(b, g, a / 5);
            r[i] += v;
            if (agg) (*agg)[i] += v;
        });
        for (size_t i = 0; i < d.size(); ++i) all[i] += r[i];
    }
    auto area = [&](int kind, long long key, const std::vector<double>& v, bool bySex) {
        double total = 0;
        for (double x : v) total += x;
        out.row({label, kind, key, ALL, ALL, ALL}, total);
        if (bySex)
            for (size_t s = 0; s < d.sexes; ++s)
                for (size_t b = 0; b < d.bands; ++b) {
                    double x = 0;
                    for (size_t g = 0; g < d.groups; ++g) x += v[d.index(g, s, b)];
                    out.row({label, kind, key, ALL, int(s) + 1, int(b)}, x);
                }
        for (size_t g = 0; g < d.groups; ++g)
            for (size_t s = 0; s < d.sexes; ++s)
                for (size_t b = 0; b < d.bands; ++b)
                    if (double x = v[d.index(g, s, b)]; x != 0) out.row({label, kind, key, int(g) + 1, int(s) + 1, int(b)}, x);
    };
    area(AREA_ALL, 0, all, true);
    for (int row = 0; row < aggregates; ++row) area(AREA_AGGREGATE, RK::refKey(ini::DIFF_G, row), byAggregate[size_t(row)], false);
    for (size_t gz = 0; gz < regions; ++gz) area(AREA_REGION, regionKeyOf(c, int(gz)), byRegion[gz], false);
}

// the component rows of one year, from the movement columns as the tables show them (an
// outflow positive): deaths, six moves out, six moves in, two of group change, births
void componentRows(const Orvane& c, const YearStep& y, int label, SummaryFile& out)
{
    const auto columns = y.movementColumns();
    const size_t regions = size_t(c.NGZ);
    const int aggregates = aggregateRows();
    using Values = std::array<double, COMPONENTS>;
    std::vector<Values> byRegion(regions, Values{}), byAggregate(size_t(std::max(aggregates, 0)), Values{});
    Values all{};
    for (size_t gz = 0; gz < regions; ++gz) {
        double total[NMOVEMENTCOLUMNS] = {};
        for (size_t k = 0; k < columns.size(); ++k)
            if (columns[k]->exists())
                columns[k]->forRegion(gz, [&](size_t, size_t, size_t, size_t, double v) { total[k] += v; });
        Values& r = byRegion[gz];
        for (size_t k = 0; k < columns.size(); ++k) {
            const double shown = total[k] * YearStep::columnSign[k] + 0.0;
            if (k == 0) r[DEATHS] += shown;
            else if (k <= 6) r[MOVES_OUT] += shown;
            else if (k <= 12) r[MOVES_IN] += shown;
            else if (k + 1 == columns.size()) r[BIRTHS] += shown;
        }
        r[NET_MIGRATION] = r[MOVES_IN] - r[MOVES_OUT];
        const int row = aggregateRowOf(c, int(gz));
        for (int k = 0; k < COMPONENTS; ++k) {
            all[size_t(k)] += r[size_t(k)];
            if (row >= 0 && row < aggregates) byAggregate[size_t(row)][size_t(k)] += r[size_t(k)];
        }
    }
    auto area = [&](int kind, long long key, const Values& v) {
        for (int k = 0; k < COMPONENTS; ++k) out.row({label, kind, key, k}, v[size_t(k)]);
    };
    area(AREA_ALL, 0, all);
    for (int row = 0; row < aggregates; ++row) area(AREA_AGGREGATE, RK::refKey(ini::DIFF_G, row), byAggregate[size_t(row)]);
    for (size_t gz = 0; gz < regions; ++gz) area(AREA_REGION, regionKeyOf(c, int(gz)), byRegion[gz]);
}

} // namespace

void startSummary(const Orvane& c, const GemTable& population, int label)
{
    SummaryFile pop(SummaryTable::Population, SUMMARY_POPULATION_FILE, true);
    SummaryFile components(SummaryTable::Components, SUMMARY_COMPONENTS_FILE, true);
    populationRows(c, population, label, pop);
}

void summariseYear(const Orvane& c, const GemTable& population, const YearStep* y, int label)
{
    {
        SummaryFile pop(SummaryTable::Population, SUMMARY_POPULATION_FILE, false);
        populationRows(c, population, label, pop);
    }
    if (!y) return;
    SummaryFile components(SummaryTable::Components, SUMMARY_COMPONENTS_FILE, false);
    componentRows(c, *y, label, components);
}
