// Times the input file reader on the in-migration table of a study area of many regions, as a
// forecast under K6 reads it every year: one line per external area, region, group, sex and age
// (2 x 200 x 2 x 2 x 101 = 161,600 lines for 200 regions) with decimal numbers, read once for each
// year; then the same lines with a star for the external area and an interval of ages, which
// go through the full reader.
// usage: migration_table_bench [regions] [years] [directory]   (default 200 regions, 31 years)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/reading_setup.h"
#include "tables/input_reader.h"
#include "tables/labelled_array.h"

namespace fs = std::filesystem;

int main(int argc, char** argv)
{
    const int regions = argc > 1 ? std::atoi(argv[1]) : 200;
    const int years = argc > 2 ? std::atoi(argv[2]) : 31;
    const int nta = 2, nbg = 2, ngg = 2, nag = 101;
    std::string dir = argc > 3 ? std::string(argv[3]) : (fs::temp_directory_path() / "migration_table_bench").string();
    if (dir.back() != '/') dir += '/';
    Orvane run;
    readingRun(run, dir, 2025, regions, 190001, 1);

    // the arrivals of each cell, a share of a canton's, as decimal numbers
    double expectedSum = 0;
    unsigned long long lines = 0;
    {
        FILE* f = fopen((dir + "zuvg2025.csv").c_str(), "w");
        FILE* g = fopen((dir + "zuvs2025.csv").c_str(), "w");
        if (!f || !g) {
            perror(dir.c_str());
            return 1;
        }
        fputs("# Jahr;TYA;GKZ;BG;GG;AG;Anzahl\n", f);
        fputs("# Jahr;TYA;GKZ;BG;GG;AG;Anzahl\n", g);
        for (int ta = 1; ta <= nta; ++ta)
            for (int z = 0; z < regions; ++z)
                for (int b = 1; b <= nbg; ++b)
                    for (int s = 1; s <= ngg; ++s)
                        for (int a = 0; a < nag; ++a) {
                            double v = ((z * 7 + a * 13 + b + s + ta) % 400) / 8.0 + 0.005;
                            fprintf(f, "2025;%d;%d;%d;%d;%d;%.3f\n", ta, 190001 + z, b, s, a, v);
                            expectedSum += v;
                            ++lines;
                        }
        for (int z = 0; z < regions; ++z)
            for (int b = 1; b <= nbg; ++b)
                for (int s = 1; s <= ngg; ++s) fprintf(g, "2025;*;%d;%d;%d;0..100;0.125\n", 190001 + z, b, s);
        fclose(f);
        fclose(g);
    }
    printf("zuvg2025.csv: %llu lines (%.1f MB)\n", lines, double(fs::file_size(dir + "zuvg2025.csv")) / 1e6);

    FileEntry zuvg;
    zuvg.name = "zuvg%d";
    zuvg.kind = 1;
    zuvg.lastIndexFromZero = 1;
    zuvg.checkMode = 1;
    zuvg.regionColumn = 3;
    LA5 DG5ZA("DG5ZA", {size_t(nta), size_t(regions), size_t(nbg), size_t(ngg), size_t(nag)}, 0.0);
    auto t0 = std::chrono::steady_clock::now();
    for (int y = 0; y < years; ++y) {
        ReadResult r = readTable(zuvg, DG5ZA, "C.NTYA\0NGZ\0NBG\0NGG\0NAG\0");
        if (r.nonZero != lines || std::abs(r.sum - expectedSum) > 1e-6 * expectedSum) {
            fprintf(stderr, "read %llu values, sum %.3f; written %llu, sum %.3f\n", (unsigned long long)r.nonZero,
                    r.sum, lines, expectedSum);
            return 1;
        }
    }
    double t = seconds(t0);
    printf("zuvg, %d regions, %d years: %.2f s, %.0f lines/s\n", regions, years, t, double(lines) * years / t);

    zuvg.name = "zuvs%d";
    t0 = std::chrono::steady_clock::now();
    for (int y = 0; y < years; ++y) readTable(zuvg, DG5ZA, "C.NTYA\0NGZ\0NBG\0NGG\0NAG\0");
    printf("stars and intervals, %d years: %.2f s\n", years, seconds(t0));

    if (argc <= 3) fs::remove_all(dir);
    return 0;
}
