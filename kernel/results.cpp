// The tables a forecast year leaves in the variant directory: the population by region and
// cohort, its sums by aggregate and the pyramid, and the movements of the year.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <cstring>
#include <string>
#include <vector>

#include <tbb/parallel_for.h>
#include <tbb/parallel_invoke.h>

#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/settings.h"
#include "kernel/banded_summary.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"
#include "tables/block_writer.h"
#include "tables/number_format.h"
#include "tables/table_text.h"

namespace {

// regions formatted together before they are written in order
constexpr int BATCH = 128;

// An output table of the file table: opened and closed on the main thread, written by one task.
struct Output {
    FILE* f = nullptr;
    char name[64] = {};
    explicit Output(int entry)
    {
        if (openTable(&f, entry, name, sizeof name) != 0) f = nullptr;
    }
    ~Output()
    {
        if (f) closeTable(f);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
};

int64_t largestKey(const Orvane& c)
{
    if (c.keyScale != 1 && !c.indexKeys.empty()) return c.indexKeys.back();
    return c.maxKey;
}

std::string printInt(const std::string& format, long long v)
{
    std::string text;
    IntegerFormat(format).append(text, v);
    return text;
}

// The fixed parts of the lines: the year, region keys and the cohort columns, each with its separator.
struct Columns {
    char sep;
    std::string year;
    std::vector<std::string> cohort;    // BG;GG;AG; by (b * NGG + g) * NAG + a
    std::string ageFormat, bgFormat, ggFormat;
    // the same in the plain form of the long tables: "year," and "BG,GG,AG,"
    std::string longYear;
    std::vector<std::string> longCohort;
    size_t longestCohort = 0, longestLongCohort = 0;
    Columns(const Orvane& c, int label, bool withLong = false)
    {
        if (withLong) {
            longYear = std::to_string(label) + ",";
            for (int b = 0; b < c.NBG; ++b)
                for (int g = 0; g < c.NGG; ++g)
                    for (int a = 0; a < c.NAG; ++a)
                        longCohort.push_back(std::to_string(b + 1) + "," + std::to_string(g + 1) + "," +
                                             std::to_string(a) + ",");
        }
        sep = si::separator ? si::separator : ';';
        int bound = std::max(label, periodLabel(ini::ENDJAHR));
        year = printInt(intFormat(bound, "d"), label) + sep;
        bgFormat = intFormat(c.NBG, "d");
        ggFormat = intFormat(c.NGG, "d");
        ageFormat = intFormat(std::max(0, c.NAG - 1), "d");
        cohort.reserve(static_cast<size_t>(c.NBG * c.NGG * c.NAG));
        for (int b = 0; b < c.NBG; ++b)
            for (int g = 0; g < c.NGG; ++g)
                for (int a = 0; a < c.NAG; ++a)
                    cohort.push_back(printInt(bgFormat, b + 1) + sep + printInt(ggFormat, g + 1) + sep +
                                     printInt(ageFormat, a) + sep);
        for (const std::string& text : cohort) longestCohort = std::max(longestCohort, text.size());
        for (const std::string& text : longCohort) longestLongCohort = std::max(longestLongCohort, text.size());
    }
};

// Lines are built in place in a buffer with room for their fixed parts and the longest text of
// every value, and go to the table's text in one piece: a value's text is written where it
// stands, and the long table's line takes it from there.

// a buffer of the thread with room for at least size bytes
char* roomOf(std::vector<char>& buffer, size_t size)
{
    if (buffer.size() < size) buffer.resize(size);
    return buffer.data();
}

// text copied to out; the end of it
inline char* put(char* out, const std::string& text)
{
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

// the text of a value at out (room for NUMBER_TEXT_MAX bytes) in the run's number format; its length
inline size_t putValue(char* out, const Orvane& c, double v)
{
    return static_cast<size_t>(c.fmt.put(out, v));
}

void appendValue(std::string& out, const Orvane& c, double v, bool last, char sep)
{
    char b[NUMBER_TEXT_MAX];
    out.append(b, putValue(b, c, v));
    out.push_back(last ? '\n' : sep);
}

// Formats the regions 0 .. n-1 by body (one text per region; batches of regions in parallel
// when the run works in parallel) and writes the texts in region order; with a long table the
// body gives its lines too (else it gets nullptr for them).
template <class Body> void writeRegions(FILE* f, FILE* longFile, int n, const Body& body)
{
    BlockWriter out(f);
    if (!longFile) {
        writeInOrder(out, n, BATCH, [&](int first, int last, std::string& text) {
            for (int gz = first; gz < last; ++gz) body(gz, text, nullptr);
        });
        return;
    }
    BlockWriter longOut(longFile);
    writeInOrder(out, longOut, n, BATCH, [&](int first, int last, std::string& text, std::string& longText) {
        for (int gz = first; gz < last; ++gz) body(gz, text, &longText);
    });
}

void populationLines(const Orvane& c, const GemTable& t, const Columns& cols, const std::string& keyFormat, int gz,
                     std::string& out, std::string* longOut)
{
    std::string prefix = cols.year + printInt(keyFormat, regionKeyOf(c, gz)) + cols.sep;
    std::string longPrefix = longOut ? cols.longYear + std::to_string(regionKeyOf(c, gz)) + "," : "";
    // the region's prefix stands at the start of both lines for all its cohorts
    thread_local std::vector<char> lineRoom, longRoom;
    char* line = roomOf(lineRoom, prefix.size() + cols.longestCohort + NUMBER_TEXT_MAX + 1);
    char* longLine = roomOf(longRoom, longPrefix.size() + cols.longestLongCohort + NUMBER_TEXT_MAX + 1);
    char* afterPrefix = put(line, prefix);
    char* afterLongPrefix = put(longLine, longPrefix);
    auto lineOf = [&](size_t b, size_t g, size_t a, double v) {
        size_t cohort = (b * static_cast<size_t>(c.NGG) + g) * static_cast<size_t>(c.NAG) + a;
        char* value = put(afterPrefix, cols.cohort[cohort]);
        size_t n = putValue(value, c, v);
        char* end = value + n;
        *end++ = '\n';
        out.append(line, static_cast<size_t>(end - line));
        if (!longOut) return;
        char* longEnd = putPlainNumber(put(afterLongPrefix, cols.longCohort[cohort]), value, n);
        *longEnd++ = '\n';
        longOut->append(longLine, static_cast<size_t>(longEnd - longLine));
    };
    if (ini::AusgabeNull) {
        for (int b = 0; b < c.NBG; ++b)
            for (int g = 0; g < c.NGG; ++g)
                for (int a = 0; a < c.NAG; ++a)
                    lineOf(static_cast<size_t>(b), static_cast<size_t>(g), static_cast<size_t>(a),
                           t.get(static_cast<size_t>(gz), static_cast<size_t>(b), static_cast<size_t>(g),
                                 static_cast<size_t>(a)));
        return;
    }
    t.forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double v) { lineOf(b, g, a, v); });
}

void populationBody(const Orvane& c, const GemTable& t, int label, FILE* f, FILE* longFile = nullptr)
{
    Columns cols(c, label, longFile != nullptr);
    std::string keyFormat = intFormat(largestKey(c), "lld");
    int n = static_cast<int>(t.extents()[0]);
    writeRegions(f, longFile, n, [&](int gz, std::string& out, std::string* longOut) {
        populationLines(c, t, cols, keyFormat, gz, out, longOut);
    });
}

// ---- sums by aggregate ----

// the cohort columns of a sum: a group or sex not told apart is 0; ages in classes of DIFF_AG
// years (the class's first age), all ages together as 0 when DIFF_AG is 0
struct AggShape {
    int nbg, ngg, nag, width;
    explicit AggShape(const Orvane& c, bool singleAges)
    {
        nbg = ini::DIFF_BG ? c.NBG : 1;
        ngg = ini::DIFF_GG ? c.NGG : 1;
        width = singleAges ? 1 : ini::DIFF_AG;
        nag = width > 0 ? (c.NAG + width - 1) / width : 1;
    }
    size_t index(size_t b, size_t g, size_t a) const
    {
        size_t bb = nbg > 1 ? b : 0, gg = ngg > 1 ? g : 0, aa = width > 0 ? a / static_cast<size_t>(width) : 0;
        return (bb * static_cast<size_t>(ngg) + gg) * static_cast<size_t>(nag) + aa;
    }
    int bgLabel(int b) const { return ini::DIFF_BG ? b + 1 : 0; }
    int ggLabel(int g) const { return ini::DIFF_GG ? g + 1 : 0; }
    int agLabel(int a) const { return width > 0 ? a * width : 0; }
    size_t size() const { return static_cast<size_t>(nbg * ngg * nag); }
};

// the sums of a region table by aggregate row, formed in region order
std::vector<std::vector<double>> sumsByAggregate(const Orvane& c, const GemTable& t, const AggShape& s, int rows)
{
    std::vector<std::vector<double>> sums(static_cast<size_t>(std::max(rows, 0)), std::vector<double>(s.size(), 0.0));
    int n = static_cast<int>(t.extents()[0]);
    for (int gz = 0; gz < n; ++gz) {
        int row = aggregateRowOf(c, gz);
        if (row < 0 || row >= rows) continue;
        auto& r = sums[static_cast<size_t>(row)];
        t.forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double v) { r[s.index(b, g, a)] += v; });
    }
    return sums;
}

