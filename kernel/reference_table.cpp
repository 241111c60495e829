// The reference table of regions, reftyp.csv: which regions the study area has, their names,
// and for each demographic process the type of region each belongs to. The rate tables are
// indexed by these types, so this table ties the regions to the assumptions.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "tables/input_reader.h"
#include "tables/kept_tables.h"

#define C (*Orvane::current)

namespace {

constexpr int NREFTYPCOL = 13;
constexpr int kCell = 1024;                 // the input cell buffer
constexpr long long kMaxLineRegions = 10000000;   // keys one line may spell out
// column positions, 0-based
enum { COL_GKZ = 0, COL_NAME = 1, COL_TYG = 2, COL_TYAGF = 10, COL_TYHH = 11, COL_AGG = 12 };

// lo + ((offset - 1 + v) mod width): an interval hands out its values in turn over the keys of
// a line, starting at the drawn offset
long long inTurn(long long lo, long long hi, long long offset, long long v)
{
    unsigned long long width = static_cast<unsigned long long>(hi) - static_cast<unsigned long long>(lo) + 1;
    if (width == 0 || width > static_cast<unsigned long long>(LLONG_MAX)) return lo;
    return lo + (offset - 1 + v) % static_cast<long long>(width);
}

// the number of keys lo..hi, without overflow
unsigned long long spanOf(long long lo, long long hi)
{
    return hi < lo ? 0 : static_cast<unsigned long long>(hi) - static_cast<unsigned long long>(lo) + 1;
}

const char* const columnName[NREFTYPCOL] = {"GKZ",   "Name",  "TYG",   "TYS",   "TYB",  "TYZZA", "TYQWA",
                                            "TYNEE", "TYREA", "TYWBG", "TYAGF", "TYHH", "AGG"};

// what the reference table leaves beside the regions of the run object
struct Reference {
    int lowest[NREFTYPCOL] = {};
    int highest[NREFTYPCOL] = {};
    std::vector<long long> aggregates;      // the aggregate numbers, ascending
    long long highestAggregate = 0;
} ref;

// one cell of a line as read
struct Cell {
    IndexInterval iv;
    bool present = false;   // the line has this cell
    bool empty = true;      // nothing that makes an interval
    std::string text;
};

int column0ForAggregate()
{
    int nra = Orvane::current ? C.NRA : ini::NRA;
    return 12 + std::max(0, nra - 13);
}

// ?$NAME lo..hi guards in front of a command; false when the line is to be skipped
const char* guards(const char* p, bool& skip)
{
    for (;;) {
        while (*p == ' ' || *p == '\t') ++p;
        if (*p != '?') return p;
        ++p;
        std::string name;
        while (*p && !std::isspace(static_cast<unsigned char>(*p))) name += *p++;
        while (*p == ' ' || *p == '\t') ++p;
        char* end = nullptr;
        long long lo = std::strtoll(p, &end, 10);
        p = end;
        long long hi = lo;
        if (p[0] == '.' && p[1] == '.') {
            hi = std::strtoll(p + 2, &end, 10);
            p = end;
        }
        if (*p) ++p;    // the one character after the bounds
        double value = 0;
        if (!variableValue(name.c_str(), value)) {
            Prot::message(SEV_ERROR, "invalid variable %s in input", name.c_str());
            skip = true;
            return p;
        }
        if (value < static_cast<double>(lo) || value > static_cast<double>(hi)) skip = true;
    }
}

class RefReader {
public:
    RefReader(FILE* in, std::string name, std::string path) : in(in), name(std::move(name)), path(std::move(path)) {}
    ~RefReader()
    {
        if (copy) fclose(copy);
        delete parser;
        delete reader;
    }

    void read();

    FILE* in;
    std::string name, path;
    CsvReader* reader = nullptr;
    Parser* parser = nullptr;
    std::mt19937 rndos;
    bool withOffsets = true;

    std::vector<RegionRow> regions;
    std::vector<long long> rawAggregates;       // the aggregate of each region before it becomes a position
    std::map<int, long> counts[NREFTYPCOL];     // per column: value to number of regions
    std::map<long long, long> aggregateCounts;
    long long largestKey = 0;

