// Semicolon tables: the writer of comment lines, column names and cells, the number
// formats, and the cell-wise reader with quoting, comment detection and line counting.
#include "tables/table_text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/write_behind.h"
#include "tables/number_format.h"

namespace {

const char kComment = '#';
const char kBom[3] = {'\xEF', '\xBB', '\xBF'};

// the umlaut table, for dictionary texts going into comment and column-name lines
std::string plainText(const std::string& text)
{
    return si::csvAscii == 0 ? utf2ascii(text) : text;
}

enum class FormatKind { Invalid, Double, Integer };

// Looks at a printf format: exactly one conversion, literal text and "%%" besides.
// For an integer conversion, llFormat (when given) receives the same format with the
// length modifier "ll", so that it can be given a long long.
FormatKind formatKind(const char* format, std::string* llFormat = nullptr)
{
    if (!format) return FormatKind::Invalid;
    FormatKind kind = FormatKind::Invalid;
    const char* lengthStart = nullptr;   // of the one conversion
    const char* conversion = nullptr;
    for (const char* p = format; *p;) {
        if (*p != '%') {
            ++p;
            continue;
        }
        if (p[1] == '%') {
            p += 2;
            continue;
        }
        if (kind != FormatKind::Invalid) return FormatKind::Invalid;   // a second conversion
        ++p;
        while (*p && std::strchr("-+ #0'", *p)) ++p;
        while (*p >= '0' && *p <= '9') ++p;
        if (*p == '.') {
            ++p;
            while (*p >= '0' && *p <= '9') ++p;
        }
        const char* length = p;
        while (*p && std::strchr("hlLqjzt", *p)) ++p;
        char conv = *p;
        if (!conv) return FormatKind::Invalid;
        if (std::strchr("eEfFgGaA", conv)) {
            if (p != length && !(p == length + 1 && *length == 'l')) return FormatKind::Invalid;
            kind = FormatKind::Double;
        } else if (std::strchr("diouxX", conv)) {
            kind = FormatKind::Integer;
            lengthStart = length;
            conversion = p;
        } else {
            return FormatKind::Invalid;
        }
        ++p;
    }
    if (kind == FormatKind::Integer && llFormat)
        *llFormat = std::string(format, lengthStart) + "ll" + std::string(conversion);
    return kind;
}

// the value of an integer conversion: truncated towards zero, false when it does not fit
bool integerValue(double value, long long& result)
{
    if (!(std::fabs(value) < 9.2e18)) return false;
    result = static_cast<long long>(value);
    return true;
}

// a cell's text by a printf format of a double, or of an integer; undef for infinity
int formatCell(char* buffer, size_t size, const char* format, double value)
{
    if (std::isinf(value)) return std::snprintf(buffer, size, "undef");
    std::string ll;
    long long n;
    switch (formatKind(format, &ll)) {
    case FormatKind::Double:
        return formatNumber(buffer, size, format, value);
    case FormatKind::Integer:
        if (integerValue(value, n)) {
            char text[NUMBER_TEXT_MAX];
            int length = IntegerFormat(ll).format(text, n);
            if (size > 0) {
                size_t copied = std::min(static_cast<size_t>(length), size - 1);
                std::memcpy(buffer, text, copied);
                buffer[copied] = 0;
            }
            return length;
        }
        break;
    case FormatKind::Invalid:
        break;
    }
    return formatNumber(buffer, size, "%.15g", value);
}

// snprintf's would-be length cut to what the buffer holds
int written(int length, size_t size)
{
    if (length < 0 || size == 0) return 0;
    return static_cast<size_t>(length) >= size ? static_cast<int>(size - 1) : length;
}

bool isWhite(int c) { return c == ' ' || c == '\t' || c == '\f' || c == '\v'; }

} // namespace

std::string LAFormats[5] = {"%.0f", "%.15g", "%.15g", "%.15g", "%.15g"};

