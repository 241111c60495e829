// Compares the number formatter with snprintf on many random and edge values and times both.
//
//   formatbench [millions]     default 30: values per format for "%.15g" (a tenth of it for the
//                              other formats), then the same under the decimal comma of de_DE
//
// Values: any bit pattern (subnormals, NaN, infinity included), population-sized numbers, whole
// numbers up to and above 2^53, numbers next to the half-way points of 15 and fewer digits,
// values where "%g" switches between fixed and scientific form, and both zeros. Exits 1 at the
// first difference, with the value's bits and both texts.
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tables/number_format.h"

namespace {

// the next test value; the kind cycles so that every kind is well represented
double probe(std::mt19937_64& rng, uint64_t i)
{
    uint64_t bits = rng();
    switch (i % 8) {
    case 0: {   // any double
        double v;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }
    case 1:     // a population count or a rate
        return static_cast<double>(bits % 100000000) / static_cast<double>(1 + (bits >> 40) % 10000);
    case 2:     // whole numbers, beyond 2^53 too
        return static_cast<double>(static_cast<int64_t>(bits) >> (bits % 60));
    case 3: {   // next to a half-way point of 1 to 17 digits at any scale
        char text[64];
        int digits = 1 + static_cast<int>(bits % 17);
        uint64_t mantissa = (rng() % 100000000000000000ULL) | 1;
        std::snprintf(text, sizeof text, "%llu5e%d", static_cast<unsigned long long>(mantissa % static_cast<uint64_t>(std::pow(10.0, digits))),
                      static_cast<int>(rng() % 80) - 40);
        double v = std::strtod(text, nullptr);
        int step = static_cast<int>(bits >> 60) % 3 - 1;
        return step < 0 ? std::nextafter(v, 0.0) : step > 0 ? std::nextafter(v, INFINITY) : v;
    }
    case 4: {   // around the switch points of %g: 1e-5 .. 1e-3 and 1e13 .. 1e18
        double scale = std::pow(10.0, (bits & 1) ? -5 + static_cast<int>(bits % 3) : 13 + static_cast<int>(bits % 6));
        return scale * (1 + static_cast<double>(rng() % 1000000000) * 1e-9);
    }
    case 5:     // subnormals and the smallest normals
        return std::ldexp(static_cast<double>(bits >> 11), -1074 - static_cast<int>(bits % 64) + 60);
    case 6:     // zeros, halves and numbers of few digits, either sign
        return (bits & 2 ? -1.0 : 1.0) * static_cast<double>(bits % 2000) / (bits & 4 ? 2.0 : 8.0);
    default:    // a value just below or above a power of ten
        return std::nextafter(std::pow(10.0, static_cast<int>(bits % 40) - 20), (bits & 8) ? 0.0 : INFINITY) *
               ((bits & 16) ? -1 : 1);
    }
}

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// compares count values under one format; returns false at the first difference
bool compare(const char* format, uint64_t count, uint64_t seed)
{
    NumberFormat compiled(format);
    std::mt19937_64 rng(seed);
    char mine[NUMBER_TEXT_MAX], theirs[NUMBER_TEXT_MAX];
    for (uint64_t i = 0; i < count; ++i) {
        double v = probe(rng, i);
        int a = compiled.format(mine, sizeof mine, v);
        int b = std::snprintf(theirs, sizeof theirs, format, v);
        if (a != b || std::strcmp(mine, theirs) != 0) {
            uint64_t bits;
            std::memcpy(&bits, &v, sizeof bits);
            std::printf("DIFFERENCE %s value %016llx: \"%s\" against snprintf \"%s\"\n", format,
                        static_cast<unsigned long long>(bits), mine, theirs);
            return false;
        }
    }
    return true;
}

// time per value of both, on population-sized values
void timing(const char* format, uint64_t count)
{
    std::mt19937_64 rng(7);
    std::vector<double> values(count);
    for (uint64_t i = 0; i < count; ++i) values[i] = probe(rng, 1);
    NumberFormat compiled(format);
    char text[NUMBER_TEXT_MAX];
    size_t sink = 0;
    auto t0 = std::chrono::steady_clock::now();
    for (double v : values) sink += static_cast<size_t>(compiled.format(text, sizeof text, v));
    double ours = seconds(t0);
    t0 = std::chrono::steady_clock::now();
    for (double v : values) sink += static_cast<size_t>(std::snprintf(text, sizeof text, format, v));
    double theirs = seconds(t0);
    std::printf("%-8s %6.1f ns per value, snprintf %6.1f ns (%zu)\n", format, ours * 1e9 / static_cast<double>(count),
                theirs * 1e9 / static_cast<double>(count), sink % 10);
}

} // namespace

int main(int argc, char** argv)
{
    uint64_t millions = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 30;
    uint64_t main = millions * 1000000, other = main / 10;
    const char* formats[] = {"%.0f", "%.3f", "%.6e", "%g", "%.1g", "%.16g", "%.17g", "%10.4f", "%-12.5g",
                             "%+.15g", "% 014.2f", "%.15G", "%.15g;", "%lf", "%.12E"};
    auto t0 = std::chrono::steady_clock::now();
    uint64_t compared = 0;
    for (const char* locale : {"C", "de_DE.UTF-8"}) {
        if (!std::setlocale(LC_ALL, locale)) {
            std::printf("locale %s missing, skipped\n", locale);
            continue;
        }
        uint64_t n = std::strcmp(locale, "C") == 0 ? main : other;
        if (!compare("%.15g", n, 1)) return 1;
        compared += n;
        for (const char* f : formats) {
            if (!compare(f, other / 4, 2)) return 1;
            compared += other / 4;
        }
    }
    std::printf("%llu values compared with snprintf, no difference (%.1f s)\n", static_cast<unsigned long long>(compared),
                seconds(t0));
    std::setlocale(LC_ALL, "C");
    for (const char* f : {"%.15g", "%.0f", "%.3f"}) timing(f, 2000000);
    return 0;
}
