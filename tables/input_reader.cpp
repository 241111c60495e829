// The input file reader: opening with the numbered search and the shared fall-back, the index
// cell parser, the line loop with guards, check column, region keys and value expressions,
// the expanded copy, and the typed entry points over the array shapes of the system.
#include "tables/input_reader.h"
#include "tables/kept_tables.h"
#include "tables/plain_cells.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <sys/stat.h>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "platform/text_format.h"

namespace {

constexpr int kLineBuffer = 1024;       // the input cell buffer
constexpr int kRateReports = 100;       // rate reports written per table; the rest are counted
constexpr int kShapeShown = 5;         // misread lines shown one by one per table
constexpr long long kFirstYear = 1000, kLastYear = 9999;   // the years a year section may name
constexpr int kListed = 4;              // doubles and unassigned cells listed by tuple
constexpr uint64_t kDoublesShown = 20;   // doubly assigned cells shown one by one

inline unsigned char uc(char c) { return static_cast<unsigned char>(c); }
inline const char* skipWhite(const char* p)
{
    while (*p && std::isspace(uc(*p))) ++p;
    return p;
}

// the table under reading, for the messages of this and other modules
std::string g_readingName;
CsvReader* g_readingReader = nullptr;

std::string separatorText()
{
    return std::string(1, si::separator ? si::separator : ';');
}

bool entryExists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// A table the reader wrote itself as the expanded copy of an input: it stands in the variant
// directory under the input's own name, and is a result, never an input to read back.
bool isExpandedCopy(const std::string& path)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return false;
    char line[512];
    bool copy = fgets(line, sizeof line, f) != nullptr;
    fclose(f);
    if (!copy) return false;
    const char* text = std::strncmp(line, "\xEF\xBB\xBF", 3) == 0 ? line + 3 : line;
    return std::strncmp(text, "# expanded from ../", 19) == 0;
}

bool plainFile(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string withSlash(const std::string& dir)
{
    if (dir.empty()) return dir;
    char last = dir.back();
    return last == '/' || last == '\\' ? dir : dir + "/";
}

// the stem and what follows the %d of a name
bool splitNumbered(const std::string& name, std::string& stem, std::string& tail)
{
    size_t pc = name.find('%');
    if (pc == std::string::npos) return false;
    stem = name.substr(0, pc);
    size_t d = name.find('d', pc);
    tail = d == std::string::npos ? std::string() : name.substr(d + 1);
    return true;
}

std::string numberedName(const std::string& stem, const std::string& tail, int number)
{
    if (number == 1 && stem == "reft") return "reftyp" + tail;
    return stem + std::to_string(number) + tail;
}

std::string expandText(const std::string& text) { return DD::expKey(text); }

// a*b and a-b held at the limits of 64 bits instead of overflowing
long long mulSat(long long a, long long b)
{
    long long r;
    if (!__builtin_mul_overflow(a, b, &r)) return r;
    return (a < 0) != (b < 0) ? LLONG_MIN : LLONG_MAX;
}
long long subSat(long long a, long long b)
{
    long long r;
    if (!__builtin_sub_overflow(a, b, &r)) return r;
    return b > 0 ? LLONG_MIN : LLONG_MAX;
}

// Opens path, or follows path.lnk first when linkFirst and it exists. 0 or an error number;
// a link that cannot be read is the error "%s, %s".
int openPlace(const std::string& path, const char* mode, bool linkFirst, bool linkAfter, FILE** f,
              std::string& opened, bool& viaLink)
{
    viaLink = false;
    auto tryLink = [&](int& err) -> bool {
        std::string link = path + ".lnk";
        if (!entryExists(link)) return false;
        std::string target;
        int rc = os::readLink(link, target);
        if (rc != 0 || target.empty()) {
            Prot::message(SEV_ERROR, "%s, %s", link.c_str(), os::errorText(rc ? rc : ENOENT).c_str());
            err = rc ? rc : ENOENT;
            return true;
        }
        *f = fopen(target.c_str(), mode);
        err = *f ? 0 : errno;
        opened = target;
        viaLink = true;
        return true;
    };
    int err = ENOENT;
    if (linkFirst && tryLink(err)) return err;
    if (plainFile(path)) {
        *f = fopen(path.c_str(), mode);
        if (*f) {
            opened = path;
            return 0;
        }
        err = errno;
    }
    if (linkAfter && tryLink(err)) return err;
    return err ? err : ENOENT;
}

std::string linkNote(const std::string& path, const std::string& shown)
{
    return format(", <a href=\"%s\">%s</a> %s", fileUrl(path).c_str(), shown.c_str(),
                  DD::lookup("fn_isLink").c_str());
}

void putNote(std::string* note, const std::string& text)
{
    if (note)
        *note += text;
    else
        Prot::write(1, "%s", text.c_str());
}

} // namespace

// ---------------------------------------------------------------- years and names

namespace {
ReadingRun* g_run = nullptr;
}

void setReadingRun(ReadingRun* run)
{
    // the tables kept belong to one run: its regions and its files
    keptTables::forget();
    g_run = run;
}
ReadingRun* readingRun() { return g_run; }

int readYear()
{
    int year = g_run ? g_run->forecastYear() : 0;
    return year != 0 ? year : ini::STARTJAHR;
}

int checkNumber(const FileEntry& file) { return readYear() - file.yearOffset; }

std::string tableFileName(const FileEntry& file, int number)
{
    std::string stem, tail;
    if (!splitNumbered(file.name, stem, tail)) return file.name + ".csv";
    return numberedName(stem, tail, number) + ".csv";
}

const std::string& readingName() { return g_readingName; }

namespace {
// An ensemble member works in its own directory: after that, its tables are looked for where
// the variant's own forecast finds them.
std::string g_memberOf;
} // namespace

void setMemberOf(const std::string& variantDirectory)
{
    g_memberOf = variantDirectory.empty() ? std::string() : withSlash(variantDirectory);
}

std::string variantFileDirectory()
{
    if (!g_memberOf.empty()) return g_memberOf + "../";
    return si::Directory.empty() ? "." : si::Directory;
}
CsvReader* readingReader() { return g_readingReader; }

std::map<long long, long>& regionKeyUse()
{
    static std::map<long long, long> use;
    return use;
}

// ---------------------------------------------------------------- opening

namespace {

// The places a table is looked for, in order: the base (the variant directory), the directory
// above it (the variant file's directory, shared by its variants), and the shared _variant
// beside the base. A link name.lnk is followed at each place.
std::vector<std::string> searchPlaces(const std::string& base)
{
    if (!g_memberOf.empty()) return {base, g_memberOf, g_memberOf + "../", g_memberOf + "../_variant/"};
    return {base, base + "../", base + "../_variant/"};
}

// the link to a table found: relative to the protocol pages, shown relative to the variant directory
std::string tableLink(const std::string& path, std::string& shown)
{
    namespace fs = std::filesystem;
    const fs::path file = fs::absolute(path).lexically_normal();
    const fs::path variantDir = fs::absolute(withSlash(si::Directory) + si::Version + "/").lexically_normal();
    shown = file.lexically_relative(variantDir).generic_string();
    if (shown.empty()) shown = file.generic_string();
    std::string href = file.lexically_relative(variantDir / "prot").generic_string();
    return href.empty() ? file.generic_string() : href;
}

} // namespace

