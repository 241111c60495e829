#include "statistics/time_series.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <sstream>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/option_scanner.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "statistics/cell_numbers.h"
#include "statistics/file_end.h"
#include "tables/table_text.h"

namespace {

const char* const USAGE = "usage: zrgem -o zr_gem -a \"$i,$i,$i,$i,$i\" -r";
const char* const COLUMN_NAMES[5] = {"year", "GKZ", "BG", "GG", "AG"};
constexpr int CELL = 1024;

// A level 3 message that ends the process: the time series would be wrong.
[[noreturn]] void fatal(const char* format, ...) __attribute__((format(printf, 1, 2)));
void fatal(const char* format, ...)
{
    char text[1200];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    Prot::setThrow(false);
    Prot::message(SEV_ERROR, "%s", text);
    std::fflush(nullptr);
    std::exit(1);
}

// One key column's function from the key read to the key written; a negative result drops
// the record.
struct ColumnFunction {
    enum Kind { Identity, Division, Cap, Constant, Reference } kind = Identity;
    long long number = 0;                   // divisor, cap or constant
    std::map<long long, long long> map;     // reference file: key -> new key
    long long divisor = 1;                  // the reference file's cut(n): 10^n
    int cut = 0;
    std::string file;
    // the last lookup, since neighbouring lines mostly share their keys
    long long lastKey = LLONG_MIN, lastValue = 0;

    long long operator()(long long x)
    {
        switch (kind) {
        case Identity: return x;
        case Division: return x / number;
        case Cap: return x < number ? x : number;
        case Constant: return number;
        case Reference: break;
        }
        if (x == lastKey) return lastValue;
        long long key = divisor > 1 ? x / divisor : x;
        auto it = map.find(key);
        if (it == map.end()) {
            if (divisor > 1)
                // the looked-up key, the key read and the divisor
                fatal("missing key %lld = %lld / %lld in %s", key, x, divisor, file.c_str());
            fatal("missing key %lld in %s", key, file.c_str());
        }
        lastKey = x;
        lastValue = it->second;
        return lastValue;
    }
};

// the whole cell text read as a decimal number; false for anything else
bool wholeNumber(const std::string& text, long long& value) { return cellInteger(text.c_str(), value); }

// Reads a reference file into the column: "file keyColumn valueColumn". false (after its
// message) when the column stays unchanged.
bool readReference(const std::string& form, const std::string& directory, ColumnFunction& f)
{
    std::istringstream words(form);
    std::vector<std::string> w;
    for (std::string word; words >> word;) w.push_back(word);
    long long keyColumn = 0, valueColumn = 0;
    if (w.size() != 3 || !wholeNumber(w[1], keyColumn) || !wholeNumber(w[2], valueColumn) || keyColumn < 1 ||
        valueColumn < 1 || keyColumn > CELL || valueColumn > CELL) {
        Prot::message(SEV_HINT, "Unbekannte Aggregationsfunkion: \"%s\": keine Aggregation", form.c_str());
        return false;
    }
    std::string path = directory + w[0] + ".csv";
    FILE* in = std::fopen(path.c_str(), "rb");
    if (!in) {
        Prot::message(SEV_HINT, "Referenzdatei %s nicht gefunden, keine Aggregation", path.c_str());
        return false;
    }
    Prot::writeln(0, "< %s", path.c_str());
    char separator[2] = {si::separator, 0};
    CsvReader reader(in, separator);
    static const std::regex cutPattern(R"(\bcut\(\s*(\d*)\s*\))");
    const int needed = int(std::max(keyColumn, valueColumn));
    std::vector<std::string> cells;
    std::string comment;
    char cell[CELL];
    int status;
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) {
            if (reader.column > 0) comment += si::separator;
            comment += cell;
            if (status == '\n') {
                std::smatch m;
                if (comment.rfind("#!", 0) == 0 && std::regex_search(comment, m, cutPattern) && m[1].length() > 0)
                    f.cut = std::atoi(m[1].str().c_str());
                comment.clear();
            }
            continue;
        }
        cells.emplace_back(cell);
        if (status != '\n') continue;
        long long key, value;
        if (int(cells.size()) < needed) {
            Prot::message(SEV_WARNING, "Spalte %d oder %d fehlt in Referenzdatei %s Zeile %zu:%s mit %d Feldern",
                          int(keyColumn), int(valueColumn), path.c_str(), size_t(reader.lineNumber()),
                          reader.currentLine().c_str(), int(cells.size()));
        } else if (!wholeNumber(cells[size_t(keyColumn - 1)], key) || !wholeNumber(cells[size_t(valueColumn - 1)], value)) {
            Prot::message(SEV_WARNING, "Referenzdatei %s Zeile %zu:%s: Spalte %d oder %d ist keine ganze Zahl",
                          path.c_str(), size_t(reader.lineNumber()), reader.currentLine().c_str(), int(keyColumn),
                          int(valueColumn));
        } else {
            f.map[key] = value;   // a later line replaces an earlier one
        }
        cells.clear();
    }
    if (status != -1) {
        std::string line = reader.currentLine();
        fatal("%zu: %s: %s", size_t(reader.lineNumber()), line.c_str(), CsvReader::errorText(status).c_str());
    }
    std::fclose(in);
    f.kind = ColumnFunction::Reference;
    f.file = path;
    f.divisor = f.cut != 0 ? static_cast<long long>(std::pow(10.0, f.cut)) : 1;
    return true;
}

