// Writes the yearly tables gem<year>.csv of a variant (regions x 2 groups x 2 sexes x 101
// ages, one line per cohort) into a temporary directory, aggregates them by district (a
// reference file of 100 regions to a district) and five-year age group through zrgem, checks
// the grand total and the number of lines of the result, and prints the throughput (by the
// processor time of the aggregation, since the machine may be shared; the wall time beside
// it) and the peak memory of the process.
//
//   time_series_bench [regions] [years]     defaults 10000 and 30 (about 120 M lines)
//
// Figures (time_series_bench 2000 10: 8 M lines, 192 MB; processor time, best of 3, Release;
// the table reader csvbench reads 428 MB/s (wall time, best of 3) at the same time):
//   cell by cell through the table reader, strings and map lookups per cell   202 MB/s
//   plain lines cut and read in place from 1 MB blocks, odd lines through the
//   table reader, plain decimals without the general parser                    520 MB/s
//   (time_series_bench 10000 3, 289 MB: 417 MB/s; peak memory 9.5 MB)
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/protocol.h"
#include "platform/settings.h"
#include "statistics/time_series.h"

namespace fs = std::filesystem;

namespace {

constexpr int GROUPS = 2, SEXES = 2, AGES = 101, FIRST_YEAR = 2020, REGIONS_PER_DISTRICT = 100;

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

// the value of a cohort: a multiple of 1/4, so that all sums are exact
double cohortValue(int region, int group, int sex, int age, int year)
{
    return ((region * 7919 + group * 104729 + sex * 31 + age * 13 + year) % 400) * 0.25;
}

// one yearly table through a large buffer; false when the disk refused it
bool writeYear(const std::string& path, int year, int regions, double& total, unsigned long long& bytes)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::string buffer;
    buffer.reserve(1 << 22);
    buffer += "#Jahr;GKZ;BG;GG;AG;Anzahl\n";
    char cell[32];
    auto put = [&](long long n, char end) {
        auto r = std::to_chars(cell, cell + sizeof cell, n);
        buffer.append(cell, r.ptr);
        buffer += end;
    };
    bool ok = true;
    for (int region = 1; region <= regions && ok; ++region)
        for (int g = 1; g <= GROUPS; ++g)
            for (int s = 1; s <= SEXES; ++s)
                for (int a = 0; a < AGES; ++a) {
                    put(year, ';');
                    put(100000 + region, ';');
                    put(g, ';');
                    put(s, ';');
                    put(a, ';');
                    double v = cohortValue(region, g, s, a, year);
                    total += v;
                    auto r = std::to_chars(cell, cell + sizeof cell, v);
                    buffer.append(cell, r.ptr);
                    buffer += '\n';
                    if (buffer.size() > (1 << 22) - 64) {
                        ok = std::fwrite(buffer.data(), 1, buffer.size(), f) == buffer.size();
                        bytes += buffer.size();
                        buffer.clear();
                    }
                }
    ok = ok && std::fwrite(buffer.data(), 1, buffer.size(), f) == buffer.size();
    bytes += buffer.size();
    return std::fclose(f) == 0 && ok;
}

int fail(const fs::path& dir, const std::string& text)
{
    std::fprintf(stderr, "time_series_bench: %s\n", text.c_str());
    std::error_code ec;
    fs::remove_all(dir, ec);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    const int regions = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int years = argc > 2 ? std::atoi(argv[2]) : 30;
    if (regions < 1 || years < 1) {
        std::fprintf(stderr, "usage: time_series_bench [regions] [years]\n");
        return 1;
    }
    si::separator = ';';
    si::csvBom = 0;
    si::kommentar = 1;
    si::spaltenname = 3;

    fs::path dir = fs::temp_directory_path() / ("time_series_bench_" + std::to_string(getpid()));
    std::error_code ec;
    fs::create_directories(dir / "v", ec);
    if (ec) return fail(dir, "create " + (dir / "v").string() + ": " + ec.message());
    const std::string directory = dir.string() + "/";

    // the district of each region
    {
        std::ofstream ref(directory + "bezirk.csv");
        ref << "# GKZ;Bezirk\n";
        for (int region = 1; region <= regions; ++region)
            ref << 100000 + region << ';' << 1 + (region - 1) / REGIONS_PER_DISTRICT << '\n';
        if (!ref) return fail(dir, "write " + directory + "bezirk.csv");
    }
    auto t0 = std::chrono::steady_clock::now();
    double total = 0;
    unsigned long long bytes = 0;
    for (int y = 0; y < years; ++y) {
        std::string path = directory + "v/gem" + std::to_string(FIRST_YEAR + y) + ".csv";
        if (!writeYear(path, FIRST_YEAR + y, regions, total, bytes)) return fail(dir, "write " + path);
    }
    const double lines = double(regions) * GROUPS * SEXES * AGES * years;
    std::printf("written: %d years of %d regions, %.0f lines, %.1f MB in %.1f s\n", years, regions, lines, bytes / 1e6,
                seconds(t0));

    Prot::setup(directory, "v", 1, 0);
    auto t1 = std::chrono::steady_clock::now();
    double c1 = cpuSeconds();
    int status = zrgem("zr", {"$i", "bezirk 1 2", "$i", "$i", "/5"}, directory, "v", FIRST_YEAR, 0,
                       FIRST_YEAR + years - 1, 1, "");
    double processor = cpuSeconds() - c1;
    double elapsed = seconds(t1);
    if (status != 0) return fail(dir, "zrgem returned " + std::to_string(status));

    // the result: one line per year, district, group, sex and five-year age group
    std::ifstream in(directory + "v/zr.csv");
    double sum = 0;
    long long resultLines = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        ++resultLines;
        sum += std::strtod(line.c_str() + line.rfind(';') + 1, nullptr);
    }
    const long long districts = (regions + REGIONS_PER_DISTRICT - 1) / REGIONS_PER_DISTRICT;
    const long long expectedLines = districts * GROUPS * SEXES * ((AGES + 4) / 5) * years;
    if (resultLines != expectedLines)
        return fail(dir, "result has " + std::to_string(resultLines) + " lines, expected " + std::to_string(expectedLines));
    if (std::fabs(sum - total) > 1e-9 * total)
        return fail(dir, "result sums to " + std::to_string(sum) + ", the tables to " + std::to_string(total));

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("zrgem: %.0f lines, %.1f MB in %.2f s processor time (%.2f s wall): %.1f MB/s, %.1f M lines/s; "
                "peak memory %.1f MB\n",
                lines, bytes / 1e6, processor, elapsed, bytes / 1e6 / processor, lines / 1e6 / processor,
                usage.ru_maxrss / 1024.0);
    fs::remove_all(dir, ec);
    return 0;
}
