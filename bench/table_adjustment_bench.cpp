// Times the chi-square adjustment of a 59 x 4 table (the household case: persons by kind
// and household size), checks that the row sums and the weighted total are met, and prints
// the processor time of one adjustment (the machine may be shared, so wall time would say
// little; take the best of a few runs).
//
//   table_adjustment_bench [repetitions]     default 20000
//
// Figures (table_adjustment_bench 200000; processor time, best of 3, Release, a 2-core machine
// shared with other builds):
//   decomposition of the 60 x 60 factor on every call                       496 us
//   full rank solved directly in O(n) (the decomposition only where the
//   restrictions depend on each other, still about 500 us there)             3.1 us
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "numerics/chi_square_adjustment.h"

namespace {

double cpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

} // namespace

int main(int argc, char** argv)
{
    const int repetitions = argc > 1 ? std::atoi(argv[1]) : 20000;
    const int R = 59, C = 4;
    const AdjustmentProblem problem(R, C);
    std::vector<double> b(R * C), z(R), w = {1 / 2.0, 1 / 3.0, 1 / 4.0, 1 / 5.5};
    double H = 0;
    for (int i = 0; i < R; ++i)
        for (int j = 0; j < C; ++j) {
            b[i * C + j] = 1 + (i * 37 + j * 11) % 23;
            z[i] += b[i * C + j] * (1 + 0.01 * (i % 7));
            H += w[j] * b[i * C + j] * 1.02;
        }

    AdjustmentTable table;
    if (createTable(problem, table) != 0) {
        std::fprintf(stderr, "table_adjustment_bench: no memory for the table\n");
        return 1;
    }
    double seconds = 0;
    for (int rep = 0; rep < repetitions; ++rep) {
        for (int k = 0; k < R * C; ++k) table.b[k] = b[k];
        for (int i = 0; i < R; ++i) table.z[i] = z[i];
        for (int j = 0; j < C; ++j) table.w[j] = w[j];
        table.H = H;
        double t0 = cpuSeconds();
        AdjustmentResult r = adjustTable(problem, table);
        seconds += cpuSeconds() - t0;
        if (r.outcome != Adjustment::Done) {
            std::fprintf(stderr, "table_adjustment_bench: adjustment failed (outcome %d, decomposition %d)\n",
                         int(r.outcome), r.decomposition);
            return 1;
        }
    }
    double total = 0;
    for (int i = 0; i < R; ++i) {
        double row = 0;
        for (int j = 0; j < C; ++j) {
            row += table.b[i * C + j];
            total += w[j] * table.b[i * C + j];
        }
        if (std::fabs(row - z[i]) > 1e-9 * z[i]) {
            std::fprintf(stderr, "table_adjustment_bench: row %d sums to %.15g, target %.15g\n", i + 1, row, z[i]);
            return 1;
        }
    }
    if (std::fabs(total - H) > 1e-9 * H) {
        std::fprintf(stderr, "table_adjustment_bench: weighted total %.15g, target %.15g\n", total, H);
        return 1;
    }
    std::printf("adjustment of a %d x %d table: %.2f us processor time each (%d repetitions)\n", R, C, seconds / repetitions * 1e6,
                repetitions);
    return 0;
}