int openFile(FILE** opened, FileEntry& file, const std::string& directory, const std::string& variant,
             const std::string& name, const char* mode, std::string* result, std::string* note)
{
    *opened = nullptr;
    std::string base = withSlash(directory);
    if (!variant.empty()) base += variant + "/";
    std::string path;
    if (std::strcmp(mode, "r") != 0) {
        path = base + name;
        *opened = fopen(path.c_str(), mode);
        if (!*opened) return errno ? errno : EIO;
        if (result) *result = path;
        return 0;
    }
    const std::vector<std::string> places = searchPlaces(base);
    bool viaLink = false;
    std::string stem, tail, shown;
    if (splitNumbered(name, stem, tail)) {
        int high = readYear() - file.yearOffset;
        int low = ini::STARTJAHR - 20;
        if (high - low > 100000) low = high - 100000;
        std::vector<int> numbers;
        for (int n = high; n >= low; --n) numbers.push_back(n);
        if (stem == "reft" && (numbers.empty() || numbers.back() > 1)) numbers.push_back(1);
        auto fileName = [&](int n) {
            std::string fname = numberedName(stem, tail, n);
            if (tail.empty() || tail.find(".csv") == std::string::npos) fname += ".csv";
            return fname;
        };
        for (const std::string& dir : places) {
            for (int n : numbers) {
                std::string fname = fileName(n);
                std::string candidate = dir + fname;
                if (!entryExists(candidate) && !entryExists(candidate + ".lnk")) continue;
                if (isExpandedCopy(candidate)) continue;
                int err = openPlace(candidate, "r", false, true, opened, path, viaLink);
                if (err != 0) continue;     // unreadable here: an older number may do
                if (file.fileNumber != n && file.fileNumber != -1)
                    putNote(note, format(" (%d &rarr; %d)", file.fileNumber, n));
                file.fileNumber = n;
                std::string href = tableLink(candidate, shown);
                if (viaLink)
                    putNote(note, linkNote(path, shown));
                else
                    putNote(note, format(", %d <a href=\"%s\">%s</a>", n, href.c_str(), shown.c_str()));
                if (result) *result = path;
                return 0;
            }
        }
        // the file the search looked for first: the reference table by its own name, else this year's table
        std::string wanted = stem == "reft" ? fileName(1) : fileName(numbers.empty() ? high : numbers.front());
        Prot::message(SEV_ERROR, "%s%s: %s", base.c_str(), wanted.c_str(), os::errorText(ENOENT).c_str());
        return ENOENT;
    }
    int err = ENOENT;
    for (const std::string& dir : places) {
        if (isExpandedCopy(dir + name)) continue;
        int e = openPlace(dir + name, "r", true, false, opened, path, viaLink);
        if (*opened) {
            std::string href = tableLink(dir + name, shown);
            if (viaLink)
                putNote(note, linkNote(path, shown));
            else
                putNote(note, format(", %s <a href=\"%s\">%s</a>", DD::lookup("fn_found").c_str(), href.c_str(),
                                     shown.c_str()));
            if (result) *result = path;
            return 0;
        }
        if (e != ENOENT) err = e;
    }
    Prot::message(SEV_ERROR, "@fn_open; %s (mode %s): %s%s", (base + name).c_str(), mode, os::errorText(err).c_str(),
                  ini::defaultsFilledNote().c_str());
    return err;
}

int openInput(FILE** opened, FileEntry& file, const std::vector<std::string>& searchPaths,
              const std::string& variant, const std::string& name, std::string* result, std::string* note)
{
    *opened = nullptr;
    // the first search path is the base; a second one given takes the place of the directory above it
    std::string first = searchPaths.empty() ? std::string() : withSlash(searchPaths[0]);
    std::vector<std::string> places = searchPlaces(first);
    // (an ensemble member looks where its variant's forecast looks, not in its own directory)
    if (searchPaths.size() > 1 && g_memberOf.empty()) places[1] = withSlash(searchPaths[1]);
    int err = ENOENT;
    for (const std::string& dir : places) {
        std::string path, shown;
        bool viaLink = false;
        if (isExpandedCopy(dir + name)) continue;
        int e = openPlace(dir + name, "r", true, false, opened, path, viaLink);
        if (*opened) {
            std::string href = tableLink(dir + name, shown);
            if (viaLink)
                putNote(note, linkNote(path, shown));
            else
                putNote(note, format(", <a href=\"%s\" target=_blank>%s</a> %s", href.c_str(), shown.c_str(),
                                     DD::lookup("fn_found").c_str()));
            if (result) *result = path;
            (void)file;
            (void)variant;
            return 0;
        }
        if (e != ENOENT) err = e;
    }
    putNote(note, format(", %s %s", name.c_str(), DD::lookup("fn_notFound").c_str()));
    return err;
}

int openReadTable(FileEntry& file, FILE** opened, std::string& path, std::string& note)
{
    *opened = nullptr;
    traceLevel = 0;
    expandNeeded = 0;
    expandRequested = 1;
    if (file.kind == 0) {
        int number = checkNumber(file);
        file.fileNumber = number;
        std::string name = tableFileName(file, number);
        std::vector<std::string> paths{withSlash(si::Directory) + si::Version + "/", si::Directory};
        int err = openInput(opened, file, paths, si::Version, name, &path, &note);
        if (err) {
            Prot::message(SEV_ERROR, "@fn_open; %s (mode %s): %s%s", (withSlash(si::Directory) + si::Version + "/" + name).c_str(), "r",
                          os::errorText(err).c_str(), ini::defaultsFilledNote().c_str());
            return err;
        }
        return 0;
    }
    if (file.kind == 1)
        return openFile(opened, file, si::Directory, si::Version, file.name + ".csv", "r", &path, &note);
    Prot::message(SEV_ERROR, "@fn_open; %s (mode %s): %s", file.name.c_str(), "r", os::errorText(EINVAL).c_str());
    return EINVAL;
}

// ---------------------------------------------------------------- variables and index cells

bool variableValue(const char* name, double& value)
{
    if (Variable* v = findVariable(name)) {
        if (v->type == NUM) {
            value = v->v.d;
            return true;
        }
        if (v->type == ID && v->v.ip) {
            value = *v->v.ip;
            return true;
        }
        return false;
    }
    // published names: the tokeniser knows them
    {
        Parser probe(g_readingReader);
        probe.parse(name);
        if (probe.program.size() == 1) {
            const Operation& op = probe.program[0];
            if (op.code == NUM) {
                value = op.v.d;
                return true;
            }
            if (op.code == ID && op.v.ip) {
                value = *op.v.ip;
                return true;
            }
        }
    }
    if (g_run && name[0] == '$') return g_run->runVariable(name, value);
    return false;
}

namespace {

void lineWarning(CsvReader* reader, const char* rest)
{
    size_t line = reader ? static_cast<size_t>(reader->lineNumber()) : 0;
    std::string text = reader ? reader->currentLine() : std::string();
    int sep = reader ? (reader->lastChar > 0 && reader->lastChar != '\n' ? reader->lastChar : reader->separator)
                     : si::separator;
    Prot::message(SEV_WARNING, "@csv_W1;", line, text.c_str(), rest, sep);
}

// reads a name of the language: letters, digits, _ after a letter or $
const char* readName(const char* p, std::string& name)
{
    name.clear();
    if (*p == '$' || std::isalpha(uc(*p))) name += *p++;
    while (std::isalnum(uc(*p)) || *p == '_') name += *p++;
    return p;
}

// a bound: digits or $VAR; 0 = none there, 1 = read, -1 = error given
int readBound(const char*& p, long long& value, bool& computed)
{
    if (std::isdigit(uc(*p))) {
        char* end;
        errno = 0;
        value = std::strtoll(p, &end, 10);
        p = end;
        return 1;
    }
    if (*p == '$') {
        std::string name;
        p = readName(p, name);
        double v;
        if (!variableValue(name.c_str(), v) || !std::isfinite(v) || std::fabs(v) > 9e18) {
            Prot::message(SEV_ERROR, "invalid variable %s in input", name.c_str());
            return -1;
        }
        value = static_cast<long long>(v);
        computed = true;
        return 1;
    }
    return 0;
}

} // namespace

bool parseIndexCell(const char* cell, long long first, long long last, IndexInterval& out, CsvReader* reader)
{
    out = IndexInterval();
    // whole numbers and their intervals, most cells of a table, without the general reader
    if (cell && plainIndexCell(cell, out.lo, out.hi)) return true;
    const char* p = skipWhite(cell ? cell : "");
    if (!*p) return false;
    if (*p == '*') {
        out.lo = first;
        out.hi = last;
        out.star = true;
        ++p;
    } else if (std::isalpha(uc(*p))) {
        std::string word;
        p = readName(p, word);
        bool isIrand = word.size() <= 5 && std::strncmp("irand", word.c_str(), word.size()) == 0;
        if (!isIrand) {
            Prot::message(SEV_ERROR, "invalid function %s in input", word.c_str());
            return false;
        }
        // irand(a,b): decimal bounds, no blanks
        const char* q = p;
        long long a = 0, b = 0;
        bool good = *q == '(' && std::isdigit(uc(q[1]));
        if (good) {
            char* end;
            a = std::strtoll(q + 1, &end, 10);
            q = end;
            good = *q == ',' && std::isdigit(uc(q[1]));
        }
        if (good) {
            char* end;
            b = std::strtoll(q + 1, &end, 10);
            q = end;
            good = *q == ')';
        }
        if (!good) {
            lineWarning(reader, p);
            return false;
        }
        p = q + 1;
        out.lo = out.hi = -1;
        out.m = ((a & 0xFFFF) << 16) | (b & 0xFFFF);
        out.computed = true;
    } else {
        long long lo = 0;
        int r = readBound(p, lo, out.computed);
        if (r < 0) return false;
        if (r == 0) {
            lineWarning(reader, p);
            return false;
        }
        p = skipWhite(p);
        long long hi = lo;
        bool range = false;
        if (p[0] == '.' && p[1] == '.') {
            p = skipWhite(p + 2);
            r = readBound(p, hi, out.computed);
            if (r < 0) return false;
            if (r == 0) {
                lineWarning(reader, p);
                return false;
            }
            range = true;
        }
        for (;;) {
            p = skipWhite(p);
            if (*p != '*' && *p != '-') break;
            char op = *p;
            const char* q = skipWhite(p + 1);
            long long k = 0;
            bool dummy = false;
            r = readBound(q, k, dummy);
            if (r < 0) return false;
            if (r == 0) break;
            p = q;
            out.computed = true;
            if (op == '*') {
                out.m = k;
            } else {
                hi = subSat(hi, k);
                if (!range) lo = subSat(lo, k);
            }
        }
        out.lo = lo;
        out.hi = hi;
    }
    p = skipWhite(p);
    if (*p) lineWarning(reader, p);
    return true;
}