void aggregateLines(const Orvane& c, FILE* f, const std::vector<std::vector<double>>& sums, const AggShape& s,
                    int label, int level, bool keyFromRef)
{
    Columns cols(c, label);
    long long maxKey = keyFromRef ? RK::refMaxKey(level) : 1;
    std::string keyFormat = intFormat(maxKey, "lld");
    std::string bgf = intFormat(c.NBG, "d"), ggf = intFormat(c.NGG, "d"), agf = intFormat(std::max(0, c.NAG - 1), "d");
    std::string out;
    for (size_t row = 0; row < sums.size(); ++row) {
        long long key = keyFromRef ? RK::refKey(level, static_cast<int>(row)) : 0;
        std::string prefix = cols.year + printInt(keyFormat, key) + cols.sep;
        for (int b = 0; b < s.nbg; ++b)
            for (int g = 0; g < s.ngg; ++g)
                for (int a = 0; a < s.nag; ++a) {
                    double v = sums[row][(static_cast<size_t>(b) * static_cast<size_t>(s.ngg) + static_cast<size_t>(g)) *
                                             static_cast<size_t>(s.nag) +
                                         static_cast<size_t>(a)];
                    if (v == 0 && !ini::AusgabeNull) continue;
                    out += prefix;
                    out += printInt(bgf, s.bgLabel(b)) + cols.sep + printInt(ggf, s.ggLabel(g)) + cols.sep +
                           printInt(agf, s.agLabel(a)) + cols.sep;
                    appendValue(out, c, v, true, cols.sep);
                }
        csvWrite(f, out.data(), out.size());
        out.clear();
    }
}

