// The expression language of table cells: tokeniser, parser and stack machine.
#include "tables/expression.h"

#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <locale.h>
#include <stdexcept>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/table_text.h"
#include "tables/functions.h"

std::vector<Value> exprStack;
CellContext cellContext;
Parser* currentParser = nullptr;

namespace {

inline unsigned char uc(char c) { return static_cast<unsigned char>(c); }

// numbers of the language are always written with ".", whatever the locale of the run
double cStrtod(const char* text, char** end)
{
    static locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, end, c);
}

// ---- name tables: FNV-1a over the bytes of the name, buckets by mask ----
template <class T>
class NameTable {
public:
    explicit NameTable(size_t buckets = 64) : table(buckets), mask(buckets - 1) {}

    T* find(const char* name) const
    {
        size_t length = std::strlen(name);
        uint64_t h = fnv1a(name, length);
        for (const Entry& e : table[h & mask])
            if (e.hash == h && e.name.size() == length && std::memcmp(e.name.data(), name, length) == 0)
                return const_cast<T*>(&e.value);
        return nullptr;
    }
    T& insert(const std::string& name, const T& value)
    {
        if (T* t = find(name.c_str())) {
            *t = value;
            return *t;
        }
        if (count + 1 > table.size() * 2) grow();
        uint64_t h = fnv1a(name);
        auto& bucket = table[h & mask];
        bucket.push_back(Entry{name, h, value});
        ++count;
        return bucket.back().value;
    }
    void erase(const std::string& name)
    {
        uint64_t h = fnv1a(name);
        auto& bucket = table[h & mask];
        for (size_t i = 0; i < bucket.size(); ++i)
            if (bucket[i].hash == h && bucket[i].name == name) {
                bucket.erase(bucket.begin() + static_cast<long>(i));
                --count;
                return;
            }
    }
    void clear()
    {
        for (auto& b : table) b.clear();
        count = 0;
    }
    template <class F>
    void forEach(F f) const
    {
        for (const auto& b : table)
            for (const Entry& e : b) f(e.name, e.value);
    }
    size_t size() const { return count; }

private:
    struct Entry {
        std::string name;
        uint64_t hash;
        T value;
    };
    void grow()
    {
        std::vector<std::vector<Entry>> bigger(table.size() * 2);
        size_t m = bigger.size() - 1;
        for (auto& b : table)
            for (Entry& e : b) bigger[e.hash & m].push_back(std::move(e));
        table.swap(bigger);
        mask = m;
    }
    std::vector<std::vector<Entry>> table;
    size_t mask;
    size_t count = 0;
};

struct SystemVariable {
    const int* place = nullptr;                      // ID
    double (*reader)(const void* arg) = nullptr;     // NUM
    const void* arg = nullptr;
};

NameTable<Variable>& variables()
{
    static NameTable<Variable> t;
    return t;
}
NameTable<SystemVariable>& systemVariables()
{
    static NameTable<SystemVariable> t;
    return t;
}
NameTable<Builtin>& functions()
{
    static NameTable<Builtin> t(128);
    static bool filled = false;
    if (!filled) {
        filled = true;
        registerBuiltins();
    }
    return t;
}
std::vector<std::pair<Builtin, const char*>>& functionNames()
{
    static std::vector<std::pair<Builtin, const char*>> v;
    return v;
}

// strings of the programs and of the values; they live until the end of the table
std::deque<std::string>& stringPool()
{
    static std::deque<std::string> pool;
    return pool;
}

// stands in for an unknown function, after the parser has reported it: drops the arguments
void unknownFunction()
{
    double n = pop();
    dropValues(n > 0 ? static_cast<size_t>(n) : 0);
    pushNumber(0);
}

Builtin atFunction()
{
    static Builtin f = findFunction("at");
    return f;
}
Builtin ixFunction()
{
    static Builtin f = findFunction("ix");
    return f;
}

void vmessage(const Parser* parser, int severity, const char* format, va_list ap)
{
    char expanded[1024];
    const char* f = format;
    if (std::strchr(format, '@')) {
        DD::expKey(expanded, sizeof expanded, format);
        f = expanded;
    }
    char body[2048];
    vsnprintf(body, sizeof body, f, ap);
    size_t line = parser ? parser->lineNumber() : 0;
    std::string text = parser ? parser->lineText() : std::string();
    Prot::message(severity, "%zu: %s: %s", line, text.c_str(), body);
}