bool parseIndexCell(const char* cell, long long first, long long last, long long& lo, long long& hi, long long& m,
                    CsvReader* reader)
{
    IndexInterval iv;
    bool ok = parseIndexCell(cell, first, last, iv, reader);
    lo = iv.lo;
    hi = iv.hi;
    m = iv.m;
    return ok;
}

long long drawRandomIndex(const IndexInterval& iv)
{
    long long a = iv.randomLow(), b = iv.randomHigh();
    if (b < a) std::swap(a, b);
    unsigned long long span = static_cast<unsigned long long>(b - a + 1);
    return a + static_cast<long long>(runGenerator()() % span);
}

// ---------------------------------------------------------------- the reader

namespace {

// thrown after a structure-type message when the protocol does not throw itself
struct StopRead {};

// The read buffer of a table being read: large, so that a table of many lines comes in few
// reads, and kept for the next table. One per reader open at the same time (a table's
// expression may read another), taken and given back in the order of a stack.
class ReadBuffer {
public:
    static constexpr size_t kSize = size_t(1) << 18;
    ReadBuffer()
    {
        if (depth() == pool().size()) pool().emplace_back(new char[kSize]);
        data_ = pool()[depth()++].get();
    }
    ~ReadBuffer() { --depth(); }
    ReadBuffer(const ReadBuffer&) = delete;
    ReadBuffer& operator=(const ReadBuffer&) = delete;
    // gives the stream the buffer, when nothing was read from it yet
    void serve(FILE* f) const
    {
#ifdef __GLIBC__
        if (f && !f->_IO_buf_base) setvbuf(f, data_, _IOFBF, kSize);
#else
        (void)f;
#endif
    }

private:
    char* data_ = nullptr;
    static std::vector<std::unique_ptr<char[]>>& pool()
    {
        thread_local std::vector<std::unique_ptr<char[]>> buffers;
        return buffers;
    }
    static size_t& depth()
    {
        thread_local size_t open = 0;
        return open;
    }
};

class TableReader {
public:
    TableReader(FileEntry& f, ReadTarget& t, int sp, int n, const long long* sz, const char* nm, int vc)
        : file(f), target(t), sparse(sp), indexCount(n), valueCheck(vc)
    {
        for (int j = 0; j < 5; ++j) sizes[j] = j < n && sz ? sz[j] : -1;
        const char* p = nm;
        for (int j = 0; j < n; ++j) {
            std::string word = p && *p ? p : std::string();
            if (p && *p) p += std::strlen(p) + 1;
            if (word.rfind("C.", 0) == 0) word = word.substr(2);
            if (word.empty()) word = std::to_string(j + 1);
            names[j] = word;
        }
    }
    ~TableReader() { cleanup(); }

    ReadResult run();

private:
    FileEntry& file;
    ReadTarget& target;
    int sparse, indexCount, valueCheck;
    long long sizes[5];
    std::string names[5];

    ReadBuffer buffer;
    FILE* in = nullptr;
    FILE* copy = nullptr;
    CsvReader* reader = nullptr;
    Parser* parser = nullptr;
    std::string name, path, copyPath;
    ReadResult result;

    int mode = 0, hasCheck = 0, regionIndex = -1, checkNo = 0;
    long long first[5] = {}, last[5] = {};
    IndexInterval iv[5];
    double limit = 1;
    bool isFruc = false;

    // per line
    bool skip = false, valueSeen = false, lineComputed = false, lineActive = false, lineIsComment = false;
    size_t lineNo = 0;
    long long lineCells = 0;
    // per table
    uint64_t assignments = 0, doubles = 0, rateReports = 0;
    std::vector<std::string> doubleList;
    long long trailing = 0;
    size_t trailingLine = 0;
    int sectionsMatched = 0;
    std::map<long long, int> missingKeys;
    std::vector<long> usePos;
    size_t lastPos = 0;
    bool havePrev = false;
    long long prev[5] = {};
    size_t prevLine = 0, warnedLine = 0;
    // the shape of the line: its cells, and the text of the last one
    int lineCellCount = 0;
    int lineExtraCells = 0;
    // values outside their domain, cells of an additive table given twice, short lines
    uint64_t outsideDomain = 0, summedTwice = 0, badShapes = 0;
    std::set<std::vector<long long>> additiveSeen;
    // the reading kept for later years, when nothing in it depends on the year
    KeptTableRecorder kept;
    // the last plain index cell of each column and what it was read as: the next line that
    // repeats the cell (the outer indices of a long table) takes the interval without reading
    // the cell or looking up its region again
    struct IndexMemo {
        static constexpr int kText = 24;
        char text[kText];
        int length = -1;                // -1: nothing remembered
        IndexInterval value;
    };
    IndexMemo memo[5];
    bool repeatsMemo(int c, const char* text, IndexInterval& v);
    void remember(int c, const char* text, int length, const IndexInterval& v);
    int errorsBefore = 0;

    void cleanup();
    [[noreturn]] void stop() { throw StopRead(); }
    std::string lineText() { return reader ? reader->currentLine() : std::string(); }
    void lineMessage(int error, const std::string& message);
    // a line read otherwise than it looks: a warning, the first few of a table one by one
    void shapeMessage(const std::string& text);
    void valueDomainCheck(const long long* written, double v);
    // a value cell that gives no finite number: an error naming the line and the text
    void nonFinite(const char* text, double v)
    {
        Prot::message(SEV_ERROR, "Zeile %zu: Ausdruck \"%s\" liefert Wert \"%g\"", lineNo, text, v);
    }
    // the rates of a value cell reported since before, counted in one warning
    void rateReportsSince(uint64_t before)
    {
        if (rateReports > before) Prot::message(SEV_WARNING, "%d @rk2inp_fmt1870;\n", static_cast<int>(rateReports - before));
    }
    // the layout a line must have, as an error that ends the reading; note: why it may not be met
    void structure(const std::string& note = std::string());
    const char* guards(const char* p);
    void checkCell(const char* text);
    void indexCell(int c, const char* text);
    bool regionInterval(IndexInterval& v);
    void valueCell(const char* text);
    void endLine();
    void openCopy();
    void writeCopy(const long long* written, double v);
    std::string tuple(const long long* written) const;
    void store(const long long* idx, const long long* written, double* row, long long i, double v);
    void finishTable();
    void readLines(char* cell);
    // one cell of a line: col its column, status what ended it (the separator or a line feed)
    void takeCell(int col, char* cell, int status);
    // a whole line of plain cells from the scanner
    void plainLine(char* const* starts);
    bool mayKeep() const;
    void replay(const KeptTable& t);
    void replaySection(const KeptSection& s, int n);
};

void TableReader::cleanup()
{
    if (in) fclose(in);
    in = nullptr;
    if (copy) safeOutput::discard(copy);
    copy = nullptr;
    delete parser;
    parser = nullptr;
    delete reader;
    reader = nullptr;
    g_readingReader = nullptr;
    g_readingName.clear();
}

// true when text is well-formed UTF-8 (plain ASCII included)
bool validUtf8(const char* text)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    while (*p && *p < 0x80) ++p;    // plain ASCII, most cells, in one pass
    while (*p) {
        unsigned char c = *p;
        int follow = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
        if (follow < 0 || (follow == 1 && c < 0xC2) || c > 0xF4) return false;
        ++p;
        for (int k = 0; k < follow; ++k, ++p)
            if ((*p & 0xC0) != 0x80) return false;
    }
    return true;
}

// the cell for a message: bytes that are no ASCII as \xNN, markup characters escaped
std::string printableBytes(const char* text)
{
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        if (*p >= 0x80 || *p < 0x20) {
            char b[8];
            snprintf(b, sizeof b, "\\x%02X", *p);
            out += b;
        } else if (*p == '<') {
            out += "&lt;";
        } else if (*p == '&') {
            out += "&amp;";
        } else {
            out += static_cast<char>(*p);
        }
    }
    return out;
}

void TableReader::lineMessage(int error, const std::string& message)
{
    Prot::message(error ? SEV_ERROR : SEV_WARNING, "@file; %s, @row;<br>%zu: <code>%s</code><br>%s", name.c_str(),
                  lineNo, lineText().c_str(), expandText(message).c_str());
}

