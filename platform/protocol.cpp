#include "platform/protocol.h"
#include "platform/progress_line.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"

namespace {

FILE* g_prot = nullptr;
FILE* g_inp = nullptr;
FILE* g_out = nullptr;
std::string g_directory, g_variant, g_language = "de";
int g_level = 1;
int g_logfile = 1;
bool g_flush = false;
int g_anchor = 0;
std::vector<std::string> g_toc;
int g_counters[4] = {0, 0, 0, 0};
int g_firstAnchor[4] = {0, 0, 0, 0};
std::vector<std::string> g_outputNames;
// the reads of inp.htm, kept until the page is closed so that it opens with one row per table
struct InputRead {
    std::string section, shown, target, line;
};
std::vector<InputRead> g_inputReads;
std::string g_inputSection;
bool g_throw = true;
unsigned g_codePage = 0;
int g_checkE = -1;

const char* const g_severityNames[4] = {"none", "hint", "warning", "error"};

const char* const g_tableStyle =
    "<style>\nh1, h3 {\n    color: #B82619;\n    background-color: #EAE2BB;\n}\ncaption {\n    background: "
    "#E0E0F0;\n    text-align: left;\n    padding: 5px 7px 5px 7px;\n}\ntd {\n    color: #2F2F2F;\n    "
    "background: #E7E7F7;\n    padding: 1px 7px 1px 7px;\n}\nth {\n    font-weight: normal;\n    color: "
    "#3F2F2F;\n    background: #D7E7F7;\n    text-align: right;\n    padding: 1px 7px 1px 7px;\n}\n.l { "
    "text-align: left; }\n.r { text-align: right; }\n.tooltip { color: blue; }\n</style>\n";

// every text of the protocol goes through here; a failed write ends the process
void put(const char* text)
{
    if (!g_prot) return;
    if (fputs(text, g_prot) < 0 || ferror(g_prot)) {
        // the page's path and the cause, as for every output; the results written so far stay
        int err = errno ? errno : EIO;
        if (safeOutput::owns(g_prot)) safeOutput::fatal(g_prot, err);
        os::messageBox("Fatal output error in csv", "%s: %s", "prot/index.html", std::strerror(err));
        std::exit(1);
    }
    if (g_flush) fflush(g_prot);
}

std::string expandFormat(const char* format, va_list ap, size_t expandSize = 1024, size_t formatSize = 1024)
{
    std::vector<char> expanded(expandSize), formatted(formatSize);
    DD::expKey(expanded.data(), expandSize, DD::literal(format));
    vsnprintf(formatted.data(), formatSize, expanded.data(), ap);
    return formatted.data();
}

void pageHead(FILE* f, const std::string& title)
{
    fprintf(f, "<!DOCTYPE html>\n<html lang=%s>\n<head>\n<meta charset=utf-8>\n", g_language.c_str());
    fprintf(f, "<title>%s</title>\n", title.c_str());
}

void navigation(FILE* f)
{
    fprintf(f, "<a href=\"index.html\">%s</a><br>\n<a href=\"inp.htm\">%s</a><br>\n<a href=\"out.htm\">%s</a><br>\n<hr>\n",
            DD::lookup("protocol").c_str(), DD::lookup("inputFiles").c_str(), DD::lookup("outputFiles").c_str());
}

// the console's code page: 65001 for a UTF-8 terminal, else plain ASCII
unsigned consoleCodePage()
{
    for (const char* var : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* v = std::getenv(var);
        if (v && *v) {
            std::string s = v;
            for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
            return s.find("utf-8") != std::string::npos || s.find("utf8") != std::string::npos ? 65001 : 20127;
        }
    }
    return 20127;
}

// prot.tmp keeps the lines of earlier runs for the front end, but not without end: past
// kConsoleFileLimit bytes only the newest half of that, from a line start, stays
constexpr uint64_t kConsoleFileLimit = 1 << 20;

void trimConsoleFile(const std::string& path)
{
    if (os::fileSize(path) <= kConsoleFileLimit) return;
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return;
    std::string data;
    if (fseeko(f, -static_cast<off_t>(kConsoleFileLimit / 2), SEEK_END) == 0) {
        char buffer[65536];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) data.append(buffer, n);
    }
    fclose(f);
    size_t start = data.find('\n');
    data.erase(0, start == std::string::npos ? data.size() : start + 1);
    safeOutput::writeFile(path, data);
}

} // namespace