// the column's function from its form; sets aggregate when the column is not "$i"
ColumnFunction parseColumn(const std::string& form, const std::string& directory, bool& aggregate)
{
    ColumnFunction f;
    if (form == "$i") return f;
    aggregate = true;
    long long n;
    if (!form.empty() && (form[0] == '/' || form[0] == '^')) {
        n = std::strtoll(form.c_str() + 1, nullptr, 10);
        if (form[0] == '/' && n == 0) {
            // a division by 0 has no result: the column stays as it is
            Prot::message(SEV_HINT, "Unbekannte Aggregationsfunkion: \"%s\": keine Aggregation", form.c_str());
            return f;
        }
        f.kind = form[0] == '/' ? ColumnFunction::Division : ColumnFunction::Cap;
        f.number = n;
    } else if (wholeNumber(form, n)) {
        f.kind = ColumnFunction::Constant;
        f.number = n;
    } else {
        readReference(form, directory, f);
    }
    return f;
}

// what happens to a column, for the protocol of the plan
std::string columnPlan(const ColumnFunction& f, const std::string& form)
{
    switch (f.kind) {
    case ColumnFunction::Identity: return DD::lookup("tkzr_no");
    case ColumnFunction::Constant: return DD::lookup(f.number < 0 ? "tkzr_del" : "tkzr_all");
    default: return form;
    }
}

struct KeyRange {
    long long low = LLONG_MAX, high = LLONG_MIN;
    void add(long long k)
    {
        if (k < low) low = k;
        if (k > high) high = k;
    }
};

using AgeLevel = std::map<long long, double>;
using SexLevel = std::map<long long, AgeLevel>;
using GroupLevel = std::map<long long, SexLevel>;
using RegionLevel = std::map<long long, GroupLevel>;
using Result = std::map<long long, RegionLevel>;

// the result maps with a shortcut to the cell of the last record
class Aggregate {
public:
    void add(const long long* k, double value)
    {
        if (!last || k[0] != key[0] || k[1] != key[1] || k[2] != key[2] || k[3] != key[3] || k[4] != key[4]) {
            if (!ages || k[0] != key[0] || k[1] != key[1] || k[2] != key[2] || k[3] != key[3])
                ages = &result[k[0]][k[1]][k[2]][k[3]];
            last = &(*ages)[k[4]];
            std::memcpy(key, k, sizeof key);
        }
        *last += value;
    }
    const Result& all() const { return result; }

private:
    Result result;
    AgeLevel* ages = nullptr;
    double* last = nullptr;
    long long key[5] = {0, 0, 0, 0, 0};
};

struct Counters {
    size_t inputRecords = 0, commentLines = 0, emptyLines = 0, droppedRecords = 0, outputRecords = 0;
};

