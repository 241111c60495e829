// Times the input file reader on a start population of many regions: one line per cell
// (region key, group, sex, age, value), then a table of one line for all cells, with a
// constant and with an expression.
// usage: readbench [regions] [directory]   (default 10000 regions in a temporary directory)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/reading_setup.h"
#include "kernel/sparse_tables.h"
#include "kernel/region_table_reading.h"

namespace fs = std::filesystem;

int main(int argc, char** argv)
{
    const int regions = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int nbg = 2, ngg = 2, nag = 101;
    std::string dir = argc > 2 ? std::string(argv[2]) : (fs::temp_directory_path() / "readbench").string();
    if (dir.back() != '/') dir += '/';
    Orvane run;
    readingRun(run, dir, 2020, regions, 1000000, 10);

    // one line per cell, as a statistics office delivers it; what a read must find
    unsigned long long expectedValues = 0;
    double expectedSum = 0;
    // a read that did not find what was written ends the benchmark: its time would mean nothing
    auto failed = [&](const char* what, const ReadResult& got) {
        if (got.nonZero == expectedValues && got.sum == expectedSum) return false;
        fprintf(stderr, "%s: read %llu values, sum %.0f; written %llu values, sum %.0f\n", what,
                (unsigned long long)got.nonZero, got.sum, expectedValues, expectedSum);
        return true;
    };
    auto t0 = std::chrono::steady_clock::now();
    {
        FILE* f = fopen((dir + "gem2019.csv").c_str(), "w");
        if (!f) {
            perror(dir.c_str());
            return 1;
        }
        fputs("# start population\n", f);
        for (int z = 0; z < regions; ++z)
            for (int b = 1; b <= nbg; ++b)
                for (int g = 1; g <= ngg; ++g)
                    for (int a = 0; a < nag; ++a) {
                        int v = (z + a) % 97;
                        fprintf(f, "2019;%lld;%d;%d;%d;%d\n", 1000000 + 10LL * z, b, g, a, v);
                        expectedValues += v != 0;
                        expectedSum += v;
                    }
        fclose(f);
    }
    double cells = double(regions) * nbg * ngg * nag;
    printf("generated %.0f lines (%.1f MB) in %.2f s\n", cells, double(fs::file_size(dir + "gem2019.csv")) / 1e6,
           seconds(t0));

    FileEntry gem;
    gem.name = "gem%d";
    gem.kind = 0;
    gem.lastIndexFromZero = 1;
    gem.checkMode = 2;
    gem.regionColumn = 2;
    gem.yearOffset = 1;

    GemTable dense("C.BGEM");
    dense.make("C.BGEM", regions, nbg, ngg, nag, false);
    t0 = std::chrono::steady_clock::now();
    ReadResult r = readTable(gem, dense, "NGZ\0NBG\0NGG\0NAG\0");
    if (failed("dense read", r)) return 1;
    printf("dense read:        %.2f s, %llu values, sum %.0f\n", seconds(t0), (unsigned long long)r.nonZero, r.sum);

    GemTable sparse("C.BGEM");
    sparse.make("C.BGEM", regions, nbg, ngg, nag, true);
    t0 = std::chrono::steady_clock::now();
    r = readTable(gem, sparse, "NGZ\0NBG\0NGG\0NAG\0");
    if (failed("compact read", r)) return 1;
    printf("compact read:      %.2f s, %llu values, sum %.0f\n", seconds(t0), (unsigned long long)r.nonZero, r.sum);

    std::vector<GemCell> list;
    long long sizes[4] = {-1, nbg, ngg, nag};
    t0 = std::chrono::steady_clock::now();
    r = readTableList(gem, list, sizes, "NGZ\0NBG\0NGG\0NAG\0");
    if (failed("list read", r)) return 1;
    printf("list read:         %.2f s, %zu cells\n", seconds(t0), list.size());

    // the whole table in one line: one parse
    {
        FILE* f = fopen((dir + "all.csv").c_str(), "w");
        fputs("*;*;*;*;0\n", f);
        fclose(f);
        f = fopen((dir + "expr.csv").c_str(), "w");
        fputs("#! expand(0)\n*;*;*;*;ix(4)*0.5+ix(2)\n", f);
        fclose(f);
    }
    FileEntry all;
    all.name = "all";
    all.regionColumn = 2;
    all.lastIndexFromZero = 1;
    t0 = std::chrono::steady_clock::now();
    r = readTable(all, dense, "NGZ\0NBG\0NGG\0NAG\0");
    printf("*;*;*;*;0:         %.3f s\n", seconds(t0));
    all.name = "expr";
    t0 = std::chrono::steady_clock::now();
    r = readTable(all, dense, "NGZ\0NBG\0NGG\0NAG\0");
    printf("*;*;*;*;expr:      %.3f s, sum %.0f\n", seconds(t0), r.sum);

    if (argc <= 2) fs::remove_all(dir);
    return 0;
}
