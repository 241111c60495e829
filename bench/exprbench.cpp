// Evaluations per second of table cells over one million index tuples, and the number of heap
// allocations made while evaluating (a numeric cell must make none).
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "tables/expression.h"
#include "tables/functions.h"

namespace {
long g_allocations = 0;
bool g_counting = false;
} // namespace

void* operator new(std::size_t size)
{
    if (g_counting) ++g_allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

struct Result {
    double seconds;
    double checksum;
    long allocations;
};

// evaluates the cell for every tuple of regions x sex groups x ages
Result run(const char* text, int regions, int sexes, int ages)
{
    Parser parser(nullptr);
    parser.parse(text);
    long long tuple[3] = {1, 1, 0};
    evaluate(parser, tuple, 3, 0);   // the stack reaches its size here
    double sum = 0;
    g_allocations = 0;
    g_counting = true;
    auto start = std::chrono::steady_clock::now();
    for (int r = 1; r <= regions; ++r) {
        tuple[0] = r;
        for (int s = 1; s <= sexes; ++s) {
            tuple[1] = s;
            for (int a = 0; a < ages; ++a) {
                tuple[2] = a;
                double v = evaluate(parser, tuple, 3, 0);
                if (v == v && v - v == 0) sum += v;   // the curve is not defined below its start
            }
        }
    }
    auto end = std::chrono::steady_clock::now();
    g_counting = false;
    return Result{std::chrono::duration<double>(end - start).count(), sum, g_allocations};
}

} // namespace

int main(int argc, char** argv)
{
    int regions = argc > 1 ? std::atoi(argv[1]) : 5000;
    const int sexes = 2, ages = 100;
    long tuples = static_cast<long>(regions) * sexes * ages;
    const char* cells[] = {
        "hadwiger($3 1.4 14 30 4)",
        "0.5*$3 + 0.25*$2 - 1/(1+$1)",
        "0.0125",
    };
    printf("%ld index tuples per cell\n", tuples);
    int failures = 0;
    for (const char* cell : cells) {
        Result r = run(cell, regions, sexes, ages);
        printf("%-30s %8.3f s %14.0f evaluations/s  allocations %ld  (sum %.6g)\n", cell, r.seconds,
               static_cast<double>(tuples) / r.seconds, r.allocations, r.checksum);
        if (r.allocations != 0) ++failures;
    }
    if (failures) printf("numeric cells allocated memory\n");
    return failures ? 1 : 0;
}