void Prot::setup(const std::string& directory, const std::string& variant, int level, int logfile, bool create)
{
    g_directory = directory;
    g_variant = variant;
    g_level = level;
    g_logfile = logfile;
    std::string dir = directory + variant;
    if (create && !dir.empty() && !os::isDirectory(dir)) mkdir(dir.c_str(), 0777);
    if (create) trimConsoleFile(dir + "/prot.tmp");
}

void Prot::setLanguage(const std::string& language) { g_language = language; }

int Prot::open(const std::string& path, const std::string& stylePath)
{
    // the page is written beside its place and put there when it is closed (or the run ends)
    FILE* f = safeOutput::open(path, false, true);
    if (!f) return errno ? errno : EIO;
    g_prot = f;
    if (!DD::language().empty()) g_language = DD::language();
    pageHead(f, DD::lookup("protocol"));
    fputs("<style>\n", f);
    if (FILE* s = fopen(stylePath.c_str(), "r")) {
        char line[1024];
        while (fgets(line, sizeof line, s)) fputs(line, f);
        fclose(s);
    }
    fprintf(f, "body { padding-left: 125px; margin: 4px; }\n#toc {\nposition: absolute; position: fixed;\ntop: 0px; "
               "left: 0px;\nwidth: 123px; height: 100%%;\noverflow-y: scroll;\npadding-left: 4px;\nbackground: "
               "#D7E7F7;\n}\n</style>\n</head>\n<body>\n<div id=doc>\n");
    return 0;
}

void Prot::openFilePages()
{
    g_anchor = 0;
    g_outputNames.clear();
    g_inputReads.clear();
    g_inputSection.clear();
    auto page = [](const char* name, const char* key) -> FILE* {
        FILE* f = safeOutput::open(filePath(name), false, true);
        if (!f) return nullptr;
        std::string title = DD::lookup(key);
        pageHead(f, title);
        fputs("<style>\nbody     { background: #D7E7F7; }\n.hint    { background: #99FF99; }\n.warning { background: "
              "yellow;  }\n.error   { background: #FF5555; }\n</style>\n",
              f);
        fputs("</head>\n<body>\n", f);
        navigation(f);
        fprintf(f, "%s<br>\n", title.c_str());
        return f;
    };
    g_inp = page("inp.htm", "inputFiles");
    g_out = page("out.htm", "outputFiles");
}

void Prot::write(int level, const char* format, ...)
{
    if (level > g_level) return;
    va_list ap;
    va_start(ap, format);
    std::string text = expandFormat(format, ap);
    va_end(ap);
    put(text.c_str());
    if (level == 0) console(SEV_NONE, true, "%s", text.c_str());
}

void Prot::writeln(int level, const char* format, ...)
{
    if (level > g_level) return;
    va_list ap;
    va_start(ap, format);
    std::string text = expandFormat(format, ap);
    va_end(ap);
    put(text.c_str());
    put("<br>\n");
    if (level == 0) console(SEV_NONE, true, "%s", text.c_str());
}

void Prot::raw(const char* format, ...)
{
    if (!g_prot) return;
    char buffer[4096];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buffer, sizeof buffer, format, ap);
    va_end(ap);
    if (n >= int(sizeof buffer)) {
        // long rows (tables, trace lines) are written whole
        std::vector<char> big(size_t(n) + 1);
        va_start(ap, format);
        vsnprintf(big.data(), big.size(), format, ap);
        va_end(ap);
        put(big.data());
        return;
    }
    put(buffer);
}