void aggregateBody(const Orvane& c, const GemTable& t, int label, FILE* f)
{
    AggShape s(c, false);
    int rows = aggregateRows();
    aggregateLines(c, f, sumsByAggregate(c, t, s, rows), s, label, ini::DIFF_G, true);
}

// the pyramid keeps every age group: by aggregate of DIFF_G, or the whole area as aggregate 0
void pyramidBody(const Orvane& c, const GemTable& t, int label, FILE* f)
{
    AggShape s(c, true);
    // the pyramid tells groups and sexes apart whatever DIFF_BG and DIFF_GG say
    s.nbg = c.NBG;
    s.ngg = c.NGG;
    int rows = ini::DIFF_G > 0 ? aggregateRows() : 1;
    std::vector<std::vector<double>> sums(static_cast<size_t>(rows), std::vector<double>(s.size(), 0.0));
    int n = static_cast<int>(t.extents()[0]);
    for (int gz = 0; gz < n; ++gz) {
        int row = ini::DIFF_G > 0 ? aggregateRowOf(c, gz) : 0;
        if (row < 0 || row >= rows) continue;
        auto& r = sums[static_cast<size_t>(row)];
        t.forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double v) {
            r[(b * static_cast<size_t>(c.NGG) + g) * static_cast<size_t>(c.NAG) + a] += v;
        });
    }
    Columns cols(c, label);
    long long maxKey = ini::DIFF_G > 0 ? RK::refMaxKey(ini::DIFF_G) : 0;
    std::string keyFormat = intFormat(maxKey, "lld");
    std::string out;
    for (int row = 0; row < rows; ++row) {
        long long key = ini::DIFF_G > 0 ? RK::refKey(ini::DIFF_G, row) : 0;
        std::string prefix = cols.year + printInt(keyFormat, key) + cols.sep;
        for (size_t i = 0; i < s.size(); ++i) {
            double v = sums[static_cast<size_t>(row)][i];
            if (v == 0 && !ini::AusgabeNull) continue;
            out += prefix;
            out += cols.cohort[i];
            appendValue(out, c, v, true, cols.sep);
        }
        csvWrite(f, out.data(), out.size());
        out.clear();
    }
}