bool isDoubleFormat(const char* format)
{
    return formatKind(format) == FormatKind::Double;
}

void setLAFormats(const std::string& fmtAnzahl, const std::string& fmtRate)
{
    LAFormats[0] = "%.0f";
    LAFormats[1] = isDoubleFormat(fmtAnzahl.c_str()) ? fmtAnzahl : "%.15g";
    LAFormats[2] = isDoubleFormat(fmtRate.c_str()) ? fmtRate : "%.15g";
    LAFormats[3] = "%.15g";
    LAFormats[4] = "%.15g";
}

// ---------------------------------------------------------------------------------
// writing

void csvWrite(FILE* file, const char* data, size_t length)
{
    if (length == 0) return;
    errno = 0;
#ifdef __GLIBC__
    size_t done = file ? fwrite_unlocked(data, 1, length, file) : 0;
#else
    size_t done = file ? std::fwrite(data, 1, length, file) : 0;
#endif
    if (done == length && !ferror(file)) {
        writeBehind::wrote(fileno(file), length);
        return;
    }
    int err = errno ? errno : (file ? EIO : EBADF);
    safeOutput::fatal(file, err);
}

static void csvWrite(FILE* file, const std::string& text)
{
    csvWrite(file, text.data(), text.size());
}

int csvWriteComment(FILE* file, const char* tableName, const char* subtitle)
{
    if (si::kommentar == 0) return 0;
    int lines = 0;
    std::string comment(1, kComment);
    if (subtitle) {
        csvWrite(file, comment + plainText(subtitle) + "\n");
        ++lines;
    }
    std::string line = comment + "VELDOR " + DD::expKey(std::string(tableName ? tableName : "")) + " " +
                       si::release + ": " + os::dateTime() + "\n";
    csvWrite(file, plainText(line));
    return lines + 1;
}

int csvWriteColumnNames(FILE* file, const char* const* names)
{
    if (si::spaltenname == 0 || !names || !names[0]) return 0;
    std::string line;
    for (int i = 0; names[i]; ++i) {
        char buffer[255];
        std::string name;
        if (si::spaltenname <= 2) {
            DD::expKey(buffer, sizeof buffer, names[i]);
            name = plainText(buffer);
        } else {
            // the key with the ";" of its "@key;" cut off
            std::snprintf(buffer, sizeof buffer, "%s", names[i]);
            size_t n = std::strlen(buffer);
            if (n > 0) buffer[n - 1] = 0;
            name = buffer;
        }
        line += i == 0 ? kComment : si::separator;
        line += name;
    }
    line += '\n';
    csvWrite(file, line);
    return 1;
}

int csvWriteHead(FILE* file, const char* tableName, const char* const* columnNames, const char* subtitle)
{
    if (si::csvBom) csvWrite(file, kBom, sizeof kBom);
    int lines = csvWriteComment(file, tableName, subtitle);
    return lines + csvWriteColumnNames(file, columnNames);
}

int csvWriteCell(FILE* file, const char* format, double value, int last)
{
    char buffer[512];
    int n = written(formatCell(buffer, sizeof buffer - 1, format, value), sizeof buffer - 1);
    buffer[n++] = last ? '\n' : si::separator;
    csvWrite(file, buffer, n);
    return n;
}

int csvWriteText(FILE* file, const char* text, int last)
{
    size_t length = text ? std::strlen(text) : 0;
    char buffer[512];
    if (length < sizeof buffer) {
        if (length) std::memcpy(buffer, text, length);
        buffer[length] = last ? '\n' : si::separator;
        csvWrite(file, buffer, length + 1);
    } else {
        std::string cell(text, length);
        cell += last ? '\n' : si::separator;
        csvWrite(file, cell);
    }
    return static_cast<int>(length + 1);
}

int csvEndCell(FILE* file, int last)
{
    char c = last ? '\n' : si::separator;
    csvWrite(file, &c, 1);
    return 1;
}

