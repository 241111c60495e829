// Printing of labelled arrays into the protocol or numbered side files.
#include "tables/labelled_array.h"
#include "tables/number_format.h"

#include <cerrno>
#include <cstdarg>
#include <clocale>
#include <cstring>
#include <string>
#include <vector>

#include "platform/safe_output.h"
#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/table_text.h"

std::function<bool(size_t gz, long long& key)> laRegionKey;

namespace {

FILE* tableStream = nullptr;   // handed over with the protocol; nullptr: Prot::stream()
int tableCounter = 0;          // last number given to a side file

const char* const kindWords[5] = {"integer", "number", "rate", "diff", "unknown"};
const char* const kindClasses[5] = {"r", "r", "l", "l", "l"};

int normKind(int kind) {
    if (kind < 0) return LA_RATE;
    if (kind > 4) return LA_UNKNOWN;
    return kind;
}

int matrixFormat() {
    int f = ini::MATRIX_AUSGABEFORMAT % 3;
    return f < 0 ? f + 3 : f;
}

char textSeparator(int format) {
    if (format == 2) return ' ';
    return si::separator ? si::separator : ';';
}

// column sums of the table being written
struct ColumnSums {
    std::vector<double> sum;
    std::vector<size_t> n;
    size_t active = 0;
    size_t col = 0;
    void start(size_t cols) {
        sum.assign(cols, 0.0);
        n.assign(cols, 0);
        active = cols;
        col = 0;
    }
    void row() { col = 0; }
    void stop() { active = 0; }
} sums;

std::string strip(const std::string& w) { return w.compare(0, 2, "C.") == 0 ? w.substr(2) : w; }

enum Role { PLAIN, AGE, SEX, REGION, TYPE };

struct Dim {
    std::string word;
    size_t n = 0;
    Role role = PLAIN;
};

Role roleOf(const std::string& w) {
    if (w == "NAG" || w == "NMAG") return AGE;
    if (w == "NGG" || w == "NMGG" || w == "NKGG" || w == "NCGG" || w == "NNGG") return SEX;
    if (w == "NGZ") return REGION;
    if (w.compare(0, 3, "NTY") == 0) return TYPE;
    return PLAIN;
}

std::vector<Dim> dimsOf(const char* names, const std::vector<size_t>& ext) {
    std::vector<Dim> d(ext.size());
    const char* p = names;
    for (size_t k = 0; k < ext.size(); ++k) {
        d[k].n = ext[k];
        if (p && *p) {
            d[k].word = strip(p);
            p += strlen(p) + 1;
        }
        d[k].role = roleOf(d[k].word);
    }
    return d;
}

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(buf, sizeof buf, format, ap);
    va_end(ap);
    return buf;
}

bool regionKey(size_t i, long long& key) { return laRegionKey && laRegionKey(i, key); }

// the label of index i of a dimension in a head or a row
std::string label(const Dim& d, size_t i) {
    switch (d.role) {
    case AGE: return fmt("%zu", i);
    case SEX:
        if (d.n == 2) return i == 0 ? "m" : "w";
        return fmt("%s %zu", d.word.c_str(), i + 1);
    case REGION: {
        long long key;
        if (regionKey(i, key)) return fmt("%lld", key);
        return fmt("%zu", i + 1);
    }
    case TYPE: return fmt("%s %d", DD::lookup("type").c_str(), static_cast<int>(i + 1));
    default: return fmt("%zu", i + 1);
    }
}

// the label of an outer index in a text line
std::string textLabel(const Dim& d, size_t i) {
    if (d.role == SEX && d.n == 2) return fmt("[%s]", i == 0 ? "m" : "w");
    if (d.role == REGION) {
        long long key;
        if (regionKey(i, key)) return fmt("[%lld]", key);
    }
    return fmt("%zu:", d.role == AGE ? i : i + 1);
}

std::string rowHeading(const Dim& d) {
    if (d.role == REGION) return "GKZ";
    return d.word;
}

// a key the dictionary knows; a lookup of a missing key leaves "[key]" behind, which is no text
bool known(const std::string& key) { return !key.empty() && DD::has(key) && DD::lookup(key) != "[" + key + "]"; }