// ---- movements ----

// The cells of a movement line: a component made this year is a value, and each run of
// components not made is one text of empty cells, copied whole.
struct MovementLayout {
    struct Piece {
        int component;       // -1: a run of empty cells
        std::string empty;   // the separators (and the line feed) of the run
    };
    std::vector<Piece> pieces;
    size_t room = 0;   // the longest text of the cells of a line
    MovementLayout(const std::array<const GemTable*, NMOVEMENTCOLUMNS>& m, char sep)
    {
        for (int k = 0; k < NMOVEMENTCOLUMNS; ++k) {
            char end = k + 1 == NMOVEMENTCOLUMNS ? '\n' : sep;
            if (m[static_cast<size_t>(k)]->exists()) {
                pieces.push_back({k, ""});
            } else {
                if (pieces.empty() || pieces.back().component >= 0) pieces.push_back({-1, ""});
                pieces.back().empty += end;
            }
        }
        for (const Piece& p : pieces) room += p.component < 0 ? p.empty.size() : NUMBER_TEXT_MAX + 1;
    }
};

// one line of movement values at out (room for layout.room bytes): an empty cell where a
// component was not made this year; with cells, where the text of each value made stands
// (its start from line, and its length). Returns the end of the line.
char* putMovementCells(char* out, const Orvane& c, const MovementLayout& layout, const double* values, char sep,
                       std::array<std::pair<size_t, size_t>, NMOVEMENTCOLUMNS>* cells = nullptr,
                       const char* line = nullptr)
{
    for (const MovementLayout::Piece& p : layout.pieces) {
        if (p.component < 0) {
            out = put(out, p.empty);
            continue;
        }
        size_t k = static_cast<size_t>(p.component);
        // a zero stays 0 whatever the display sign ("-0" is no movement)
        size_t n = putValue(out, c, values[k] * YearStep::columnSign[k] + 0.0);
        if (cells) (*cells)[k] = {static_cast<size_t>(out - line), n};
        out += n;
        *out++ = k + 1 == NMOVEMENTCOLUMNS ? '\n' : sep;
    }
    return out;
}

void movementCells(std::string& out, const Orvane& c, const MovementLayout& layout, const double* values, char sep)
{
    thread_local std::vector<char> room;
    char* text = roomOf(room, layout.room);
    out.append(text, static_cast<size_t>(putMovementCells(text, c, layout, values, sep) - text));
}

