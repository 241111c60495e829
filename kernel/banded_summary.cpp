// The compact summary of a run, written from the year's tables themselves: the population
// summed into five-year bands per region, aggregate and the study area, and the components of
// change per region, aggregate and the study area.
#include "kernel/banded_summary.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
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
#include "tables/labelled_array.h"

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

std::string areaCells(SummaryTable table, const SummaryKey& k)
{
    std::string s;
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

std::string keyCells(SummaryTable table, const SummaryKey& k) { return std::to_string(k.year) + "," + areaCells(table, k); }

std::string keyTableHeader(SummaryTable table)
{
    return table == SummaryTable::Population ? "area,group,sex,age_band,always" : "area,component,always";
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

static_assert(std::endian::native == std::endian::little, "the values files are little-endian");

// One of the two tables of a year: its values in key order and, before the first year, its key
// table. `close` writes them: the key table and the values file new with its header before the
// first year, the year's block appended after it. A file that cannot be written is an error of
// the run.
class SummaryFile {
public:
    SummaryFile(SummaryTable t, const char* valuesName, const char* keysName, bool first)
        : table(t), first(first), valuesPath(variantDirectory() + valuesName), keysPath(variantDirectory() + keysName)
    {
        if (first) keys = keyTableHeader(table) + "\n";
    }
    ~SummaryFile() { close(); }
    void row(const SummaryKey& k, double v, bool always)
    {
        values.push_back(v);
        if (first) {
            keys += areaCells(table, k);
            keys += always ? "1\n" : "0\n";
        }
    }
    void year(int label) { this->label = label; }
    void close()
    {
        if (closed) return;
        closed = true;
        if (first && !writeAll(keysPath, "w", keys.data(), keys.size())) return;
        std::string block;
        if (first) {
            block.append(SUMMARY_MAGIC, 8);
            put(block, uint64_t(values.size()));
            put(block, fnv1a64(keys.data(), keys.size()));
        }
        if (label) {
            put(block, int64_t(*label));
            block.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double));
        }
        writeAll(valuesPath, first ? "w" : "a", block.data(), block.size());
    }
    SummaryFile(const SummaryFile&) = delete;
    SummaryFile& operator=(const SummaryFile&) = delete;

private:
    template <class T> static void put(std::string& out, T v) { out.append(reinterpret_cast<const char*>(&v), sizeof v); }
    bool writeAll(const std::string& path, const char* mode, const char* data, size_t size)
    {
        FILE* f = fopen(path.c_str(), mode);
        bool ok = f && fwrite(data, 1, size, f) == size;
        int err = errno;
        if (f && fclose(f) != 0 && ok) ok = false, err = errno;
        if (!ok) Prot::message(SEV_ERROR, "%s %s %s", f ? "write" : "open", path.c_str(), os::errorText(err).c_str());
        return ok;
    }
    SummaryTable table;
    bool first, closed = false;
    std::optional<int> label;
    std::string valuesPath, keysPath, keys;
    std::vector<double> values;
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
        if (const double* v = t.values()) {
            // a dense table band by band: adding a 0 leaves a sum as it is, so the sums are those
            // of the elements that are not 0, in the same order
            const auto& e = t.extents();
            v += gz * e[1] * e[2] * e[3];
            for (size_t b = 0; b < e[1]; ++b)
                for (size_t g = 0; g < e[2]; ++g, v += e[3])
                    for (size_t a = 0; a < e[3]; a += 5) {
                        const size_t i = d.index(b, g, a / 5), end = std::min(a + 5, e[3]);
                        double cell = r[i];
                        for (size_t k = a; k < end; ++k) cell += v[k];
                        r[i] = cell;
                        if (!agg) continue;
                        double sum = (*agg)[i];
                        for (size_t k = a; k < end; ++k) sum += v[k];
                        (*agg)[i] = sum;
                    }
        } else {
            t.forRegion(gz, [&](size_t, size_t b, size_t g, size_t a, double v) {
                const size_t i = d.index(b, g, a / 5);
                r[i] += v;
                if (agg) (*agg)[i] += v;
            });
        }
        for (size_t i = 0; i < d.size(); ++i) all[i] += r[i];
    }
    auto area = [&](int kind, long long key, const std::vector<double>& v, bool bySex) {
        double total = 0;
        for (double x : v) total += x;
        out.row({label, kind, key, ALL, ALL, ALL}, total, true);
        if (bySex)
            for (size_t s = 0; s < d.sexes; ++s)
                for (size_t b = 0; b < d.bands; ++b) {
                    double x = 0;
                    for (size_t g = 0; g < d.groups; ++g) x += v[d.index(g, s, b)];
                    out.row({label, kind, key, ALL, int(s) + 1, int(b)}, x, true);
                }
        for (size_t g = 0; g < d.groups; ++g)
            for (size_t s = 0; s < d.sexes; ++s)
                for (size_t b = 0; b < d.bands; ++b)
                    out.row({label, kind, key, int(g) + 1, int(s) + 1, int(b)}, v[d.index(g, s, b)], false);
    };
    area(AREA_ALL, 0, all, true);
    for (int row = 0; row < aggregates; ++row) area(AREA_AGGREGATE, RK::refKey(ini::DIFF_G, row), byAggregate[size_t(row)], false);
    for (size_t gz = 0; gz < regions; ++gz) area(AREA_REGION, regionKeyOf(c, int(gz)), byRegion[gz], false);
}

