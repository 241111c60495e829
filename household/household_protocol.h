// The household tool's own protocol: index.html with the contents frame p/toc.htm, numbered
// headings, numbered warnings and hints with a limit by protocol volume, sub-pages for long
// tables and plots, and the log file.
#pragma once
#include <cstdio>
#include <string>

namespace hhprot {

// the limit of shown messages for a protocol volume (volumes above 3 count as 3)
void setVolume(int volume);
unsigned long limit();

// opens index.html and p/toc.htm in directory (ends with "/"); false with errno set
bool open(const std::string& directory);
bool isOpen();
FILE* page();
const std::string& directory();

// "<h%d id=%d>label text</h%d>"; the text is the dictionary entry "hh_h" + label
void heading(int level, const char* label);
void warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void hint(const char* format, ...) __attribute__((format(printf, 1, 2)));
unsigned long warnings();
unsigned long hints();
// the end of a run by a failure: the text under the title, whatever the limit
void failure(const char* title, const std::string& text);

// a sub-page p/%06d.htm for a long table, ten anchors to a file: writes the link into the
// page and the caption into the sub-page, and returns the sub-page's stream
FILE* subPage(const char* caption, const char* linkText);
// the path of the next plot p/%06d.png; its image tag goes into the page
std::string nextPlot();
// after gnuplot has run: a warning for each plot of the run that is not a whole picture
void checkPlots();

// the log file log.htm of the user directory, when [TRACE] logfile is on
void log(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A page of the protocol beside index.html (a sub-page, a page of a region and year): written
// to a temporary beside it and renamed into place when closed. closePage writes the page end,
// and a failure to put a page into place is said in the protocol (while index.html is open)
// and on the console; f is nullptr afterwards.
FILE* openPage(const std::string& path);
void closePage(FILE*& f);

// the suppressed warnings, the counts and the run time, then the page end
void close(double seconds);
// the page end alone (after a failure)
void end();
// false when a page of the protocol could not be written whole (the run then ends with status 1)
bool pagesWritten();
void reset();

} // namespace hhprot
