// Numbers into text, byte for byte as the C library's printf writes them under the current
// locale, without going through printf for the formats the tables use: "%.15g" and the other
// "%.Ng", "%.Nf", "%.Ne" forms with widths and the flags "-+ 0", and the integer conversions of
// the key columns. Anything else (the '#' and grouping flags, "%a", a decimal point of more than
// one byte) is handed to snprintf, so the text is always what printf would give.
#pragma once
#include <cstddef>
#include <string>

// room a caller gives for one number: no compiled format writes more than this on its own path
constexpr size_t NUMBER_TEXT_MAX = 400;

// the decimal point of the current locale when it is one byte, else 0
char localeDecimalPoint();

class NumberFormat {
public:
    // a printf format with one conversion of a double, literal text and "%%" around it
    explicit NumberFormat(const std::string& printfFormat = "%.15g");
    // snprintf's contract: the text into out (at most size-1 bytes, terminated when size > 0);
    // returns the length of the whole text
    int format(char* out, size_t size, double value) const;
    // the text appended to out
    void append(std::string& out, double value) const;
    // format for a caller that writes many values under one locale: out holds NUMBER_TEXT_MAX
    // bytes, point is the locale's decimal point as localeDecimalPoint() gave it; the length
    int formatUnder(char point, char* out, double value) const;
    const std::string& text() const { return format_; }

private:
    // the text into out, which holds NUMBER_TEXT_MAX bytes; -1 when only snprintf can do it
    int direct(char* out, double value) const { return direct(out, value, localeDecimalPoint()); }
    int direct(char* out, double value, char point) const;

    std::string format_;
    std::string prefix_, suffix_;
    bool fast_ = false;
    char conversion_ = 'g';   // e, f or g
    bool upper_ = false;
    bool left_ = false, plus_ = false, space_ = false, zero_ = false;
    int width_ = 0, precision_ = 6;
};

// An integer conversion ("%d", "%04d", "%lld", "% 5llu"): the same text as snprintf with a long long
class IntegerFormat {
public:
    explicit IntegerFormat(const std::string& printfFormat = "%lld");
    // the text into out (at least NUMBER_TEXT_MAX bytes), returns its length
    int format(char* out, long long value) const;
    void append(std::string& out, long long value) const;

private:
    std::string format_;    // with the length modifier ll, for the fallback
    std::string prefix_, suffix_;
    bool fast_ = false, unsigned_ = false;
    bool left_ = false, plus_ = false, space_ = false, zero_ = false;
    int width_ = 0;
};

// one value by a printf format of a double: the compiled form of the format is kept per
// thread, so a caller that passes the same few formats pays for compiling them once
int formatNumber(char* out, size_t size, const char* printfFormat, double value);