std::string tooltipped(const std::string& shown, const std::string& key) {
    if (!known(key)) return shown;
    return "<a title=\"" + DD::lookup(key) + "\"><span class=tooltip>" + shown + "</span></a>";
}

// the readable name of an array beside its code, where the dictionary has one
std::string longName(const std::string& key) {
    return known(key) ? ": <span class=longname>" + DD::lookup(key) + "</span>" : std::string();
}

double autoTotal(int kind, const double* data, size_t n) {
    double s = 0;
    switch (kind) {
    case LA_INTEGER:
    case LA_NUMBER:
        for (size_t i = 0; i < n; ++i) s += data[i];
        return s;
    case LA_DIFF: {
        size_t m = 0;
        for (size_t i = 0; i < n; ++i)
            if (!isUndef(data[i])) {
                s += std::fabs(data[i]);
                ++m;
            }
        return m ? s / m : 0.0;
    }
    case LA_UNKNOWN:
        for (size_t i = 0; i < n; ++i)
            if (isUndef(data[i])) s += 1;
        return s;
    default: return 0.0;
    }
}

void checkSex(const std::vector<Dim>& dims, size_t count) {
    if (count == 0) return;
    for (const Dim& d : dims) {
        if (d.role != SEX) continue;
        size_t ngg = d.n;
        Prot::check(1 <= ngg && ngg <= 2, "la", __LINE__, "inrange(1, ngg, 2)");
    }
}

size_t product(const std::vector<size_t>& e, size_t from, size_t to) {
    size_t p = 1;
    for (size_t k = from; k < to; ++k) p *= e[k];
    return p;
}

void htmlHead(FILE* f, const std::vector<Dim>& dims, const std::string& name) {
    size_t R = dims.size();
    fputs("<table>\n", f);
    if (R == 1) {
        fprintf(f, "<tr><th class=l>%s</th><th>%s</th></tr>\n", rowHeading(dims[0]).c_str(), name.c_str());
        return;
    }
    std::vector<size_t> ext;
    for (const Dim& d : dims) ext.push_back(d.n);
    size_t last = R - 2;   // the last dimension of the columns
    bool sexPairs = last > 0 && dims[last].role == SEX && dims[last].n == 2;
    for (size_t k = 0; k <= last; ++k) {
        const Dim& d = dims[k];
        std::string corner = k == last ? rowHeading(dims[R - 1]) : d.word;
        if (known(corner))
            fprintf(f, "<tr><th colspan=%d><a title=\"%s\"><span class=tooltip>%s</span></a></th>", 1,
                    DD::lookup(corner).c_str(), corner.c_str());
        else
            fprintf(f, "<tr><th class=l>%s</th>", corner.c_str());
        size_t reps = product(ext, 0, k);
        size_t span = product(ext, k + 1, last + 1);
        for (size_t r = 0; r < reps; ++r)
            for (size_t i = 0; i < d.n; ++i) {
                std::string text;
                if (k == last && sexPairs) {
                    std::string parent = label(dims[k - 1], r % dims[k - 1].n);
                    text = i == 0 ? fmt("m %s", parent.c_str()) : fmt("%s w", parent.c_str());
                } else {
                    text = label(d, i);
                }
                if (span == 1)
                    fprintf(f, "<th>%s</th>", text.c_str());
                else if (sexPairs && k + 1 == last)
                    fprintf(f, "<th colspan=%zu style=\"text-align: center\">%s</th>", span, text.c_str());
                else
                    fprintf(f, "<th colspan=%zu style=\"text-align: left\">%s</th>", span, text.c_str());
            }
        fputs("</tr>\n", f);
    }
}

bool zeroRow(const double* data, size_t cols, size_t stride, size_t i) {
    for (size_t c = 0; c < cols; ++c)
        if (data[c * stride + i] != 0) return false;
    return true;
}

