// The expression language of table cells: tokeniser, recursive-descent parser that emits a
// flat postfix program, and the stack machine that runs the program for one cell.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class CsvReader;

// token types and operation codes; below 256 the character itself
enum : uint16_t {
    STR = 256,  // a string constant
    NUM,        // a number constant
    ARR1,       // a variable holding an array of rank 1 .. 5
    ARR2,
    ARR3,
    ARR4,
    ARR5,
    ID,         // an integer held at a fixed place
    FUNCT,      // a built-in function
    PARAMS,     // operation only: the argument count that follows a call
    VAR,        // a $ name that has no value yet
    DONE        // end of the text
};

// a built-in: takes its arguments and their count from the stack
using Builtin = void (*)();

union Bits {
    double d;
    const char* s;
    void* p;
    const int* ip;
    long long i;
    Builtin f;
};

// the unit of a program: 16 bytes
struct Operation {
    uint16_t code;
    Bits v;
};

// an entry of the machine's stack
struct Value {
    uint16_t type;
    Bits v;
};

static_assert(sizeof(Operation) == 16, "an operation is 16 bytes");

// "\%d", the character, or the name of a named type
const char* typeName(int type, char* buffer);
std::string typeName(int type);

class Parser {
public:
    static constexpr int tokenSize = 128;

    explicit Parser(CsvReader* reader);
    // parses one expression from text; returns where the rest of the text begins
    const char* parse(const char* text);

    CsvReader* reader;
    const char* text = "";
    const char* pos = "";
    char token[tokenSize + 1] = {};
    double value = 0;
    uint16_t type = DONE;
    Bits ptr{};                       // function, integer place, array or name of the token
    std::vector<Operation> program;

    // the line number and the line of the table, for messages
    size_t lineNumber() const;
    std::string lineText() const;

private:
    int next();
    void accept(int expected);
    void expression();
    void term();
    bool tooDeep();
    void factor();
    int arguments();
    void emit(uint16_t code, Bits v);
    void emitNumber(double d);
};

// runs the program of parser for one cell; indices as written in the table, shift 1 when the
// table has a check column (then ix(1) is checkNumber)
double evaluate(Parser& parser, const long long* indices, int indexCount, int shift, int checkNumber = 0);

// the program in readable form, into the protocol
void codeText(const Parser& parser);

// runs text as a sequence of statements with no index context, as the command lines of a
// table do; with keepResults each statement's result is pushed as NUM
void runStatements(Parser& parser, const char* text, bool keepResults);

// feeds the text of the forecast command's option -o to the language: parse and evaluate until
// the text is used up; an exception only ends the loop. Sets the parallel flag afterwards.
// false when a statement failed (its message is out)
bool runOptionText(const std::string& text);

// ---- the machine's stack, process-wide ----
extern std::vector<Value> exprStack;

double pop();
Bits popAny(int type);
// takes the top entry whatever its type; false on an empty stack
bool popValue(Value& out);
inline void pushNumber(double d)
{
    Value v;
    v.type = NUM;
    v.v.d = d;
    exprStack.push_back(v);
}
inline void pushValue(int type, Bits bits)
{
    Value v;
    v.type = static_cast<uint16_t>(type);
    v.v = bits;
    exprStack.push_back(v);
}
// removes the n entries on top (fewer if the stack is shorter)
void dropValues(size_t n);
// the error of a wrong count; false when count lies outside min..max
bool checkArgs(const char* name, double min, double count, double max);

// the cell context of the last evaluate
struct CellContext {
    const long long* indices = nullptr;
    int indexCount = 0;
    int shift = 0;
    int checkNumber = 0;
};
extern CellContext cellContext;
// the parser whose program runs (for the messages of built-ins), may be null
extern Parser* currentParser;

// a message of the language: "%zu: %s: " with line number and line, then the format
void exprMessage(int severity, const char* format, ...) __attribute__((format(printf, 2, 3)));

// a copy of text that lives until the end of the table
const char* keepString(const std::string& text);

// ---- name tables ----
uint64_t fnv1a(const char* name, size_t length);
uint64_t fnv1a(const std::string& name);

// a variable made by let: type and value
struct Variable {
    uint16_t type;
    Bits v;
};
Variable* findVariable(const char* name);
void setVariable(const char* name, int type, Bits v);

// the read-only $ names the kernel publishes. An integer place is read when the cell is
// evaluated (ID); a reader function is called when the name is read from the text (NUM).
void publishVariable(const std::string& name, const int* place);
void publishVariable(const std::string& name, double (*reader)(const void* arg), const void* arg);
void withdrawVariable(const std::string& name);
void withdrawSystemVariables();
// a reader for all further read-only names at once, asked after the published ones when a name
// is read from the text; true with the value when it knows the name. nullptr withdraws it.
using VariableResolver = bool (*)(const char* name, double& value);
void setSystemVariableResolver(VariableResolver resolver);

// the table of built-ins: name to function (filled at first use)
Builtin findFunction(const char* name);
const char* functionName(Builtin f);
void registerFunction(const char* name, Builtin f);

// end of a table: variables made by let (and their arrays), kept strings and the stack go
void exprClearTable();