std::string csvFormatDouble(double value, int formatIndex)
{
    if (std::isinf(value)) return "undef";
    if (formatIndex < 0) formatIndex = 2;
    if (formatIndex > 4) formatIndex = 4;
    char buffer[256];
    formatCell(buffer, sizeof buffer, LAFormats[formatIndex].c_str(), value);
    return buffer;
}

namespace {

// the longest text of a cell, as formatCell into a buffer of 256 bytes leaves it
constexpr int CELL_TEXT_MAX = 255;

IntegerFormat integerFormatOf(const std::string& format)
{
    std::string ll;
    return formatKind(format.c_str(), &ll) == FormatKind::Integer ? IntegerFormat(ll) : IntegerFormat();
}

} // namespace

CellFormat::CellFormat(const std::string& format)
    : number_(formatKind(format.c_str()) == FormatKind::Double ? format : std::string("%.15g")),
      integer_(integerFormatOf(format))
{
    switch (formatKind(format.c_str())) {
    case FormatKind::Double: kind_ = DOUBLE; break;
    case FormatKind::Integer: kind_ = INTEGER; break;
    default: kind_ = OTHER; break;
    }
}

int CellFormat::put(char* out, double value) const
{
    if (std::isinf(value)) {
        std::memcpy(out, "undef", 5);
        return 5;
    }
    long long whole;
    int n = kind_ == INTEGER && integerValue(value, whole) ? integer_.format(out, whole)
                                                          : number_.formatUnder(point_, out, value);
    return std::clamp(n, 0, CELL_TEXT_MAX);
}

void CellFormat::append(std::string& out, double value) const
{
    char text[NUMBER_TEXT_MAX];
    out.append(text, static_cast<size_t>(put(text, value)));
}

// ---------------------------------------------------------------------------------
// number formats

std::string intFormat(long long bound, const char* conversion)
{
    std::string conv = conversion && *conversion ? conversion : "d";
    std::string setting = si::intFormat;
    std::replace(setting.begin(), setting.end(), '_', ' ');
    std::string format;
    if (setting.empty()) {
        format = "%" + conv;
    } else if (setting[0] == '%') {
        format = setting + conv;
    } else {
        std::string flags = setting[0] == 'b' ? setting.substr(1) : setting;
        // digits of the largest value: floor(log10 |bound|) + 1, counted exactly
        unsigned long long magnitude = bound < 0 ? 0ULL - static_cast<unsigned long long>(bound)
                                                 : static_cast<unsigned long long>(bound);
        int width = 1;
        while (magnitude >= 10) {
            magnitude /= 10;
            ++width;
        }
        format = "%" + flags + std::to_string(width) + conv;
    }
    // a setting that makes no integer format falls back to the plain conversion
    if (formatKind(format.c_str()) != FormatKind::Integer || std::count(format.begin(), format.end(), '%') != 1)
        format = "%" + conv;
    return format;
}