// HTML: rows are the last index, columns all others. A table of many regions has hundreds of
// thousands of cells, so its lines are gathered in a buffer with the cell format looked at once.
void htmlBody(const LADest& dest, const double* data, const std::vector<Dim>& dims, int kind) {
    FILE* f = dest.f;
    size_t R = dims.size();
    size_t rows = dims[R - 1].n;
    size_t cols = 1;
    for (size_t k = 0; k + 1 < R; ++k) cols *= dims[k].n;
    if (rows == 0) cols = 0;
    // the text of an undefined value, as laCell gives it in this format
    const char* undefined = ini::MATRIX_AUSGABEFORMAT == 2 ? "undef" : "";
    const CellFormat cell(LAFormats[kind]);
    const std::string open = std::string("<td class=") + kindClasses[kind] + ">";
    const size_t undefinedLength = std::strlen(undefined);
    std::string out;
    auto flushLines = [&] {
        fwrite(out.data(), 1, out.size(), f);
        out.clear();
    };
    std::vector<double> sum(cols, 0.0);
    // the cells of a row are written in place, into room for the longest text of each
    std::vector<char> room(cols * (open.size() + NUMBER_TEXT_MAX + 5));
    for (size_t i = 0; i < rows; ++i) {
        if (!ini::AusgabeNull && zeroRow(data, cols, rows, i)) continue;
        out += "<tr><th>";
        out += label(dims[R - 1], i);
        out += "</th>";
        char* o = room.data();
        for (size_t c = 0; c < cols; ++c) {
            double v = data[c * rows + i];
            std::memcpy(o, open.data(), open.size());
            o += open.size();
            if (isUndef(v)) {
                std::memcpy(o, undefined, undefinedLength);
                o += undefinedLength;
            } else {
                o += cell.put(o, v);
            }
            std::memcpy(o, "</td>", 5);
            o += 5;
            sum[c] += v;
        }
        out.append(room.data(), static_cast<size_t>(o - room.data()));
        out += "</tr>\n";
        if (out.size() >= (size_t(1) << 20)) flushLines();
    }
    flushLines();
    fputs("<tr><th>&Sigma;</th>", f);
    for (size_t c = 0; c < sum.size(); ++c) laCell(dest, kind, true, sum[c], c + 1 < sum.size());
    fputs("</tr>\n", f);
}

void textHead(FILE* f, const std::vector<Dim>& dims) {
    for (size_t k = 0; k < dims.size(); ++k)
        fprintf(f, k ? " %zu %s" : "%zu %s", dims[k].n, dims[k].word.c_str());
    fputs("\n", f);
}

// text: one line per inner vector, its outer indices in front; a rank 1 array has one
// value per line
void textBody(const LADest& dest, const double* data, const std::vector<Dim>& dims, int kind, bool withSums) {
    FILE* f = dest.f;
    size_t R = dims.size();
    size_t inner = R == 1 ? 1 : dims[R - 1].n;
    size_t outerRank = R == 1 ? 1 : R - 1;
    size_t lines = 1;
    for (size_t k = 0; k < outerRank; ++k) lines *= dims[k].n;
    if (inner == 0) lines = 0;
    char sep = textSeparator(dest.format);
    sums.start(withSums ? inner : 0);
    std::vector<size_t> idx(outerRank, 0);
    for (size_t l = 0; l < lines; ++l) {
        size_t rest = l;
        for (size_t k = outerRank; k-- > 0;) {
            idx[k] = rest % dims[k].n;
            rest /= dims[k].n;
        }
        const double* row = data + l * inner;
        bool zero = true;
        for (size_t j = 0; j < inner; ++j)
            if (row[j] != 0) zero = false;
        if (withSums && zero && !ini::AusgabeNull) continue;
        sums.row();
        for (size_t k = 0; k < outerRank; ++k) fprintf(f, "%s%c", textLabel(dims[k], idx[k]).c_str(), sep);
        for (size_t j = 0; j < inner; ++j) laCell(dest, kind, false, row[j], j + 1 < inner);
        fputs("\n", f);
    }
    std::vector<double> s = sums.sum;
    sums.stop();
    if (!withSums) return;
    fprintf(f, "%s%c", DD::lookup("sum").c_str(), sep);
    for (size_t j = 0; j < s.size(); ++j) laCell(dest, kind, true, s[j], j + 1 < s.size());
    fputs("\n", f);
}

