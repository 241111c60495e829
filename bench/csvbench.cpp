// Writes a population table (10,000 regions x 2 groups x 2 sexes x 101 ages, one line
// per cohort: region;group;sex;age;value) with the table writer, then reads it back
// cell by cell through CsvReader::next with a 1024-byte buffer, and prints the times
// and the reading throughput.
//
//   csvbench [regions] [passes]     defaults 10000 and 3
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "platform/settings.h"
#include "tables/table_text.h"

namespace {

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

} // namespace

int main(int argc, char** argv)
{
    const int regions = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int passes = argc > 2 ? std::atoi(argv[2]) : 3;
    const int groups = 2, sexes = 2, ages = 101;
    si::separator = ';';
    si::csvBom = 1;
    si::kommentar = 1;
    si::spaltenname = 3;

    std::string path = (std::filesystem::temp_directory_path() /
                        ("csvbench_" + std::to_string(getpid()) + ".csv")).string();
    FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) {
        std::perror(path.c_str());
        return 1;
    }
    std::string regionFmt = intFormat(regions, "d"), ageFmt = intFormat(ages - 1, "d");
    const char* names[] = {"@gem;", "@bg;", "@gg;", "@ag;", "@wert;", nullptr};

    auto t0 = std::chrono::steady_clock::now();
    int headLines = csvWriteHead(out, "bench", names, nullptr);
    long long lines = 0;
    char cell[32];
    for (int r = 1; r <= regions; ++r)
        for (int g = 1; g <= groups; ++g)
            for (int s = 1; s <= sexes; ++s)
                for (int a = 0; a < ages; ++a) {
                    std::snprintf(cell, sizeof cell, regionFmt.c_str(), r);
                    csvWriteText(out, cell, 0);
                    std::snprintf(cell, sizeof cell, "%d", g);
                    csvWriteText(out, cell, 0);
                    std::snprintf(cell, sizeof cell, "%d", s);
                    csvWriteText(out, cell, 0);
                    std::snprintf(cell, sizeof cell, ageFmt.c_str(), a);
                    csvWriteText(out, cell, 0);
                    double value = 10.0 + ((r * 7919 + g * 104729 + s * 31 + a * 13) % 9973) * 0.0137;
                    csvWriteCell(out, "%.3f", value, 1);
                    ++lines;
                }
    std::fclose(out);
    double writeTime = seconds(t0);
    double megabytes = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    std::printf("write: %lld data lines + %d head lines, %.1f MB in %.3f s (%.1f MB/s)\n",
                lines, headLines, megabytes, writeTime, megabytes / writeTime);

    double best = 0;
    int status = 0;
    for (int pass = 1; pass <= passes; ++pass) {
        FILE* in = std::fopen(path.c_str(), "rb");
        auto t1 = std::chrono::steady_clock::now();
        CsvReader reader(in, ";");
        char buffer[1024];
        long long cells = 0, bytes = 0;
        while ((status = reader.next(buffer, sizeof buffer)) > 0) {
            ++cells;
            bytes += buffer[0] != 0;
        }
        double readTime = seconds(t1);
        std::fclose(in);
        double rate = megabytes / readTime;
        if (rate > best) best = rate;
        std::printf("read pass %d: %lld cells, %llu data + %llu comment lines, status %d, %.3f s (%.1f MB/s)\n",
                    pass, cells, static_cast<unsigned long long>(reader.dataLines),
                    static_cast<unsigned long long>(reader.commentLines), status, readTime, rate);
        if (static_cast<long long>(reader.dataLines) != lines || status != -1 || bytes != cells) {
            std::printf("MISMATCH: expected %lld data lines and end of file\n", lines);
            std::remove(path.c_str());
            return 1;
        }
    }
    std::printf("best read throughput: %.1f MB/s\n", best);
    std::remove(path.c_str());
    return 0;
}