    // the expanded copy, when a line computed its cells
    FILE* copy = nullptr;
    bool copyTried = false;

private:
    void startLine();
    void cell(int column, const char* text);
    void endLine();
    void traceCells();
    void expand();
    int typeValue(int column, const Cell& c, long long offset, long long v, long long key);
    void writeCopy(const RegionRow& r, long long aggregate);

    int lineNo = 0;
    bool lineActive = false, lineIsComment = false, skip = false;
    int cellsInLine = 0;
    Cell cells[NREFTYPCOL];
    long long offsets[NREFTYPCOL] = {};
};

void RefReader::startLine()
{
    for (Cell& c : cells) c = Cell();
    for (long long& o : offsets) o = 0;
    cellsInLine = 0;
    skip = false;
}

void RefReader::cell(int column, const char* text)
{
    ++cellsInLine;
    int aggColumn = column0ForAggregate();
    int slot = column;
    if (column == aggColumn) slot = COL_AGG;
    else if (column > COL_TYHH) return;    // between TYHH and the aggregate in use, or beyond it
    Cell& c = cells[slot];
    c.present = true;
    c.text = text;
    if (slot == COL_NAME) {
        c.empty = c.text.empty();
        return;
    }
    const char* p = text;
    while (*p == ' ' || *p == '\t') ++p;
    if (!*p) return;
    if (!parseIndexCell(text, 0, -1, c.iv, reader)) {
        Prot::message(SEV_ERROR, "%d: %s: %s", lineNo, text, "kein Index, Intervall oder irand");
        return;
    }
    if (c.iv.star) {
        Prot::message(SEV_ERROR, "%d: %s: %s", lineNo, text, "* hat in reftyp keine Bedeutung");
        return;
    }
    c.empty = false;
    if (c.iv.computed) expandNeeded = 1;
    if (slot == COL_GKZ && withOffsets) {
        // each further column starts its interval at a drawn place
        unsigned long long width = c.iv.isRandom() ? 1 : spanOf(c.iv.lo, c.iv.hi);
        for (int k = 1; k < NREFTYPCOL; ++k)
            offsets[k] = width > 0 ? static_cast<long long>(rndos() % width) : 0;
    }
}

void RefReader::traceCells()
{
    Prot::raw("<table><tr><th>Spalte</th><th>Name</th><th>Wert</th></tr>\n");
    for (int k = 0; k < NREFTYPCOL; ++k) {
        const Cell& c = cells[k];
        Prot::raw("<tr><td class=\"r\">%d</td><td>%s</td>", k + 1, columnName[k]);
        if (c.empty) {
            Prot::raw("<td class=\"error\"></td>");
        } else if (k == COL_NAME) {
            Prot::raw("<td>%s</td>", htmlText(c.text).c_str());
        } else {
            Prot::raw("<td class=\"r\">%lld", c.iv.lo);
            if (c.iv.hi != c.iv.lo) Prot::raw("..%lld", c.iv.hi);
            if (c.iv.m != 1) Prot::raw("*%lld", c.iv.m);
            Prot::raw("</td>");
        }
        Prot::raw("</tr>\n");
    }
    Prot::raw("</table>\n");
}

int RefReader::typeValue(int column, const Cell& c, long long offset, long long v, long long key)
{
    long long value;
    if (c.iv.isRandom()) {
        long long a = c.iv.randomLow(), b = c.iv.randomHigh();
        if (b < a) std::swap(a, b);
        value = a + static_cast<long long>(rndos() % static_cast<unsigned long long>(b - a + 1));
    } else if (c.iv.hi >= c.iv.lo) {
        value = inTurn(c.iv.lo, c.iv.hi, offset, v);
    } else {
        value = c.iv.hi;    // an empty cell
    }
    if (column == COL_AGG) return 0;    // not used for the aggregate
    if (value < 0 || value > INT_MAX) {
        // the text of the key takes the column, the value and the limits
        char text[512];
        snprintf(text, sizeof text, DD::lookup("rk1ref_fmt1100").c_str(), columnName[column], static_cast<int>(value), 0,
                 INT_MAX);
        Prot::message(SEV_ERROR, "%s (%s %zu, GKZ %lld)", text, "Zeile", static_cast<size_t>(lineNo), key);
    }
    return static_cast<int>(value);
}

void RefReader::writeCopy(const RegionRow& r, long long aggregate)
{
    if (!copyTried) {
        copyTried = true;
        std::string dir = si::Directory + si::Version;
        if (!dir.empty() && dir.back() != '/') dir += '/';
        std::string copyPath = dir + name;
        std::error_code ec;
        // the table itself may stand there: an input is never overwritten
        if (std::filesystem::exists(copyPath, ec) && std::filesystem::equivalent(copyPath, path, ec)) return;
        copy = fopen(copyPath.c_str(), "w");
        if (!copy) {
            int err = errno;
            Prot::message(SEV_ERROR, "@fn_EopenExp;", copyPath.c_str(), "w", name.c_str(),
                          fileTable[FT_REFT].fileNumber, os::errorText(err).c_str());
            return;
        }
        if (si::csvBom) fputs("\xEF\xBB\xBF", copy);
        fprintf(copy, "# expanded from ../%s\n", name.c_str());
        Prot::addOutputFile(name);
    }
    if (!copy) return;
    char s = si::separator;
    char line[2048];
    int n = snprintf(line, sizeof line, "%lld%c\"%s\"%c%d%c%d%c%d%c%d%c%d%c%d%c%d%c%d%c%d%c%d%c%lld\n",
                     static_cast<long long>(r.key), s, r.name.c_str(), s, r.tyg, s, r.tys, s, r.tyb, s, r.tyzza, s,
                     r.tyqwa, s, r.tynee, s, r.tyrea, s, r.tywbg, s, r.tyagf, s, r.tyhh, s, aggregate);
    csvWrite(copy, line, static_cast<size_t>(std::min<int>(n, sizeof line - 1)));
}

void RefReader::expand()
{
    const Cell& key = cells[COL_GKZ];
    if (key.empty) {
        Prot::message(SEV_WARNING, "reftyp Zeile %d: ohne Gebietskennzeichen, übergangen", lineNo);
        return;
    }
    long long lo = key.iv.lo, hi = key.iv.hi, m = key.iv.m;
    if (key.iv.isRandom()) {
        lo = hi = drawRandomIndex(key.iv);
        m = 1;
    }
    if (spanOf(lo, hi) > static_cast<unsigned long long>(kMaxLineRegions)) {
        Prot::message(SEV_ERROR, "reftyp Zeile %d: Intervall %lld..%lld umfasst mehr als %lld Gebiete", lineNo, lo, hi,
                      kMaxLineRegions);
        return;
    }
    bool traceRows = traceLevel >= 1 && hi > lo;
    const unsigned long long span = spanOf(lo, hi);
    for (unsigned long long i = 0; i < span; ++i) {
        const long long v = static_cast<long long>(static_cast<unsigned long long>(lo) + i);
        RegionRow r;
        r.key = v * m;
        largestKey = std::max<long long>(largestKey, r.key);
        const std::string& text = cells[COL_NAME].text;
        size_t dollar = text.find('$');
        if (dollar == std::string::npos) {
            r.name = text;
        } else {
            char number[32];
            snprintf(number, sizeof number, "%lld", static_cast<long long>(r.key));
            r.name = text.substr(0, dollar) + number + text.substr(dollar + 1);
        }
        int* types[] = {&r.tyg, &r.tys, &r.tyb, &r.tyzza, &r.tyqwa, &r.tynee, &r.tyrea, &r.tywbg, &r.tyagf, &r.tyhh};
        for (int k = COL_TYG; k <= COL_TYHH; ++k) {
            int value = typeValue(k, cells[k], offsets[k], v, r.key);
            *types[k - COL_TYG] = value;
            ++counts[k][value];
        }
        // the aggregate
        const Cell& a = cells[COL_AGG];
        long long aggregate;
        if (a.iv.isRandom())
            aggregate = drawRandomIndex(a.iv);
        else if (a.iv.hi >= a.iv.lo)
            aggregate = inTurn(a.iv.lo, a.iv.hi, offsets[COL_AGG], v);
        else
            aggregate = a.iv.hi;
        aggregate *= a.iv.m;
        ++aggregateCounts[aggregate];
        if (traceRows)
            Prot::raw("&gt;      %lld;%s;%d;%d;%d;%d;%d;%d;%d;%d;%d;%d;%lld\n", static_cast<long long>(r.key),
                      htmlText(r.name).c_str(), r.tyg, r.tys, r.tyb, r.tyzza, r.tyqwa, r.tynee, r.tyrea, r.tywbg,
                      r.tyagf, r.tyhh, aggregate);
        if (expandNeeded && expandRequested) writeCopy(r, aggregate);
        regions.push_back(std::move(r));
        rawAggregates.push_back(aggregate);
    }
}

void RefReader::endLine()
{
    if (!lineActive) return;
    lineActive = false;
    if (lineIsComment || skip) return;
    if (traceLevel >= 1) traceCells();
    if (cellsInLine < NREFTYPCOL)
        Prot::message(SEV_WARNING, "reftyp Zeile %d: enthält nur %d Spalten statt mindestens %d\n", lineNo,
                      cellsInLine, NREFTYPCOL);
    expand();
}

void RefReader::read()
{
    reader = new CsvReader(in, std::string(1, si::separator).c_str());
    parser = new Parser(reader);
    char cell[kCell];
    for (;;) {
        int status = reader->next(cell, kCell);
        if (status < 0) {
            if (status < -1) {
                Prot::message(SEV_ERROR, "%d: %s: %s", static_cast<int>(reader->lineNumber()), cell,
                              CsvReader::errorText(status).c_str());
                return;
            }
            endLine();
            return;
        }
        int column = reader->column;
        if (column == 0) {
            lineActive = true;
            lineNo = static_cast<int>(reader->lineNumber());
            lineIsComment = reader->isComment != 0;
            startLine();
        }
        if (lineIsComment) {
            // a command of the language: "#!" and the statements after it
            if (cell[0] && cell[1] == '!') {
                bool skipCommand = false;
                const char* p = guards(cell + 2, skipCommand);
                if (!skipCommand) runStatements(*parser, p, false);
            }
        } else if (!skip) {
            this->cell(column, cell);
        }
        if (status == '\n') endLine();
    }
}

// the rows of the region table in the protocol
void protocolTable(const std::vector<RegionRow>& regions, const std::vector<long long>& aggregateOf)
{
    std::map<long long, long> perAggregate;
    for (long long a : aggregateOf) ++perAggregate[a];
    Prot::heading(2, "@REF;", "@REF;");
    Prot::raw("<table>\n<tr><th>%s</th><th>%s</th>", columnName[COL_GKZ], DD::lookup("GNAME").c_str());
    for (int k = COL_TYG; k <= COL_TYHH; ++k) Prot::raw("<th>%s</th>", columnName[k]);
    char head[256];
    snprintf(head, sizeof head, "%s %d: %s", DD::lookup("diffAGG").c_str(), column0ForAggregate() + 1,
             columnName[COL_AGG]);
    Prot::raw("<th>%s</th><th>%s</th></tr>\n", htmlText(head).c_str(), DD::lookup("NGZ").c_str());
    for (size_t i = 0; i < regions.size(); ++i) {
        const RegionRow& r = regions[i];
        std::string name = htmlText(r.name);
        Prot::raw("<tr><td class=\"r\">%lld</td><td><a title=\"%s\"><span class=tooltip>%s</span></a></td>",
                  static_cast<long long>(r.key), name.c_str(), name.c_str());
        const int values[] = {r.tyg, r.tys, r.tyb, r.tyzza, r.tyqwa, r.tynee, r.tyrea, r.tywbg, r.tyagf, r.tyhh};
        for (int k = COL_TYG; k <= COL_TYHH; ++k)
            Prot::raw("<td class=\"r\">%d</td>", values[k - COL_TYG] + ref.lowest[k]);
        char agg[256];
        char number[32];
        snprintf(number, sizeof number, " %lld", aggregateOf[i]);
        snprintf(agg, sizeof agg, "%s%s: %ld", DD::lookup("area").c_str(), number, perAggregate[aggregateOf[i]]);
        Prot::raw("<td>%s</td><td class=\"r\">%zu</td></tr>\n", htmlText(agg).c_str(), i + 1);
    }
    Prot::raw("</table>\n");
}

// TYZZA must refine TYB: all regions of an in-migration type lie in one internal migration type
void checkRefinement(const std::vector<RegionRow>& regions)
{
    std::map<int, std::set<int>> tybOf;
    for (const RegionRow& r : regions) tybOf[r.tyzza].insert(r.tyb);
    bool found = false;
    for (const auto& [tyzza, tybs] : tybOf) {
        if (tybs.size() < 2) continue;
        std::string list;
        for (int t : tybs) {
            if (!list.empty()) list += ", ";
            list += std::to_string(t + ref.lowest[4]);
        }
        Prot::message(SEV_WARNING, "TYZZA %zu kommt bei TYB %s vor", static_cast<size_t>(tyzza + ref.lowest[5]),
                      list.c_str());
        found = true;
    }
    if (found)
        Prot::message(SEV_ERROR,
                      "REFTYP Spalte 6 TYZZA (Typ Außenzuzug) ist nicht Verfeinerung von Spalte 5 TYB (Typ "
                      "Binnenwanderung)");
}

} // namespace

