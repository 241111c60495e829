// Numbers into text as printf writes them: the shortest round-trip digits where they settle the
// rounding, std::to_chars with a precision where they don't, and whole numbers two digits at a time.
#include "tables/number_format.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>

namespace {

// The parts of a printf format around its one conversion.
struct Parsed {
    std::string prefix, suffix;
    std::string flags;
    int width = 0;
    int precision = -1;       // -1: none given
    std::string length;
    char conversion = 0;
    bool ok = false;
};

// literal text with "%%" turned into "%"; false at any other '%'
bool literal(const char* p, const char* end, std::string& out)
{
    while (p < end) {
        if (*p == '%') {
            if (p + 1 < end && p[1] == '%') {
                out += '%';
                p += 2;
                continue;
            }
            return false;
        }
        out += *p++;
    }
    return true;
}

Parsed parse(const std::string& format)
{
    Parsed r;
    const char* s = format.c_str();
    const char* end = s + format.size();
    // the first '%' that does not start "%%"
    const char* p = s;
    while (p < end) {
        if (*p == '%' && p + 1 < end && p[1] == '%') {
            p += 2;
            continue;
        }
        if (*p == '%') break;
        ++p;
    }
    if (p >= end || !literal(s, p, r.prefix)) return r;
    ++p;
    while (p < end && std::strchr("-+ #0'", *p)) r.flags += *p++;
    while (p < end && *p >= '0' && *p <= '9') {
        r.width = r.width * 10 + (*p++ - '0');
        if (r.width > 1000) return r;
    }
    if (p < end && *p == '.') {
        ++p;
        r.precision = 0;
        while (p < end && *p >= '0' && *p <= '9') {
            r.precision = r.precision * 10 + (*p++ - '0');
            if (r.precision > 1000) return r;
        }
    }
    while (p < end && std::strchr("hlLqjzt", *p)) r.length += *p++;
    if (p >= end) return r;
    r.conversion = *p++;
    if (!literal(p, end, r.suffix)) return r;
    r.ok = true;
    return r;
}

bool has(const std::string& flags, char c) { return flags.find(c) != std::string::npos; }

// sign, padding to the width, and the literal text around, into out; body is the text of the
// magnitude; returns the length
int finish(char* out, const std::string& prefix, const std::string& suffix, char sign, const char* body, int bodyLength,
           int width, bool left, bool zeroPad)
{
    char* o = out;
    std::memcpy(o, prefix.data(), prefix.size());
    o += prefix.size();
    int length = bodyLength + (sign ? 1 : 0);
    int pad = width > length ? width - length : 0;
    if (pad && !left && !zeroPad) {
        std::memset(o, ' ', static_cast<size_t>(pad));
        o += pad;
    }
    if (sign) *o++ = sign;
    if (pad && !left && zeroPad) {
        std::memset(o, '0', static_cast<size_t>(pad));
        o += pad;
    }
    std::memcpy(o, body, static_cast<size_t>(bodyLength));
    o += bodyLength;
    if (pad && left) {
        std::memset(o, ' ', static_cast<size_t>(pad));
        o += pad;
    }
    std::memcpy(o, suffix.data(), suffix.size());
    o += suffix.size();
    return static_cast<int>(o - out);
}

// snprintf's contract over a text of known length
int deliver(char* out, size_t size, const char* text, int length)
{
    if (size > 0) {
        size_t n = static_cast<size_t>(length) < size ? static_cast<size_t>(length) : size - 1;
        std::memcpy(out, text, n);
        out[n] = 0;
    }
    return length;
}

// The significant digits of a positive finite value, rounded to a precision, with the decimal
// exponent of the first digit; trailing zeros removed.
struct Digits {
    char d[24];
    int n = 0;
    int exponent = 0;
};

constexpr uint64_t POW10[20] = {1ULL,
                                10ULL,
                                100ULL,
                                1000ULL,
                                10000ULL,
                                100000ULL,
                                1000000ULL,
                                10000000ULL,
                                100000000ULL,
                                1000000000ULL,
                                10000000000ULL,
                                100000000000ULL,
                                1000000000000ULL,
                                10000000000000ULL,
                                100000000000000ULL,
                                1000000000000000ULL,
                                10000000000000000ULL,
                                100000000000000000ULL,
                                1000000000000000000ULL,
                                10000000000000000000ULL};

// The decimal digits of whole numbers, two at a time from a table, in independent blocks of
// eight: the digits of one block do not wait for those of the others.
constexpr char PAIRS[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                         "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                         "8081828384858687888990919293949596979899";

inline void twoDigits(char* out, uint32_t v) { std::memcpy(out, PAIRS + 2 * v, 2); }

// exactly eight digits of v < 10^8, leading zeros too
inline void eightDigits(char* out, uint32_t v)
{
    uint32_t high = v / 10000, low = v % 10000;
    twoDigits(out, high / 100);
    twoDigits(out + 2, high % 100);
    twoDigits(out + 4, low / 100);
    twoDigits(out + 6, low % 100);
}

// the number of decimal digits of v (1 for 0)
inline int digitCount(uint64_t v)
{
    int bits = 64 - __builtin_clzll(v | 1);
    int n = (bits * 1233) >> 12;   // bits * log10(2), one too low at most
    return n + ((v | 1) >= POW10[n] ? 1 : 0);
}

// the n digits of v < 10^n (n up to 8) at out, the last two first
inline void fewDigits(char* out, uint32_t v, int n)
{
    char* p = out + n;
    for (; n >= 2; n -= 2) {
        p -= 2;
        twoDigits(p, v % 100);
        v /= 100;
    }
    if (n) *--p = static_cast<char>('0' + v);
}

// v in decimal without leading zeros, as std::to_chars writes it, straight into out; returns the length
inline int decimal(char* out, uint64_t v)
{
    int n = digitCount(v);
    if (n <= 8) {
        fewDigits(out, static_cast<uint32_t>(v), n);
        return n;
    }
    uint64_t top = v / 100000000;
    eightDigits(out + n - 8, static_cast<uint32_t>(v % 100000000));
    if (n <= 16) {
        fewDigits(out, static_cast<uint32_t>(top), n - 8);
        return n;
    }
    eightDigits(out + n - 16, static_cast<uint32_t>(top % 100000000));
    fewDigits(out, static_cast<uint32_t>(top / 100000000), n - 16);
    return n;
}

// Digits just written two at a time, copied one by one: a wider load of them would wait until
// those small stores are done, which costs more than the copy of a few bytes (so the loop is not
// turned into memcpy or vector loads).
__attribute__((optimize("no-tree-loop-distribute-patterns", "no-tree-vectorize"))) char* copyDigits(char* out,
                                                                                                 const char* from,
                                                                                                 int n)
{
    for (int i = 0; i < n; ++i) out[i] = from[i];
    return out + n;
}

// a * 10^scale for a positive finite value, exactly: its whole part, and the whole number it
// rounds to (the exact binary value, ties to even, as printf rounds). False when the scale is
// out of 0..19 or the result does not fit 64 bits.
bool scaled(double a, int scale, uint64_t& whole, uint64_t& rounded)
{
    if (scale < 0 || scale > 19) return false;
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    int biased = static_cast<int>(bits >> 52) & 0x7ff;
    uint64_t mantissa = bits & ((1ULL << 52) - 1);
    int exponent;   // a = mantissa * 2^exponent
    if (biased == 0) {
        exponent = -1074;
    } else {
        mantissa |= 1ULL << 52;
        exponent = biased - 1075;
    }
    unsigned __int128 product = static_cast<unsigned __int128>(mantissa) * POW10[scale];
    if (exponent >= 0) {
        if (exponent > 11) return false;
        product <<= exponent;
        if (product >> 64) return false;
        whole = rounded = static_cast<uint64_t>(product);
        return true;
    }
    int shift = -exponent;
    if (shift > 120) return false;
    unsigned __int128 q = product >> shift;
    unsigned __int128 rest = product & ((static_cast<unsigned __int128>(1) << shift) - 1);
    unsigned __int128 half = static_cast<unsigned __int128>(1) << (shift - 1);
    if (q >> 64) return false;
    whole = static_cast<uint64_t>(q);
    rounded = whole + ((rest > half || (rest == half && (whole & 1))) ? 1 : 0);
    return rounded != 0 || whole == 0;
}

// The digits of a positive finite value rounded to precision significant digits (1..19).
// False when the value lies out of the range the exact integer arithmetic covers.
bool roundedDigits(double a, int precision, Digits& r)
{
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    int binary = (static_cast<int>(bits >> 52) & 0x7ff) - 1023;   // a in [2^binary, 2^(binary+1))
    // the decimal exponent is this or one less
    // (binary + 1) * log10(2) rounded down, exact in integers for |binary| < 1650
    int exponent = ((binary + 1) * 78913) >> 18;
    uint64_t whole, rounded;
    if (!scaled(a, precision - 1 - exponent, whole, rounded)) return false;
    if (whole < POW10[precision - 1]) {
        --exponent;
        if (!scaled(a, precision - 1 - exponent, whole, rounded)) return false;
    }
    if (rounded == POW10[precision]) {
        rounded = POW10[precision - 1];
        ++exponent;
    }
    // trailing zeros dropped from the number, before its digits are written: eight, four, two
    // and one at a time, since rates of few digits leave many
    if (rounded % 10 == 0 && rounded != 0) {
        while (rounded % 100000000 == 0) rounded /= 100000000;
        if (rounded % 10000 == 0) rounded /= 10000;
        if (rounded % 100 == 0) rounded /= 100;
        if (rounded % 10 == 0) rounded /= 10;
    }
    r.n = decimal(r.d, rounded);
    r.exponent = exponent;
    return true;
}

// a value with decimals fixed digits after the point (0..19), or -1 when it is too large
int layoutFixed(char* out, double a, int decimals, char point)
{
    uint64_t whole, rounded;
    if (!scaled(a, decimals, whole, rounded)) return -1;
    char digits[24];
    int n = decimal(digits, rounded);
    char* o = out;
    if (n <= decimals) {
        *o++ = '0';
        if (decimals) *o++ = point;
        for (int i = n; i < decimals; ++i) *o++ = '0';
        o = copyDigits(o, digits, n);
    } else {
        o = copyDigits(o, digits, n - decimals);
        if (decimals) {
            *o++ = point;
            o = copyDigits(o, digits + n - decimals, decimals);
        }
    }
    return static_cast<int>(o - out);
}

// the "%g" layout of rounded digits: fixed when -4 <= exponent < precision, else scientific
int layoutGeneral(char* out, const Digits& g, int precision, char point)
{
    char* o = out;
    int x = g.exponent;
    if (x < -4 || x >= precision) {
        *o++ = g.d[0];
        if (g.n > 1) {
            *o++ = point;
            o = copyDigits(o, g.d + 1, g.n - 1);
        }
        *o++ = 'e';
        *o++ = x < 0 ? '-' : '+';
        int ax = x < 0 ? -x : x;
        if (ax < 10) *o++ = '0';
        o = std::to_chars(o, o + 4, ax).ptr;
    } else if (x >= 0) {
        int whole = x + 1;
        for (int i = 0; i < whole; ++i) *o++ = i < g.n ? g.d[i] : '0';
        if (g.n > whole) {
            *o++ = point;
            o = copyDigits(o, g.d + whole, g.n - whole);
        }
    } else {
        *o++ = '0';
        *o++ = point;
        for (int i = -1; i > x; --i) *o++ = '0';
        o = copyDigits(o, g.d, g.n);
    }
    return static_cast<int>(o - out);
}

void replacePoint(char* text, int length, char point)
{
    if (point == '.') return;
    if (char* dot = static_cast<char*>(std::memchr(text, '.', static_cast<size_t>(length)))) *dot = point;
}

} // namespace

char localeDecimalPoint()
{
    const char* point = nl_langinfo(RADIXCHAR);
    if (!point || !point[0]) return '.';
    return point[1] ? 0 : point[0];
}

// ---------------------------------------------------------------------------------

NumberFormat::NumberFormat(const std::string& printfFormat) : format_(printfFormat)
{
    Parsed p = parse(format_);
    if (!p.ok || !std::strchr("eEfFgG", p.conversion) || (!p.length.empty() && p.length != "l")) return;
    if (has(p.flags, '#') || has(p.flags, '\'')) return;
    int precision = p.precision < 0 ? 6 : p.precision;
    if (p.width > 60 || precision > 60) return;
    prefix_ = p.prefix;
    suffix_ = p.suffix;
    conversion_ = static_cast<char>(p.conversion | 0x20);
    upper_ = p.conversion != conversion_;
    left_ = has(p.flags, '-');
    plus_ = has(p.flags, '+');
    space_ = has(p.flags, ' ');
    zero_ = has(p.flags, '0') && !left_;
    width_ = p.width;
    precision_ = conversion_ == 'g' && precision == 0 ? 1 : precision;
    fast_ = prefix_.size() + suffix_.size() < 16;
}

int NumberFormat::direct(char* out, double value, char point) const
{
    if (!fast_ || !point) return -1;
    char sign = std::signbit(value) ? '-' : plus_ ? '+' : space_ ? ' ' : 0;
    // without literal text and width the text goes straight into out, behind the sign
    const bool plain = width_ == 0 && prefix_.empty() && suffix_.empty();
    char scratch[NUMBER_TEXT_MAX];
    if (plain && sign) *out = sign;
    char* body = plain ? out + (sign ? 1 : 0) : scratch;
    int n = 0;
    double a = std::fabs(value);
    bool finite = std::isfinite(a);
    if (!finite) {
        std::memcpy(body, std::isnan(a) ? (upper_ ? "NAN" : "nan") : (upper_ ? "INF" : "inf"), 3);
        n = 3;
    } else if (conversion_ == 'g') {
        Digits g;
        if (a == 0) {
            body[0] = '0';
            n = 1;
        } else if (precision_ <= 19 && roundedDigits(a, precision_, g)) {
            n = layoutGeneral(body, g, precision_, point);
        } else {
            n = static_cast<int>(
                std::to_chars(body, body + NUMBER_TEXT_MAX - 2, a, std::chars_format::general, precision_).ptr - body);
            replacePoint(body, n, point);
        }
    } else if (conversion_ == 'f') {
        n = precision_ <= 19 ? layoutFixed(body, a, precision_, point) : -1;
        if (n < 0) {
            auto res = std::to_chars(body, body + NUMBER_TEXT_MAX - 2, a, std::chars_format::fixed, precision_);
            if (res.ec != std::errc()) return -1;
            n = static_cast<int>(res.ptr - body);
            replacePoint(body, n, point);
        }
    } else {
        n = static_cast<int>(
            std::to_chars(body, body + NUMBER_TEXT_MAX - 2, a, std::chars_format::scientific, precision_).ptr - body);
        replacePoint(body, n, point);
    }
    if (upper_ && finite)
        for (int i = 0; i < n; ++i)
            if (body[i] == 'e') body[i] = 'E';
    if (plain) return n + (sign ? 1 : 0);
    return finish(out, prefix_, suffix_, sign, body, n, width_, left_, zero_ && finite);
}

int NumberFormat::format(char* out, size_t size, double value) const
{
    char text[NUMBER_TEXT_MAX];
    int n = direct(size >= NUMBER_TEXT_MAX ? out : text, value);
    if (n < 0) return std::snprintf(out, size, format_.c_str(), value);
    if (size >= NUMBER_TEXT_MAX) {
        out[n] = 0;
        return n;
    }
    return deliver(out, size, text, n);
}

int NumberFormat::formatUnder(char point, char* out, double value) const
{
    int n = direct(out, value, point);
    return n < 0 ? std::snprintf(out, NUMBER_TEXT_MAX, format_.c_str(), value) : n;
}

void NumberFormat::append(std::string& out, double value) const
{
    char text[NUMBER_TEXT_MAX];
    int n = direct(text, value);
    if (n < 0) {
        n = std::snprintf(text, sizeof text, format_.c_str(), value);
        if (n >= static_cast<int>(sizeof text)) {
            std::string big(static_cast<size_t>(n) + 1, 0);
            std::snprintf(big.data(), big.size(), format_.c_str(), value);
            out.append(big.data(), static_cast<size_t>(n));
            return;
        }
        if (n < 0) n = 0;
    }
    out.append(text, static_cast<size_t>(n));
}

// ---------------------------------------------------------------------------------

IntegerFormat::IntegerFormat(const std::string& printfFormat)
{
    Parsed p = parse(printfFormat);
    if (!p.ok || !std::strchr("diouxX", p.conversion)) {
        format_ = "%lld";
        fast_ = true;
        return;
    }
    // the same format with the length modifier of a long long, for snprintf
    std::string conversion = "%" + p.flags + (p.width ? std::to_string(p.width) : "") +
                       (p.precision >= 0 ? "." + std::to_string(p.precision) : "") + "ll" + p.conversion;
    auto escape = [](const std::string& s) {
        std::string e;
        for (char c : s) e += c == '%' ? std::string("%%") : std::string(1, c);
        return e;
    };
    format_ = escape(p.prefix) + conversion + escape(p.suffix);
    prefix_ = p.prefix;
    suffix_ = p.suffix;
    unsigned_ = p.conversion != 'd' && p.conversion != 'i';
    left_ = has(p.flags, '-');
    plus_ = has(p.flags, '+') && !unsigned_;
    space_ = has(p.flags, ' ') && !unsigned_;
    zero_ = has(p.flags, '0') && !left_;
    width_ = p.width;
    fast_ = std::strchr("diu", p.conversion) && p.precision < 0 && !has(p.flags, '#') && !has(p.flags, '\'') && p.width <= 60 &&
            prefix_.size() + suffix_.size() < 16 && (p.length.empty() || p.length == "l" || p.length == "ll");
}

int IntegerFormat::format(char* out, long long value) const
{
    if (!fast_ || (unsigned_ && value < 0)) {
        int n = unsigned_ ? std::snprintf(out, NUMBER_TEXT_MAX, format_.c_str(), static_cast<unsigned long long>(value))
                          : std::snprintf(out, NUMBER_TEXT_MAX, format_.c_str(), value);
        return n < 0 ? 0 : n >= static_cast<int>(NUMBER_TEXT_MAX) ? static_cast<int>(NUMBER_TEXT_MAX) - 1 : n;
    }
    char body[24];
    unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                             : static_cast<unsigned long long>(value);
    int n = decimal(body, magnitude);
    char sign = value < 0 ? '-' : plus_ ? '+' : space_ ? ' ' : 0;
    return finish(out, prefix_, suffix_, sign, body, n, width_, left_, zero_);
}

void IntegerFormat::append(std::string& out, long long value) const
{
    char text[NUMBER_TEXT_MAX];
    out.append(text, static_cast<size_t>(format(text, value)));
}

// ---------------------------------------------------------------------------------

int formatNumber(char* out, size_t size, const char* printfFormat, double value)
{
    struct Entry {
        std::string text;
        NumberFormat format;
    };
    thread_local Entry cache[4] = {{"%.15g", NumberFormat("%.15g")}, {"%.0f", NumberFormat("%.0f")},
                                   {"", NumberFormat()}, {"", NumberFormat()}};
    thread_local int nextSlot = 2;
    for (Entry& e : cache)
        if (e.text == printfFormat) return e.format.format(out, size, value);
    Entry& e = cache[nextSlot];
    nextSlot = nextSlot == 3 ? 2 : 3;
    e.text = printfFormat;
    e.format = NumberFormat(e.text);
    return e.format.format(out, size, value);
}