void printDense(const double* data, const std::vector<size_t>& ext, FILE* stream, const std::string& name,
                const char* names, const char* title, int kind, double total) {
    kind = normKind(kind);
    size_t n = product(ext, 0, ext.size());
    std::vector<Dim> dims = dimsOf(names, ext);
    checkSex(dims, n);
    if (std::isnan(total)) total = autoTotal(kind, data, n);
    LADest dest = laTitle(stream, name.c_str(), kind, total, nullptr, title);
    if (!dest.f) return;
    if (dest.format == 0) {
        htmlHead(dest.f, dims, name);
        htmlBody(dest, data, dims, kind);
    } else {
        textHead(dest.f, dims);
        textBody(dest, data, dims, kind, true);
    }
    laEnd(dest);
}

// flattening in row order
void flat(const std::vector<double>& v, std::vector<double>& out) { out.insert(out.end(), v.begin(), v.end()); }
template <class V> void flat(const std::vector<V>& v, std::vector<double>& out) {
    for (const auto& x : v) flat(x, out);
}

template <int R> void printAny(const LA<R>& a, FILE* stream, const char* names, const char* title, int kind, double total) {
    auto e = a.extents();
    std::vector<size_t> ext(e.begin(), e.end());
    std::vector<double> data;
    data.reserve(a.count());
    flat(static_cast<const typename LA<R>::Base&>(a), data);
    printDense(data.data(), ext, stream, a.name, names, title, kind, total);
}

template <int R> void textAny(FILE* stream, const LA<R>& a, const char* names) {
    if (!stream) return;
    auto e = a.extents();
    std::vector<size_t> ext(e.begin(), e.end());
    std::vector<double> data;
    flat(static_cast<const typename LA<R>::Base&>(a), data);
    std::vector<Dim> dims = dimsOf(names, ext);
    LADest dest;
    dest.f = stream;
    dest.format = 2;
    textHead(stream, dims);
    textBody(dest, data.data(), dims, LA_NUMBER, false);
}

// a value by "%.15g", undefined ones too
std::string g15(double value) {
    char buf[NUMBER_TEXT_MAX];
    formatNumber(buf, sizeof buf, "%.15g", value);
    return buf;
}

std::string cellText(int format, int kind, double value) {
    if (isUndef(value)) return format == 2 || (format == 0 && ini::MATRIX_AUSGABEFORMAT == 2) ? "undef" : "";
    if (format == 0) return csvFormatDouble(value, kind);
    return g15(value);
}

}  // namespace

void laSetStream(FILE* stream) { tableStream = stream; }
FILE* laStream() { return tableStream ? tableStream : Prot::stream(); }
void laReset() { tableCounter = 0; }
int laTableCounter() { return tableCounter; }

bool laFlowsRounded() { return ini::STRunden != 0; }

bool laActive(int level) { return Prot::level(level) && laStream() != nullptr; }

