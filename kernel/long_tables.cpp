// The long tables of a run, for R and pandas: population_long.csv and movements_long.csv hold
// every year, one line per cell, with a plain one-line header, "," between cells and a decimal
// point, without a byte order mark or comment lines, whatever the settings of the other tables.
// Written beside the other tables of the year when LangeTabellen=1 stands in section CSV of
// veldor.ini.
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <string>
#include <vector>

#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "tables/block_writer.h"

namespace {

constexpr const char* POPULATION = "population_long.csv";
constexpr const char* MOVEMENTS = "movements_long.csv";
constexpr int BATCH = 128;

// the name of each movement in the long table, in the order of the cohort equation; a
// component without a name here is named after its array
const std::array<const char*, NMOVEMENTS> MOVEMENT_NAMES = {
    "deaths",
    "external_out_migration",
    "out_to_new_dwellings",
    "internal_out_migration",
    "internal_out_within_type",
    "demolition_out_within_area",
    "demolition_out_abroad",
    "demolition_in",
    "external_in_migration",
    "new_dwellings_in_from_area",
    "new_dwellings_in_from_abroad",
    "internal_in_migration",
    "internal_in_within_type",
    "group_change_out",
    "group_change_in",
};

std::string movementName(const GemTable& t, size_t k)
{
    if (k < MOVEMENT_NAMES.size() && MOVEMENT_NAMES[k]) return MOVEMENT_NAMES[k];
    std::string name = t.name;
    for (char& ch : name) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return name;
}

void appendInt(std::string& out, long long v)
{
    char b[24];
    auto r = std::to_chars(b, b + sizeof b, v);
    out.append(b, r.ptr);
}

// 15 significant digits, as the other tables give them, with a decimal point in any locale
void appendValue(std::string& out, double v)
{
    char b[32];
    auto r = std::to_chars(b, b + sizeof b, v, std::chars_format::general, 15);
    out.append(b, r.ptr);
}

int64_t regionKey(const Orvane& c, size_t gz)
{
    if (c.keyScale != 1 && gz < c.indexKeys.size()) return c.indexKeys[gz];
    return gz < c.regions.size() ? c.regions[gz].key : static_cast<int64_t>(gz) + 1;
}

// one of the two files, opened for this year's lines: new with its header in the first year,
// appended to afterwards (a failed write cuts it back to the years before)
FILE* openLong(const char* name, const char* header)
{
    std::string path = variantDirectory() + name;
    bool fresh = JAHR == ini::STARTJAHR || os::fileSize(path) == 0;
    FILE* f = safeOutput::open(path, !fresh);
    if (!f) safeOutput::fatalPath(path, errno);
    if (fresh) {
        BlockWriter w(f);
        w.write(header);
    }
    return f;
}

bool anyMovement(const YearStep& y)
{
    for (const GemTable* t : y.movements())
        if (t->exists()) return true;
    return false;
}

} // namespace

LongTableFiles::LongTableFiles(const YearStep& y)
{
    if (si::getInt("CSV", "LangeTabellen", 0) == 0) return;
    population = openLong(POPULATION, "year,region,group,sex,age,persons\n");
    if (anyMovement(y)) movements = openLong(MOVEMENTS, "year,region,group,sex,age,movement,persons\n");
}

LongTableFiles::~LongTableFiles()
{
    if (population) safeOutput::close(population);
    if (movements) safeOutput::close(movements);
}

std::vector<std::string> removeLongTables()
{
    std::vector<std::string> removed;
    for (const char* name : {POPULATION, MOVEMENTS})
        if (std::remove((variantDirectory() + name).c_str()) == 0) removed.push_back(name);
    return removed;
}

void writeLongPopulation(const Orvane& c, const GemTable& t, int label, FILE* f)
{
    BlockWriter out(f);
    int n = static_cast<int>(t.extents()[0]);
    writeInOrder(out, n, BATCH, [&](int first, int last, std::string& text) {
        for (int gz = first; gz < last; ++gz) {
            std::string prefix;
            appendInt(prefix, label);
            prefix += ',';
            appendInt(prefix, regionKey(c, static_cast<size_t>(gz)));
            prefix += ',';
            auto line = [&](size_t b, size_t g, size_t a, double v) {
                text += prefix;
                appendInt(text, static_cast<long long>(b + 1));
                text += ',';
                appendInt(text, static_cast<long long>(g + 1));
                text += ',';
                appendInt(text, static_cast<long long>(a));
                text += ',';
                appendValue(text, v);
                text += '\n';
            };
            if (ini::AusgabeNull) {
                for (size_t b = 0; b < static_cast<size_t>(c.NBG); ++b)
                    for (size_t g = 0; g < static_cast<size_t>(c.NGG); ++g)
                        for (size_t a = 0; a < static_cast<size_t>(c.NAG); ++a)
                            line(b, g, a, t.get(static_cast<size_t>(gz), b, g, a));
            } else {
                t.forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double v) {
                    line(b, g, a, v);
                });
            }
        }
    });
}

void writeLongMovements(const Orvane& c, const YearStep& y, int label, FILE* f)
{
    auto m = y.movements();
    std::vector<std::string> names;
    for (size_t k = 0; k < m.size(); ++k) names.push_back("," + movementName(*m[k], k) + ",");
    BlockWriter out(f);
    size_t cells = static_cast<size_t>(c.NBG * c.NGG * c.NAG);
    // region by region, cohort by cohort, the movements in the order of the cohort equation,
    // each with the sign with which the movement tables show it
    writeInOrder(out, c.NGZ, BATCH, [&](int first, int last, std::string& text) {
        std::vector<double> v;
        for (int gz = first; gz < last; ++gz) {
            std::string prefix;
            appendInt(prefix, label);
            prefix += ',';
            appendInt(prefix, regionKey(c, static_cast<size_t>(gz)));
            prefix += ',';
            v.assign(cells * m.size(), 0.0);
            for (size_t k = 0; k < m.size(); ++k) {
                if (!m[k]->exists()) continue;
                m[k]->forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double x) {
                    v[((b * static_cast<size_t>(c.NGG) + g) * static_cast<size_t>(c.NAG) + a) * m.size() + k] = x;
                });
            }
            size_t i = 0;
            for (int b = 0; b < c.NBG; ++b)
                for (int g = 0; g < c.NGG; ++g)
                    for (int a = 0; a < c.NAG; ++a, ++i)
                        for (size_t k = 0; k < m.size(); ++k) {
                            double x = v[i * m.size() + k];
                            if (!m[k]->exists() || (x == 0 && !ini::AusgabeNull)) continue;
                            text += prefix;
                            appendInt(text, b + 1);
                            text += ',';
                            appendInt(text, g + 1);
                            text += ',';
                            appendInt(text, a);
                            text += names[k];
                            appendValue(text, x * YearStep::displaySign[k] + 0.0);   // + 0.0: no "-0"
                            text += '\n';
                        }
        }
    });
}
