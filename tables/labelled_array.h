// Labelled arrays: named nested vectors of doubles of rank 1 to 5, and the family of
// operations that prints them into the protocol or into a numbered side file, as HTML,
// semicolon text or plain text, with title, tooltip, sums and cell classes.
#pragma once
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

using f64 = double;

// the undefined value of arrays and tables
inline constexpr double UNDEF = std::numeric_limits<double>::infinity();
inline bool isUndef(double v) { return std::isinf(v); }

// FNV-1a over the bytes of a name, 64 bit; the hash of every name table of the system
inline uint64_t fnv1a64(const char* data, size_t size) {
    uint64_t h = 0xcbf29ce484222325ULL;
    for (size_t i = 0; i < size; ++i) {
        h ^= static_cast<unsigned char>(data[i]);
        h *= 0x100000001b3ULL;
    }
    return h;
}
struct Fnv1aHash {
    size_t operator()(const std::string& s) const { return static_cast<size_t>(fnv1a64(s.data(), s.size())); }
};

template <int R> struct LANested { using type = std::vector<typename LANested<R - 1>::type>; };
template <> struct LANested<1> { using type = std::vector<f64>; };

// A named array of rank R: a nested vector, first index outermost.
template <int R>
class LA : public LANested<R>::type {
public:
    static_assert(R >= 1 && R <= 5, "rank 1 to 5");
    using Base = typename LANested<R>::type;
    using Extents = std::array<size_t, R>;
    static constexpr int rank = R;

    std::string name;

    LA() = default;
    explicit LA(std::string n) : name(std::move(n)) {}
    LA(std::string n, const Extents& ext, f64 fill) { make(std::move(n), ext, fill); }

    // (re)builds the array with the extents in index order, every element set to fill
    void make(std::string n, const Extents& ext, f64 fill) {
        name = std::move(n);
        build(static_cast<Base&>(*this), ext.data(), fill, R);
    }
    void make(const Extents& ext, f64 fill) { build(static_cast<Base&>(*this), ext.data(), fill, R); }
    // frees the memory; the name stays
    void release() { Base().swap(static_cast<Base&>(*this)); }
    bool exists() const { return !this->empty(); }

    // the extents, read along the first elements; all 0 when the array holds no element
    Extents extents() const {
        Extents e{};
        fillExtents(static_cast<const Base&>(*this), e.data(), R);
        size_t n = 1;
        for (size_t x : e) n *= x;
        if (n == 0) e.fill(0);
        return e;
    }
    size_t count() const {
        size_t n = 0;
        forEach([&n](const f64&) { ++n; });
        return n;
    }
    // total of all elements in row order
    f64 sum() const {
        f64 s = 0;
        forEach([&s](const f64& v) { s += v; });
        return s;
    }
    void fill(f64 v) { forEach([v](f64& x) { x = v; }); }

    // every element in row order, first index outermost
    template <class F> void forEach(F&& f) { walk(static_cast<Base&>(*this), f); }
    template <class F> void forEach(F&& f) const { walk(static_cast<const Base&>(*this), f); }

private:
    static void build(std::vector<f64>& v, const size_t* ext, f64 fill, int) { v.assign(ext[0], fill); }
    template <class V> static void build(std::vector<V>& v, const size_t* ext, f64 fill, int r) {
        // rows already there are filled again, not allocated again
        v.resize(ext[0]);
        for (auto& x : v) build(x, ext + 1, fill, r - 1);
    }
    static void fillExtents(const std::vector<f64>& v, size_t* e, int) { e[0] = v.size(); }
    template <class V> static void fillExtents(const std::vector<V>& v, size_t* e, int r) {
        e[0] = v.size();
        if (v.empty()) return;
        fillExtents(v[0], e + 1, r - 1);
    }
    template <class F> static void walk(std::vector<f64>& v, F& f) { for (auto& x : v) f(x); }
    template <class F> static void walk(const std::vector<f64>& v, F& f) { for (const auto& x : v) f(x); }
    template <class V, class F> static void walk(std::vector<V>& v, F& f) { for (auto& x : v) walk(x, f); }
    template <class V, class F> static void walk(const std::vector<V>& v, F& f) { for (const auto& x : v) walk(x, f); }
};

using LA1 = LA<1>;
using LA2 = LA<2>;
using LA3 = LA<3>;
using LA4 = LA<4>;
using LA5 = LA<5>;

// Cell kinds, the index into LAFormats: 0 integer, 1 number, 2 rate, 3 diff, 4 unknown.
// A negative kind means rate.
enum LAKind { LA_INTEGER = 0, LA_NUMBER = 1, LA_RATE = 2, LA_DIFF = 3, LA_UNKNOWN = 4 };

// the total shown in the title is computed from the array when it is passed as this value
inline constexpr double LA_AUTO = std::numeric_limits<double>::quiet_NaN();

// The stream the protocol tables go to; handed over when the protocol is opened.
// nullptr: Prot::stream().
void laSetStream(FILE* stream);
FILE* laStream();
// restarts the counter of side files (a new run)
void laReset();
int laTableCounter();

// Where the rest of a table goes after its title.
struct LADest {
    FILE* f = nullptr;       // nullptr: the table is not written
    int format = 0;          // 0 HTML, 1 semicolon text, 2 plain text
    bool sideFile = false;   // the table has a file of its own, closed by laEnd
    bool pre = false;        // a text form inside the protocol, wrapped in <pre>
};