LADest laTitle(FILE* stream, const char* name, int kind, double sum, const char* tooltipKey, const char* title) {
    kind = normKind(kind);
    FILE* prot = stream ? stream : laStream();
    std::string key = tooltipKey ? tooltipKey : name;
    std::string shown = tooltipped(name, key);
    std::string extra = title && *title ? " " + DD::expKey(std::string(title)) : "";
    shown += extra;
    std::string word = DD::lookup(kindWords[kind]);
    LADest dest;
    dest.format = matrixFormat();
    if (ini::AUSGABE_EINZELWERTE <= 0) {
        if (prot) fprintf(prot, "%s %s%s<br>\n", word.c_str(), shown.c_str(), longName(key).c_str());
        return LADest{};
    }
    if (ini::AUSGABE_EINZELWERTE == 1) {
        static const char* const ext[3] = {"htm", "csv", "txt"};
        ++tableCounter;
        std::string file = fmt("%06d.%s", tableCounter, ext[dest.format]);
        std::string path = Prot::filePath(file);
        FILE* f = safeOutput::open(path, false, true);
        if (!f) {
            Prot::message(SEV_ERROR, "open %s w: %s", path.c_str(), strerror(errno));
            return LADest{};
        }
        if (prot) {
            // a link holds no link: the explanation of the name becomes the link's own title
            std::string linkTitle = known(key) ? " title=\"" + DD::lookup(key) + "\"" : "";
            fprintf(prot, "%s <a href=\"%s\" target=_blank%s>%s%s</a>%s<br>\n", word.c_str(), file.c_str(),
                    linkTitle.c_str(), known(key) ? ("<span class=tooltip>" + std::string(name) + "</span>").c_str() : name,
                    extra.c_str(), longName(key).c_str());
        }
        dest.f = f;
        dest.sideFile = true;
        if (dest.format == 0)
            fprintf(f, "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=utf-8>\n<title>%s</title>\n%s</head>\n<body>\n",
                    name, Prot::tableStyle());
    } else {
        if (!prot) return LADest{};
        dest.f = prot;
        if (dest.format != 0) {
            dest.pre = true;
            size_t len = strlen(name);
            fprintf(prot, "<pre class=%s>", len && name[len - 1] == '_' ? "minor" : "major");
        } else {
            fputs("<br>", prot);
        }
    }
    FILE* f = dest.f;
    fprintf(f, "%s %s", word.c_str(), shown.c_str());
    switch (kind) {
    case LA_INTEGER:
    case LA_NUMBER: fprintf(f, " &Sigma;: %s", csvFormatDouble(sum, kind).c_str()); break;
    case LA_DIFF: fprintf(f, " %s: %s", DD::lookup("meanabs").c_str(), csvFormatDouble(sum, 3).c_str()); break;
    case LA_UNKNOWN:
        if (sum > 0) fprintf(f, DD::literal(" Anzahl undefinierte Werte: %.0f"), sum);
        break;
    default: break;
    }
    fputs("\n", f);
    return dest;
}

void laEnd(LADest& dest) {
    if (!dest.f) return;
    if (dest.format == 0) fputs("</table>\n", dest.f);
    if (dest.sideFile) {
        if (dest.format == 0) fputs("</body>\n</html>\n", dest.f);
        safeOutput::close(dest.f);
    } else if (dest.pre) {
        fputs("</pre>\n", dest.f);
    }
    dest.f = nullptr;
}

void laCell(const LADest& dest, int kind, bool isHeader, double value, bool notLast) {
    kind = normKind(kind);
    FILE* f = dest.f;
    if (!f) return;
    std::string text = cellText(dest.format, kind, value);
    if (dest.format == 0) {
        const char* tag = isHeader ? "th" : "td";
        fprintf(f, "<%s class=%s>%s</%s>", tag, kindClasses[kind], text.c_str(), tag);
    } else {
        fputs(text.c_str(), f);
        if (notLast) fputc(textSeparator(dest.format), f);
    }
    if (!isHeader) {
        if (sums.col < sums.active) {
            sums.sum[sums.col] += value;
            sums.n[sums.col]++;
        }
        sums.col++;
    }
}

void laCell(FILE* stream, int kind, bool isHeader, double value, bool notLast) {
    LADest d;
    d.f = stream;
    d.format = matrixFormat();
    laCell(d, kind, isHeader, value, notLast);
}

void laPrint1(const LA1& a, FILE* s, const char* n, const char* t, int k, double tot) { printAny(a, s, n, t, k, tot); }
void laPrint2(const LA2& a, FILE* s, const char* n, const char* t, int k, double tot) { printAny(a, s, n, t, k, tot); }
void laPrint3(const LA3& a, FILE* s, const char* n, const char* t, int k, double tot) { printAny(a, s, n, t, k, tot); }
void laPrint4(const LA4& a, FILE* s, const char* n, const char* t, int k, double tot) { printAny(a, s, n, t, k, tot); }
void laPrint5(const LA5& a, FILE* s, const char* n, const char* t, int k, double tot) { printAny(a, s, n, t, k, tot); }
void laPrint4(const double* data, const std::array<size_t, 4>& e, const std::string& name, FILE* s, const char* n,
              const char* t, int k, double tot) {
    // extents as an array reads them: all 0 when it holds no element
    std::vector<size_t> ext(e.begin(), e.end());
    if (product(ext, 0, ext.size()) == 0) std::fill(ext.begin(), ext.end(), 0);
    printDense(data, ext, s, name, n, t, k, tot);
}

