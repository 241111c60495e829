#include "statistics/time_series.h"

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

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/option_scanner.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "statistics/cell_numbers.h"
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
// table of a variant is: in the result directory, then ../, then the shared ../_variant, as the
// file or as its .csv.lnk.
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
        for (const char* place : {"/../", "/../_variant/"}) {
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

// Reads one yearly table: each data line through the column functions into the result, or
// with aggregation off straight to the output.
void readYear(FILE* in, const std::string& shown, ColumnFunction* functions, bool aggregate, FILE* out,
              Aggregate& result, KeyRange* inRange, KeyRange* outRange, double& total, Counters& counters)
{
    char separator[2] = {si::separator, 0};
    CsvReader reader(in, separator);
    char cell[CELL];
    long long keys[5];
    double value = 0;
    int column = 0;
    const char* badCell = nullptr;   // "key" or "value" of the first cell that is no number
    std::string badText, line;
    int status;
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) continue;
        if (!aggregate) {
            appendCell(line, cell, status);
        } else if (column < 5) {
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
            if (!aggregate) {
                csvWrite(out, line.data(), line.size());
                ++counters.outputRecords;
            } else if (badCell) {
                Prot::message(SEV_WARNING, "%s: Zeile %zu:%s %s \"%s\" ist keine Zahl", shown.c_str(),
                              size_t(reader.lineNumber()), reader.currentLine().c_str(), badCell, badText.c_str());
            } else {
                bool dropped = false;
                for (int c = 0; c < 5; ++c) {
                    inRange[c].add(keys[c]);
                    keys[c] = functions[c](keys[c]);
                    if (keys[c] < 0) dropped = true;
                }
                if (dropped) {
                    ++counters.droppedRecords;
                } else {
                    result.add(keys, value);
                    total += value;
                    for (int c = 0; c < 5; ++c) outRange[c].add(keys[c]);
                }
            }
        }
        column = 0;
        badCell = nullptr;
        line.clear();
    }
    if (status != -1) {
        std::string text = reader.currentLine();
        fatal("%zu: %s: %s", size_t(reader.lineNumber()), text.c_str(), CsvReader::errorText(status).c_str());
    }
    counters.inputRecords += reader.dataLines;
    counters.commentLines += reader.commentLines;
    counters.emptyLines += reader.emptyLines;
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
    FILE* out = std::fopen(outPath.c_str(), "wb");
    if (!out) {
        Prot::message(SEV_ERROR, "zrgem open %s: %s\n", outPath.c_str(), std::strerror(errno));
        Prot::setThrow(throwing);
        return 1;
    }
    const char* names[] = {"year", "GKZ", "BG", "GG", "AG", "@sum;(@number;)", nullptr};
    size_t headLines = size_t(csvWriteHead(out, "@zr_run;", names, nullptr));

    Counters counters;
    Aggregate result;
    KeyRange inRange[5], outRange[5];
    double total = 0;
    for (int year = includeYearBefore ? startYear - 1 : startYear; year <= endYear; ++year) {
        std::string shown;
        FILE* in = openYear(resultDir, year, year == startYear - 1, shown);
        if (!in) continue;
        readYear(in, shown, functions, aggregate, out, result, inRange, outRange, total, counters);
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
    std::fclose(out);

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