void Prot::br() { put("<br>\n"); }

void Prot::heading(int level, const char* label, const char* format, ...)
{
    if (g_level == 0) return;
    int h = level;
    if (g_level == 1) {
        if (level > 2) return;
        h = level + 2;
    }
    if (label) {
        char expanded[128];
        DD::expKey(expanded, sizeof expanded, label);
        ++g_anchor;
        char entry[256];
        snprintf(entry, sizeof entry, "<a href=\"#%d\">%s</a><br>\n", g_anchor, expanded);
        g_toc.push_back(entry);
    } else {
        ++g_anchor;
    }
    va_list ap;
    va_start(ap, format);
    std::string text = expandFormat(format, ap);
    va_end(ap);
    char open[32];
    snprintf(open, sizeof open, "<h%d id=%d>", h, g_anchor);
    put(open);
    put(text.c_str());
    snprintf(open, sizeof open, "</h%d>\n", h);
    put(open);
}

namespace {

// Hints and warnings that repeat (the same text but for its numbers: a line number, a cell)
// are shown the first kShownAlike times; the rest are counted and summed up in one line when
// the protocol is closed, so that the protocol grows with the distinct problems only.
constexpr int kShownAlike = 20;
struct Alike {
    int severity = 0;
    int seen = 0;
    std::string first;
};
std::map<std::string, Alike> g_alike;
std::vector<std::string> g_alikeOrder;

std::string alikeKey(int severity, const std::string& text)
{
    std::string key(1, char('0' + severity));
    key.reserve(text.size() + 1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (std::isdigit(static_cast<unsigned char>(text[i]))) {
            key += '#';
            while (i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1]))) ++i;
        } else {
            key += text[i];
        }
    }
    return key;
}

// false when the message is one too many of its kind
bool shownAlike(int severity, const std::string& text)
{
    if (severity != SEV_HINT && severity != SEV_WARNING) return true;
    std::string key = alikeKey(severity, text);
    auto [it, fresh] = g_alike.try_emplace(key);
    if (fresh) {
        it->second.severity = severity;
        it->second.first = text;
        g_alikeOrder.push_back(key);
    }
    return ++it->second.seen <= kShownAlike;
}

} // namespace

void Prot::summariseAlike()
{
    for (const std::string& key : g_alikeOrder) {
        const Alike& a = g_alike[key];
        if (a.seen <= kShownAlike) continue;
        std::string text = a.first.size() > 300 ? a.first.substr(0, 300) + "..." : a.first;
        std::string more = DD::expKey("@prot_moreAlike;");
        if (g_prot)
            raw("<span class=%s>%d %s</span> %s<br>\n", g_severityNames[a.severity], a.seen - kShownAlike,
                more.c_str(), text.c_str());
        else
            console(a.severity, false, "%d %s %s", a.seen - kShownAlike, more.c_str(), text.c_str());
    }
    g_alike.clear();
    g_alikeOrder.clear();
}

void Prot::message(int severity, const char* format, ...)
{
    if (severity < 0 || severity > 3) severity = SEV_ERROR;
    va_list ap;
    va_start(ap, format);
    std::string text = expandFormat(format, ap, 1024, 1028);
    va_end(ap);
    if (!shownAlike(severity, text)) {
        ++g_counters[severity];
        return;
    }
    int n = ++g_counters[severity];
    const char* name = g_severityNames[severity];
    std::string word = DD::lookup(name);
    char label[80];
    snprintf(label, sizeof label, "<span class=%s>%s %d</span>", name, word.c_str(), n);
    int anchor = ++g_anchor;
    if (g_firstAnchor[severity] == 0) g_firstAnchor[severity] = anchor;
    char entry[160];
    snprintf(entry, sizeof entry, "<a href=\"#%d\">%s</a><br>\n", anchor, label);
    g_toc.push_back(entry);
    // before the protocol is open (a run without forecast) the console shows the message
    if (!g_prot && severity != SEV_ERROR) console(severity, false, "%s", text.c_str());
    if (severity == SEV_ERROR) br();
    raw("<span id=%d class=%s>%s %d: %s</span><br>\n", anchor, name, word.c_str(), n, text.c_str());
    if (severity != SEV_ERROR) return;
    console(SEV_ERROR, true, "%s", text.c_str());
    if (g_throw) throw std::runtime_error("");
}