void laPrintText(FILE* s, const LA1& a, const char* n) { textAny(s, a, n); }
void laPrintText(FILE* s, const LA2& a, const char* n) { textAny(s, a, n); }
void laPrintText(FILE* s, const LA3& a, const char* n) { textAny(s, a, n); }
void laPrintText(FILE* s, const LA4& a, const char* n) { textAny(s, a, n); }
void laPrintText(FILE* s, const LA5& a, const char* n) { textAny(s, a, n); }

void laPrintColumns(FILE* stream, const char* title, const std::vector<const LA1*>& columns, const char* rowName,
                    int kind) {
    if (columns.empty()) return;
    kind = normKind(kind);
    size_t rows = columns[0]->size();
    std::vector<const LA1*> cols;
    for (const LA1* c : columns) {
        if (c->size() != rows) {
            Prot::message(SEV_WARNING, "%s size %zu != %zu", c->name.c_str(), c->size(), rows);
            continue;
        }
        cols.push_back(c);
    }
    double total = autoTotal(kind, cols[0]->data(), rows);
    LADest dest = laTitle(stream, title, kind, total, columns[0]->name.c_str());
    if (!dest.f) return;
    Dim rd;
    rd.word = rowName ? strip(rowName) : "";
    rd.n = rows;
    rd.role = roleOf(rd.word);
    FILE* f = dest.f;
    char sep = textSeparator(dest.format);
    if (dest.format == 0) {
        fprintf(f, "<table>\n<tr><th class=l>%s</th>", rowHeading(rd).c_str());
        for (const LA1* c : cols) fprintf(f, "<th>%s</th>", c->name.c_str());
        fputs("</tr>\n", f);
    } else {
        fprintf(f, "%zu %s", rows, rd.word.c_str());
        for (const LA1* c : cols) fprintf(f, " %s", c->name.c_str());
        fputs("\n", f);
    }
    sums.start(cols.size());
    for (size_t i = 0; i < rows; ++i) {
        bool zero = true;
        for (const LA1* c : cols)
            if ((*c)[i] != 0) zero = false;
        if (zero && !ini::AusgabeNull) continue;
        sums.row();
        if (dest.format == 0)
            fprintf(f, "<tr><th>%s</th>", label(rd, i).c_str());
        else
            fprintf(f, "%s%c", textLabel(rd, i).c_str(), sep);
        for (size_t c = 0; c < cols.size(); ++c) laCell(dest, kind, false, (*cols[c])[i], c + 1 < cols.size());
        fputs(dest.format == 0 ? "</tr>\n" : "\n", f);
    }
    std::vector<double> s = sums.sum;
    sums.stop();
    if (dest.format == 0)
        fputs("<tr><th>&Sigma;</th>", f);
    else
        fprintf(f, "%s%c", DD::lookup("sum").c_str(), sep);
    for (size_t c = 0; c < s.size(); ++c) laCell(dest, kind, true, s[c], c + 1 < s.size());
    fputs(dest.format == 0 ? "</tr>\n" : "\n", f);
    laEnd(dest);
}

namespace {
unsigned long regionLabel(unsigned long long gz) {
    long long key;
    if (regionKey(static_cast<size_t>(gz), key)) return static_cast<unsigned long>(key);
    return static_cast<unsigned long>(gz + 1);
}
}  // namespace