using ComponentValues = std::array<double, COMPONENTS>;

// the component rows of one year: the study area, the aggregates, the regions
void componentOutput(const Orvane& c, const ComponentValues& all, const std::vector<ComponentValues>& byAggregate,
                     const std::vector<ComponentValues>& byRegion, int label, SummaryFile& out)
{
    auto area = [&](int kind, long long key, const ComponentValues& v) {
        for (int k = 0; k < COMPONENTS; ++k) out.row({label, kind, key, k}, v[size_t(k)], true);
    };
    area(AREA_ALL, 0, all);
    for (size_t row = 0; row < byAggregate.size(); ++row) area(AREA_AGGREGATE, RK::refKey(ini::DIFF_G, int(row)), byAggregate[row]);
    for (size_t gz = 0; gz < byRegion.size(); ++gz) area(AREA_REGION, regionKeyOf(c, int(gz)), byRegion[gz]);
}

// the component rows of one year, from the movement columns as the tables show them (an
// outflow positive): deaths, six moves out, six moves in, two of group change, births
void componentRows(const Orvane& c, const YearStep& y, int label, SummaryFile& out)
{
    const auto columns = y.movementColumns();
    const size_t regions = size_t(c.NGZ);
    const int aggregates = aggregateRows();
    using Values = ComponentValues;
    std::vector<Values> byRegion(regions, Values{}), byAggregate(size_t(std::max(aggregates, 0)), Values{});
    Values all{};
    for (size_t gz = 0; gz < regions; ++gz) {
        double total[NMOVEMENTCOLUMNS] = {};
        for (size_t k = 0; k < columns.size(); ++k) {
            if (!columns[k]->exists()) continue;
            if (const double* v = columns[k]->values()) {
                // a dense table in one run of the region's values, the sum in a register (a 0 adds nothing)
                const auto& e = columns[k]->extents();
                const size_t cells = e[1] * e[2] * e[3];
                double sum = 0;
                for (const double* x = v + gz * cells; x != v + (gz + 1) * cells; ++x) sum += *x;
                total[k] = sum;
                continue;
            }
            columns[k]->forRegion(gz, [&](size_t, size_t, size_t, size_t, double v) { total[k] += v; });
        }
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
    componentOutput(c, all, byAggregate, byRegion, label, out);
}

// the key table of the components, before the first year
void componentKeys(const Orvane& c, SummaryFile& out)
{
    const int aggregates = aggregateRows();
    std::vector<ComponentValues> byRegion(size_t(c.NGZ), ComponentValues{}),
        byAggregate(size_t(std::max(aggregates, 0)), ComponentValues{});
    componentOutput(c, ComponentValues{}, byAggregate, byRegion, 0, out);
}

} // namespace

void startSummary(const Orvane& c, const GemTable& population, int label)
{
    SummaryFile pop(SummaryTable::Population, SUMMARY_POPULATION_FILE, SUMMARY_POPULATION_KEYS, true);
    pop.year(label);
    populationRows(c, population, label, pop);
    // the components' key table is that of any year: the areas and the components
    SummaryFile components(SummaryTable::Components, SUMMARY_COMPONENTS_FILE, SUMMARY_COMPONENTS_KEYS, true);
    componentKeys(c, components);
}

void summariseYear(const Orvane& c, const GemTable& population, const YearStep* y, int label)
{
    {
        SummaryFile pop(SummaryTable::Population, SUMMARY_POPULATION_FILE, SUMMARY_POPULATION_KEYS, false);
        pop.year(label);
        populationRows(c, population, label, pop);
    }
    if (!y) return;
    SummaryFile components(SummaryTable::Components, SUMMARY_COMPONENTS_FILE, SUMMARY_COMPONENTS_KEYS, false);
    components.year(label);
    componentRows(c, *y, label, components);
}