void parserMessage(const Parser* parser, int severity, const char* format, ...) __attribute__((format(printf, 3, 4)));
void parserMessage(const Parser* parser, int severity, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    vmessage(parser, severity, format, ap);
    va_end(ap);
}

// the top entry as a number; a VAR is reported, an empty stack too
inline double popNumber()
{
    if (!exprStack.empty() && exprStack.back().type == NUM) {
        double d = exprStack.back().v.d;
        exprStack.pop_back();
        return d;
    }
    return pop();
}

constexpr int maxDepth = 2000;

VariableResolver g_resolver = nullptr;

} // namespace

// ---------------------------------------------------------------- names

uint64_t fnv1a(const char* name, size_t length)
{
    uint64_t h = 0xcbf29ce484222325ULL;
    for (size_t i = 0; i < length; ++i) {
        h ^= static_cast<unsigned char>(name[i]);
        h *= 0x100000001b3ULL;
    }
    return h;
}

uint64_t fnv1a(const std::string& name) { return fnv1a(name.data(), name.size()); }

Variable* findVariable(const char* name) { return variables().find(name); }

void setVariable(const char* name, int type, Bits v)
{
    variables().insert(name, Variable{static_cast<uint16_t>(type), v});
}

void publishVariable(const std::string& name, const int* place)
{
    SystemVariable s;
    s.place = place;
    systemVariables().insert(name, s);
}

void publishVariable(const std::string& name, double (*reader)(const void* arg), const void* arg)
{
    SystemVariable s;
    s.reader = reader;
    s.arg = arg;
    systemVariables().insert(name, s);
}

void withdrawVariable(const std::string& name) { systemVariables().erase(name); }
void setSystemVariableResolver(VariableResolver resolver) { g_resolver = resolver; }
void withdrawSystemVariables() { systemVariables().clear(); }

Builtin findFunction(const char* name)
{
    Builtin* f = functions().find(name);
    return f ? *f : nullptr;
}

const char* functionName(Builtin f)
{
    for (auto& p : functionNames())
        if (p.first == f) return p.second;
    return "?";
}

void registerFunction(const char* name, Builtin f)
{
    functions().insert(name, f);
    functionNames().emplace_back(f, name);
}

const char* keepString(const std::string& text)
{
    stringPool().push_back(text);
    return stringPool().back().c_str();
}

void exprClearTable()
{
    variables().clear();
    freeArrays();
    stringPool().clear();
    exprStack.clear();
}

const char* typeName(int type, char* buffer)
{
    static const char* const names[] = {"STR", "NUM", "ARR1", "ARR2", "ARR3", "ARR4",
                                        "ARR5", "ID", "FUNCT", "PARAMS", "VAR", "DONE"};
    if (type >= STR && type <= DONE) return names[type - STR];
    if (type >= 32 && type < 256) {
        buffer[0] = static_cast<char>(type);
        buffer[1] = 0;
    } else {
        snprintf(buffer, 16, "\\%d", type);
    }
    return buffer;
}

std::string typeName(int type)
{
    char b[16];
    return typeName(type, b);
}

// ---------------------------------------------------------------- messages

void exprMessage(int severity, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    vmessage(currentParser, severity, format, ap);
    va_end(ap);
}

// ---------------------------------------------------------------- parser

Parser::Parser(CsvReader* reader_) : reader(reader_) { functions(); }

size_t Parser::lineNumber() const { return reader ? static_cast<size_t>(reader->lineNumber()) : 0; }

std::string Parser::lineText() const { return reader ? reader->currentLine() : std::string(); }

void Parser::emit(uint16_t code, Bits v) { program.push_back(Operation{code, v}); }

void Parser::emitNumber(double d)
{
    Bits b;
    b.d = d;
    emit(NUM, b);
}