// the layout a line must have, at error level
void TableReader::structure(const std::string& note)
{
    char sep = static_cast<char>(reader ? reader->separator : si::separator);
    std::string s;
    if (hasCheck) s += std::to_string(checkNo) + sep;
    for (int j = 0; j < indexCount; ++j) {
        s += std::to_string(first[j]) + "..";
        if (j == regionIndex)
            s += "maxNGZ";
        else if (sizes[j] >= 0)
            s += std::to_string(last[j]);
        s += sep;
    }
    s += "float";
    Prot::message(SEV_ERROR, "@fn_structure; %s:\n%s%s", name.c_str(), s.c_str(), note.c_str());
    stop();
}

// ?$NAME lo..hi guards at the start of a cell
const char* TableReader::guards(const char* p)
{
    while (*p == '?') {
        kept.giveUp();      // a guard asks a variable: the line may count in one year only
        ++p;
        std::string var;
        p = readName(p, var);
        p = skipWhite(p);
        char* end;
        long long lo = std::strtoll(p, &end, 10);
        bool good = end != p;
        p = end;
        long long hi = lo;
        if (good && p[0] == '.' && p[1] == '.') {
            hi = std::strtoll(p + 2, &end, 10);
            good = end != p + 2;
            p = end;
        }
        if (*p) ++p;    // the one character after the bounds
        p = skipWhite(p);
        double value = 0;
        if (var.empty() || var[0] != '$' || !variableValue(var.c_str(), value)) {
            Prot::message(SEV_ERROR, "invalid variable %s in input", var.c_str());
            skip = true;
            return p;
        }
        if (!good) lineWarning(reader, p);
        if (value < static_cast<double>(lo) || value > static_cast<double>(hi)) {
            skip = true;
            return p;
        }
    }
    return p;
}

void TableReader::checkCell(const char* text)
{
    const char* t = skipWhite(text);
    if (mode == 1) {
        IndexInterval v;
        parseIndexCell(t, checkNo, checkNo, v, reader);
        return;
    }
    if (!*t) {
        lineMessage(0, "@fn_emptyLine;");
        structure();
    }
    IndexInterval v;
    bool ok = parseIndexCell(t, checkNo, checkNo, v, reader);
    bool inside = ok && !v.isRandom() && v.lo <= checkNo && checkNo <= v.hi;
    if (ok && v.star) inside = true;
    if (ok && v.computed) lineComputed = true;
    if (!ok || v.computed || v.isRandom())
        kept.giveUp();
    else
        kept.line(YearSection{v.lo, v.hi, v.star}, inside);
    if (mode == 2) {
        if (!inside) {
            // the year the check number must match may be a default filled in
            const std::string note = ini::defaultsFilledNote({"STARTJAHR"});
            lineMessage(0, "@wrongCheckNumber;" + note);
            structure(note);
        }
        return;
    }
    // mode 3: a section of years
    if (inside)
        ++sectionsMatched;
    else
        skip = true;
    if (!ok || v.star || v.isRandom() || v.computed) return;
    if (v.lo > v.hi) {
        shapeMessage(format("@attribute; 1 = %lld..%lld: @fn_reversedYears;",
                            v.lo, v.hi));
    } else if (v.lo < kFirstYear || v.hi > kLastYear) {
        shapeMessage(format("@attribute; 1 = %lld..%lld: @fn_noYear; (%lld..%lld)",
                            v.lo, v.hi, kFirstYear, kLastYear));
    }
}

// a table read every year says what it says about a line once in the run
bool saidBefore(const std::string& path, size_t line, const std::string& text)
{
    static std::set<std::string> said;
    return !said.insert(path + "\n" + std::to_string(line) + "\n" + text).second;
}

void TableReader::shapeMessage(const std::string& text)
{
    if (saidBefore(path, lineNo, text)) return;
    ++badShapes;
    if (badShapes <= static_cast<uint64_t>(kShapeShown)) lineMessage(0, text);
}

// the key column: keys become positions in the reference table, or in the list of keys under cut
bool TableReader::regionInterval(IndexInterval& v)
{
    ReadingRun* run = g_run;
    const size_t regionCount = run ? run->regionCount() : 0;
    if (usePos.size() != regionCount) usePos.assign(regionCount, 0);
    auto lookup = [&](long long key) -> long long {
        if (lastPos < regionCount && run->regionKey(lastPos) == key) return static_cast<long long>(lastPos);
        if (lastPos + 1 < regionCount && run->regionKey(lastPos + 1) == key) return static_cast<long long>(++lastPos);
        size_t lo = 0, hi = regionCount;
        while (lo < hi) {
            size_t mid = lo + (hi - lo) / 2;
            if (run->regionKey(mid) < key) lo = mid + 1;
            else hi = mid;
        }
        if (lo == regionCount || run->regionKey(lo) != key) return -1;
        lastPos = lo;
        return static_cast<long long>(lastPos);
    };
    if (v.isRandom()) return true;     // positions drawn as written
    if (keyScale < 2) {
        if (v.star) {
            v.lo = 1;
            v.hi = static_cast<long long>(regionCount);
            for (auto& u : usePos) ++u;
            return true;
        }
        if (v.lo > v.hi) {
            Prot::message(SEV_HINT, "leeres Intervall Gebietskennzeichen %lld .. %lld in Zeile:<br>%zu: <code>%s</code>",
                          mulSat(v.lo, v.m), mulSat(v.hi, v.m), lineNo, lineText().c_str());
            skip = true;
            return false;
        }
        long long ends[2] = {mulSat(v.lo, v.m), mulSat(v.hi, v.m)};
        long long pos[2];
        bool found = true;
        for (int e = 0; e < (v.lo == v.hi ? 1 : 2); ++e) {
            pos[e] = lookup(ends[e]);
            if (pos[e] < 0) {
                found = false;
                ++missingKeys[ends[e]];
                Prot::message(SEV_ERROR, "unbekanntes Gebietskennzeichen %lld in Zeile<br>%zu: <code>%s</code>",
                              ends[e], lineNo, lineText().c_str());
            }
        }
        if (!found) {
            skip = true;
            return false;
        }
        if (v.lo == v.hi) pos[1] = pos[0];
        for (long long p = pos[0]; p <= pos[1]; ++p) ++usePos[static_cast<size_t>(p)];
        v.lo = pos[0] + 1;
        v.hi = pos[1] + 1;
        return true;
    }
    // key groups: key / keyScale must be a region of the reference table
    static std::vector<int64_t> ownKeys;
    std::vector<int64_t>& keys = run ? run->keysUnderCut() : ownKeys;
    if (run) run->setRegionKeyScale(keyScale);
    if (v.star) {
        v.lo = 1;
        v.hi = static_cast<long long>(keys.size());
        return true;
    }
    if (v.lo > v.hi) {
        Prot::message(SEV_HINT, "leeres Intervall Gebietskennzeichen %lld .. %lld in Zeile:<br>%zu: <code>%s</code>",
                      mulSat(v.lo, v.m), mulSat(v.hi, v.m), lineNo, lineText().c_str());
        skip = true;
        return false;
    }
    long long firstPos = -1, lastPosition = -1;
    for (long long a = v.lo; a <= v.hi && a < LLONG_MAX; ++a) {
        long long key = mulSat(a, v.m);
        long long group = key / keyScale;
        auto it = std::lower_bound(keys.begin(), keys.end(), key);
        long long p;
        if (it != keys.end() && *it == key) {
            p = it - keys.begin();
        } else {
            if (it != keys.end()) {
                Prot::message(SEV_ERROR, "Gebietskennzeichen %lld nicht aufsteigend", key);
                skip = true;
                return false;
            }
            long long gp = lookup(group);
            if (gp < 0) {
                Prot::message(SEV_ERROR, "Gebietskennzeichen %lld nicht als %lld in REFTYP", key, group);
                skip = true;
                return false;
            }
            keys.push_back(key);
            p = static_cast<long long>(keys.size()) - 1;
        }
        long long gp = lookup(group);
        if (gp >= 0) ++usePos[static_cast<size_t>(gp)];
        if (firstPos < 0) firstPos = p;
        lastPosition = p;
    }
    v.lo = firstPos + 1;
    v.hi = lastPosition + 1;
    return true;
}

bool TableReader::repeatsMemo(int c, const char* text, IndexInterval& v)
{
    const IndexMemo& m = memo[c];
    if (m.length < 0) return false;
    // a few characters and the end of the cell, compared in place (a library call costs more)
    for (int i = 0; i <= m.length; ++i)
        if (text[i] != m.text[i]) return false;
    v = m.value;
    // a region is counted as used by every line that names it
    if (c == regionIndex)
        for (long long p = v.lo; p <= v.hi; ++p) ++usePos[static_cast<size_t>(p - 1)];
    return true;
}