void laPrintList(FILE* stream, const char* name, const char* title, int kind, const std::vector<LAListRow>& rows,
                 const char* const* labels) {
    static const char* const defaults[4] = {"NGZ", "BG", "GG", "AG"};
    if (!labels) labels = defaults;
    kind = normKind(kind);
    FILE* f = stream ? stream : laStream();
    if (!f) return;
    std::string word = DD::lookup(kindWords[kind]);
    std::string shown = name;
    if (title && *title) shown += " " + DD::expKey(std::string(title));
    if (ini::AUSGABE_EINZELWERTE <= 0) {
        fprintf(f, "%s %s<br>\n", word.c_str(), shown.c_str());
        return;
    }
    double total = 0;
    for (const LAListRow& r : rows) total += r.v;
    fprintf(f, "<pre>%s %s", word.c_str(), shown.c_str());
    fprintf(f, ", &Sigma; = %s", g15(total).c_str());
    fprintf(f, "\n%s %s %s %s\n", labels[0], labels[1], labels[2], labels[3]);
    for (const LAListRow& r : rows) {
        if (r.v == 0) continue;
        fprintf(f, "%lu %u %u %u %s\n", regionLabel(r.gz), r.bg + 1, r.gg + 1, r.ag, g15(r.v).c_str());
    }
    fputs("</pre>\n", f);
}

void laPrintPairs(FILE* stream, const char* name, const char* title, int kind, const std::vector<LAPairRow>& rows,
                  bool regions) {
    double total = 0;
    for (const LAPairRow& r : rows) total += r.v;
    LADest dest = laTitle(stream, name, kind, total, nullptr, title);
    if (!dest.f) return;
    FILE* f = dest.f;
    auto lab = [regions](unsigned long long i) -> unsigned long long {
        return regions ? regionLabel(i) : i + 1;
    };
    if (dest.format == 0) {
        fprintf(f, "<table>\n<tr><th colspan=2>%s</th><th>BG</th><th>GG</th><th>AG</th><th>%s</th></tr>\n",
                regions ? "NGZ" : "TYB", name);
        for (const LAPairRow& r : rows) {
            fprintf(f, "<tr><th>%llu</th><th>%llu</th><th>%d</th><th>%d</th><th>%d</th>", lab(r.from), lab(r.to),
                    static_cast<int>(r.bg + 1), static_cast<int>(r.gg + 1), static_cast<int>(r.ag));
            laCell(dest, kind, false, r.v, false);
            fputs("</tr>\n", f);
        }
    } else if (regions) {
        fprintf(f, "%zu GKZ GKZ BG GG AG\n", rows.size());
        for (const LAPairRow& r : rows)
            fprintf(f, "%llu %llu %u %u %u %s\n", lab(r.from), lab(r.to), r.bg + 1, r.gg + 1, r.ag,
                    g15(r.v).c_str());
    } else {
        fputs("TYB TYB BG GG AG\n", f);
        for (const LAPairRow& r : rows)
            fprintf(f, "%u %u %u %u %u %s\n", static_cast<unsigned>(lab(r.from)), static_cast<unsigned>(lab(r.to)),
                    r.bg + 1, r.gg + 1, r.ag, g15(r.v).c_str());
    }
    laEnd(dest);
}

std::string Pic::Get(double value, unsigned decimals) {
    char format[16];
    snprintf(format, sizeof format, "%%.%uf", decimals);
    char text[128];
    snprintf(text, sizeof text, format, value);
    const lconv* lc = localeconv();
    const char* sep = lc->thousands_sep;
    if (!sep || !*sep) return text;
    char point = lc->decimal_point && *lc->decimal_point ? *lc->decimal_point : '.';
    char whole[64];
    int length = std::fabs(value) < 9e18 ? snprintf(whole, sizeof whole, "%lld", static_cast<long long>(value))
                                          : snprintf(whole, sizeof whole, "%.0f", std::trunc(value));
    int counter = length % 3;
    if (counter == 0) counter = 3;
    const size_t size = 64;
    std::string out;
    size_t sepLen = strlen(sep);
    for (const char* p = text; *p; ++p) {
        if (*p == point) {
            counter = -1;
        } else if (counter == 0) {
            out.append(sep, sepLen);
            counter = 3;
        }
        out += *p;
        --counter;
        if (out.size() >= size) return "error in Pic::Get";
    }
    return out;
}