// the text of a protocol message for the terminal: a line break for <br>, no other tag, the
// common entities as characters
std::string htmlText(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '&': out += "&amp;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string terminalText(const std::string& html)
{
    std::string out;
    out.reserve(html.size());
    for (size_t i = 0; i < html.size(); ++i) {
        char c = html[i];
        if (c == '<' && i + 1 < html.size() && (std::isalpha(static_cast<unsigned char>(html[i + 1])) || html[i + 1] == '/')) {
            size_t end = html.find('>', i);
            if (end == std::string::npos) {
                out += html.substr(i);
                break;
            }
            std::string tag = html.substr(i + 1, end - i - 1);
            for (char& t : tag) t = static_cast<char>(std::tolower(static_cast<unsigned char>(t)));
            if (tag == "br" || tag == "br/" || tag == "br /") out += '\n';
            i = end;
            continue;
        }
        if (c == '&') {
            static const std::pair<const char*, const char*> entities[] = {
                {"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}, {"&quot;", "\""}, {"&nbsp;", " "}, {"&rarr;", "->"}};
            bool done = false;
            for (const auto& [name, text] : entities)
                if (html.compare(i, std::strlen(name), name) == 0) {
                    out += text;
                    i += std::strlen(name) - 1;
                    done = true;
                    break;
                }
            if (done) continue;
        }
        out += c;
    }
    return out;
}

void Prot::console(int severity, bool withLog, const char* format, ...)
{
    char text[2048];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, DD::literal(format), ap);
    va_end(ap);
    static const char* const prefix[4] = {"", "!h", "!w", "!e"};
    if (severity < 0 || severity > 3) severity = SEV_ERROR;
    std::string tmp = g_directory + g_variant + "/prot.tmp";
    // a run without its variant directory has no prot.tmp to follow
    FILE* t = os::isDirectory(g_directory + g_variant) ? fopen(tmp.c_str(), "a") : nullptr;
    if (!t) {
        if (os::isDirectory(g_directory + g_variant)) perror(tmp.c_str());
    } else {
        fprintf(t, "%s%s\n", prefix[severity], text);
        if (withLog && g_logfile) {
            std::string dir = si::dataDirectory();
            if (!dir.empty()) {
                std::string log = dir + "/log.htm";
                uint64_t size = os::fileSize(log);
                if (FILE* l = fopen(log.c_str(), "a")) {
                    if (size == 0)
                        fputs("<!DOCTYPE html>\n<html lang=\"de\">\n<head><meta charset=\"utf-8\"></head>\n<body>\n<pre>", l);
                    fprintf(l, "%s\n", text);
                    fclose(l);
                } else {
                    char fail[2600];
                    snprintf(fail, sizeof fail, "open %s: %s\nprint %s\n", log.c_str(), std::strerror(errno), text);
                    fputs(fail, t);
                    fputs(fail, stdout);
                    if (g_prot) {
                        put("<pre>");
                        put(fail);
                        put("</pre>\n");
                    }
                    ++g_counters[SEV_WARNING];
                }
            }
        }
        fclose(t);
    }
    if (g_codePage == 0) {
        g_codePage = consoleCodePage();
        if (g_level >= 3 && g_codePage >= 2) printf("CP%u\n", g_codePage);
    }
    std::string shown = terminalText(text);
    // the progress line of a terminal stays below the console lines
    bool progressShown = progress::makeRoom();
    if (g_codePage == 65001) printf("%s\n", shown.c_str());
    else printf("%s\n", utf2ascii(shown).c_str());
    if (progressShown) progress::redraw();
    fflush(stdout);
}

