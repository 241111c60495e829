// The built-in functions of the expression language. Each one finds its arguments on the
// stack, first argument deepest and the count on top, checks the count and pops what it got.
#include "tables/functions.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>
#include <sys/types.h>

#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/constants_table.h"

int traceLevel = 0;
int checkUndef = 1;
int checkTrailingDelimiter = 0;
int expandRequested = 1;
int expandNeeded = 0;
long long keyScale = 1;
FILE* printStream = nullptr;

namespace {

const ForecastLink* g_link = nullptr;
std::mt19937_64 g_ownGenerator(5489);
std::mt19937_64* g_generator = &g_ownGenerator;

// arrays made by read, freed at the end of the table
std::vector<std::unique_ptr<Arr1>> pool1;
std::vector<std::unique_ptr<Arr2>> pool2;
std::vector<std::unique_ptr<Arr3>> pool3;
std::vector<std::unique_ptr<Arr4>> pool4;
std::vector<std::unique_ptr<Arr5>> pool5;

// a key or index from a number; what is no whole number in range finds no key
long toLong(double d)
{
    if (!std::isfinite(d) || d > 9.2e18 || d < -9.2e18) return LONG_MIN;
    return static_cast<long>(d);
}

// pops the count and checks it; on a wrong count the arguments go and a result 0 comes when
// the function has one
bool enter(const char* name, int min, int max, int& count, bool hasResult)
{
    double n = pop();
    count = n > 0 && n < 1e9 ? static_cast<int>(n) : 0;
    if (checkArgs(name, min, n, max)) return true;
    dropValues(static_cast<size_t>(count));
    if (hasResult) pushNumber(0);
    return false;
}

// ---- arrays: walk by keys, visit every element ----
template <class M>
bool lookup(const M& map, const long* keys, double& out)
{
    auto it = map.find(keys[0]);
    if (it == map.end()) return false;
    if constexpr (std::is_same_v<typename M::mapped_type, double>) {
        out = it->second;
        return true;
    } else {
        return lookup(it->second, keys + 1, out);
    }
}

template <class M, class F>
void visit(const M& map, long* keys, int level, F& f)
{
    for (const auto& [k, sub] : map) {
        keys[level] = k;
        if constexpr (std::is_same_v<typename M::mapped_type, double>)
            f(keys, sub);
        else
            visit(sub, keys, level + 1, f);
    }
}

template <class F>
void visitArray(int type, const void* array, F f)
{
    long keys[5] = {};
    switch (type) {
    case ARR1: visit(*static_cast<const Arr1*>(array), keys, 0, f); break;
    case ARR2: visit(*static_cast<const Arr2*>(array), keys, 0, f); break;
    case ARR3: visit(*static_cast<const Arr3*>(array), keys, 0, f); break;
    case ARR4: visit(*static_cast<const Arr4*>(array), keys, 0, f); break;
    case ARR5: visit(*static_cast<const Arr5*>(array), keys, 0, f); break;
    default: break;
    }
}

bool lookupArray(int type, const void* array, const long* keys, double& out)
{
    switch (type) {
    case ARR1: return lookup(*static_cast<const Arr1*>(array), keys, out);
    case ARR2: return lookup(*static_cast<const Arr2*>(array), keys, out);
    case ARR3: return lookup(*static_cast<const Arr3*>(array), keys, out);
    case ARR4: return lookup(*static_cast<const Arr4*>(array), keys, out);
    case ARR5: return lookup(*static_cast<const Arr5*>(array), keys, out);
    default: return false;
    }
}

void store(int rank, void* array, const long* k, double v)
{
    switch (rank) {
    case 1: (*static_cast<Arr1*>(array))[k[0]] = v; break;
    case 2: (*static_cast<Arr2*>(array))[k[0]][k[1]] = v; break;
    case 3: (*static_cast<Arr3*>(array))[k[0]][k[1]][k[2]] = v; break;
    case 4: (*static_cast<Arr4*>(array))[k[0]][k[1]][k[2]][k[3]] = v; break;
    case 5: (*static_cast<Arr5*>(array))[k[0]][k[1]][k[2]][k[3]][k[4]] = v; break;
    default: break;
    }
}

int rankOf(int type) { return type >= ARR1 && type <= ARR5 ? type - ARR1 + 1 : 0; }

// index number i of the current cell, 1 with a warning when there is none
double indexValue(long i)
{
    const CellContext& c = cellContext;
    if (i == 1 && c.indexCount > 0 && c.shift == 1) return c.checkNumber;
    int upper = c.shift + c.indexCount;
    if (i >= 1 && i <= upper && i - c.shift >= 1 && c.indices) return static_cast<double>(c.indices[i - c.shift - 1]);
    exprMessage(SEV_WARNING, "%d = ix(%d): index out of range 1 .. %d", 1, static_cast<int>(i), upper);
    return 1;
}

double sumTolerance()
{
    if (g_link && g_link->sumTol) return g_link->sumTol();
    try {
        if (konst::has("SUMTOLdef")) return konst::number("SUMTOLdef");
    } catch (const std::exception&) {
    }
    return 1e-6;
}

void out(const char* format, ...) __attribute__((format(printf, 1, 2)));
void out(const char* format, ...)
{
    char buffer[2048];
    va_list ap;
    va_start(ap, format);
    vsnprintf(buffer, sizeof buffer, format, ap);
    va_end(ap);
    if (printStream)
        fputs(buffer, printStream);
    else
        Prot::raw("%s", buffer);
}

// closes a file when the function is left, also by an error
struct FileCloser {
    FILE* f;
    ~FileCloser()
    {
        if (f) fclose(f);
    }
};

// ---------------------------------------------------------------- functions

// and: pops while the result is still true; the rest stays on the stack
void fnAnd()
{
    int n;
    if (!enter("and", 0, 256, n, true)) return;
    bool result = true;
    for (int i = 0; i < n && result; ++i)
        if (std::trunc(pop()) == 0) result = false;
    pushNumber(result ? 1 : 0);
}

// or: pops only while the result is false, which it never is: always 1, arguments stay
void fnOr()
{
    int n;
    if (!enter("or", 0, 256, n, true)) return;
    bool result = true;
    for (int i = 0; i < n && !result; ++i)
        if (std::trunc(pop()) != 0) result = true;
    pushNumber(result ? 1 : 0);
}

void fnAt()
{
    double nd = pop();
    int n = nd > 0 && nd < 1e9 ? static_cast<int>(nd) : 0;
    if (!checkArgs("at", 0, nd, 6)) {
        if (n > 6) exprMessage(SEV_ERROR, "%.0f too many parameters to at", nd);
        dropValues(static_cast<size_t>(n));
        pushNumber(0);
        return;
    }
    if (n == 0) {
        checkArgs("at", 1, 0, 6);
        pushNumber(0);
        return;
    }
    long keys[5];
    for (int i = n - 2; i >= 0; --i) keys[i] = toLong(pop());
    Value a;
    popValue(a);
    int rank = rankOf(a.type);
    if (rank != n - 1 || !a.v.p) {
        exprMessage(SEV_ERROR, "%d indices for %d dimensional array", n - 1, rank);
        pushNumber(0);
        return;
    }
    double v;
    if (lookupArray(a.type, a.v.p, keys, v)) {
        pushNumber(v);
        return;
    }
    int k[5];
    for (int i = 0; i < rank; ++i) k[i] = static_cast<int>(keys[i]);
    switch (rank) {
    case 1: exprMessage(SEV_ERROR, "missing key %d in reference file", k[0]); break;
    case 2: exprMessage(SEV_ERROR, "missing key %d %d in reference file", k[0], k[1]); break;
    case 3: exprMessage(SEV_ERROR, "missing key %d %d %d in reference file", k[0], k[1], k[2]); break;
    case 4: exprMessage(SEV_ERROR, "missing key %d %d %d %d in reference file", k[0], k[1], k[2], k[3]); break;
    default:
        exprMessage(SEV_ERROR, "missing key %d %d %d %d %d in reference file", k[0], k[1], k[2], k[3], k[4]);
        break;
    }
    pushNumber(0);
}

#define UNARY(fname, text, expr)                                                                                       \
    void fname()                                                                                                       \
    {                                                                                                                  \
        int n;                                                                                                         \
        if (!enter(text, 1, 1, n, true)) return;                                                                       \
        double x = pop();                                                                                              \
        pushNumber(expr);                                                                                              \
    }

UNARY(fnCeil, "ceil", std::ceil(x))
UNARY(fnCos, "cos", std::cos(x))
UNARY(fnExp, "exp", std::exp(x))
UNARY(fnFloor, "floor", std::floor(x))
UNARY(fnLog, "log", std::log(x))
UNARY(fnLog10, "log10", std::log10(x))
UNARY(fnNot, "not", x == 0 ? 1.0 : 0.0)
UNARY(fnSin, "sin", std::sin(x))
UNARY(fnSqrt, "sqrt", std::sqrt(x))
UNARY(fnTan, "tan", std::tan(x))

#define SETTER(fname, text, target)                                                                                    \
    void fname()                                                                                                       \
    {                                                                                                                  \
        int n;                                                                                                         \
        if (!enter(text, 1, 1, n, false)) return;                                                                      \
        double x = pop();                                                                                              \
        target = static_cast<int>(toLong(x));                                                                          \
    }

SETTER(fnCheckUndef, "check_undef", checkUndef)
SETTER(fnCheckTrailingDelimiter, "check_trailing_delimiter", checkTrailingDelimiter)

void fnExpand()
{
    int n;
    if (!enter("expand", 1, 1, n, false)) return;
    int x = static_cast<int>(toLong(pop()));
    expandRequested = x;
    expandNeeded = x;
}

// cut(n): region keys of later tables are read with the scale 10^n
void fnCut()
{
    int n;
    if (!enter("cut", 1, 1, n, false)) return;
    double x = pop();
    double scale = std::floor(std::pow(10.0, x));
    keyScale = std::isfinite(scale) && scale < 9.2e18 ? static_cast<long long>(scale) : 1;
    if (g_link && g_link->keyScaleChanged) g_link->keyScaleChanged(keyScale);
}

void fnChecksum()
{
    int n;
    if (!enter("checksum", 0, 256, n, false)) return;
    if (n == 0) return;
    std::vector<long> columns(static_cast<size_t>(n - 1));
    for (int i = n - 2; i >= 0; --i) columns[static_cast<size_t>(i)] = toLong(pop());
    Value a;
    popValue(a);
    int rank = rankOf(a.type);
    if (!rank || !a.v.p) {
        char b[16], c[16];
        exprMessage(SEV_ERROR, "popAny expected type %s(%d) != %s(%d) type on stack[%d]", typeName(ARR1, b), ARR1,
                    typeName(a.type, c), a.type, static_cast<int>(exprStack.size()));
        return;
    }
    if (columns.size() > 4) {
        Prot::message(SEV_WARNING, "%zu colums not supported", columns.size());
        return;
    }
    for (long c : columns)
        if (c < 1 || c > rank) {
            exprMessage(SEV_WARNING, "checksum: column %ld outside 1 .. %d", c, rank);
            return;
        }
    std::map<std::array<long, 4>, double> sums;
    visitArray(a.type, a.v.p, [&](const long* keys, double v) {
        std::array<long, 4> k{};
        for (size_t j = 0; j < columns.size(); ++j) k[j] = keys[columns[j] - 1];
        sums[k] += v;
    });
    double tol = sumTolerance();
    for (const auto& [k, s] : sums) {
        if (s >= 1 - tol && s <= 1 + tol) continue;
        char key[96];
        int a0 = static_cast<int>(k[0]), a1 = static_cast<int>(k[1]), a2 = static_cast<int>(k[2]),
            a3 = static_cast<int>(k[3]);
        switch (columns.size()) {
        case 0: key[0] = 0; break;
        case 1: snprintf(key, sizeof key, " %d", a0); break;
        case 2: snprintf(key, sizeof key, "%d %d", a0, a1); break;
        case 3: snprintf(key, sizeof key, "%d %d %d", a0, a1, a2); break;
        default: snprintf(key, sizeof key, "%d %d %d %d", a0, a1, a2, a3); break;
        }
        Prot::message(SEV_WARNING, "checksum %s %.15g outside range[1-%.15g .. 1+%.15g]", key, s, tol, tol);
    }
    std::string line = "checksum";
    for (long c : columns) line += " " + std::to_string(c);
    Prot::writeln(1, "%s", line.c_str());
}

// constant(value $name) sets, constant('key') and constant($name) read the table of constants
void fnConstant()
{
    int n;
    if (!enter("constant", 0, 2, n, false)) return;
    if (n == 2) {
        const char* name = popAny(VAR).s;
        Value v;
        popValue(v);
        const char* key = name[0] == '$' ? name + 1 : name;
        if (v.type == STR)
            konst::set(key, std::string(v.v.s));
        else if (v.type == NUM)
            konst::set(key, v.v.d);
        else
            Prot::message(SEV_ERROR, "syntax error\n");
    } else if (n == 1) {
        Value v;
        popValue(v);
        Bits b;
        if (v.type == STR) {
            b.s = keepString(konst::text(v.v.s));
            pushValue(STR, b);
        } else if (v.type == VAR) {
            b.s = keepString(konst::text(v.v.s[0] == '$' ? v.v.s + 1 : v.v.s));
            pushValue(STR, b);
        }
    }
}

void fnDim()
{
    int n;
    if (!enter("dim", 0, 0, n, true)) return;
    pushNumber(cellContext.indexCount);
}

#define BINARY(fname, text, expr)                                                                                      \
    void fname()                                                                                                       \
    {                                                                                                                  \
        int n;                                                                                                         \
        if (!enter(text, 2, 2, n, true)) return;                                                                       \
        double b = pop();                                                                                              \
        double a = pop();                                                                                              \
        pushNumber(expr);                                                                                              \
    }

BINARY(fnEq, "eq", a == b ? 1.0 : 0.0)
BINARY(fnGt, "gt", a > b ? 1.0 : 0.0)
BINARY(fnLt, "lt", a < b ? 1.0 : 0.0)
BINARY(fnPow, "pow", std::pow(a, b))

// eval('text'): each statement's result stays on the stack
void fnEval()
{
    int n;
    if (!enter("eval", 1, 1, n, false)) return;
    const char* text = popAny(STR).s;
    static Parser standalone(nullptr);
    Parser& parser = currentParser ? *currentParser : standalone;
    runStatements(parser, text, true);
}

// eval_file('name'): the statements of <Directory>name.txt, results dropped
void fnEvalFile()
{
    int n;
    if (!enter("eval_file", 1, 1, n, false)) return;
    std::string name = popAny(STR).s;
    std::string path = si::Directory + name + ".txt";
    FILE* f = fopen(path.c_str(), "r");
    if (!f) {
        int e = errno;
        exprMessage(SEV_ERROR, "eval_file('%s'): open %s: %s\n", name.c_str(), path.c_str(), strerror(e));
        return;
    }
    FileCloser closer{f};
    char separator[2] = {si::separator, 0};
    CsvReader reader(f, separator);
    Parser parser(&reader);
    char cell[1024];
    for (;;) {
        int status = reader.next(cell, sizeof cell);
        if (status < 0) {
            if (status != -1) exprMessage(SEV_WARNING, "%s", CsvReader::errorText(status).c_str());
            break;
        }
        const char* text = cell;
        if (text[0] == '#' && text[1] == '!') text += 2;
        if (traceLevel >= 1) Prot::raw("%5d: %s\n", static_cast<int>(reader.lineNumber()), cell);
        runStatements(parser, text, false);
    }
}

// gauss(x m s): the density with one more factor 1/s
void fnGauss()
{
    int n;
    if (!enter("gauss", 3, 3, n, true)) return;
    double s = pop();
    double m = pop();
    double x = pop();
    double e = (x - m) * (x - m) / (-2 * s * s);
    pushNumber(std::exp(e) * (1 / (std::sqrt(2 * M_PI * s * s) * s)));
}

// gem(): population of the region of the cell; gem(key): of a region key
void fnGem()
{
    double nd = pop();
    int n = nd > 0 && nd < 1e9 ? static_cast<int>(nd) : 0;
    if (!checkArgs("gem", 0, nd, 1)) {
        if (n > 1) exprMessage(SEV_ERROR, "zu viele (2) Parameter");
        dropValues(static_cast<size_t>(n));
        pushNumber(0);
        return;
    }
    long long key = 0;
    if (n == 1) key = toLong(pop());
    const ForecastLink* link = g_link;
    if (!link || !link->regionTotal || !link->regionCount) {
        exprMessage(SEV_ERROR, "gem: @fn_noForecast;");
        pushNumber(0);
        return;
    }
    int position;
    if (n == 0) {
        position = static_cast<int>(indexValue(2)) - 1;
    } else {
        position = link->regionPosition ? link->regionPosition(key) : -1;
        if (position < 0) {
            exprMessage(SEV_WARNING, "unbekanntes Gebietskennzeichen %zd", static_cast<ssize_t>(key));
            pushNumber(0);
            return;
        }
    }
    int count = link->regionCount();
    if (position < 0 || position >= count) {
        exprMessage(SEV_WARNING, "gem: @fn_regionOutside; %d: 1 .. %d", position + 1, count);
        pushNumber(0);
        return;
    }
    pushNumber(link->regionTotal(position));
}

// getenv('name' default): an unset variable gives the default, or 0
void fnGetenv()
{
    int n;
    if (!enter("getenv", 1, 2, n, true)) return;
    double def = n == 2 ? pop() : 0;
    const char* name = popAny(STR).s;
    const char* value = os::getenv(name);
    pushNumber(value ? atof(value) : def);
}

// getopt('name' default): always pops a number and a string
void fnGetopt()
{
    int n;
    if (!enter("trace", 1, 2, n, true)) return;
    double def = pop();
    const char* name = popAny(STR).s;
    pushNumber(opt::get(name, def));
}

// hadwiger(x r t c h): the fertility curve
void fnHadwiger()
{
    int n;
    if (!enter("hadwiger", 5, 5, n, true)) return;
    double h = pop();
    double c = pop();
    double t = pop();
    double r = pop();
    double x = pop();
    double d = t - c;
    double u = d * d + 3 * h;
    double w = std::sqrt(u * u - 4 * 3 * h * d * 2 * d);
    double g = (-u - w) / (2 * 2 * d);
    double k = g / std::sqrt(2 * h);
    double y = x + 0.5 + (g - c);
    pushNumber(std::sqrt(g * g * g / (y * y * y)) * (k / (std::sqrt(M_PI) * g)) * r *
               std::exp(-(g / y + y / g - 2) * k * k));
}

// if(c a b): a when c is exactly 1
void fnIf()
{
    int n;
    if (!enter("if", 3, 3, n, true)) return;
    double b = pop();
    double a = pop();
    double c = pop();
    pushNumber(c == 1 ? a : b);
}

void fnIx()
{
    int n;
    if (!enter("ix", 1, 1, n, true)) return;
    pushNumber(indexValue(toLong(pop())));
}

// let($name value): the value keeps its type, arrays included
void fnLet()
{
    int n;
    if (!enter("let", 2, 2, n, false)) return;
    Value v;
    popValue(v);
    const char* name = popAny(VAR).s;
    if (v.type == VAR) {
        exprMessage(SEV_ERROR, "pop expected type NUM(%d) != undefined  %s(%s) on stack[%d]", NUM, "VAR", v.v.s,
                    static_cast<int>(exprStack.size()));
        return;
    }
    if (!*name) return;
    setVariable(name, v.type, v.v);
}

void fnLine()
{
    int n;
    if (!enter("line", 3, 3, n, true)) return;
    double b = pop();
    double a = pop();
    double x = pop();
    pushNumber(x * a + b);
}

void fnLine2p()
{
    int n;
    if (!enter("line2p", 5, 5, n, true)) return;
    double y2 = pop();
    double x2 = pop();
    double y1 = pop();
    double x1 = pop();
    double x = pop();
    pushNumber((x - x1) * ((y2 - y1) / (x2 - x1)) + y1);
}

void fnList()
{
    int n;
    if (!enter("list", 1, 1, n, false)) return;
    int level = static_cast<int>(toLong(pop()));
    if (traceLevel == 0 && level > 0)
        Prot::raw("<pre>");
    else if (traceLevel > 0 && level == 0)
        Prot::raw("</pre>");
    traceLevel = level;
}

void fnMax()
{
    int n;
    if (!enter("max", 1, 256, n, true)) return;
    double m = pop();
    for (int i = 1; i < n; ++i) {
        double v = pop();
        if (v > m) m = v;
    }
    pushNumber(m);
}

void fnMin()
{
    int n;
    if (!enter("min", 1, 256, n, true)) return;
    double m = pop();
    for (int i = 1; i < n; ++i) {
        double v = pop();
        if (v < m) m = v;
    }
    pushNumber(m);
}

// option($name) reads, option($name value) sets a named option
void fnOption()
{
    int n;
    if (!enter("trace", 0, 2, n, false)) return;
    if (n == 1) {
        Value v;
        popValue(v);
        if (v.type == VAR) pushNumber(opt::get(v.v.s, 0));
    } else if (n == 2) {
        Value value, name;
        popValue(value);
        popValue(name);
        if (name.type == VAR && value.type == NUM) opt::set(name.v.s, value.v.d);
    }
}

void fnPi()
{
    int n;
    if (!enter("pi", 0, 0, n, true)) return;
    pushNumber(3.141592653589793);
}

// print(...): the arguments in turn, without popping them first
void fnPrint()
{
    int n;
    if (!enter("print", 0, 256, n, false)) return;
    size_t count = static_cast<size_t>(n) <= exprStack.size() ? static_cast<size_t>(n) : exprStack.size();
    size_t first = exprStack.size() - count;
    for (size_t i = first; i < exprStack.size(); ++i) {
        const Value& v = exprStack[i];
        switch (v.type) {
        case STR: out("%s ", v.v.s); break;
        case NUM: out("%.15g ", v.v.d); break;
        case ARR1:
            for (const auto& [k, x] : *static_cast<const Arr1*>(v.v.p))
                out("[%zu] %.15g\n", static_cast<size_t>(k), x);
            break;
        case ARR2:
            for (const auto& [k, a] : *static_cast<const Arr2*>(v.v.p))
                for (const auto& [l, x] : a) out("[%zu %zu] %.15g\n", static_cast<size_t>(k), static_cast<size_t>(l), x);
            break;
        case ARR3:
            for (const auto& [k, a] : *static_cast<const Arr3*>(v.v.p))
                for (const auto& [l, b] : a)
                    for (const auto& [m, x] : b)
                        out("[%zu %zu %zu] %.15g\n", static_cast<size_t>(k), static_cast<size_t>(l),
                            static_cast<size_t>(m), x);
            break;
        default: out("(unknown %d)", v.type); break;
        }
    }
    dropValues(count);
}

// rand(r): uniform in 0 .. 1 from the run's generator, times r
void fnRand()
{
    int n;
    if (!enter("rand", 0, 1, n, true)) return;
    double r = n == 1 ? pop() : 1;
    pushNumber(runUniform() * r);
}

// read('name' k1 .. km): the side table <Directory>name.csv as number or array
void fnRead()
{
    int n;
    if (!enter("read", 0, 5, n, true)) return;
    if (n == 0) {
        checkArgs("read", 1, 0, 5);
        pushNumber(0);
        return;
    }
    size_t m = static_cast<size_t>(n - 1);
    long filter[4] = {};
    for (int i = n - 2; i >= 0; --i) filter[i] = toLong(pop()) & 0xFFFF;
    std::string name = popAny(STR).s;
    std::string path = si::Directory + name + ".csv";
    FILE* f = fopen(path.c_str(), "r");
    if (!f) {
        int e = errno;
        exprMessage(SEV_ERROR, "read(%s): open %s: %s\n", name.c_str(), path.c_str(), strerror(e));
        pushNumber(0);
        return;
    }
    FileCloser closer{f};
    char separator[2] = {si::separator, 0};
    CsvReader reader(f, separator);

    int columns = -1;
    int rank = -1;
    void* array = nullptr;
    double last = 0;
    double sum = 0;
    std::vector<std::string> cells;
    char cell[1024];
    for (;;) {
        int status = reader.next(cell, sizeof cell);
        if (status < 0) {
            if (status != -1) exprMessage(SEV_WARNING, "%s", CsvReader::errorText(status).c_str());
            break;
        }
        if (reader.isComment) continue;
        cells.emplace_back(cell);
        if (status == reader.separator) continue;

        size_t line = static_cast<size_t>(reader.lineNumber());
        if (columns < 0) {
            columns = static_cast<int>(cells.size());
            if (columns < 2 || columns > 6) {
                exprMessage(SEV_ERROR, "read(%s): file %s: %zu: %d fields out of range 2..6", name.c_str(),
                            path.c_str(), line, columns);
                pushNumber(0);
                return;
            }
            rank = columns - static_cast<int>(m) - 1;
            if (rank < 0 || rank > 4) {
                exprMessage(SEV_ERROR, "read(%s): file %s: %zu: %d columns - %zu keys not supported", name.c_str(),
                            path.c_str(), line, columns, m);
                pushNumber(0);
                return;
            }
            if (rank > 0) array = newArray(rank);
        }
        if (static_cast<int>(cells.size()) != columns) {
            bool longer = static_cast<int>(cells.size()) > columns;
            exprMessage(longer ? SEV_WARNING : SEV_ERROR, "read(%s): file %s:<br>%zu: %s<br>%zu != %d columns",
                        name.c_str(), path.c_str(), line, reader.currentLine().c_str(), cells.size(), columns);
            if (!longer) {
                cells.clear();
                continue;
            }
        }
        long keys[6];
        bool good = true;
        for (int j = 0; j < columns - 1 && good; ++j) {
            const char* text = cells[static_cast<size_t>(j)].c_str();
            char* end;
            errno = 0;
            keys[j] = strtol(text, &end, 10);
            if (end == text || *end || errno) {
                exprMessage(SEV_ERROR, "read(%s): %s:<br>%zu: %s<br>'%s' not a integer (%s)", name.c_str(),
                            path.c_str(), line, reader.currentLine().c_str(), text, errno ? strerror(errno) : end);
                good = false;
            }
        }
        double value = 0;
        if (good) {
            const char* text = cells[static_cast<size_t>(columns - 1)].c_str();
            char* end;
            value = strtod(text, &end);
            if (end == text || *end) {
                exprMessage(SEV_ERROR, "read(%s): %s:<br>%zu: %s<br>'%s' not a number (%s)", name.c_str(),
                            path.c_str(), line, reader.currentLine().c_str(), text, end);
                good = false;
            }
        }
        cells.clear();
        if (!good) continue;
        bool kept = true;
        for (size_t j = 0; j < m; ++j)
            if (keys[j] != filter[j]) kept = false;
        if (!kept) continue;
        if (rank == 0)
            last = value;
        else
            store(rank, array, keys + m, value);
        sum += value;
    }
    Prot::writeln(1, "@reading; <a href=\"../../%s.csv\">%s.csv</a>, @sum;: %.15g", name.c_str(), name.c_str(), sum);
    if (rank > 0) {
        Bits b;
        b.p = array;
        pushValue(ARR1 + rank - 1, b);
    } else {
        pushNumber(last);
    }
}

void fnSkip()
{
    int n;
    if (!enter("skip", 1, 1, n, false)) return;
    pop();
}

// weibull(x b c d): 1 - exp(-(z^c)), z = ((x + 0.5) - d) / (b - d)
void fnWeibull()
{
    int n;
    if (!enter("weibull", 4, 4, n, true)) return;
    double d = pop();
    double c = pop();
    double b = pop();
    double x = pop();
    double z = ((x + 0.5) - d) / (b - d);
    errno = 0;
    if (errno == EDOM) {
        Prot::message(SEV_WARNING, "%s in pow(%g %g) in weibull(%g %g %g %g) leads to default value 0",
                      strerror(errno), z, c, x, b, c, d);
        pushNumber(0);
        return;
    }
    pushNumber(1 - std::exp(-std::pow(z, c)));
}

} // namespace