int Parser::next()
{
    token[0] = 0;
    while (*pos && std::isspace(uc(*pos))) ++pos;
    unsigned char c = uc(*pos);

    if (std::isdigit(c)) {
        char* end;
        value = cStrtod(pos, &end);
        pos = end;
        return type = NUM;
    }

    if (c == '\'') {
        const char* start = ++pos;
        while (*pos && *pos != '\'') ++pos;
        size_t length = static_cast<size_t>(pos - start);
        size_t kept = length < tokenSize ? length : tokenSize;
        std::memcpy(token, start, kept);
        token[kept] = 0;
        ptr.s = keepString(std::string(start, length));
        if (*pos == '\'')
            ++pos;
        else
            parserMessage(this, SEV_ERROR, "parser error: string without closing quote: '%s", ptr.s);
        return type = STR;
    }

    if (!std::isalpha(c) && c != '$') {
        if (c == 0) return type = DONE;
        if (c == '#') {
            pos += std::strlen(pos);
            return type = DONE;
        }
        ++pos;
        value = -1.0;
        return type = c;
    }

    size_t n = 0;
    token[n++] = *pos++;
    while (std::isalnum(uc(*pos)) || *pos == '_') {
        if (n < tokenSize)
            token[n++] = *pos;
        else
            parserMessage(this, SEV_ERROR, "parser error: token size exceeds %d", tokenSize);
        ++pos;
    }
    token[n] = 0;

    if (Variable* v = variables().find(token)) {
        ptr = v->v;
        value = v->type == NUM ? v->v.d : 0;
        return type = v->type;
    }
    if (SystemVariable* s = systemVariables().find(token)) {
        if (s->place) {
            ptr.ip = s->place;
            value = *s->place;
            return type = ID;
        }
        value = s->reader ? s->reader(s->arg) : 0;
        ptr.d = value;
        return type = NUM;
    }
    double resolved;
    if (g_resolver && g_resolver(token, resolved)) {
        value = resolved;
        ptr.d = value;
        return type = NUM;
    }
    if (token[0] != '$') {
        ptr.f = findFunction(token);
        if (!ptr.f) {
            parserMessage(this, SEV_ERROR, "parser error: unknown function: %s", token);
            ptr.f = unknownFunction;
        }
        return type = FUNCT;
    }
    ptr.s = keepString(token);
    return type = VAR;
}

void Parser::accept(int expected)
{
    if (type != expected) {
        char a[16], b[16];
        parserMessage(this, SEV_ERROR, "expected '%s', got '%s'", typeName(expected, a), typeName(type, b));
        return;
    }
    next();
}

namespace {
int depth = 0;
struct DepthGuard {
    DepthGuard() { ++depth; }
    ~DepthGuard() { --depth; }
};
} // namespace

// a nesting too deep for the stack: reported, and the rest of the text is dropped
bool Parser::tooDeep()
{
    if (depth <= maxDepth) return false;
    parserMessage(this, SEV_ERROR, "parser error: expression nested deeper than %d", maxDepth);
    emitNumber(0);
    pos += std::strlen(pos);
    type = DONE;
    token[0] = 0;
    return true;
}

void Parser::expression()
{
    DepthGuard guard;
    if (tooDeep()) return;
    bool negate = false;
    if (type == '-') {
        negate = true;
        next();
    } else if (type == '+') {
        next();
    }
    term();
    if (negate) emit('_', Bits{});
    while (type == '+' || type == '-') {
        uint16_t op = type;
        next();
        term();
        emit(op, Bits{});
    }
}

// * and / take a whole term as right operand: a/b/c is a/(b/c)
void Parser::term()
{
    DepthGuard guard;
    if (tooDeep()) return;
    factor();
    while (type == '*' || type == '/') {
        uint16_t op = type;
        next();
        term();
        emit(op, Bits{});
    }
}

void Parser::factor()
{
    switch (type) {
    case '(':
        next();
        expression();
        accept(')');
        break;
    case STR:
        emit(STR, ptr);
        next();
        break;
    case NUM:
        emitNumber(value);
        next();
        break;
    case ARR1:
    case ARR2:
    case ARR3:
    case ARR4:
    case ARR5:
    case FUNCT: {
        uint16_t t = type;
        Bits p = ptr;
        next();
        Bits count;
        count.i = arguments();
        emit(t, p);
        emit(PARAMS, count);
        break;
    }
    case ID:
        emit(ID, ptr);
        next();
        break;
    case VAR:
        emit(VAR, ptr);
        next();
        break;
    default: {
        char b[16];
        parserMessage(this, SEV_ERROR, "syntax error (%s) at '%s'", typeName(type, b), pos);
        emitNumber(0);
        break;
    }
    }
}

// arguments stand side by side, without commas
int Parser::arguments()
{
    if (type != '(') return 0;
    next();
    int n = 0;
    while (type != ')' && type != DONE) {
        const char* before = pos;
        int t = type;
        expression();
        ++n;
        if (pos == before && type == t) next();   // a token that begins nothing: pass it
    }
    accept(')');
    return n;
}