void TableReader::remember(int c, const char* text, int length, const IndexInterval& v)
{
    IndexMemo& m = memo[c];
    m.length = -1;
    // only a plain cell that said nothing: a whole number or an interval, inside its column, not
    // "*", and a region by its own key
    if (v.computed || v.star || v.isRandom() || v.lo > v.hi) return;
    if (c == regionIndex && keyScale >= 2) return;
    if (length < 0) {
        long long lo, hi;
        if (!plainIndexCell(text, lo, hi, length)) return;
    }
    if (length + 1 > IndexMemo::kText) return;
    std::memcpy(m.text, text, static_cast<size_t>(length) + 1);
    m.length = length;
    m.value = v;
}

void TableReader::indexCell(int c, const char* text)
{
    IndexInterval& v = iv[c];
    if (repeatsMemo(c, text, v)) return;
    memo[c].length = -1;
    bool isRegion = c == regionIndex;
    // a whole number or an interval, read here without the general reader
    long long lo, hi;
    int length = -1;
    const bool plain = plainIndexCell(text, lo, hi, length);
    if (plain) {
        v = IndexInterval();
        v.lo = lo;
        v.hi = hi;
        // inside the column's extent: nothing to say about it
        if (!isRegion && lo <= hi && (sizes[c] < 0 || (lo >= first[c] && hi <= last[c]))) {
            remember(c, text, length, v);
            return;
        }
    }
    long long lastBound = sizes[c] >= 0 ? last[c] : first[c] - 1;
    if (isRegion) lastBound = first[c] - 1;     // "*" is handled by the key lookup
    if (!plain && !parseIndexCell(text, first[c], lastBound, v, reader)) {
        if (!*skipWhite(text)) {
            lineMessage(0, format("@attribute; %d %s = [] @fn_Eindex;", c + 1, names[c].c_str()));
            structure();
        }
        skip = true;
        return;
    }
    if (v.computed) lineComputed = true;
    if (v.computed || v.isRandom()) kept.giveUp();
    if (isRegion && !regionInterval(v)) return;
    if (v.star && !isRegion && sizes[c] < 0) {
        lineMessage(0, format("@attribute; %d %s = * @fn_Eindex;", c + 1, names[c].c_str()));
        structure();
    }
    if (!v.isRandom() && v.lo > v.hi && v.lo != -1) {
        // a reversed interval names no index: the line assigns nothing, which must not pass unseen
        lineMessage(0, format("@attribute; %d %s = [%lld..%lld]: leeres Intervall, die Zeile weist nichts zu", c + 1,
                              names[c].c_str(), v.lo, v.hi));
        return;
    }
    if (v.isRandom() || v.lo > v.hi || v.lo == -1) return;
    if (sizes[c] < 0) {
        remember(c, text, length, v);
        return;
    }
    if (v.lo < first[c] || v.hi > last[c]) {
        // the extent of the column may be a default filled in for a key the variant file lacked
        const std::string note = ini::defaultsFilledNote({names[c]});
        lineMessage(0, format("@attribute; %d %s = [%lld..%lld] @outside; [%lld..%lld] @fn_Eindex;%s", c + 1,
                              names[c].c_str(), v.lo, v.hi, first[c], last[c], note.c_str()));
        structure(note);
        return;
    }
    remember(c, text, length, v);
}

std::string TableReader::tuple(const long long* written) const
{
    std::string s = "(";
    for (int j = 0; j < indexCount; ++j) {
        if (j) s += ", ";
        s += names[j] + ":" + std::to_string(written[j]);
    }
    return s + ")";
}

void TableReader::openCopy()
{
    std::string stem, tail;
    std::string copyName = splitNumbered(file.name, stem, tail)
                               ? numberedName(stem, tail, file.fileNumber < 0 ? checkNo : file.fileNumber)
                               : file.name;
    std::string dir = si::Directory + si::Version;
    copyPath = withSlash(dir) + copyName + ".csv";
    std::error_code ec;
    if (std::filesystem::exists(copyPath, ec) && std::filesystem::equivalent(copyPath, path, ec)) {
        expandRequested = 0;    // the table itself stands there: never overwrite an input
        return;
    }
    const char* m = mode == 3 && readYear() != ini::STARTJAHR ? "a" : "w";
    bool fresh = std::strcmp(m, "w") == 0 || os::fileSize(copyPath) == 0;
    // the copy is written beside its place and put there whole (a year's rows appended to it
    // are cut back when the output fails): a run killed meanwhile leaves no half table that the
    // next run would find before the input
    copy = safeOutput::open(copyPath, std::strcmp(m, "a") == 0);
    if (!copy) {
        int err = errno;
        expandRequested = 0;
        Prot::message(SEV_ERROR, "@fn_EopenExp;", copyPath.c_str(), m, file.name.c_str(),
                      file.fileNumber, os::errorText(err).c_str());
        return;
    }
    if (fresh) {
        if (si::csvBom) fputs("\xEF\xBB\xBF", copy);
        fprintf(copy, "%s expanded from ../%s\n", "#", name.c_str());
    }
    Prot::addOutputFile(copyName + ".csv");
}

void TableReader::writeCopy(const long long* written, double v)
{
    if (v == 0 && !ini::AusgabeNull) return;
    char sep = static_cast<char>(reader->separator);
    char buffer[512];
    size_t n = 0;
    auto add = [&](long long x) {
        auto r = std::to_chars(buffer + n, buffer + sizeof buffer - 64, x);
        n = static_cast<size_t>(r.ptr - buffer);
        buffer[n++] = sep;
    };
    if (hasCheck) add(checkNo);
    for (int j = 0; j < indexCount; ++j) {
        long long x = written[j];
        if (j == regionIndex && g_run) {
            size_t p = static_cast<size_t>(x - 1);
            if (keyScale >= 2 && p < g_run->keysUnderCut().size())
                x = g_run->keysUnderCut()[p];
            else if (p < g_run->regionCount())
                x = g_run->regionKey(p);
        }
        add(x);
    }
    auto r = std::to_chars(buffer + n, buffer + sizeof buffer - 2, v, std::chars_format::general, 15);
    n = static_cast<size_t>(r.ptr - buffer);
    buffer[n++] = '\n';
    csvWrite(copy, buffer, n);
}

void TableReader::store(const long long* idx, const long long* written, double* row, long long i, double v)
{
    if (sparse) {
        if (indexCount != 5) {
            bool before = false;
            if (havePrev) {
                for (int j = 0; j < indexCount; ++j) {
                    if (idx[j] != prev[j]) {
                        before = idx[j] < prev[j];
                        break;
                    }
                }
            }
            if (before && warnedLine != lineNo) {
                warnedLine = lineNo;
                long long pw[5];
                for (int j = 0; j < indexCount; ++j) pw[j] = prev[j] + first[j];
                Prot::message(SEV_WARNING, "Indices nicht aufsteigend:\n%zu: %s\n%zu: %s", prevLine,
                              tuple(pw).c_str(), lineNo, tuple(written).c_str());
            }
            std::copy(idx, idx + indexCount, prev);
            havePrev = true;
            prevLine = lineNo;
        }
    }
    if (valueCheck == VC_RATE && (v < 0 || v > limit)) {
        if (rateReports < kRateReports) {
            std::string s = name + "(";
            for (int j = 0; j < indexCount; ++j) {
                if (j) s += ", ";
                s += names[j] + ":" + std::to_string(written[j]);
            }
            Prot::writeln(1, "%s) = %g @outside; [0..%.0f]", s.c_str(), v, limit);
        }
        ++rateReports;
        if (v < 0) v = 0;
    }
    valueDomainCheck(written, v);
    if (!sparse) {
        double* slot = row ? row + i : nullptr;
        if (valueCheck == VC_ADDITIVE) {
            // the cells of a table of sums are added up; one given twice is said
            bool starred = false;
            for (int j = 0; j < indexCount; ++j) starred = starred || iv[j].star;
            if (!starred && !additiveSeen.insert(std::vector<long long>(written, written + indexCount)).second) {
                ++summedTwice;
                if (summedTwice <= static_cast<uint64_t>(kShapeShown))
                    lineMessage(0, format("%s @fn_doubleIndex;: %.15g @fn_summed;", tuple(written).c_str(), v));
            }
            if (slot) {
                *slot = (isUndef(*slot) ? 0 : *slot) + v;
            } else {
                double old = target.get(idx);
                target.put(idx, (isUndef(old) ? 0 : old) + v);
            }
        } else {
            double old = slot ? *slot : target.get(idx);
            if (checkUndef && !isUndef(old)) {
                ++doubles;
                // the first ones line by line; the count of all follows at the end of the table
                if (Prot::level(2) && doubles <= kDoublesShown)
                    Prot::writeln(2, "in @file; %s: @row; %zu: %s @fn_doubleIndex;: %g @fn_overwritten; %g",
                                  name.c_str(), lineNo, tuple(written).c_str(), old, v);
                if (doubleList.size() <= static_cast<size_t>(kListed)) doubleList.push_back(tuple(written));
            }
            if (slot)
                *slot = v;
            else
                target.put(idx, v);
        }
    } else if (v != 0) {
        target.put(idx, v);
    }
    if (kept.on()) {
        if (!sparse || v != 0) kept.assignment(idx, v);
        kept.counted(v);
    }
    ++assignments;
    if (v != 0) {
        ++result.nonZero;
        result.sum += v;
        if (v != std::floor(v)) ++result.nonInteger;
    }
    if (expandNeeded && expandRequested) {
        if (!copy) openCopy();
        if (copy) writeCopy(written, v);
    }
}