void RK::REF()
{
    Trace::enter("RKREF");
    struct Leave {
        ~Leave()
        {
            // a listing switched on by the table ends with it
            if (traceLevel > 0) Prot::raw("</pre>\n");
            traceLevel = 0;
            // the variables of the table's commands end with it
            exprClearTable();
            Trace::leave();
        }
    } leave;

    FileEntry& entry = fileTable[FT_REFT];
    if (entry.name.empty()) fillFileTable();
    FILE* in = nullptr;
    std::string path, note;
    if (openReadTable(entry, &in, path, note) != 0 || !in) return;
    std::string name = tableFileName(entry, entry.fileNumber);
    Prot::writeln(1, "@reading; reftyp%s", note.c_str());
    Prot::addInputFile(name, path);

    // a fresh start for the counts and the key scale
    C.NTYG = C.NTYS = C.NTYB = C.NTYZZA = C.NTYQWA = C.NTYNEE = C.NTYREA = C.NTYWBG = C.NTYAGF = C.NTYHH = 0;
    C.keyScale = 1;
    keyScale = 1;

    RefReader r(in, name, path);
    if (C.GRND & 2)
        r.rndos.seed(static_cast<std::mt19937::result_type>(
            std::chrono::system_clock::to_time_t(std::chrono::system_clock::now())));
    else
        r.rndos.seed(4711);
    r.withOffsets = (C.GRND & 1) == 0;
    try {
        r.read();
    } catch (...) {
        fclose(in);
        throw;
    }
    if (fclose(in) != 0) Prot::message(SEV_ERROR, "%s", os::errorText(errno).c_str());

    // the region count is fixed by the first table of the run
    int count = static_cast<int>(r.regions.size());
    if (JAHR <= C.STARTJAHR || C.regions.empty()) {
        C.NGZ = count;
    } else if (count != C.NGZ && keyScale == 1) {
        Prot::message(SEV_ERROR, "@rk1ref_fmt2200; (%d / %d)", count, C.NGZ);
    }

    // aggregates become their positions in the sorted list of aggregate numbers
    ref.aggregates.clear();
    for (const auto& a : r.aggregateCounts) ref.aggregates.push_back(a.first);
    ref.highestAggregate = ref.aggregates.empty() ? 0 : ref.aggregates.back();
    r.counts[COL_AGG].clear();
    for (size_t i = 0; i < r.regions.size(); ++i) {
        auto it = std::lower_bound(ref.aggregates.begin(), ref.aggregates.end(), r.rawAggregates[i]);
        if (it == ref.aggregates.end() || *it != r.rawAggregates[i]) Prot::message(SEV_ERROR, "@rk1ref_fmt1700;");
        r.regions[i].agg = static_cast<int>(it - ref.aggregates.begin());
        ++r.counts[COL_AGG][r.regions[i].agg];
    }

    // lowest and highest number of each column
    for (int k = COL_TYG; k < NREFTYPCOL; ++k) {
        const auto& c = r.counts[k];
        ref.lowest[k] = c.count(0) ? 0 : 1;
        ref.highest[k] = c.empty() ? -1 : c.rbegin()->first;
    }

    // no gaps in the numbers of a type column
    for (int k = COL_TYG; k < NREFTYPCOL; ++k) {
        if (k == COL_TYAGF) continue;
        const auto& c = r.counts[k];
        for (int v = 1; v <= ref.highest[k]; ++v) {
            if (c.count(v)) continue;
            Prot::write(1, "reftyp Spalte %d: %s enthält:\n", k + 1, columnName[k]);
            for (const auto& [value, n] : c) Prot::write(1, "%d: %ld mal, ", value, n);
            Prot::message(SEV_ERROR, "@rk1ref_fmt1500;", k + 1, columnName[k], v);
            break;
        }
    }

    if (r.regions.empty()) Prot::writeln(1, "reftyp @fn_empty;");

    for (size_t i = 1; i < r.regions.size(); ++i) {
        if (r.regions[i].key <= r.regions[i - 1].key)
            Prot::message(SEV_ERROR, "@rk1ref_fmt1900; (%lld, %lld)", static_cast<long long>(r.regions[i - 1].key),
                          static_cast<long long>(r.regions[i].key));
    }

    // the counts of types, and the types counted from 0
    int* counts[] = {&C.NTYG, &C.NTYS, &C.NTYB, &C.NTYZZA, &C.NTYQWA, &C.NTYNEE, &C.NTYREA, &C.NTYWBG, &C.NTYAGF,
                     &C.NTYHH};
    for (int k = COL_TYG; k <= COL_TYHH; ++k)
        *counts[k - COL_TYG] = std::max(0, ref.highest[k] - ref.lowest[k] + 1);
    C.NTYBv = C.NTYBn = C.NTYB;
    for (RegionRow& row : r.regions) {
        int* types[] = {&row.tyg, &row.tys, &row.tyb, &row.tyzza, &row.tyqwa, &row.tynee, &row.tyrea, &row.tywbg,
                        &row.tyagf, &row.tyhh};
        for (int k = COL_TYG; k <= COL_TYHH; ++k) *types[k - COL_TYG] -= ref.lowest[k];
    }

    // the tables kept from earlier years name regions by their places in this table: other
    // regions (a newer reference table) make them be read again
    if (r.regions.size() != C.regions.size() ||
        !std::equal(r.regions.begin(), r.regions.end(), C.regions.begin(),
                    [](const RegionRow& a, const RegionRow& b) { return a.key == b.key; }))
        keptTables::forget();
    C.regions = std::move(r.regions);
    C.indexRegions();
    C.maxKey = std::max<int64_t>(C.maxKey, r.largestKey);
    // every key starts unused with the run; a later reading keeps what the tables used so far
    auto& use = regionKeyUse();
    if (JAHR <= ini::STARTJAHR) use.clear();
    for (const RegionRow& row : C.regions) use.emplace(static_cast<long long>(row.key), 0);

    if (Prot::level(2) && ini::AUSGABE_EINZELWERTE) protocolTable(C.regions, r.rawAggregates);

    checkRefinement(C.regions);
}