void Prot::check(bool condition, const char* source, int line, const char* text)
{
    if (g_checkE < 0) g_checkE = int(opt::get("$CHECKE", 0));
    if (g_checkE > 0) writeln(1, "%s = CHECKE %s: %d: %s", "T", source, line, text);
    if (!condition) message(SEV_ERROR, "%s: %d: %s", source, line, text);
}

int Prot::count(int severity) { return severity >= 0 && severity <= 3 ? g_counters[severity] : 0; }

void Prot::reset()
{
    g_throw = true;
    for (int& c : g_counters) c = 0;
    for (int& a : g_firstAnchor) a = 0;
    g_alike.clear();
    g_alikeOrder.clear();
}

void Prot::setThrow(bool on) { g_throw = on; }
bool Prot::throwing() { return g_throw; }
void Prot::setFlush(bool on) { g_flush = on; }

void Prot::addInputFile(const std::string& name, const std::string& fullPath)
{
    if (!g_inp) return;
    std::string shown = lastComponent(name);
    std::string target = "../../" + shown;
    if (!fullPath.empty()) {
        // relative to the pages, so that the link holds wherever the study area is copied to
        namespace fs = std::filesystem;
        fs::path file = fs::absolute(fullPath).lexically_normal();
        target = file.lexically_relative(fs::absolute(filePath("")).lexically_normal()).generic_string();
        if (target.empty()) target = fileUrl(file.string());
    }
    char line[4096];
    snprintf(line, sizeof line, "<a href=\"%s\" target=_top>%s</a><br>\n", target.c_str(), shown.c_str());
    g_inputReads.push_back({g_inputSection, shown, target, line});
}

void Prot::inputSection(const std::string& label) { g_inputSection = label; }

namespace {

// the readable name of an input table: the dictionary text of "inp_" and its name without the
// year and the extension (fruc2024.csv: inp_fruc), or nothing
std::string inputTableName(const std::string& shown)
{
    std::string stem = shown.substr(0, shown.rfind('.'));
    while (!stem.empty() && std::isdigit(static_cast<unsigned char>(stem.back()))) stem.pop_back();
    return DD::has("inp_" + stem) ? DD::lookup("inp_" + stem) : std::string();
}

// inp.htm: first one row per table read (its readable name, how often and in which parts of
// the run), then every read in the order of the run, grouped by those parts
void writeInputPage(FILE* f)
{
    fputs("<style>\nbody { font-family: \"DejaVu Sans\", Arial, sans-serif; font-size: 10pt; }\n"
          "table { border-collapse: collapse; background: #FFFFFF; }\n"
          "td, th { padding: 1px 8px; border-bottom: 1px solid #D7E7F7; text-align: left; }\n"
          "th { background: #E0E0F0; font-weight: normal; }\ndetails { margin: 2px 0; }\n"
          "summary { cursor: pointer; }\n</style>\n",
          f);
    std::vector<std::string> order;
    std::map<std::string, std::vector<const InputRead*>> byTarget;
    for (const InputRead& r : g_inputReads) {
        auto& reads = byTarget[r.target];
        if (reads.empty()) order.push_back(r.target);
        reads.push_back(&r);
    }
    fprintf(f, "<table>\n<tr><th>%s</th><th>%s</th><th>%s</th><th>%s</th></tr>\n", DD::lookup("inp_table").c_str(),
            DD::lookup("inp_meaning").c_str(), DD::lookup("inp_reads").c_str(), DD::lookup("inp_when").c_str());
    for (const std::string& target : order) {
        const auto& reads = byTarget[target];
        const std::string& first = reads.front()->section, &last = reads.back()->section;
        std::string when = first == last ? first : first + " &ndash; " + last;
        fprintf(f, "<tr><td><a href=\"%s\" target=_top>%s</a></td><td>%s</td><td>%zu</td><td>%s</td></tr>\n",
                target.c_str(), reads.front()->shown.c_str(), inputTableName(reads.front()->shown).c_str(), reads.size(),
                when.c_str());
    }
    fputs("</table>\n", f);
    fprintf(f, "<p>%s</p>\n", DD::lookup("inp_everyRead").c_str());
    for (size_t i = 0; i < g_inputReads.size();) {
        size_t j = i;
        while (j < g_inputReads.size() && g_inputReads[j].section == g_inputReads[i].section) ++j;
        fprintf(f, "<details><summary>%s (%zu)</summary>\n", g_inputReads[i].section.c_str(), j - i);
        for (; i < j; ++i) fputs(g_inputReads[i].line.c_str(), f);
        fputs("</details>\n", f);
    }
    g_inputReads.clear();
}

} // namespace