const char* Parser::parse(const char* source)
{
    program.clear();
    text = source ? source : "";
    pos = text;
    token[0] = 0;
    Parser* previous = currentParser;
    currentParser = this;
    struct Restore {
        Parser*& p;
        Parser* v;
        ~Restore() { p = v; }
    } restore{currentParser, previous};

    char* end;
    double d = cStrtod(text, &end);
    if (end != text && *end == 0) {
        emitNumber(d);
        return end;
    }
    depth = 0;
    next();
    if (type == DONE) return pos;
    expression();
    // the look-ahead token goes back to the text: names and strings by their length
    return pos - std::strlen(token);
}

// ---------------------------------------------------------------- machine

double pop()
{
    if (exprStack.empty()) {
        exprMessage(SEV_ERROR, "pop: stack empty");
        return 0;
    }
    Value v = exprStack.back();
    exprStack.pop_back();
    if (v.type == VAR)
        exprMessage(SEV_ERROR, "pop expected type NUM(%d) != undefined  %s(%s) on stack[%d]", NUM, "VAR",
                    v.v.s ? v.v.s : "", static_cast<int>(exprStack.size()));
    return v.v.d;
}

Bits popAny(int type)
{
    Bits safe;
    if (type == STR || type == VAR)
        safe.s = "";
    else
        safe.p = nullptr;
    if (exprStack.empty()) {
        char a[16];
        exprMessage(SEV_ERROR, "popAny: stack empty, %s expected", typeName(type, a));
        return safe;
    }
    Value v = exprStack.back();
    exprStack.pop_back();
    if (v.type != type) {
        char a[16], b[16];
        exprMessage(SEV_ERROR, "popAny expected type %s(%d) != %s(%d) type on stack[%d]", typeName(type, a), type,
                    typeName(v.type, b), v.type, static_cast<int>(exprStack.size()));
        // the eight bytes of another type are no pointer of the wanted kind
        if (type == NUM) return v.v;
        return safe;
    }
    return v.v;
}

bool popValue(Value& out)
{
    if (exprStack.empty()) {
        exprMessage(SEV_ERROR, "pop: stack empty");
        out.type = NUM;
        out.v.d = 0;
        return false;
    }
    out = exprStack.back();
    exprStack.pop_back();
    return true;
}

void dropValues(size_t n)
{
    if (n > exprStack.size()) n = exprStack.size();
    exprStack.resize(exprStack.size() - n);
}

bool checkArgs(const char* name, double min, double count, double max)
{
    if (count >= min && count <= max) return true;
    exprMessage(SEV_ERROR, "%s number of arguments %.0f outside %.0f .. %.0f", name, count, min, max);
    return false;
}

double evaluate(Parser& parser, const long long* indices, int indexCount, int shift, int checkNumber)
{
    cellContext.indices = indices;
    cellContext.indexCount = indices ? indexCount : 0;
    cellContext.shift = shift;
    cellContext.checkNumber = checkNumber;
    Parser* previous = currentParser;
    currentParser = &parser;
    struct Restore {
        Parser*& p;
        Parser* v;
        ~Restore() { p = v; }
    } restore{currentParser, previous};

    // a statement may parse further text with this parser (eval): the program's buffer is then
    // kept aside, so these pointers stay good
    const Operation* op = parser.program.data();
    const size_t n = parser.program.size();
    for (size_t k = 0; k < n; ++k) {
        switch (op[k].code) {
        case '+': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(l + r);
            break;
        }
        case '-': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(l - r);
            break;
        }
        case '*': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(l * r);
            break;
        }
        case '/': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(l / r);
            break;
        }
        case '<': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(l < r ? 1 : 0);
            break;
        }
        case '>': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(l > r ? 1 : 0);
            break;
        }
        case '=': {
            double r = popNumber();
            double l = popNumber();
            pushNumber(!(l < r) && !(r < l) ? 1 : 0);
            break;
        }
        case '_':
            pushNumber(-popNumber());
            break;
        case STR:
        case NUM:
            pushValue(op[k].code, op[k].v);
            break;
        case ID:
            pushNumber(*op[k].v.ip);
            break;
        case ARR1:
        case ARR2:
        case ARR3:
        case ARR4:
        case ARR5: {
            const Operation& a = op[k];
            long long count = 0;
            if (k + 1 < n && op[k + 1].code == PARAMS) {
                count = op[k + 1].v.i;
                ++k;
            }
            if (count == 0) {
                pushValue(a.code, a.v);
                break;
            }
            // at(A i j ...): the array goes below its indices
            double small[8];
            std::vector<double> large;
            double* idx = small;
            if (count > 8) {
                large.resize(static_cast<size_t>(count));
                idx = large.data();
            }
            for (long long i = count - 1; i >= 0; --i) idx[i] = popNumber();
            pushValue(a.code, a.v);
            for (long long i = 0; i < count; ++i) pushNumber(idx[i]);
            pushNumber(static_cast<double>(count + 1));
            atFunction()();
            break;
        }
        case FUNCT: {
            Builtin f = op[k].v.f;
            long long count = 0;
            if (k + 1 < n && op[k + 1].code == PARAMS) {
                count = op[k + 1].v.i;
                ++k;
            }
            pushNumber(static_cast<double>(count));
            f();
            break;
        }
        case VAR: {
            const char* name = op[k].v.s;
            if (name[0] == '$' && std::isdigit(uc(name[1])) && name[2] == 0) {
                pushNumber(name[1] - '0');
                pushNumber(1);
                ixFunction()();
            } else {
                pushValue(VAR, op[k].v);
            }
            break;
        }
        default: {
            char b[16];
            exprMessage(SEV_ERROR, "unknown opcode (%s) %d", typeName(op[k].code, b), op[k].code);
            break;
        }
        }
    }
    if (exprStack.empty()) return HUGE_VAL;
    return popNumber();
}