// ---------------------------------------------------------------- accessors by aggregate level

namespace {
void assertColumns() { Prot::check(NREFTYPCOL == 13, "siinit", __LINE__, "NREFTYPCOL == 13"); }

int typeCount(int lev)
{
    const int values[] = {C.NTYG, C.NTYS, C.NTYB, C.NTYZZA, C.NTYQWA, C.NTYNEE, C.NTYREA, C.NTYWBG, C.NTYAGF, C.NTYHH};
    return values[lev - 3];
}
} // namespace

int RK::refRows(int lev)
{
    assertColumns();
    if (lev <= 0) return 0;
    if (lev == 1) return 1;
    if (lev == 2) return C.NGZ;
    if (lev <= 12) return typeCount(lev);
    return static_cast<int>(ref.aggregates.size());
}

long long RK::refKey(int lev, int i)
{
    assertColumns();
    if (lev <= 0) return 0;
    if (lev == 1) return 1;
    if (lev == 2) return i >= 0 && static_cast<size_t>(i) < C.regions.size() ? C.regions[static_cast<size_t>(i)].key : 0;
    if (lev <= 12) return i + 1;
    return i >= 0 && static_cast<size_t>(i) < ref.aggregates.size() ? ref.aggregates[static_cast<size_t>(i)] : 0;
}

long long RK::refMaxKey(int lev)
{
    assertColumns();
    if (lev <= 0) return 0;
    if (lev == 1) return static_cast<long long>(ref.aggregates.size());
    if (lev == 2) return C.maxKey;
    if (lev <= 12) return typeCount(lev);
    return ref.highestAggregate;
}

int RK::refLowest(int column) { return column >= 1 && column <= NREFTYPCOL ? ref.lowest[column - 1] : 0; }
int RK::refHighest(int column) { return column >= 1 && column <= NREFTYPCOL ? ref.highest[column - 1] : 0; }
