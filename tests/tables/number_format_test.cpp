// The number formatter against snprintf: millions of random and edge values under the formats
// the tables use, the decimal comma, the forms of curried_gcvt, and the integer columns.
#include <array>
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "tables/number_format.h"
#include "tables/table_text.h"

namespace {

// random values of every kind: any bit pattern, population sizes, whole numbers beyond 2^53,
// values next to half-way points, the switch points of %g, subnormals, zeros and halves
double probe(std::mt19937_64& rng, uint64_t i)
{
    uint64_t bits = rng();
    double v;
    switch (i % 7) {
    case 0: std::memcpy(&v, &bits, sizeof v); return v;
    case 1: return static_cast<double>(bits % 100000000) / static_cast<double>(1 + (bits >> 40) % 10000);
    case 2: return static_cast<double>(static_cast<int64_t>(bits) >> (bits % 60));
    case 3: {
        char text[64];
        std::snprintf(text, sizeof text, "%llu5e%d", static_cast<unsigned long long>(rng() % 100000000000000000ULL),
                      static_cast<int>(bits % 60) - 40);
        v = std::strtod(text, nullptr);
        return bits & (1ULL << 62) ? std::nextafter(v, (bits >> 63) ? 0.0 : INFINITY) : v;
    }
    case 4: return std::pow(10.0, static_cast<int>(bits % 25) - 6) * (1 + static_cast<double>(rng() % 1000000) * 1e-6);
    case 5: return std::ldexp(static_cast<double>(bits >> 11), -1074 - static_cast<int>(bits % 64) + 60);
    default: return (bits & 2 ? -1.0 : 1.0) * static_cast<double>(bits % 2000) / (bits & 4 ? 2.0 : 8.0);
    }
}

// the first value whose text differs from snprintf's, or "" when none does
std::string firstDifference(const char* format, uint64_t count, uint64_t seed)
{
    NumberFormat compiled(format);
    std::mt19937_64 rng(seed);
    char mine[NUMBER_TEXT_MAX], theirs[NUMBER_TEXT_MAX];
    for (uint64_t i = 0; i < count; ++i) {
        double v = probe(rng, i);
        int a = compiled.format(mine, sizeof mine, v);
        int b = std::snprintf(theirs, sizeof theirs, format, v);
        if (a != b || std::strcmp(mine, theirs) != 0)
            return std::string(format) + " of " + theirs + " gives " + mine;
    }
    return "";
}

struct Locale {
    std::string old = std::setlocale(LC_ALL, nullptr);
    bool ok;
    explicit Locale(const char* name) : ok(std::setlocale(LC_ALL, name) != nullptr) {}
    ~Locale() { std::setlocale(LC_ALL, old.c_str()); }
};

} // namespace

TEST(NumberFormat, GivesTheBytesOfSnprintfOnMillionsOfValues)
{
    Locale c("C");
    EXPECT_EQ(firstDifference("%.15g", 3000000, 11), "");
    for (const char* f : {"%.0f", "%.3f", "%.6e", "%g", "%.1g", "%.17g", "%10.4f", "%-12.5g", "%+.15g", "% 014.2f",
                          "%.15G", "x%.15g;%%", "%lf", "%#.3g", "%'.2f", "%a"})
        EXPECT_EQ(firstDifference(f, 60000, 12), "");
}

TEST(NumberFormat, FollowsTheDecimalCommaOfTheLocale)
{
    Locale de("de_DE.UTF-8");
    if (!de.ok) GTEST_SKIP() << "de_DE.UTF-8 missing";
    EXPECT_EQ(localeDecimalPoint(), ',');
    char text[NUMBER_TEXT_MAX];
    NumberFormat("%.15g").format(text, sizeof text, 1234.5);
    EXPECT_STREQ(text, "1234,5");
    for (const char* f : {"%.15g", "%.0f", "%.4f", "%.3e"}) EXPECT_EQ(firstDifference(f, 200000, 13), "");
}