// Opens the yearly table; the year before the start, an input, is looked for where every input
// in the result directory, then in the shared ../_variant, then in ../, as the file or as its
// .csv.lnk.
FILE* openYear(const std::string& resultDir, int year, bool yearBefore, std::string& shown)
{
    std::string name = "gem" + std::to_string(year) + ".csv";
    std::string path = resultDir + "/" + name;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        Prot::writeln(0, "< %s", path.c_str());
        shown = path;
        return f;
    }
    int err = errno;
    if (yearBefore) {
        for (const char* place : {"/../_variant/", "/../"}) {
            std::string dir = resultDir + place;
            std::string file = dir + name;
            FILE* f = std::fopen(file.c_str(), "rb");
            if (!f) {
                std::string target;
                if (os::readLink(file + ".lnk", target) == 0) {
                    Prot::writeln(0, "%s -> %s", (file + ".lnk").c_str(), target.c_str());
                    f = std::fopen(target.c_str(), "rb");
                }
            }
            if (f) {
                Prot::writeln(0, "< %s%s", dir.c_str(), name.c_str());
                shown = file;
                return f;
            }
        }
    }
    Prot::setThrow(false);
    Prot::message(SEV_ERROR, "zrgem open %s: %s\n", path.c_str(), std::strerror(err));
    return nullptr;
}

// the text of a line's cells as it stood, for the output without aggregation
void appendCell(std::string& line, const char* cell, int status)
{
    line += quoteCell(cell);
    line += status == '\n' ? '\n' : si::separator;
}

// The checks of one yearly table's records, said as warnings on the console; the records are
// taken as they are all the same. Keys that fall together are found by the order of the lines
// (a table of the forecast is sorted, and nothing is kept for it); a table that is not sorted
// is read a second time for its keys (duplicateKeys).
class RecordCheck {
public:
    RecordCheck(const std::string& shown, int year, int ages) : shown_(shown), year_(year), ages_(ages) {}

    void record(const long long* keys, double value, uint64_t line)
    {
        ++records_;
        if (keys[0] != year_)
            Prot::message(SEV_WARNING, "%s: Zeile %zu: Jahr %lld in der Tabelle des Jahres %d", shown_.c_str(),
                          size_t(line), keys[0], year_);
        if (keys[1] < 0 || keys[2] < 1 || keys[3] < 1)
            Prot::message(SEV_WARNING, "%s: Zeile %zu: Schlüssel %lld;%lld;%lld außerhalb des Bereichs", shown_.c_str(),
                          size_t(line), keys[1], keys[2], keys[3]);
        if (keys[4] < 0 || keys[4] >= ages_)
            Prot::message(SEV_WARNING, "%s: Zeile %zu: Altersgruppe %lld außerhalb von 0..%d", shown_.c_str(),
                          size_t(line), keys[4], ages_ - 1);
        if (!std::isfinite(value) || value < 0 || value > 1e15)
            Prot::message(SEV_WARNING, "%s: Zeile %zu: Anzahl %.17g ist keine Personenzahl", shown_.c_str(),
                          size_t(line), value);
        bool before = records_ > 1;
        int order = 0;
        for (int c = 0; c < 5 && before && order == 0; ++c) order = keys[c] < last_[c] ? -1 : keys[c] > last_[c] ? 1 : 0;
        if (before && order == 0)
            Prot::message(SEV_WARNING, "%s: Zeile %zu: Schlüssel %lld;%lld;%lld;%lld;%lld doppelt (auch Zeile %zu)",
                          shown_.c_str(), size_t(line), keys[0], keys[1], keys[2], keys[3], keys[4], size_t(lastLine_));
        if (order < 0) sorted_ = false;
        std::memcpy(last_, keys, sizeof last_);
        lastLine_ = line;
    }
    bool sorted() const { return sorted_; }

    // the end of the table: its keys that fell together out of order, an empty table, a last
    // line that may have been cut
    void finish(bool lastLineOpen)
    {
        if (records_ == 0) Prot::message(SEV_WARNING, "%s: keine Datensätze", shown_.c_str());
        if (lastLineOpen)
            Prot::message(SEV_WARNING, "%s: letzte Zeile ohne Zeilenende, die Datei ist vielleicht abgeschnitten",
                          shown_.c_str());
    }

private:
    std::string shown_;
    int year_, ages_;
    uint64_t records_ = 0, lastLine_ = 0;
    long long last_[5] = {0, 0, 0, 0, 0};
    bool sorted_ = true;
};