GcvtFn curried_gcvt(const std::string& formatText)
{
    size_t len = formatText.size();
    if (len > 0 && formatText[0] == '%') {
        char last = formatText[len - 1];
        if ((last == 'e' || last == 'f' || last == 'g') && isDoubleFormat(formatText.c_str())) {
            return [format = NumberFormat(formatText)](char* buffer, size_t size, double value) -> int {
                if (std::isinf(value)) return written(std::snprintf(buffer, size, "undef"), size);
                return written(format.format(buffer, size, value), size);
            };
        }
        if (last == 'r') {
            int width = len > 2 ? std::atoi(formatText.c_str() + 1) : 15;
            // "%.0f" .. "%.<width>f", compiled once
            std::vector<NumberFormat> fixed;
            for (int d = 0; d <= std::max(width, 0); ++d) fixed.emplace_back("%." + std::to_string(d) + "f");
            return [width, fixed = std::move(fixed)](char* buffer, size_t size, double value) -> int {
                if (std::isinf(value)) return written(std::snprintf(buffer, size, "undef"), size);
                // as many decimals as fit into the width
                int n = value < 0 ? width - 2 : width - 1;
                double limit = std::pow(10.0, n);
                int d = 0;
                while (d < n && !(std::fabs(value) > limit)) {
                    ++d;
                    limit /= 10;
                }
                if (static_cast<size_t>(d) < fixed.size()) return written(fixed[static_cast<size_t>(d)].format(buffer, size, value), size);
                char format[32];
                std::snprintf(format, sizeof format, "%%.%df", d);
                return written(std::snprintf(buffer, size, format, value), size);
            };
        }
    }
    // 15 significant digits; a bare decimal point at the end is cut
    return [format = NumberFormat("%.15g")](char* buffer, size_t size, double value) -> int {
        if (size == 0) return 0;
        if (std::isinf(value)) return written(std::snprintf(buffer, size, "undef"), size);
        char text[NUMBER_TEXT_MAX];
        char* into = size >= NUMBER_TEXT_MAX ? buffer : text;
        int n = written(format.format(into, NUMBER_TEXT_MAX, value), NUMBER_TEXT_MAX);
        if (n > 0 && !(into[n - 1] >= '0' && into[n - 1] <= '9')) into[--n] = 0;
        if (into == buffer) return n;
        n = std::min<int>(n, static_cast<int>(size - 1));
        std::memcpy(buffer, text, n);
        buffer[n] = 0;
        return n;
    };
}

ValueFormat::ValueFormat() : direct_(false) {}

ValueFormat::ValueFormat(const std::string& formatText) : curried_(curried_gcvt(formatText))
{
    size_t len = formatText.size();
    char last = len ? formatText[len - 1] : 0;
    if (len > 0 && formatText[0] == '%') {
        if ((last == 'e' || last == 'f' || last == 'g') && isDoubleFormat(formatText.c_str()))
            number_ = NumberFormat(formatText);
        else if (last == 'r')
            direct_ = false;   // chooses its decimals by the value
    }
    // any other text: "%.15g", whose text never ends in a bare decimal point, so nothing is cut
}

int ValueFormat::general(char* out, double value) const
{
    return curried_ ? curried_(out, NUMBER_TEXT_MAX, value) : formatNumber(out, NUMBER_TEXT_MAX, "%.15g", value);
}

// ---------------------------------------------------------------------------------
// quoting

bool needsQuotes(const std::string& text)
{
    // the first character is not examined
    for (size_t i = 1; i < text.size(); ++i) {
        char c = text[i];
        if (c == si::separator || c == '\n' || c == '"') return true;
    }
    return false;
}

std::string quoteCell(const std::string& text)
{
    if (text.empty() || !needsQuotes(text)) return text;
    std::string cell;
    cell.reserve(text.size() + 4);
    cell += '"';
    for (char c : text) {
        if (c == '"') cell += '"';
        cell += c;
    }
    cell += '"';
    return cell;
}

std::string joinCells(const std::vector<std::string>& sorted)
{
    std::string line;
    for (size_t i = 0; i < sorted.size(); ++i) {
        if (i) line += si::separator;
        line += quoteCell(sorted[i]);
    }
    return line;
}

// ---------------------------------------------------------------------------------
// reading

int CsvReader::badChar = 0;

CsvReader::CsvReader(FILE* file_, const char* separatorText) : file(file_)
{
    separator = static_cast<unsigned char>(separatorText && *separatorText ? separatorText[0] : si::separator);
    if (!file) return;
    long start = std::ftell(file);
    unsigned char probe[3];
    size_t n = std::fread(probe, 1, 3, file);
    if (n == 3 && probe[0] == 0xEF && probe[1] == 0xBB && probe[2] == 0xBF)
        hadBom = 1;
    else
        std::fseek(file, start < 0 ? 0 : start, SEEK_SET);
}