bool anyMovement(const std::array<const GemTable*, NMOVEMENTCOLUMNS>& m)
{
    for (const GemTable* t : m)
        if (t->exists()) return true;
    return false;
}

// bew: per region and cohort; bewgem: per region
void movementBody(const Orvane& c, const YearStep& y, int label, FILE* bew, FILE* bewgem, FILE* bewagg,
                  FILE* bewgemagg, FILE* longFile)
{
    auto m = y.movementColumns();
    if (!anyMovement(m)) return;
    Columns cols(c, label, longFile != nullptr);
    // ",name," of each movement in the long table
    std::vector<std::string> longNames;
    if (longFile)
        for (size_t k = 0; k < m.size(); ++k) longNames.push_back(longMovementName(*m[k], k) + ",");
    size_t longestName = 0;
    for (const std::string& name : longNames) longestName = std::max(longestName, name.size());
    MovementLayout layout(m, cols.sep);
    std::string keyFormat = intFormat(largestKey(c), "lld");
    size_t cells = static_cast<size_t>(c.NBG * c.NGG * c.NAG);
    int n = c.NGZ;
    // the values of one region, component by cohort
    auto regionValues = [&](int gz, std::vector<double>& v) {
        v.assign(cells * NMOVEMENTCOLUMNS, 0.0);
        for (int k = 0; k < NMOVEMENTCOLUMNS; ++k) {
            const GemTable* t = m[static_cast<size_t>(k)];
            if (!t->exists()) continue;
            t->forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double x) {
                v[((b * static_cast<size_t>(c.NGG) + g) * static_cast<size_t>(c.NAG) + a) * NMOVEMENTCOLUMNS +
                  static_cast<size_t>(k)] = x;
            });
        }
    };
    if (bew || bewgem) {
        // the region lines of bewgem are short; they are gathered beside the formatting of bew
        std::vector<std::string> regionLines(static_cast<size_t>(n));
        auto body = [&](int gz, std::string& out, std::string* longOut) {
            thread_local std::vector<double> v;   // one region's values, kept for the next region
            regionValues(gz, v);
            double total[NMOVEMENTCOLUMNS] = {};
            std::string prefix = cols.year + printInt(keyFormat, regionKeyOf(c, gz)) + cols.sep;
            std::string longPrefix = longOut ? cols.longYear + std::to_string(regionKeyOf(c, gz)) + "," : "";
            std::array<std::pair<size_t, size_t>, NMOVEMENTCOLUMNS> texts;
            // the region's prefix stands at the start of the line and of the long lines' key for
            // all its cohorts; the long lines of a cohort are gathered and appended together
            thread_local std::vector<char> lineRoom, keyRoom, longRoom;
            char* line = roomOf(lineRoom, prefix.size() + cols.longestCohort + layout.room);
            char* afterPrefix = put(line, prefix);
            char* key = roomOf(keyRoom, longPrefix.size() + cols.longestLongCohort);
            char* afterLongPrefix = put(key, longPrefix);
            char* longLines = roomOf(longRoom, m.size() * (longPrefix.size() + cols.longestLongCohort + longestName +
                                                           NUMBER_TEXT_MAX + 1));
            for (size_t i = 0; i < cells; ++i) {
                const double* row = &v[i * NMOVEMENTCOLUMNS];
                bool zero = true;
                for (int k = 0; k < NMOVEMENTCOLUMNS; ++k) {
                    total[k] += row[k];
                    if (row[k] != 0) zero = false;
                }
                if (!bew || (zero && !ini::AusgabeNull)) continue;
                char* end = putMovementCells(put(afterPrefix, cols.cohort[i]), c, layout, row, cols.sep,
                                             longOut ? &texts : nullptr, line);
                out.append(line, static_cast<size_t>(end - line));
                if (!longOut) continue;
                // each movement made this year in a line of its own, from the text just written
                size_t keyLength = static_cast<size_t>(put(afterLongPrefix, cols.longCohort[i]) - key);
                char* longEnd = longLines;
                for (size_t k = 0; k < m.size(); ++k) {
                    if (!m[k]->exists() || (row[k] == 0 && !ini::AusgabeNull)) continue;
                    std::memcpy(longEnd, key, keyLength);
                    longEnd = putPlainNumber(put(longEnd + keyLength, longNames[k]), line + texts[k].first,
                                             texts[k].second);
                    *longEnd++ = '\n';
                }
                longOut->append(longLines, static_cast<size_t>(longEnd - longLines));
            }
            if (bewgem) {
                std::string& line = regionLines[static_cast<size_t>(gz)];
                line = prefix;
                movementCells(line, c, layout, total, cols.sep);
            }
        };
        if (bew) {
            writeRegions(bew, longFile, n, body);
        } else {
            std::string ignored;
            for (int gz = 0; gz < n; ++gz) body(gz, ignored, nullptr);
        }
        if (bewgem) {
            BlockWriter lines(bewgem);
            for (const std::string& line : regionLines) {
                lines.text() += line;
                lines.done();
            }
        }
    }
    if (bewagg || bewgemagg) {
        int rows = aggregateRows();
        AggShape s(c, false);
        // component by shape cell, per aggregate row; region order
        std::vector<std::vector<double>> sums(static_cast<size_t>(std::max(rows, 0)),
                                              std::vector<double>(s.size() * NMOVEMENTCOLUMNS, 0.0));
        for (int gz = 0; gz < n; ++gz) {
            int row = aggregateRowOf(c, gz);
            if (row < 0 || row >= rows) continue;
            auto& r = sums[static_cast<size_t>(row)];
            for (int k = 0; k < NMOVEMENTCOLUMNS; ++k) {
                const GemTable* t = m[static_cast<size_t>(k)];
                if (!t->exists()) continue;
                t->forRegion(static_cast<size_t>(gz), [&](size_t, size_t b, size_t g, size_t a, double x) {
                    r[s.index(b, g, a) * NMOVEMENTCOLUMNS + static_cast<size_t>(k)] += x;
                });
            }
        }
        std::string aggFormat = intFormat(RK::refMaxKey(ini::DIFF_G), "lld");
        std::string bgf = intFormat(c.NBG, "d"), ggf = intFormat(c.NGG, "d"), agf = intFormat(std::max(0, c.NAG - 1), "d");
        std::string out, outTotal;
        for (int row = 0; row < rows; ++row) {
            std::string prefix = cols.year + printInt(aggFormat, RK::refKey(ini::DIFF_G, row)) + cols.sep;
            double total[NMOVEMENTCOLUMNS] = {};
            for (int b = 0; b < s.nbg; ++b)
                for (int g = 0; g < s.ngg; ++g)
                    for (int a = 0; a < s.nag; ++a) {
                        size_t i = (static_cast<size_t>(b) * static_cast<size_t>(s.ngg) + static_cast<size_t>(g)) *
                                       static_cast<size_t>(s.nag) +
                                   static_cast<size_t>(a);
                        const double* v = &sums[static_cast<size_t>(row)][i * NMOVEMENTCOLUMNS];
                        bool zero = true;
                        for (int k = 0; k < NMOVEMENTCOLUMNS; ++k) {
                            total[k] += v[k];
                            if (v[k] != 0) zero = false;
                        }
                        if (!bewagg || (zero && !ini::AusgabeNull)) continue;
                        out += prefix;
                        out += printInt(bgf, s.bgLabel(b)) + cols.sep + printInt(ggf, s.ggLabel(g)) + cols.sep +
                               printInt(agf, s.agLabel(a)) + cols.sep;
                        movementCells(out, c, layout, v, cols.sep);
                    }
            if (bewgemagg) {
                outTotal += prefix;
                movementCells(outTotal, c, layout, total, cols.sep);
            }
        }
        if (bewagg) csvWrite(bewagg, out.data(), out.size());
        if (bewgemagg) csvWrite(bewgemagg, outTotal.data(), outTotal.size());
    }
}

} // namespace