// What reading the yearly tables fills: the result and its key ranges, the grand total, the
// counters.
struct YearSink {
    RecordCheck* check;
    ColumnFunction* functions;
    bool aggregate;
    FILE* out;
    Aggregate& result;
    KeyRange* inRange;
    KeyRange* outRange;
    double& total;
    Counters& counters;

    // one record through the column functions into the result, or dropped
    void take(long long* keys, double value)
    {
        bool dropped = false;
        for (int c = 0; c < 5; ++c) {
            inRange[c].add(keys[c]);
            keys[c] = functions[c](keys[c]);
            if (keys[c] < 0) dropped = true;
        }
        if (dropped) {
            ++counters.droppedRecords;
            return;
        }
        result.add(keys, value);
        total += value;
        for (int c = 0; c < 5; ++c) outRange[c].add(keys[c]);
    }
};

// the lines of a table counted so far
struct LineCounts {
    uint64_t data = 0, comment = 0, empty = 0;
};

// A yearly table in blocks of 1 MB, cut into lines in place.
class LineBlocks {
public:
    explicit LineBlocks(FILE* in) : in_(in), data_(BLOCK) {}

    // skips a byte order mark at the start; true when there was one
    bool skipMark()
    {
        refill();
        if (end_ >= 3 && std::memcmp(data_.data(), "\xEF\xBB\xBF", 3) == 0) {
            begin_ = 3;
            return true;
        }
        return false;
    }

    // The next line [line, stop) without its newline and the file position where it begins;
    // false at the end of the file. whole is false for a line longer than a block.
    bool next(const char*& line, const char*& stop, long long& at, bool& whole)
    {
        for (;;) {
            if (begin_ == end_ && atEnd_) return false;
            const char* from = data_.data() + begin_;
            at = offset_ + static_cast<long long>(begin_);
            whole = true;
            if (const void* newline = std::memchr(from, '\n', end_ - begin_)) {
                line = from;
                stop = static_cast<const char*>(newline);
                begin_ = size_t(stop - data_.data()) + 1;
                return true;
            }
            if (atEnd_) {
                // the last line without a newline
                line = from;
                stop = data_.data() + end_;
                begin_ = end_;
                return true;
            }
            if (begin_ == 0 && end_ == data_.size()) {
                whole = false;
                return true;
            }
            refill();
        }
    }

    // goes on at a file position, after a line that the table reader took
    void resume(long long position)
    {
        if (position >= offset_ && position <= offset_ + static_cast<long long>(end_)) {
            begin_ = size_t(position - offset_);
        } else {
            offset_ = position;
            begin_ = end_ = 0;
            atEnd_ = false;
        }
    }

private:
    static constexpr size_t BLOCK = size_t(1) << 20;

    // keeps what is left of the block and reads on behind it
    void refill()
    {
        size_t keep = end_ - begin_;
        std::memmove(data_.data(), data_.data() + begin_, keep);
        offset_ += static_cast<long long>(begin_);
        begin_ = 0;
        end_ = keep;
        // the table reader may have moved the file
        fseeko(in_, offset_ + static_cast<long long>(end_), SEEK_SET);
        size_t n = std::fread(data_.data() + end_, 1, data_.size() - end_, in_);
        end_ += n;
        if (n == 0) atEnd_ = true;
    }

    FILE* in_;
    std::vector<char> data_;
    size_t begin_ = 0, end_ = 0;   // the unread part of the block
    long long offset_ = 0;         // the file position of the block's first byte
    bool atEnd_ = false;
};

// Cuts a plain line into its six cells; false for any other number of cells.
bool sixCells(const char* line, const char* stop, const char* (&cells)[7])
{
    const char sep = si::separator;
    int n = 0;
    cells[0] = line;
    for (const char* p = line; p < stop; ++p)
        if (*p == sep) {
            if (++n == 6) return false;
            cells[n] = p + 1;
        }
    if (n != 5) return false;
    cells[6] = stop + 1;
    return true;
}