void codeText(const Parser& parser)
{
    for (const Operation& o : parser.program) {
        switch (o.code) {
        case STR:
            Prot::raw(" '%s'", o.v.s);
            break;
        case NUM:
            Prot::raw(" %g", o.v.d);
            break;
        case PARAMS:
            Prot::raw(" [%d]", static_cast<int>(o.v.i));
            break;
        case ID:
            Prot::raw(" %d", *o.v.ip);
            break;
        case FUNCT:
            Prot::raw(" %s", functionName(o.v.f));
            break;
        case ARR1:
        case ARR2:
        case ARR3:
        case ARR4:
        case ARR5: {
            const char* name = nullptr;
            variables().forEach([&](const std::string& n, const Variable& v) {
                if (!name && v.type == o.code && v.v.p == o.v.p) name = n.c_str();
            });
            char b[16];
            Prot::raw(" %s", name ? name : typeName(o.code, b));
            break;
        }
        case VAR:
            Prot::raw(" %s", o.v.s);
            break;
        default:
            Prot::raw(" %c", static_cast<char>(o.code));
            break;
        }
    }
}

namespace {
// statements that run statements (eval, eval_file, a variable that evaluates itself) nest at
// most this deep: a text that evaluates itself ends in an error, not in a stack overflow
constexpr int maxStatementNesting = 64;
int statementNesting = 0;
} // namespace

void runStatements(Parser& parser, const char* text, bool keepResults)
{
    if (statementNesting >= maxStatementNesting) {
        std::string shown(text ? text : "");
        if (shown.size() > 60) shown = shown.substr(0, 60) + "...";
        exprMessage(SEV_ERROR, "eval: statements nested deeper than %d (a text that evaluates itself?): %s",
                    maxStatementNesting, shown.c_str());
        return;
    }
    struct Nesting {
        Nesting() { ++statementNesting; }
        ~Nesting() { --statementNesting; }
    } nesting;
    std::string copy(text ? text : "");
    CellContext outer = cellContext;
    std::vector<Operation> saved;
    saved.swap(parser.program);
    struct Restore {
        Parser& parser;
        std::vector<Operation>& saved;
        CellContext context;
        ~Restore()
        {
            parser.program.swap(saved);
            cellContext = context;
        }
    } restore{parser, saved, outer};

    const char* p = copy.c_str();
    while (*p) {
        const char* rest = parser.parse(p);
        double r = evaluate(parser, nullptr, 0, 0);
        if (keepResults) pushNumber(r);
        if (traceLevel >= 2) {
            Prot::raw("&gt;     ");
            codeText(parser);
            Prot::raw("\n");
        }
        if (rest <= p) break;
        p = rest;
    }
}

bool runOptionText(const std::string& text)
{
    bool ok = true;
    std::string copy = text;
    FILE* file = copy.empty() ? nullptr : fmemopen(copy.data(), copy.size(), "r");
    char separator[2] = {si::separator, 0};
    {
        CsvReader reader(file, separator);
        Parser parser(&reader);
        const char* p = copy.c_str();
        try {
            while (*p) {
                const char* rest = parser.parse(p);
                evaluate(parser, nullptr, 0, 0);
                if (rest <= p) break;
                p = rest;
            }
        } catch (const std::exception&) {
            // the message is out; the loop ends and the caller learns of it
            ok = false;
        }
    }
    if (file) fclose(file);
    os::setParallel(true);
    return ok;
}