void registerBuiltins()
{
    static const struct {
        const char* name;
        Builtin f;
    } list[] = {
        {"and", fnAnd},
        {"at", fnAt},
        {"ceil", fnCeil},
        {"check_undef", fnCheckUndef},
        {"check_trailing_delimiter", fnCheckTrailingDelimiter},
        {"checksum", fnChecksum},
        {"constant", fnConstant},
        {"cos", fnCos},
        {"cut", fnCut},
        {"dim", fnDim},
        {"eq", fnEq},
        {"eval", fnEval},
        {"eval_file", fnEvalFile},
        {"exp", fnExp},
        {"expand", fnExpand},
        {"floor", fnFloor},
        {"gauss", fnGauss},
        {"gem", fnGem},
        {"getenv", fnGetenv},
        {"getopt", fnGetopt},
        {"gt", fnGt},
        {"hadwiger", fnHadwiger},
        {"if", fnIf},
        {"ix", fnIx},
        {"let", fnLet},
        {"line", fnLine},
        {"line2p", fnLine2p},
        {"list", fnList},
        {"log", fnLog},
        {"log10", fnLog10},
        {"lt", fnLt},
        {"max", fnMax},
        {"min", fnMin},
        {"not", fnNot},
        {"option", fnOption},
        {"or", fnOr},
        {"pi", fnPi},
        {"pow", fnPow},
        {"print", fnPrint},
        {"rand", fnRand},
        {"read", fnRead},
        {"sin", fnSin},
        {"skip", fnSkip},
        {"sqrt", fnSqrt},
        {"tan", fnTan},
        {"weibull", fnWeibull},
    };
    static_assert(sizeof list / sizeof list[0] == 46, "the language has 46 functions");
    for (const auto& e : list) registerFunction(e.name, e.f);
}

void setForecastLink(const ForecastLink* link) { g_link = link; }
const ForecastLink* forecastLink() { return g_link; }

std::mt19937_64& runGenerator() { return *g_generator; }
void setRunGenerator(std::mt19937_64* generator) { g_generator = generator ? generator : &g_ownGenerator; }

double runUniform()
{
    double u = std::generate_canonical<double, 53>(*g_generator);
    // the standard rule may round up to 1 for the largest outputs
    return u < 1.0 ? u : std::nextafter(1.0, 0.0);
}

void* newArray(int rank)
{
    switch (rank) {
    case 1: pool1.push_back(std::make_unique<Arr1>()); return pool1.back().get();
    case 2: pool2.push_back(std::make_unique<Arr2>()); return pool2.back().get();
    case 3: pool3.push_back(std::make_unique<Arr3>()); return pool3.back().get();
    case 4: pool4.push_back(std::make_unique<Arr4>()); return pool4.back().get();
    case 5: pool5.push_back(std::make_unique<Arr5>()); return pool5.back().get();
    default: return nullptr;
    }
}

void freeArrays()
{
    pool1.clear();
    pool2.clear();
    pool3.clear();
    pool4.clear();
    pool5.clear();
}