// The five keys and the value of a plain data line, the common short keys read as they are
// passed; false for a line that is not six cells of numbers.
bool plainRecord(const char* line, const char* end, long long* keys, double& value)
{
    const char sep = si::separator;
    const char* p = line;
    for (int c = 0; c < 5; ++c) {
        const char* cell = p;
        bool negative = false;
        if (p < end && *p == '+') ++p;
        if (p < end && *p == '-') {
            negative = true;
            ++p;
        }
        const char* digits = p;
        unsigned long long v = 0;
        while (p < end && unsigned(*p - '0') < 10) v = v * 10 + unsigned(*p++ - '0');
        if (p != digits && p - digits <= 18 && p < end && *p == sep) {
            keys[c] = negative ? -static_cast<long long>(v) : static_cast<long long>(v);
        } else {
            // anything else as whole cells
            p = static_cast<const char*>(std::memchr(cell, sep, size_t(end - cell)));
            if (!p || !cellInteger(cell, p, keys[c])) return false;
        }
        ++p;
    }
    return cellNumber(p, end, value);
}

// A plain data line: six cells as the table reader gives them, without quotes, blanks or
// control characters that it would take away or complain of.
bool plainText(const char* line, const char* stop)
{
    for (const char* p = line; p < stop; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '"' || c == ' ' || c == '\t' || c == '\f' || c == '\v' || c == '\r' || c == 0) return false;
    }
    return true;
}

// A line that is not plain, through the table reader from the position where it begins: its
// messages, its record, its count; with rest all lines to the end of the table. Returns the
// position behind what was read.
long long oddLine(FILE* in, long long position, bool mark, bool rest, const std::string& shown, YearSink& sink,
                  LineCounts& counts)
{
    fseeko(in, position, SEEK_SET);
    char separator[2] = {si::separator, 0};
    CsvReader reader(in, separator);
    fseeko(in, position, SEEK_SET);   // the reader looks for a byte order mark where it starts
    reader.hadBom = mark;
    reader.dataLines = counts.data;
    reader.commentLines = counts.comment;
    reader.emptyLines = counts.empty;
    char cell[CELL];
    long long keys[5];
    double value = 0;
    int column = 0;
    const char* badCell = nullptr;   // "key" or "value" of the first cell that is no number
    std::string badText, line;
    int status;
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) {
            if (status != '\n' || rest) continue;
            counts.comment = reader.commentLines + 1;
            break;
        }
        if (!sink.aggregate) appendCell(line, cell, status);
        if (column < 5) {
            if (!cellInteger(cell, keys[column]) && !badCell) {
                badCell = "Schlüssel";
                badText = cell;
            }
        } else if (column == 5) {
            if (!cellNumber(cell, value) && !badCell) {
                badCell = "Wert";
                badText = cell;
            }
        }
        ++column;
        if (status != '\n') continue;

        // the line is complete
        if (column < 6) {
            Prot::message(SEV_WARNING, "%s: Zeile %zu:%s weniger als 6 Datenspalten", shown.c_str(),
                          size_t(reader.lineNumber()), reader.currentLine().c_str());
        } else {
            if (column > 6)
                Prot::message(SEV_WARNING, "%s: Zeile %zu:%s mehr als 6 Datenspalten", shown.c_str(),
                              size_t(reader.lineNumber()), reader.currentLine().c_str());
            if (badCell)
                Prot::message(SEV_WARNING, "%s: Zeile %zu:%s %s \"%s\" ist keine Zahl", shown.c_str(),
                              size_t(reader.lineNumber()), reader.currentLine().c_str(), badCell, badText.c_str());
            else
                sink.check->record(keys, value, reader.lineNumber());
            if (!sink.aggregate) {
                csvWrite(sink.out, line.data(), line.size());
                ++sink.counters.outputRecords;
            } else if (!badCell) {
                sink.take(keys, value);
            }
        }
        if (!rest) {
            counts.data = reader.dataLines + 1;
            break;
        }
        column = 0;
        badCell = nullptr;
        line.clear();
    }
    if (status < 0 && status != -1) {
        std::string text = reader.currentLine();
        fatal("%zu: %s: %s", size_t(reader.lineNumber()), text.c_str(), CsvReader::errorText(status).c_str());
    }
    if (status == -1) {
        // the reader has counted every line
        counts.data = reader.dataLines;
        counts.comment = reader.commentLines;
    }
    counts.empty = reader.emptyLines;
    // the reader's look at the line for the messages leaves the position where it was
    return ftello(in);
}