int CsvReader::next(char* buffer, int size)
{
    if (cellsRead > 0 && lastChar > 0) {
        if (lastChar == separator) {
            ++column;
        } else {
            if (isComment) ++commentLines;
            else ++dataLines;
            column = 0;
            isComment = 0;
        }
    }
    ++cellsRead;
    int status = lastChar = scan(buffer, size);
    if (status < 1 || column != 0) return status;
    while (status == '\n' && buffer[0] == 0) {
        ++emptyLines;
        status = lastChar = scan(buffer, size);
        if (status < 1) return status;
    }
    if (buffer[0] == kComment) isComment = 1;
    return status;
}

bool CsvReader::plainLine(char* buffer, int size, int cells, char** starts)
{
#ifdef __GLIBC__
    if (!file || cells < 1 || (cellsRead > 0 && lastChar != '\n')) return false;
    const char* p = file->_IO_read_ptr;
    const char* const e = file->_IO_read_end;
    if (p >= e || *p < '0' || *p > '9') return false;
    const char sep = static_cast<char>(separator);
    int n = 0, found = 1;
    starts[0] = buffer;
    for (;; ++p) {
        if (p == e || n + 1 >= size) return false;
        const char b = *p;
        if ((b >= '0' && b <= '9') || b == '.') {
            buffer[n++] = b;
        } else if (b == sep) {
            if (found == cells) return false;
            buffer[n++] = 0;
            starts[found++] = buffer + n;
        } else if (b == '\n') {
            break;
        } else {
            return false;
        }
    }
    if (found != cells) return false;
    buffer[n] = 0;
    file->_IO_read_ptr = const_cast<char*>(p + 1);
    // as next() leaves it after the line's last cell
    if (cellsRead > 0) {
        if (isComment) ++commentLines;
        else ++dataLines;
    }
    isComment = 0;
    column = cells - 1;
    cellsRead += cells;
    lastChar = '\n';
    ascii = 1;
    return true;
#else
    (void)buffer, (void)size, (void)cells, (void)starts;
    return false;
#endif
}

// the cell scanner: start, bare, in-quotes, after-quote; carriage returns are dropped
// everywhere. The separator is looked at before blanks, so that a tab separator works.
int CsvReader::scan(char* buffer, int size)
{
    if (size < 1) return -4;
    buffer[0] = 0;
    if (!file) return -1;
    enum { Start, Bare, InQuotes, AfterQuote } state = Start;
    int n = 0;
    unsigned bits = 0;    // the bytes of the cell or-ed: below 0x80 for plain ASCII
    FILE* f = file;
    const int sep = separator, q = quote;
    // the file ends: the last cell (trimmed unless quoted), and a file that ends inside a line is marked
    auto atEnd = [&](bool trim) {
        if (trim)
            while (n > 0 && isWhite(static_cast<unsigned char>(buffer[n - 1]))) --n;
        buffer[n] = 0;
        ascii = bits < 0x80;
        if (n > 0) unendedLastLine = 1;
        return n > 0 ? '\n' : -1;
    };
    for (;;) {
        int c = getc_unlocked(f);
        if (c == EOF) {
            if (state == InQuotes) {
                buffer[n] = 0;
                ascii = bits < 0x80;
                return -3;
            }
            return atEnd(state != AfterQuote);
        }
        if (c == '\r') continue;
        switch (state) {
        case Start:
            if (c == '\n' || c == sep) {
                buffer[0] = 0;
                ascii = bits < 0x80;
                return c;
            }
            if (c == ' ' || c == '\t') continue;
            if (c == q) {
                state = InQuotes;
                continue;
            }
            state = Bare;
            break;
        case Bare:
            // the rest of a bare cell, the common case, in one tight loop
            while (c != '\n' && c != sep && c != '\r' && c != 0 && c != EOF && n + 1 < size) {
                bits |= static_cast<unsigned>(c);
                buffer[n++] = static_cast<char>(c);
#ifdef __GLIBC__
                {
                    // the bytes already in the stream's buffer, through a pointer of our own that
                    // stays in a register (the stream's own is read back after every byte stored)
                    const char* p = f->_IO_read_ptr;
                    const char* const e = f->_IO_read_end;
                    int m = n;
                    const int room = size - 1;
                    while (p < e && m < room) {
                        const char b = *p;
                        if (b == '\n' || b == static_cast<char>(sep) || b == '\r' || b == 0) break;
                        bits |= static_cast<unsigned char>(b);
                        buffer[m++] = b;
                        ++p;
                    }
                    n = m;
                    f->_IO_read_ptr = const_cast<char*>(p);
                }
#endif
                c = getc_unlocked(f);
            }
            if (c == EOF) return atEnd(true);
            if (c == '\r') continue;
            if (c == '\n' || c == sep) {
                while (n > 0 && isWhite(static_cast<unsigned char>(buffer[n - 1]))) --n;
                buffer[n] = 0;
                ascii = bits < 0x80;
                return c;
            }
            break;
        case InQuotes:
            if (c == q) {
                state = AfterQuote;
                continue;
            }
            break;
        case AfterQuote:
            if (c == q) {
                state = InQuotes;
                break;                              // store one quote
            }
            if (c == '\n' || c == sep) {
                buffer[n] = 0;
                ascii = bits < 0x80;
                return c;
            }
            if (c == ' ' || c == '\t') continue;
            buffer[n] = 0;
            badChar = c;
            ascii = bits < 0x80;
            return -2;
        }
        if (c == 0) {
            // a NUL byte would cut the cell where it stands: the cell is refused whole
            buffer[n] = 0;
            ascii = bits < 0x80;
            return -5;
        }
        bits |= static_cast<unsigned>(c);
        buffer[n++] = static_cast<char>(c);
        if (n >= size) {
            buffer[n - 1] = 0;
            ascii = bits < 0x80;
            return -4;
        }
    }
}