void TableReader::valueDomainCheck(const long long* written, double v)
{
    const int domain = file.valueDomain;
    if (domain == 0 || isUndef(v)) return;
    bool outside = domain == 1 ? v < 0 : (v < 0 || v > 1);
    if (!outside) return;
    std::string text = format("%s = %.15g: %s", tuple(written).c_str(), v,
                              domain == 1 ? "@fn_negativeCount;" : "@fn_shareOutside;");
    if (saidBefore(path, lineNo, text)) return;
    ++outsideDomain;
    if (outsideDomain <= static_cast<uint64_t>(kShapeShown)) lineMessage(0, text);
}

void TableReader::valueCell(const char* text)
{
    valueSeen = true;
    // a plain number, most values of a table, without the expression parser
    double constantValue = 0;
    bool constant = traceLevel < 2 && plainNumberCell(text, constantValue);
    if (!constant) {
        // "0.01#2": the language takes "#" for the start of a comment, and the digits behind it are lost
        if (const char* hash = std::strchr(text, '#')) {
            if (hash > text && std::isdigit(static_cast<unsigned char>(hash[-1])) &&
                std::isdigit(static_cast<unsigned char>(hash[1])))
                shapeMessage(format("@attribute; %d = %s: @fn_hashInNumber;", indexCount + hasCheck + 1,
                                    text));
        }
        const char* rest = parser->parse(text);
        if (*skipWhite(rest)) {
            lineMessage(0, "@fn_long1;");
            structure();
        }
        const std::vector<Operation>& prog = parser->program;
        constant = prog.size() == 1 && prog[0].code == NUM;
        constantValue = constant ? prog[0].v.d : 0;
    }
    if ((lineComputed || !constant) && expandRequested) expandNeeded = 1;
    if (!constant) kept.giveUp();      // an expression may give another value each year

    // a number for one cell, the most common line: stored straight away
    if (constant && traceLevel == 0) {
        bool single = true;
        for (int j = 0; j < indexCount && single; ++j) single = iv[j].lo == iv[j].hi && iv[j].lo != -1;
        if (single) {
            long long written[5], idx[5];
            for (int j = 0; j < indexCount; ++j) {
                written[j] = iv[j].lo;
                idx[j] = written[j] - first[j];
            }
            const long long i = indexCount > 0 ? idx[indexCount - 1] : 0;
            if (indexCount > 0) idx[indexCount - 1] = 0;
            double* row = target.row(idx);
            if (indexCount > 0) idx[indexCount - 1] = i;
            lineCells = 0;
            const uint64_t reportsBefore = rateReports;
            if (!std::isfinite(constantValue)) {
                nonFinite(text, constantValue);
                return;
            }
            store(idx, written, row, i, constantValue);
            rateReportsSince(reportsBefore);
            return;
        }
    }

    // bounds of drawn indices
    bool outerRandom = false;
    for (int j = 0; j < indexCount; ++j) {
        const IndexInterval& v = iv[j];
        if (!v.isRandom()) {
            if (v.lo > v.hi) return;    // an empty interval: nothing to assign
            continue;
        }
        if (j < indexCount - 1) outerRandom = true;
        if (sizes[j] >= 0 && (v.randomLow() < first[j] || v.randomHigh() > last[j] || v.randomLow() > v.randomHigh())) {
            Prot::message(SEV_ERROR, "<br>Indexintervall %s %d %s:%lld..%lld nicht Teilmenge von %d..%d", name.c_str(),
                          j + 1, names[j].c_str(), v.randomLow(), v.randomHigh(), static_cast<int>(first[j]),
                          static_cast<int>(last[j]));
            return;
        }
    }
    const int n = indexCount;
    const int shift = hasCheck;
    long long cur[5], written[5], idx[5];
    for (int j = 0; j < n; ++j) cur[j] = iv[j].isRandom() ? 0 : iv[j].lo;
    long long innerLo = 0, innerHi = 0;
    bool innerRandom = false;
    if (n > 0) {
        innerRandom = iv[n - 1].isRandom();
        innerLo = innerRandom ? 0 : iv[n - 1].lo;
        innerHi = innerRandom ? 0 : iv[n - 1].hi;
    }
    uint64_t reportsBefore = rateReports;
    lineCells = 0;
    long long cells = 0;
    for (;;) {
        // the outer tuple
        for (int j = 0; j + 1 < n; ++j) {
            written[j] = iv[j].isRandom() ? drawRandomIndex(iv[j]) : cur[j];
            idx[j] = written[j] - first[j];
        }
        double* row = nullptr;
        if (n > 0) idx[n - 1] = 0;
        if (!outerRandom) row = target.row(idx);
        for (long long i = innerLo; i <= innerHi; ++i) {
            if (outerRandom && i != innerLo) {
                for (int j = 0; j + 1 < n; ++j) {
                    if (!iv[j].isRandom()) continue;
                    written[j] = drawRandomIndex(iv[j]);
                    idx[j] = written[j] - first[j];
                }
            }
            if (outerRandom) row = target.row(idx);
            if (n > 0) {
                written[n - 1] = innerRandom ? drawRandomIndex(iv[n - 1]) : i;
                idx[n - 1] = written[n - 1] - first[n - 1];
            }
            double v = constant ? constantValue : evaluate(*parser, written, n, shift, checkNo);
            ++cells;
            if (!std::isfinite(v)) {
                if (traceLevel) Prot::raw("</pre>");
                nonFinite(text, v);
                continue;
            }
            store(idx, written, row, n > 0 ? idx[n - 1] : 0, v);
        }
        // the next outer tuple
        int j = n - 2;
        for (; j >= 0; --j) {
            if (iv[j].isRandom()) continue;
            if (++cur[j] <= iv[j].hi) break;
            cur[j] = iv[j].lo;
        }
        if (j < 0) break;
    }
    rateReportsSince(reportsBefore);
    if (traceLevel >= 2) {
        Prot::raw("&gt;      ");
        for (int k = 0; k < n; ++k) Prot::raw("%d..%d*%d;", static_cast<int>(iv[k].lo), static_cast<int>(iv[k].hi),
                                              static_cast<int>(iv[k].m));
        codeText(*parser);
        Prot::raw(" (*%d)\n", static_cast<int>(cells));
    }
}

void TableReader::endLine()
{
    if (lineActive && !lineIsComment && !skip && !valueSeen) lineMessage(0, "@fn_short;");
    const int expected = hasCheck + indexCount + 1;
    if (lineActive && !lineIsComment && skip && lineCellCount < expected && lineCellCount > 1)
        shapeMessage(format("%d @fn_cells;, %d @fn_expected;", lineCellCount, expected));
    else if (lineActive && !lineIsComment && lineExtraCells > 0)
        shapeMessage(format("%d @fn_cells;, %d @fn_expected;: %d @fn_cells; @fn_ignored;", lineCellCount, expected, lineExtraCells));
    lineCellCount = 0;
    lineExtraCells = 0;
    if (traceLevel >= 1 && lineActive) Prot::raw("%5d: %s\n", static_cast<int>(lineNo), lineText().c_str());
    skip = false;
    valueSeen = false;
    lineComputed = false;
    lineActive = false;
    lineIsComment = false;
    for (int j = 0; j < indexCount; ++j) iv[j] = IndexInterval();
}