const std::vector<std::string>& Prot::outputFiles() { return g_outputNames; }

int Prot::firstAnchor(int severity) { return severity >= 0 && severity <= 3 ? g_firstAnchor[severity] : 0; }

void Prot::addOutputFile(const std::string& name)
{
    if (!g_out) return;
    if (std::find(g_outputNames.begin(), g_outputNames.end(), name) == g_outputNames.end()) g_outputNames.push_back(name);
    fprintf(g_out, "<a href=\"../%s\" target=_blank>%s</a><br>\n", name.c_str(), name.c_str());
}

bool Prot::level(int level) { return g_level >= level; }
int Prot::protocolLevel() { return g_level; }

std::string Prot::filePath(const std::string& name) { return g_directory + g_variant + "/prot/" + name; }

void Prot::close()
{
    if (g_inp) writeInputPage(g_inp);
    for (FILE** f : {&g_inp, &g_out}) {
        if (!*f) continue;
        fputs("</body>\n</html>\n", *f);
        safeOutput::close(*f);
        *f = nullptr;
    }
    summariseAlike();
    if (!g_prot) return;
    put("</div>\n");
    put("<div id=toc>\n");
    navigation(g_prot);
    for (const auto& e : g_toc) put(e.c_str());
    put("</div>\n");
    put("</body>\n</html>\n");
    FILE* page = g_prot;
    g_prot = nullptr;
    safeOutput::close(page);
    g_toc.clear();
}

FILE* Prot::stream() { return g_prot; }
const char* Prot::severityName(int severity) { return g_severityNames[severity & 3]; }
const char* Prot::tableStyle() { return g_tableStyle; }

// ---------------------------------------------------------------- trace

namespace {
struct Scope {
    std::string name;
    uint32_t start;
};
std::vector<Scope> g_scopes;
bool g_traceOn = false;

uint32_t clockMs()
{
    using namespace std::chrono;
    return uint32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void traceLine(const char* cls, const std::string& tail)
{
    std::string names;
    for (const auto& s : g_scopes) names += " " + s.name;
    names += tail;
    Prot::raw("<span class=%s>%s</span><br>\n", cls, names.c_str());
}
} // namespace

void Trace::start(const std::string& root)
{
    g_scopes.push_back({root, clockMs()});
    double v = opt::getTrace("$STACK", 0);
    g_traceOn = std::trunc(v) > 0;
}

void Trace::enter(const std::string& name)
{
    if (!g_traceOn) return;
    g_scopes.push_back({name, clockMs()});
    traceLine("tracePush", "");
}

void Trace::enterYear(int year) { enter("(" + std::to_string(year) + ")"); }

void Trace::leave()
{
    if (!g_traceOn || g_scopes.empty()) return;
    char tail[64];
    snprintf(tail, sizeof tail, " %gs", (clockMs() - g_scopes.back().start) / 1000.0);
    traceLine("tracePop", tail);
    g_scopes.pop_back();
}

void Trace::clear()
{
    g_scopes.clear();
    if (g_traceOn) traceLine("tracePop", "");
}

bool Trace::on() { return g_traceOn; }