std::string CsvReader::errorText(int status)
{
    switch (status) {
    case -4: return "buffer overflow";
    case -3: return "unfinished string";
    case -2: {
        char text[64];
        std::snprintf(text, sizeof text, "invalid character '%c' (%d) after string", badChar, badChar);
        return text;
    }
    case -1: return "EOF";
    case -5: return "NUL character in cell";
    default: return "unknown error code";
    }
}

std::string CsvReader::currentLine()
{
    if (!file) return "";
    long pos = std::ftell(file);
    if (pos < 0) return "";
    long floor = hadBom ? 3 : 0;

    // the bytes before a position, fetched backwards in blocks
    char block[4096];
    long blockStart = 0, blockLength = 0;
    auto before = [&](long i) -> int {     // the byte at i - 1
        long at = i - 1;
        if (at < blockStart || at >= blockStart + blockLength) {
            blockStart = std::max(0L, at - static_cast<long>(sizeof block) + 1);
            std::fseek(file, blockStart, SEEK_SET);
            blockLength = static_cast<long>(std::fread(block, 1, at + 1 - blockStart, file));
            if (at >= blockStart + blockLength) return EOF;
        }
        return static_cast<unsigned char>(block[at - blockStart]);
    };

    long p = pos;
    while (p > floor) {
        int c = before(p);
        if (c != '\n' && c != '\r') break;
        --p;
    }
    bool inQuotes = false;
    while (p > floor) {
        int c = before(p);
        if (c == EOF) break;
        if (c == quote) inQuotes = !inQuotes;
        else if (c == '\n' && !inQuotes) break;
        --p;
    }

    std::string line;
    std::fseek(file, p, SEEK_SET);
    inQuotes = false;
    for (int c; (c = std::getc(file)) != EOF;) {
        if (c == quote) inQuotes = !inQuotes;
        else if (c == '\n' && !inQuotes) break;
        if (c != '\r') line += static_cast<char>(c);
    }
    std::fseek(file, pos, SEEK_SET);
    return line;
}