void TableReader::finishTable()
{
    if (checkTrailingDelimiter && trailing > 0)
        Prot::message(SEV_HINT, "Datei enthält ab Zeile %zd %d endende Strichpunkte", static_cast<ssize_t>(trailingLine),
                      static_cast<int>(trailing));
    exprClearTable();
    if (mode == 3 && sectionsMatched == 0)
        Prot::message(SEV_ERROR, "@fn_missingSection;%s", name.c_str(), checkNo,
                      ini::defaultsFilledNote({"STARTJAHR", "ENDJAHR"}).c_str());
    if (in) fclose(in);
    in = nullptr;
    if (copy) safeOutput::close(copy);
    copy = nullptr;
    if (result.nonZero == 0) Prot::writeln(1, "%s @fn_empty;", name.c_str());
    // a file without a single line (not even a comment) is more likely lost than meant
    if (reader && reader->dataLines == 0 && reader->commentLines == 0 && assignments == 0)
        Prot::message(SEV_WARNING, "@file; %s: @fn_noLines;", name.c_str());
    if (!sparse && valueCheck != VC_ADDITIVE) {
        uint64_t missing = 0;
        std::vector<std::string> listed;
        target.unassigned([&](const long long* idx) {
            if (isFruc) return;
            ++missing;
            if (checkUndef && assignments > 0 && listed.size() <= static_cast<size_t>(kListed)) {
                long long w[5];
                for (int j = 0; j < indexCount; ++j) w[j] = idx[j] + first[j];
                listed.push_back(tuple(w));
            }
        });
        for (size_t k = 0; k < listed.size() && k < static_cast<size_t>(kListed); ++k)
            Prot::writeln(1, "@fn_missingIndex; %s", listed[k].c_str());
        if (listed.size() > static_cast<size_t>(kListed)) Prot::writeln(1, "...");
        uint64_t total = target.cells();
        if (missing > 0 && checkUndef) {
            double degree = total ? 100.0 * (1.0 - static_cast<double>(missing) / static_cast<double>(total)) : 0.0;
            if (target.fill == 0)
                Prot::message(SEV_HINT, "%s: %d @fn_zeros; (@fillDeg; %.2f%%)", name.c_str(), static_cast<int>(missing),
                              degree);
            else
                Prot::message(SEV_HINT, "%s: %d @fn_filledWith; %g (@fillDeg; %.2f%%)", name.c_str(),
                              static_cast<int>(missing), target.fill, degree);
        }
    }
    if (badShapes > static_cast<uint64_t>(kShapeShown))
        Prot::message(SEV_WARNING, "%s: %llu @fn_misreadLines; (%d @fn_shownAbove;)", name.c_str(),
                      static_cast<unsigned long long>(badShapes), kShapeShown);
    if (outsideDomain > static_cast<uint64_t>(kShapeShown))
        Prot::message(SEV_WARNING, "%s: %llu @fn_outsideDomain; (%d @fn_shownAbove;)", name.c_str(),
                      static_cast<unsigned long long>(outsideDomain), kShapeShown);
    if (summedTwice > 0)
        Prot::message(SEV_WARNING, "%s: %llu @fn_doubleValue; @fn_summed;", name.c_str(),
                      static_cast<unsigned long long>(summedTwice));
    if (doubles > 0) {
        for (size_t k = 0; k < doubleList.size() && k < static_cast<size_t>(kListed); ++k)
            Prot::writeln(1, "@fn_doubleIndex; %s", doubleList[k].c_str());
        if (doubles > static_cast<uint64_t>(kListed)) Prot::writeln(1, "...");
        Prot::message(SEV_WARNING, "%s: %llu @fn_doubleValue;", name.c_str(), static_cast<unsigned long long>(doubles));
    }
    if (g_run) {
        auto& use = regionKeyUse();
        for (size_t p = 0; p < usePos.size() && p < g_run->regionCount(); ++p)
            if (usePos[p]) use[g_run->regionKey(p)] += usePos[p];
    }
    usePos.clear();
    if (!missingKeys.empty()) {
        for (const auto& [key, count] : missingKeys) Prot::message(SEV_WARNING, "@fn_gkz; %lld (%d)", key, count);
        Prot::message(SEV_ERROR, "%zu fehlende Gebietskennzeichen", missingKeys.size());
    }
}

ReadResult TableReader::run()
{
    std::string note;
    if (openReadTable(file, &in, path, note) != 0 || !in) return result;
    buffer.serve(in);
    name = tableFileName(file, file.fileNumber);
    g_readingName = name;
    mode = file.checkMode;
    hasCheck = mode >= 1 && mode <= 3 ? 1 : 0;
    checkNo = checkNumber(file);
    regionIndex = file.regionColumn >= 2 ? file.regionColumn - 2 : -1;
    if (regionIndex >= indexCount) regionIndex = -1;
    isFruc = file.name.rfind("fruc", 0) == 0;
    limit = isFruc ? 2 : 1;
    for (int j = 0; j < indexCount; ++j) {
        first[j] = j == indexCount - 1 && file.lastIndexFromZero ? 0 : 1;
        last[j] = sizes[j] >= 0 ? first[j] + sizes[j] - 1 : -1;
    }
    if (!sparse && valueCheck != VC_ADDITIVE) target.clear();

    // a table read before in this run, unchanged and read the same way this year, is not read again
    // the key: the file, how its entry reads it and the target's shape
    std::string keptKey = mayKeep() ? keptTables::key(path, sparse, indexCount, sizes, valueCheck, target.fill) +
                                          format(" %s %d %d %d", file.name.c_str(), file.lastIndexFromZero,
                                                 file.regionColumn, file.checkMode)
                                    : std::string();
    if (!keptKey.empty() && keptTables::isNever(keptKey)) keptKey.clear();
    const KeptTable* earlier = keptKey.empty() ? nullptr : keptTables::find(keptKey);
    if (earlier && !earlier->servesYear(checkNo)) earlier = nullptr;
    if (earlier) {
        note += expandText(", @fn_kept;");
        fclose(in);
        in = nullptr;
    }

    if (Prot::level(1)) {
        std::string head = expandText(
            mode == 3 ? format("@reading; %s %d @indices;", name.c_str(), indexCount)
                      : format("@reading; %s, %d @indices;", name.c_str(), indexCount));
        if (mode == 1 || mode == 2)
            head += expandText(format(", @checkNumber; %d", checkNo));
        else if (mode == 3)
            head += expandText(format(", @section; %d", checkNo));
        else if (mode == 0)
            head += expandText(", @without; @checkNumber;");
        else
            head += expandText(", @in; @bug; fn");
        Prot::writeln(1, "%s%s", head.c_str(), note.c_str());
    }
    Prot::addInputFile(name, path);
    if (earlier) {
        replay(*earlier);
        return result;
    }
    if (!keptKey.empty())
        kept.start(keptTables::take(keptKey, path, indexCount, !sparse && valueCheck != VC_ADDITIVE));
    errorsBefore = Prot::count(SEV_ERROR);

    reader = new CsvReader(in, separatorText().c_str());
    g_readingReader = reader;
    parser = new Parser(reader);
    char cell[kLineBuffer];
    try {
        readLines(cell);
    } catch (const StopRead&) {
        exprClearTable();
        return result;
    } catch (...) {
        exprClearTable();
        throw;
    }
    try {
        finishTable();
    } catch (...) {
        exprClearTable();
        throw;
    }
    if (sparse) target.finish();
    if (kept.on() && !expandNeeded && traceLevel == 0 && keyScale < 2 && Prot::count(SEV_ERROR) == errorsBefore)
        keptTables::keep(keptKey, kept.finish());
    else if (kept.gaveUp())
        keptTables::never(keptKey);
    return result;
}

// A table can be kept when its name carries no year, its check cell is no number that must
// match the year, and it is read for a run with the plain region keys.
bool TableReader::mayKeep() const
{
    return g_run != nullptr && file.name.find('%') == std::string::npos && mode != 2 && keyScale < 2 &&
           traceLevel == 0 && !expandNeeded;
}

// The assignments of the kept reading done again, and what the end of a reading does besides
// its messages about the content (those were given when the file was read).
void TableReader::replay(const KeptTable& t)
{
    for (const KeptSection& s : t.sections) {
        if (!s.section.contains(checkNo)) continue;
        replaySection(s, t.indexCount);
        result.nonZero += s.nonZero;
        result.nonInteger += s.nonInteger;
        result.sum += s.sum;
    }
    exprClearTable();
    if (result.nonZero == 0) Prot::writeln(1, "%s @fn_empty;", name.c_str());
    if (!sparse && valueCheck != VC_ADDITIVE) target.unassigned([](const long long*) {});
    // the region keys these lines name were counted as used when they were read
    if (sparse) target.finish();
}

void TableReader::replaySection(const KeptSection& s, int n)
{
    long long idx[5] = {};
    double* row = nullptr;
    long long rowOf[5] = {-1, -1, -1, -1, -1};
    for (size_t k = 0; k < s.values.size(); ++k) {
        for (int j = 0; j < n; ++j) idx[j] = s.indices[k * static_cast<size_t>(n) + static_cast<size_t>(j)];
        const double v = s.values[k];
        if (sparse) {
            target.put(idx, v);
            continue;
        }
        const long long i = n > 0 ? idx[n - 1] : 0;
        if (!std::equal(idx, idx + (n > 0 ? n - 1 : 0), rowOf) || row == nullptr) {
            if (n > 0) idx[n - 1] = 0;
            row = target.row(idx);
            if (n > 0) idx[n - 1] = i;
            std::copy(idx, idx + 5, rowOf);
        }
        double* slot = row ? row + i : nullptr;
        if (valueCheck == VC_ADDITIVE) {
            if (slot) {
                *slot = (isUndef(*slot) ? 0 : *slot) + v;
            } else {
                double old = target.get(idx);
                target.put(idx, (isUndef(old) ? 0 : old) + v);
            }
        } else if (slot) {
            *slot = v;
        } else {
            target.put(idx, v);
        }
    }
}