int64_t regionKeyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && static_cast<size_t>(gz) < c.indexKeys.size()) return c.indexKeys[static_cast<size_t>(gz)];
    return static_cast<size_t>(gz) < c.regions.size() ? c.regions[static_cast<size_t>(gz)].key : gz + 1;
}

int aggregateRows() { return ini::DIFF_G > 0 ? RK::refRows(ini::DIFF_G) : 0; }

int aggregateRowOf(const Orvane& c, int gz)
{
    int lev = ini::DIFF_G;
    if (lev <= 0) return -1;
    if (lev == 1) return 0;
    if (lev == 2) return gz;
    const RegionRow& r = c.region(gz);
    switch (lev) {
    case 3: return r.tyg;
    case 4: return r.tys;
    case 5: return r.tyb;
    case 6: return r.tyzza;
    case 7: return r.tyqwa;
    case 8: return r.tynee;
    case 9: return r.tyrea;
    case 10: return r.tywbg;
    case 11: return r.tyagf;
    case 12: return r.tyhh;
    default: return r.agg;
    }
}

void writePopulation(const Orvane& c, const GemTable& t, int label)
{
    Output out(FT_OUT_GEM);
    if (out.f) populationBody(c, t, label, out.f);
}

void writeAggregates(const Orvane& c, const GemTable& t, int label)
{
    if (ini::DIFF_G <= 0) return;
    Output out(FT_OUT_AGG);
    if (out.f) aggregateBody(c, t, label, out.f);
}

