// The protocol: prot/index.html with its table of contents, inp.htm and out.htm,
// numbered messages counted by severity, the console sink prot.tmp and the log file.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

enum Severity { SEV_NONE = 0, SEV_HINT = 1, SEV_WARNING = 2, SEV_ERROR = 3 };

class Prot {
public:
    // create: make <Directory><Version> when it is missing
    static void setup(const std::string& directory, const std::string& variant, int level, int logfile,
                      bool create = true);
    // 0, or the errno of the failed open
    static int open(const std::string& path, const std::string& stylePath);
    static void openFilePages();

    static void write(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
    static void writeln(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
    static void raw(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void br();
    // label may be nullptr
    static void heading(int level, const char* label, const char* format, ...) __attribute__((format(printf, 3, 4)));
    static void message(int severity, const char* format, ...) __attribute__((format(printf, 2, 3)));
    static void console(int severity, bool withLog, const char* format, ...) __attribute__((format(printf, 3, 4)));
    static void check(bool condition, const char* source, int line, const char* text);

    static int count(int severity);
    static void reset();
    // the one line per kind of repeated hint or warning that was not shown each time
    static void summariseAlike();
    static void setThrow(bool on);
    static bool throwing();
    static void setFlush(bool on);
    static void addInputFile(const std::string& name, const std::string& fullPath);
    // the part of the run whose reads follow in inp.htm (a year), shown as a group there
    static void inputSection(const std::string& label);
    static void addOutputFile(const std::string& name);
    // the names given to addOutputFile since the file pages were opened, each once, in order
    static const std::vector<std::string>& outputFiles();
    // the anchor in index.html of the first message of a severity shown in this run; 0 for none
    static int firstAnchor(int severity);
    static bool level(int level);
    static int protocolLevel();
    static std::string filePath(const std::string& name);
    static void close();
    static FILE* stream();
    static const char* severityName(int severity);
    // second page style, used by the array tables
    static const char* tableStyle();
    // the language attribute of the pages
    static void setLanguage(const std::string& language);
};

// a protocol text as the terminal shows it: <br> a line break, other tags dropped, entities decoded
std::string terminalText(const std::string& html);
// a text of the user's data or the dictionary as HTML: <, >, & and " as their entities
std::string htmlText(const std::string& text);

// the assertion of the system: the literal condition text goes into the message
#define VCHECK(cond, source) Prot::check((cond), (source), __LINE__, #cond)

// Trace scopes under the named option $STACK
class Trace {
public:
    static void start(const std::string& root);
    static void enter(const std::string& name);
    static void enterYear(int year);
    static void leave();
    static void clear();
    static bool on();
};