void TableReader::readLines(char* cell)
{
    // a line of plain cells with exactly the cells the table has comes whole from the scanner
    const int cellsOfLine = hasCheck + indexCount + 1;
    char* starts[7];
    for (;;) {
        if (!lineActive && reader->plainLine(cell, kLineBuffer, cellsOfLine, starts)) {
            plainLine(starts);
            continue;
        }
        int status = reader->next(cell, kLineBuffer);
        if (status < 0) {
            if (status < -1) {
                Prot::message(SEV_ERROR, "%s: %s: %s in Zeile<br>%d: %s", name.c_str(), cell,
                              CsvReader::errorText(status).c_str(), static_cast<int>(reader->lineNumber()),
                              lineText().c_str());
                break;
            }
            if (lineActive) endLine();
            break;
        }
        takeCell(reader->column, cell, status);
    }
}

void TableReader::plainLine(char* const* starts)
{
    // what takeCell does for each cell of a line of ASCII digits and points with the cells the
    // table has, ended by a line feed: no comment, no cell beyond the value, no cut end
    lineActive = true;
    lineNo = static_cast<size_t>(reader->lineNumber());
    lineIsComment = false;
    lineCellCount = hasCheck + indexCount + 1;
    const char* text = guards(starts[0]);
    if (hasCheck) checkCell(text);
    for (int c = 0; c < indexCount && !skip; ++c) indexCell(c, c + hasCheck == 0 ? text : starts[c + hasCheck]);
    if (!skip) valueCell(indexCount + hasCheck == 0 ? text : starts[indexCount + hasCheck]);
    endLine();
}

void TableReader::takeCell(int col, char* cell, int status)
{
    if (col == 0) {
        lineActive = true;
        lineNo = static_cast<size_t>(reader->lineNumber());
        lineIsComment = reader->isComment != 0;
    }
    lineCellCount = col + 1;
    if (col >= hasCheck + indexCount + 1 && cell[0]) ++lineExtraCells;
    if (reader->unendedLastLine && !lineIsComment && cell[0] &&
        std::isdigit(static_cast<unsigned char>(cell[std::strlen(cell) - 1]))) {
        // the file ends inside a number: a file cut short reads as a smaller number
        shapeMessage(format("@attribute; %d = %s: @fn_unended;", col + 1, cell));
        reader->unendedLastLine = 0;
    }
    if (lineIsComment) {
        // a command: a cell of a comment line with "!" as second character
        if (cell[0] && cell[1] == '!') {
            kept.giveUp();
            // a command may change how index cells read (the scale of region keys)
            for (IndexMemo& m : memo) m.length = -1;
            skip = false;
            const char* p = guards(skipWhite(cell + 2));
            if (!skip) runStatements(*parser, p, false);
            skip = false;
        }
    } else if (!skip) {
        const char* text = cell;
        if (!reader->ascii && !validUtf8(cell)) {
            // a cell of broken text is no index and no value: it cannot be read as meant
            lineMessage(1, format("@attribute; %d: ungültiges UTF-8 in <code>%s</code>", col + 1,
                                  printableBytes(cell).c_str()));
            skip = true;
        }
        if (skip) {
        } else if (col == 0) text = guards(cell);
        const int c = col - hasCheck;
        if (skip) {
        } else if (col == 0 && hasCheck) {
            checkCell(text);
        } else if (c < indexCount) {
            indexCell(c, text);
        } else if (c == indexCount) {
            valueCell(text);
        } else {
            if (trailing == 0) trailingLine = lineNo;
            ++trailing;
        }
    }
    if (status == '\n') endLine();
}

} // namespace

ReadResult readTable(FileEntry& file, ReadTarget& target, int sparse, int indexCount, const long long* sizes,
                     const char* names, int valueCheck)
{
    if (indexCount < 0) indexCount = 0;
    if (indexCount > 5) indexCount = 5;
    struct Closing {
        ~Closing()
        {
            if (traceLevel > 0) Prot::raw("</pre>\n");
            traceLevel = 0;
        }
    } closing;
    TableReader r(file, target, sparse, indexCount, sizes, names, valueCheck);
    return r.run();
}

// ---------------------------------------------------------------- targets

namespace {

// the row of the last index, walking the outer indices
template <int R> double* denseRow(typename LANested<R>::type& v, const long long* i)
{
    if constexpr (R == 1)
        return v.data();
    else
        return denseRow<R - 1>(v[static_cast<size_t>(i[0])], i + 1);
}

// every cell still undefined becomes the fill value and is handed to f with its tuple
template <int R> void walkUndef(typename LANested<R>::type& v, long long* idx, int depth, double fill,
                                const std::function<void(const long long*)>& f)
{
    for (size_t k = 0; k < v.size(); ++k) {
        idx[depth] = static_cast<long long>(k);
        if constexpr (R == 1) {
            if (!isUndef(v[k])) continue;
            v[k] = fill;
            f(idx);
        } else {
            walkUndef<R - 1>(v[k], idx, depth + 1, fill, f);
        }
    }
}

template <int R> class DenseTarget : public ReadTarget {
public:
    explicit DenseTarget(LA<R>& a) : array(a) {}
    // the row of the line before serves again while the outer indices stay (the lines of a
    // table mostly run through the last index)
    double* row(const long long* index) override
    {
        if (last && std::equal(index, index + (R - 1), lastIndex)) return last;
        last = denseRow<R>(array, index);
        std::copy(index, index + (R - 1), lastIndex);
        return last;
    }
    void clear() override { array.fill(UNDEF); }
    void unassigned(const std::function<void(const long long*)>& f) override
    {
        long long idx[5] = {};
        walkUndef<R>(array, idx, 0, fill, f);
    }
    uint64_t cells() const override
    {
        uint64_t n = 1;
        for (size_t e : array.extents()) n *= e;
        return n;
    }
    LA<R>& array;

private:
    double* last = nullptr;
    long long lastIndex[R > 1 ? R - 1 : 1] = {};
};

class ValueTarget : public ReadTarget {
public:
    explicit ValueTarget(double& v) : value(v) {}
    double* row(const long long*) override { return &value; }
    void clear() override { value = UNDEF; }
    void unassigned(const std::function<void(const long long*)>& f) override
    {
        if (!isUndef(value)) return;
        value = 0;
        long long idx[1] = {0};
        f(idx);
    }
    uint64_t cells() const override { return 1; }
    double& value;
};


} // namespace

CheckUndefGuard::CheckUndefGuard() { checkUndef = 1; }
CheckUndefGuard::~CheckUndefGuard() { checkUndef = 1; }

int readKind(int valueCheck) { return valueCheck == VC_RATE ? LA_RATE : LA_NUMBER; }
double readTotalShown(const ReadResult& r, int valueCheck) { return valueCheck == VC_ADDITIVE ? LA_AUTO : r.sum; }

namespace {

template <int R>
ReadResult readDense(FileEntry& file, LA<R>& target, const char* names, int valueCheck, double fill)
{
    CheckUndefGuard reset;
    auto ext = target.extents();
    long long sizes[5] = {};
    for (int j = 0; j < R; ++j) sizes[j] = static_cast<long long>(ext[static_cast<size_t>(j)]);
    DenseTarget<R> t(target);
    t.fill = fill;
    ReadResult r = readTable(file, t, 0, R, sizes, names, valueCheck);
    if (r.nonZero != 0 || valueCheck == VC_ADDITIVE)
        laPrint(1, target, names, nullptr, readKind(valueCheck), readTotalShown(r, valueCheck));
    return r;
}

} // namespace

ReadResult readTable(FileEntry& file, LA1& target, const char* names, int valueCheck, double fill)
{
    return readDense(file, target, names, valueCheck, fill);
}
ReadResult readTable(FileEntry& file, LA2& target, const char* names, int valueCheck, double fill)
{
    return readDense(file, target, names, valueCheck, fill);
}
ReadResult readTable(FileEntry& file, LA3& target, const char* names, int valueCheck, double fill)
{
    return readDense(file, target, names, valueCheck, fill);
}
ReadResult readTable(FileEntry& file, LA4& target, const char* names, int valueCheck, double fill)
{
    return readDense(file, target, names, valueCheck, fill);
}
ReadResult readTable(FileEntry& file, LA5& target, const char* names, int valueCheck, double fill)
{
    return readDense(file, target, names, valueCheck, fill);
}

ReadResult readTable(FileEntry& file, double& target, const char* name, int valueCheck)
{
    CheckUndefGuard reset;
    ValueTarget t(target);
    ReadResult r = readTable(file, t, 0, 0, nullptr, name, valueCheck);
    if (r.nonZero != 0 || valueCheck == VC_ADDITIVE) Prot::writeln(1, "%s = %.15g", name ? name : "", target);
    return r;
}
