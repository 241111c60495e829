#include "household/household_protocol.h"

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/text_format.h"
#include "tables/gnuplot_bridge.h"

namespace hhprot {

namespace {
struct State {
    std::string dir;
    FILE* index = nullptr;
    FILE* toc = nullptr;
    FILE* sub = nullptr;
    int volume = 1;
    unsigned long warningCount = 0, hintCount = 0;
    unsigned long firstSuppressed = 0, lastSuppressed = 0;
    int anchor = 0;                 // running number of headings and messages
    int subFile = 0, subAnchor = 10; // sub-page file counter and anchor counter within it
    int plotFile = 0;
    std::vector<std::string> plots;   // the pictures asked of gnuplot, to be checked when it has run
    int logOn = -1;
    bool pageFailed = false;          // a page that could not be put into place
};
State s;

const unsigned long limits[] = {1, 1000, 10000, 100000};

const char* pageHead = "<!DOCTYPE html>\n<html lang=\"de\">\n<head>\n<meta charset=\"utf-8\">\n";

void numbered(const char* className, unsigned long& counter, const std::string& text)
{
    unsigned long number = ++counter;
    std::string title = DD::lookup(className);
    if (!s.index) {
        fprintf(stderr, "%s %lu: %s\n", "HHPROG", number, text.c_str());
        return;
    }
    if (number >= limit()) {
        if (counter == number && className == std::string("warning")) {
            if (!s.firstSuppressed) s.firstSuppressed = number;
            s.lastSuppressed = number;
        }
        return;
    }
    int id = ++s.anchor;
    fprintf(s.index, "<span id=%d class=%s>%s %lu: %s</span><br>", id, className, title.c_str(), number, text.c_str());
    fputc('\n', s.index);
    if (s.toc)
        fprintf(s.toc, "<a href=\"../index.html#%d\" target=_top><span class=%s>%s %lu</span></a><br>\n", id, className,
                title.c_str(), number);
}
} // namespace

void setVolume(int volume) { s.volume = volume < 0 ? 0 : volume > 3 ? 3 : volume; }
unsigned long limit() { return limits[s.volume]; }
bool isOpen() { return s.index != nullptr; }
FILE* page() { return s.index; }
const std::string& directory() { return s.dir; }
unsigned long warnings() { return s.warningCount; }
unsigned long hints() { return s.hintCount; }

void reset()
{
    int volume = s.volume;
    s = State();
    s.volume = volume;
}

bool open(const std::string& dir)
{
    s.dir = dir;
    std::error_code ec;
    std::filesystem::create_directories(dir + "p", ec);
    s.index = openPage(dir + "index.html");
    if (!s.index) return false;
    s.toc = openPage(dir + "p/toc.htm");
    fprintf(s.index,
            "%s<title>Protokoll HHProg %s</title>\n<link rel=stylesheet href=\"p/style.css\">\n"
            "<style>\n#toc { position: fixed; left: 0; top: 0; width: 120px; height: 100%%; border: 0; background: #D7E7F7; }\n"
            "#main { margin-left: 130px; }\n</style>\n</head>\n<body>\n"
            "<iframe id=toc src=\"p/toc.htm\" title=\"Inhaltsverzeichnis\"></iframe>\n<div id=main>\n",
            pageHead, dir.c_str());
    if (s.toc)
        fprintf(s.toc, "%s<title>Inhaltsverzeichnis</title>\n</head>\n<body style=\"background: #D7E7F7\">\n", pageHead);
    return true;
}

void heading(int level, const char* label)
{
    int id = ++s.anchor;
    std::string key = label;
    key = key.substr(0, key.find_first_of(" )"));
    for (char& c : key)
        if (c == '.') c = '_';
    std::string text = DD::lookup("hh_h" + key, "");
    if (s.index) fprintf(s.index, "<h%d id=%d>%s %s</h%d>\n", level, id, label, text.c_str(), level);
    if (s.toc) fprintf(s.toc, "<a href=\"../index.html#%d\" target=_top>%s %s</a><br>\n", id, label, text.c_str());
    if (level < 3) {
        printf("%s %s\n", label, text.c_str());
        if (FILE* tmp = fopen((s.dir + "prot.tmp").c_str(), "ab")) {
            fprintf(tmp, "%s %s\n", label, text.c_str());
            fclose(tmp);
        }
        log("%s %s\n", label, text.c_str());
    }
}

void warning(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    numbered("warning", s.warningCount, text);
}

void hint(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    numbered("hint", s.hintCount, text);
}

void failure(const char* title, const std::string& text)
{
    unsigned long number = ++s.warningCount;
    if (!s.index) {
        fprintf(stderr, "%s: %s\n", "HHPROG", text.c_str());
        return;
    }
    int id = ++s.anchor;
    fprintf(s.index, "<span id=%d class=%s>%s %lu: %s</span><br>\n", id, "warning", title, number, text.c_str());
    if (s.toc)
        fprintf(s.toc, "<a href=\"../index.html#%d\" target=_top><span class=%s>%s %lu</span></a><br>\n", id, "warning",
                title, number);
    fprintf(stderr, "%s: %s\n", "HHPROG", text.c_str());
}

FILE* subPage(const char* caption, const char* linkText)
{
    if (!s.index) return nullptr;
    if (s.subAnchor >= 9 || !s.sub) {
        closePage(s.sub);
        ++s.subFile;
        s.subAnchor = -1;
        char name[32];
        snprintf(name, sizeof name, "p/%06d.htm", s.subFile);
        s.sub = openPage(s.dir + name);
        if (!s.sub) return nullptr;
        fprintf(s.sub, "%s<link rel=stylesheet href=\"style.css\">\n</head>\n<body>\n", pageHead);
    } else {
        fputs("<hr>\n", s.sub);
    }
    ++s.subAnchor;
    std::string text = DD::lookup(std::string("hh_") + caption, caption);
    fprintf(s.index, "%s <a href=\"%s%06d.htm#%02d\" target=_blank>%s</a>", text.c_str(), "p/", s.subFile, s.subAnchor,
            linkText);
    fputs("<br>\n", s.index);
    fprintf(s.sub, "<p class=cap id=%02d>%s %s</p>\n", s.subAnchor, text.c_str(), linkText);
    return s.sub;
}

std::string nextPlot()
{
    ++s.plotFile;
    char name[64];
    snprintf(name, sizeof name, "p/%06d.png", s.plotFile);
    if (s.index) fprintf(s.index, "<img src=\"p/%06d.png\" alt=\"%06d.png\">\n", s.plotFile, s.plotFile);
    s.plots.push_back(s.dir + name);
    return s.dir + name;
}

void checkPlots()
{
    for (const std::string& path : s.plots)
        if (!plotPictureComplete(path))
            warning("%s: gnuplot hat die Grafik nicht fertig gezeichnet (%lld Bytes)", path.c_str(),
                    static_cast<long long>(os::fileSize(path)));
    s.plots.clear();
}

void log(const char* format, ...)
{
    if (s.logOn < 0) s.logOn = si::getInt("TRACE", "logfile", 0);
    if (!s.logOn) return;
    std::string path = si::dataDirectory() + "/log.htm";
    FILE* f = fopen(path.c_str(), "ab");
    if (!f) return;
    if (ftell(f) == 0) fputs("<!DOCTYPE html>\n<html lang=\"de\">\n<head><meta charset=\"utf-8\"></head>\n<body><pre>", f);
    va_list args;
    va_start(args, format);
    vfprintf(f, format, args);
    va_end(args);
    fclose(f);
}

namespace {
// a page that could not be opened or put into place: in the protocol while its index is open,
// else on the console
void pageFailure(const std::string& path, int err)
{
    s.pageFailed = true;
    if (s.index)
        failure("Fehlerabbruch", path + ": " + os::errorText(err));
    else
        fprintf(stderr, "%s: %s: %s\n", "HHPROG", path.c_str(), os::errorText(err).c_str());
}
} // namespace

FILE* openPage(const std::string& path)
{
    FILE* f = safeOutput::open(path, false, true);
    if (!f) {
        int err = errno;
        pageFailure(path, err);
        errno = err;
    }
    return f;
}

void closePage(FILE*& f)
{
    if (!f) return;
    FILE* page = f;
    f = nullptr;
    // the page that is closed takes no more lines of the contents or the messages
    if (page == s.toc) s.toc = nullptr;
    if (page == s.index) s.index = nullptr;
    if (page == s.sub) s.sub = nullptr;
    fputs("</body>\n</html>\n", page);
    std::string path = safeOutput::target(page);
    int err = safeOutput::owns(page) ? safeOutput::commit(page) : (std::fclose(page) != 0 ? errno : 0);
    if (err != 0) pageFailure(path, err);
}

void end()
{
    closePage(s.sub);
    closePage(s.toc);
    if (s.index) fputs("</div>\n", s.index);
    closePage(s.index);
}

bool pagesWritten() { return !s.pageFailed; }

void close(double seconds)
{
    if (s.index) {
        if (s.firstSuppressed)
            fprintf(s.index, "<span class=warning>Achtung: Ausgabe Warnung %lu bis %lu wurde unterdr&uuml;ckt</span><br >\n",
                    s.firstSuppressed, s.lastSuppressed);
        fprintf(s.index, "%lu %s, %.3fs %s<br>", s.warningCount, DD::lookup("warnings").c_str(), seconds,
                DD::lookup("hh_runtime").c_str());
        fputc('\n', s.index);
    }
    end();
}

} // namespace hhprot