// Writes the title of an array into stream (nullptr: the protocol) and chooses its
// destination by AUSGABE_EINZELWERTE and MATRIX_AUSGABEFORMAT. tooltipKey: the dictionary
// key of the tooltip, nullptr for the name itself; title: further text, may hold @key;.
LADest laTitle(FILE* stream, const char* name, int kind, double sum, const char* tooltipKey,
               const char* title = nullptr);
// ends the table: "</table>" or "</pre>", and closes a side file
void laEnd(LADest& dest);

// one cell in the format of the table; adds value to the active column sums
void laCell(FILE* stream, int kind, bool isHeader, double value, bool notLast);
void laCell(const LADest& dest, int kind, bool isHeader, double value, bool notLast);

// The dense forms. names: the dimension names, null-separated and ended by an empty word
// ("C.NTYB\0NBG\0NGG\0NAG\0"). stream nullptr: the protocol. total LA_AUTO: from the array.
void laPrint1(const LA1& a, FILE* stream, const char* names, const char* title, int kind, double total = LA_AUTO);
void laPrint2(const LA2& a, FILE* stream, const char* names, const char* title, int kind, double total = LA_AUTO);
void laPrint3(const LA3& a, FILE* stream, const char* names, const char* title, int kind, double total = LA_AUTO);
void laPrint4(const LA4& a, FILE* stream, const char* names, const char* title, int kind, double total = LA_AUTO);
void laPrint5(const LA5& a, FILE* stream, const char* names, const char* title, int kind, double total = LA_AUTO);
// the same print of an array of rank 4 held in one block in row order, with its extents and name
void laPrint4(const double* data, const std::array<size_t, 4>& extents, const std::string& name, FILE* stream,
              const char* names, const char* title, int kind, double total = LA_AUTO);

inline void laPrintAny(const LA1& a, FILE* s, const char* n, const char* t, int k, double tot) { laPrint1(a, s, n, t, k, tot); }
inline void laPrintAny(const LA2& a, FILE* s, const char* n, const char* t, int k, double tot) { laPrint2(a, s, n, t, k, tot); }
inline void laPrintAny(const LA3& a, FILE* s, const char* n, const char* t, int k, double tot) { laPrint3(a, s, n, t, k, tot); }
inline void laPrintAny(const LA4& a, FILE* s, const char* n, const char* t, int k, double tot) { laPrint4(a, s, n, t, k, tot); }
inline void laPrintAny(const LA5& a, FILE* s, const char* n, const char* t, int k, double tot) { laPrint5(a, s, n, t, k, tot); }

// true when the protocol level reaches level and a protocol stream exists
bool laActive(int level);

// The form the stages use: prints into the protocol when its level reaches level.
template <int R>
void laPrint(int level, const LA<R>& a, const char* names, const char* title = nullptr, int kind = LA_NUMBER,
             double total = LA_AUTO) {
    if (!laActive(level)) return;
    laPrintAny(a, nullptr, names, title, kind, total);
}

// the plain text dump: head line and one line per inner vector, no title
void laPrintText(FILE* stream, const LA1& a, const char* names);
void laPrintText(FILE* stream, const LA2& a, const char* names);
void laPrintText(FILE* stream, const LA3& a, const char* names);
void laPrintText(FILE* stream, const LA4& a, const char* names);
void laPrintText(FILE* stream, const LA5& a, const char* names);

// Several vectors side by side, one column each, under one title (e.g. a stock and its
// two limits); vectors of another size than the first are reported and left out.
void laPrintColumns(FILE* stream, const char* title, const std::vector<const LA1*>& columns, const char* rowName,
                    int kind);

// Listings of sparse tables.
// a region table: region (key or index), BG, GG, AG counted as in files
struct LAListRow {
    unsigned long gz;
    unsigned bg, gg, ag;
    double v;
};
// labels: four index labels ("NGZ", "BG", "GG", "AG" when nullptr)
void laPrintList(FILE* stream, const char* name, const char* title, int kind, const std::vector<LAListRow>& rows,
                 const char* const* labels = nullptr);
// flows between two types (regions == false, head "TYB TYB BG GG AG") or two regions
// (regions == true, head "%zu GKZ GKZ BG GG AG")
struct LAPairRow {
    unsigned long long from, to;
    unsigned bg, gg, ag;
    double v;
};
void laPrintPairs(FILE* stream, const char* name, const char* title, int kind, const std::vector<LAPairRow>& rows,
                  bool regions);

// The region key of a region index, for labels of the dimension NGZ; installed by the run
// object. Returns false when there is none.
extern std::function<bool(size_t gz, long long& key)> laRegionKey;

// Rounding of a whole array to integers with a running remainder, first index outermost,
// so that the total survives.
inline double laRoundHalfAway(double t) { return t >= 0 ? std::floor(t + 0.5) : std::ceil(t - 0.5); }
template <int R>
void laRoundCarry(LA<R>& a) {
    double r = 0;
    a.forEach([&r](f64& v) {
        if (v == 0) return;
        double t = r + v;
        double n = laRoundHalfAway(t);
        r += v - n;
        v = n;
    });
}

// true when flows are rounded with carry (STRunden)
bool laFlowsRounded();
// rounds a flow table with carry when the settings ask for it
template <int R>
void laRoundFlows(LA<R>& a) {
    if (laFlowsRounded()) laRoundCarry(a);
}

// Text of a number with the thousands separator of the locale.
class Pic {
public:
    static std::string Get(double value, unsigned decimals);
    static std::string Get(long long value) { return Get(static_cast<double>(value), 0); }
    static std::string Get(int value) { return Get(static_cast<double>(value), 0); }
};