// The keys that stand twice in a table that is not sorted: a second reading of the plain data
// lines, their keys hashed (FNV-1a) with their line numbers, sorted.
void duplicateKeys(FILE* in, const std::string& shown)
{
    std::rewind(in);
    std::vector<std::pair<uint64_t, uint64_t>> seen;
    char* text = nullptr;
    size_t capacity = 0;
    ssize_t n;
    uint64_t line = 0;
    while ((n = getline(&text, &capacity, in)) >= 0) {
        ++line;
        const char* p = text;
        const char* end = text + n;
        if (line == 1 && n >= 3 && std::memcmp(p, "\xEF\xBB\xBF", 3) == 0) p += 3;
        while (end > p && (end[-1] == '\n' || end[-1] == '\r')) --end;
        long long keys[5];
        double value;
        if (end == p || *p == '#' || !plainRecord(p, end, keys, value)) continue;
        uint64_t hash = 14695981039346656037ULL;
        for (long long k : keys) {
            hash ^= static_cast<uint64_t>(k);
            hash *= 1099511628211ULL;
        }
        seen.push_back({hash, line});
    }
    std::free(text);
    std::sort(seen.begin(), seen.end());
    for (size_t i = 1; i < seen.size(); ++i)
        if (seen[i].first == seen[i - 1].first)
            Prot::message(SEV_WARNING, "%s: Zeile %zu: Schlüssel doppelt (auch Zeile %zu)", shown.c_str(),
                          size_t(seen[i].second), size_t(seen[i - 1].second));
}

// Reads one yearly table: each data line through the column functions into the result, or
// with aggregation off straight to the output. Plain lines are cut into cells in place; a
// line with quotes, blanks, control characters, another number of cells or a cell that is no
// number goes through the table reader, which says what is wrong with it; after many such
// lines the reader takes the rest of the table, since it would only be sent back each time.
void readYear(FILE* in, const std::string& shown, YearSink& sink)
{
    constexpr int ODD_LINES = 100;
    int oddLines = 0;
    LineBlocks blocks(in);
    bool mark = blocks.skipMark();
    LineCounts counts;
    const char* line;
    const char* stop;
    const char* cells[7];
    long long at;
    bool whole;
    long long keys[5];
    double value;
    while (blocks.next(line, stop, at, whole)) {
        if (whole) {
            const char* end = stop;
            if (end > line && end[-1] == '\r') --end;
            if (end == line) {
                ++counts.empty;
                continue;
            }
            if (*line == '#') {
                if (end - line < CELL && !std::memchr(line, '"', size_t(end - line)) &&
                    !std::memchr(line, 0, size_t(end - line)) && !std::memchr(line, '\r', size_t(end - line))) {
                    ++counts.comment;
                    continue;
                }
            } else if (end - line < CELL && sink.aggregate) {
                if (plainRecord(line, end, keys, value)) {
                    sink.check->record(keys, value, counts.data + counts.comment + counts.empty + 1);
                    ++counts.data;
                    sink.take(keys, value);
                    continue;
                }
            } else if (end - line < CELL && sixCells(line, end, cells)) {
                if (plainText(line, end) && plainRecord(line, end, keys, value)) {
                    sink.check->record(keys, value, counts.data + counts.comment + counts.empty + 1);
                    ++counts.data;
                    std::string text(line, end);
                    text += '\n';
                    csvWrite(sink.out, text.data(), text.size());
                    ++sink.counters.outputRecords;
                    continue;
                }
            }
        }
        blocks.resume(oddLine(in, at, mark, ++oddLines > ODD_LINES, shown, sink, counts));
    }
    sink.check->finish(lastLineOpen(in));
    sink.counters.inputRecords += counts.data;
    sink.counters.commentLines += counts.comment;
    sink.counters.emptyLines += counts.empty;
}