TEST(NumberFormat, EdgeValuesAsPrintfWritesThem)
{
    Locale c("C");
    char text[NUMBER_TEXT_MAX];
    auto g = [&](double v) {
        NumberFormat("%.15g").format(text, sizeof text, v);
        return std::string(text);
    };
    EXPECT_EQ(g(-0.0), "-0");
    EXPECT_EQ(g(0.1 + 0.2), "0.3");
    EXPECT_EQ(g(9007199254740993.0), "9.00719925474099e+15");
    EXPECT_EQ(g(999999999999999.5), "1e+15");
    EXPECT_EQ(g(0.0001), "0.0001");
    EXPECT_EQ(g(0.00001), "1e-05");
    EXPECT_EQ(g(4.9406564584124654e-324), "4.94065645841247e-324");
    EXPECT_EQ(g(-NAN), "-nan");
    EXPECT_EQ(g(INFINITY), "inf");
    // a short buffer gets what fits, the length is that of the whole text
    EXPECT_EQ(NumberFormat("%.3f").format(text, 4, 12.25), 6);
    EXPECT_STREQ(text, "12.");
}

TEST(NumberFormat, CurriedGcvtFormsAndCells)
{
    Locale c("C");
    char a[NUMBER_TEXT_MAX], b[NUMBER_TEXT_MAX];
    // the empty form is "%.15g" with a non-digit at the end cut; undefined is "undef"
    GcvtFn plain = curried_gcvt("");
    std::mt19937_64 rng(5);
    for (int i = 0; i < 200000; ++i) {
        double v = probe(rng, static_cast<uint64_t>(i));
        if (std::isinf(v)) continue;
        int n = std::snprintf(b, sizeof b, "%.15g", v);
        if (n > 0 && !(b[n - 1] >= '0' && b[n - 1] <= '9')) b[n - 1] = 0;
        plain(a, sizeof a, v);
        ASSERT_STREQ(a, b) << v;
    }
    plain(a, sizeof a, -INFINITY);
    EXPECT_STREQ(a, "undef");
    GcvtFn fixed = curried_gcvt("%6r");
    fixed(a, sizeof a, 12.5);
    EXPECT_STREQ(a, "12.5000");
    fixed(a, sizeof a, -12.5);
    EXPECT_STREQ(a, "-12.500");
    curried_gcvt("%r")(a, sizeof a, 2.0 / 3);
    EXPECT_STREQ(a, "0.66666666666667");
    EXPECT_EQ(csvFormatDouble(2.5, 0), "2");
    EXPECT_EQ(csvFormatDouble(3.5, 0), "4");
}

// the writers of the yearly tables format through ValueFormat: the same bytes as curried_gcvt of
// the same format, for every form of the setting, in both decimal points, not finite values too
TEST(NumberFormat, ValueFormatWritesWhatCurriedGcvtWrites)
{
    for (const char* locale : {"C", "de_DE.UTF-8"}) {
        Locale l(locale);
        std::mt19937_64 rng(11);
        char a[NUMBER_TEXT_MAX], b[NUMBER_TEXT_MAX];
        for (const char* form : {"", "%.15g", "%.6f", "%12.3e", "%r", "%8r", "%.3x", "%+.2f"}) {
            ValueFormat value(form);
            GcvtFn curried = curried_gcvt(form);
            for (int i = 0; i < 20000; ++i) {
                double v = i < 6 ? std::array<double, 6>{0.0, -0.0, NAN, -INFINITY, INFINITY, 0.28}[i]
                                 : probe(rng, static_cast<uint64_t>(i));
                int n = value.put(a, v);
                a[n] = 0;
                ASSERT_EQ(n, curried(b, sizeof b, v)) << form << " " << v;
                ASSERT_STREQ(a, b) << form << " " << locale;
            }
        }
        // without a setting, formatNumber's "%.15g" under the locale of the moment
        ValueFormat unset;
        int n = unset.put(a, 1234.5);
        a[n] = 0;
        EXPECT_STREQ(a, std::string(locale) == "C" ? "1234.5" : "1234,5");
    }
}

TEST(NumberFormat, IntegerColumnsAsSnprintf)
{
    std::mt19937_64 rng(3);
    char a[NUMBER_TEXT_MAX], b[NUMBER_TEXT_MAX];
    for (const char* f : {"%lld", "%04lld", "% 5lld", "%-6lld", "%+lld", "%llu", "%03llx"}) {
        IntegerFormat format(f);
        for (int i = 0; i < 20000; ++i) {
            long long v = static_cast<long long>(rng()) >> (rng() % 64);
            int n = format.format(a, v);
            std::snprintf(b, sizeof b, f, v);
            ASSERT_EQ(std::string(a, static_cast<size_t>(n)), b) << f << " " << v;
        }
    }
    // the formats of intFormat without the length modifier
    IntegerFormat year("%04d");
    EXPECT_EQ(year.format(a, 7), 4);
    EXPECT_EQ(std::string(a, 4), "0007");
}
