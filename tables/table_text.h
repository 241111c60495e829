// Semicolon tables: writing comment lines, column names and cells, number formats,
// and reading a file cell by cell.
#pragma once
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tables/number_format.h"

// value formats by cell kind: 0 integer, 1 number (FMT_ANZAHL), 2 rate (FMT_RATE), 3 diff, 4 unknown
extern std::string LAFormats[5];
// fills the table: "%.0f", the two settings, "%.15g", "%.15g"; a setting that is no
// printf format of one floating point value is replaced by "%.15g"
void setLAFormats(const std::string& fmtAnzahl, const std::string& fmtRate);
// true when format holds exactly one conversion of a double (e, f, g, a, upper case too)
// and nothing else but literal text and "%%"
bool isDoubleFormat(const char* format);

// All writers take the open output stream first. A failed write ends the process with
// the box "Fatal output error in csv" and exit status 1.
// lines written (byte order mark, comment lines, column-name line)
int csvWriteHead(FILE* file, const char* tableName, const char* const* columnNames, const char* subtitle);
// lines written: 0 when comments are off, else 1 or 2
int csvWriteComment(FILE* file, const char* tableName, const char* subtitle);
// lines written: 0 or 1; names is a null-terminated list
int csvWriteColumnNames(FILE* file, const char* const* names);
// bytes written; format is a printf format of a double (an integer conversion is
// given the value truncated towards zero); infinite values are written as "undef"
int csvWriteCell(FILE* file, const char* format, double value, int last);
int csvWriteText(FILE* file, const char* text, int last);
int csvEndCell(FILE* file, int last);
// the one function every write of text goes through
void csvWrite(FILE* file, const char* data, size_t length);
std::string csvFormatDouble(double value, int formatIndex);

// The text csvFormatDouble gives by one format, with the format looked at once: for the cells
// of a whole table
class CellFormat {
public:
    explicit CellFormat(const std::string& format);
    // the text of value appended to out
    void append(std::string& out, double value) const;
    // the text of value into out, which holds NUMBER_TEXT_MAX bytes; its length. The decimal point
    // is the locale's when the format was made, which a table's print keeps.
    int put(char* out, double value) const;

private:
    enum { DOUBLE, INTEGER, OTHER } kind_;
    char point_ = localeDecimalPoint();
    NumberFormat number_;      // the format itself, or "%.15g" for what an integer format cannot show
    IntegerFormat integer_;
};
std::string intFormat(long long bound, const char* conversion);

// (buffer, size, value) -> length written, at most size-1, always terminated
using GcvtFn = std::function<int(char* buffer, size_t size, double value)>;
GcvtFn curried_gcvt(const std::string& formatText);

// The text of a result value by the float format of the settings, byte for byte as
// curried_gcvt(formatText) writes it. A finite value under a format that goes straight to the
// number formatter is formatted without the function object's call, which the writers of the
// yearly tables pay millions of times a run.
class ValueFormat {
public:
    // formatNumber's "%.15g" under the locale of the moment
    ValueFormat();
    explicit ValueFormat(const std::string& formatText);
    // the text into out, which holds NUMBER_TEXT_MAX bytes; its length, below NUMBER_TEXT_MAX.
    // The decimal point is the locale's when the format was made: a forecast's locale is set
    // from the settings before, and stays.
    int put(char* out, double value) const {
        int n = direct_ && std::isfinite(value) ? number_.formatUnder(point_, out, value) : general(out, value);
        return n < 0 ? 0 : n >= static_cast<int>(NUMBER_TEXT_MAX) ? static_cast<int>(NUMBER_TEXT_MAX) - 1 : n;
    }

private:
    int general(char* out, double value) const;
    bool direct_ = true;
    char point_ = localeDecimalPoint();
    NumberFormat number_;
    GcvtFn curried_;   // empty: formatNumber with "%.15g"
};

class CsvReader {
public:
    CsvReader(FILE* file, const char* separatorText);
    // the next cell into buffer; the character that ended it, or a negative status:
    // -1 end of file, -2 invalid character after a quoted text, -3 unfinished string,
    // -4 buffer overflow, -5 a NUL byte in the cell
    int next(char* buffer, int size);
    // A whole line of plain cells at once, when it stands complete in the stream's buffer:
    // exactly cells cells of digits and points, the first a digit, ended by a line feed. The
    // cells go into buffer one behind the other, each ended by 0, their starts into starts; the
    // reader then stands as after next() gave the line's last cell. False, with nothing read,
    // for any other line (blanks, quotes, signs, letters, comments, carriage returns, other
    // counts of cells, a line longer than size or not yet in the buffer): next() reads it.
    bool plainLine(char* buffer, int size, int cells, char** starts);
    static std::string errorText(int status);
    std::string currentLine();
    uint64_t lineNumber() const { return dataLines + commentLines + emptyLines + 1; }

    FILE* file;
    int lastChar = 0;
    int separator;
    int quote = 34;
    uint64_t dataLines = 0, commentLines = 0, emptyLines = 0;
    int column = 0;
    int isComment = 0;
    int cellsRead = 0;
    int hadBom = 0;
    uint64_t nonInteger = 0;
    // 1 when the last cell read holds only ASCII bytes (so no check of its UTF-8 is needed)
    int ascii = 1;
    // the file ended inside a line (no line feed after its last cell): perhaps cut
    int unendedLastLine = 0;

private:
    int scan(char* buffer, int size);
    // the character at fault of the last status -2, for errorText
    static int badChar;
};

bool needsQuotes(const std::string& text);
std::string quoteCell(const std::string& text);
std::string joinCells(const std::vector<std::string>& sorted);