// one line per entry of the result, in the order of the five keys
void writeResult(FILE* out, const Result& result, const KeyRange* range, int writeZeros, const std::string& floatFormat,
                 Counters& counters)
{
    std::string regionFormat = intFormat(range[1].high, "llu");
    std::string formats[3] = {intFormat(range[2].high, "d"), intFormat(range[3].high, "d"), intFormat(range[4].high, "d")};
    char sep = si::separator;
    std::string lineFormat = std::string("%u") + sep + regionFormat + sep + formats[0] + sep + formats[1] + sep +
                             formats[2] + sep;
    GcvtFn number = curried_gcvt(floatFormat);
    char line[1024];
    for (const auto& [year, regions] : result)
        for (const auto& [region, groups] : regions)
            for (const auto& [group, sexes] : groups)
                for (const auto& [sex, ages] : sexes)
                    for (const auto& [age, value] : ages) {
                        if (writeZeros == 0 && value == 0) continue;
                        int n = std::snprintf(line, sizeof line, lineFormat.c_str(), unsigned(year),
                                              static_cast<unsigned long long>(region), int(group), int(sex), int(age));
                        if (n < 0 || n >= int(sizeof line) - 2) continue;
                        n += number(line + n, sizeof line - size_t(n) - 1, value);
                        line[n++] = '\n';
                        csvWrite(out, line, size_t(n));
                        ++counters.outputRecords;
                    }
}

} // namespace

int zrgem(const std::string& name, const std::vector<std::string>& columns, const std::string& directory,
          const std::string& version, int startYear, int includeYearBefore, int endYear, int writeZeros,
          const std::string& floatFormat)
{
    auto started = std::chrono::steady_clock::now();
    bool throwing = Prot::throwing();
    Prot::setThrow(false);
    std::string resultDir = directory + version;

    // the plan
    bool aggregate = false;
    ColumnFunction functions[5];
    std::vector<std::string> forms = columns;
    forms.resize(5, "$i");
    for (int c = 0; c < 5; ++c) functions[c] = parseColumn(forms[size_t(c)], directory, aggregate);
    Prot::writeln(0, "%s", DD::lookup("tkzr_aggregation").c_str());
    for (int c = 0; c < 5; ++c) {
        std::string plan = columnPlan(functions[c], forms[size_t(c)]);
        if (functions[c].kind == ColumnFunction::Reference && functions[c].divisor > 1)
            Prot::writeln(0, "  %s: %s !cut(%d)", COLUMN_NAMES[c], plan.c_str(), functions[c].cut);
        else
            Prot::writeln(0, "  %s: %s", COLUMN_NAMES[c], plan.c_str());
    }
    Prot::writeln(0, "> %s.csv", name.c_str());

    std::string outPath = resultDir + "/" + name + ".csv";
    FILE* out = safeOutput::open(outPath);
    if (!out) {
        Prot::message(SEV_ERROR, "zrgem open %s: %s\n", outPath.c_str(), std::strerror(errno));
        Prot::setThrow(throwing);
        return 1;
    }
    const char* names[] = {"year", "GKZ", "BG", "GG", "AG", "@sum;(@number;)", nullptr};
    size_t headLines = size_t(csvWriteHead(out, "@zr_run;", names, nullptr));

    // the age groups of the variant, for the check of the records
    int ages = si::varInt("METHODE", "NAG", 101, directory, version);
    Counters counters;
    Aggregate result;
    KeyRange inRange[5], outRange[5];
    double total = 0;
    for (int year = includeYearBefore ? startYear - 1 : startYear; year <= endYear; ++year) {
        std::string shown;
        FILE* in = openYear(resultDir, year, year == startYear - 1, shown);
        if (!in) continue;
        RecordCheck check(shown, year, ages);
        YearSink sink{&check, functions, aggregate, out, result, inRange, outRange, total, counters};
        readYear(in, shown, sink);
        if (!check.sorted()) duplicateKeys(in, shown);
        std::fclose(in);
    }

    if (aggregate) {
        std::string ranges = "< ";
        char part[64];
        for (const KeyRange& r : inRange) {
            std::snprintf(part, sizeof part, "[%llu..%llu]", static_cast<unsigned long long>(r.low),
                          static_cast<unsigned long long>(r.high));
            ranges += part;
        }
        Prot::writeln(0, "%s", ranges.c_str());
        Prot::writeln(0, "> [%d..%d][%llu..%llu][%d..%d][%d..%d][%d..%d]", int(outRange[0].low), int(outRange[0].high),
                      static_cast<unsigned long long>(outRange[1].low), static_cast<unsigned long long>(outRange[1].high),
                      int(outRange[2].low), int(outRange[2].high), int(outRange[3].low), int(outRange[3].high),
                      int(outRange[4].low), int(outRange[4].high));
        writeResult(out, result.all(), outRange, writeZeros, floatFormat, counters);
    } else {
        Prot::writeln(0, "Zusammenfassung der GEM-Dateien ohne Aggregation");
    }
    // flushed, closed and renamed into place; a failure ends the process naming the table
    safeOutput::close(out);

    // the end counts
    std::string counts = std::to_string(counters.inputRecords) + " " + DD::lookup("inputRecords") + " + " +
                         std::to_string(counters.commentLines) + " " + DD::lookup("commentLines");
    if (counters.emptyLines) counts += " + " + std::to_string(counters.emptyLines) + " " + DD::lookup("emptyLine");
    Prot::writeln(0, "%s", counts.c_str());
    if (counters.droppedRecords)
        Prot::writeln(0, "%zu %s", counters.droppedRecords, DD::lookup("droppedRecords").c_str());
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    char time[32];
    std::snprintf(time, sizeof time, "%.3f", seconds);
    Prot::writeln(0, "%zu %s + %zu %s, %ss", headLines, DD::lookup("commentLines").c_str(), counters.outputRecords,
                  DD::lookup("outputRecords").c_str(), time);
    (void)total;
    Prot::setThrow(throwing);
    return 0;
}