void writePyramid(const Orvane& c, const GemTable& t, int label)
{
    if (!ini::PYRAMIDE) return;
    Output out(FT_OUT_PYRAMID);
    if (out.f) pyramidBody(c, t, label, out.f);
}

void writeYearOutputs(const Orvane& c, const YearStep& y, int label)
{
    // a run that gives only its summary writes none of the tables
    if (summaryOnly()) {
        summariseYear(c, c.BG40, &y, label);
        return;
    }
    // every file is opened here, on the main thread, which also writes the heads and tells the
    // protocol; the tasks below only write lines into their own files
    const GemTable& pop = c.BG40;
    Output gem(FT_OUT_GEM);
    std::unique_ptr<Output> agg, pyramid, bew, bewgem, bewagg, bewgemagg;
    if (ini::DIFF_G > 0) agg = std::make_unique<Output>(FT_OUT_AGG);
    if (ini::PYRAMIDE) pyramid = std::make_unique<Output>(FT_OUT_PYRAMID);
    if (anyMovement(y.movementColumns())) {
        if (ini::ABEW) bew = std::make_unique<Output>(FT_OUT_BEW);
        if (ini::ABEWGEM) bewgem = std::make_unique<Output>(FT_OUT_BEWGEM);
        if (ini::DIFF_G > 0) {
            bewagg = std::make_unique<Output>(FT_OUT_BEWAGG);
            bewgemagg = std::make_unique<Output>(FT_OUT_BEWGEMAGG);
        }
    }
    auto file = [](const std::unique_ptr<Output>& o) { return o ? o->f : nullptr; };
    // the long tables take their lines from the formatting of gem and bew
    LongTableFiles longFiles(y);
    auto population = [&] {
        if (gem.f) populationBody(c, pop, label, gem.f, longFiles.population);
    };
    auto ageSums = [&] {
        if (file(agg)) aggregateBody(c, pop, label, file(agg));
        if (file(pyramid)) pyramidBody(c, pop, label, file(pyramid));
    };
    auto movementSums = [&] {
        movementBody(c, y, label, file(bew), file(bewgem), file(bewagg), file(bewgemagg), longFiles.movements);
    };
    if (os::parallel()) {
        tbb::parallel_invoke(population, ageSums, movementSums);
    } else {
        population();
        ageSums();
        movementSums();
    }
}