int zrgemTool(int argc, char** argv)
{
    si::processDefaults();
    std::string language = "de";
    std::vector<std::string> forms;
    int runMode = 2;
    bool usage = false;
    Getopt scan;
    scan.opterr = 0;
    scan.optind = 0;
    int c;
    while ((c = scan(argc, argv, "a:l:o:r")) != -1) {
        switch (c) {
        case 'a': {
            std::string list = scan.optarg;
            size_t start = 0;
            for (size_t comma; (comma = list.find(',', start)) != std::string::npos; start = comma + 1)
                forms.push_back(list.substr(start, comma - start));
            forms.push_back(list.substr(start));
            break;
        }
        case 'l': language = scan.optarg; break;
        case 'o': ini::ZRGEM = scan.optarg; break;
        case 'r': runMode = 1; break;
        default: usage = true; break;
        }
    }
    if (usage || forms.size() > 5) {
        std::string text = "zrgem";
        for (int i = 0; i < argc; ++i) text += std::string(" ") + argv[i];
        os::messageBox(USAGE, "%s", text.c_str());
        return 0;
    }
    // the result directory comes from the settings; without one nothing is written anywhere
    std::string resultDir = si::Directory + si::Version;
    if (si::Directory.empty() || si::Version.empty() || !os::isDirectory(resultDir)) {
        os::messageBox("zrgem", "kein Ergebnisverzeichnis \"%s\" (Directory=%s, Version=%s in %s): nichts geschrieben",
                       resultDir.c_str(), si::Directory.c_str(), si::Version.c_str(), si::settingsPath().c_str());
        return 1;
    }
    DD::load(language, {});
    int level = si::varInt("DEFAULTS", "AUSGABE_PROTOKOLL", 1, si::Directory, si::Version);
    Prot::setup(si::Directory, si::Version, level, si::logfile);
    int start = si::varInt("DEFAULTS", "STARTJAHR", 0, si::Directory, si::Version);
    int end = si::varInt("DEFAULTS", "ENDJAHR", start, si::Directory, si::Version);
    int writeZeros = si::varInt("DEFAULTS", "AusgabeNull", 0, si::Directory, si::Version);
    zrgem(ini::ZRGEM, forms, si::Directory, si::Version, start, runMode >= 2, end, writeZeros, si::floatFormat);
    DD::clear();
    return 1;
}
