// Benchmark of forecast ensembles: a synthetic study area (from forecastbench --generate), one
// full forecast of it, then the same ensemble with all members one after another on one core
// (-j 1 under taskset) and with -j 2, and with mpirun -np 1 against -np 2 when MPI is there.
// Reports wall and CPU time, peak memory, the time of gathering (the quantiles and the page),
// and the bytes on disk against those of the full runs the members stand for.
//
//   ensemblebench [regions] [members] [years]     default: 1000 100 10
//
// The program is taken from App/ beside the directory of this benchmark (the build tree).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include "bench/timed_command.h"

namespace fs = std::filesystem;

namespace {

// a command's measure, and the time the ensemble said it spent gathering
struct EnsembleMeasure : Measure {
    double gathering = -1;
};

EnsembleMeasure timed(const fs::path& root, const std::string& command)
{
    fs::path out = root / "run.log";
    sync();
    EnsembleMeasure m;
    static_cast<Measure&>(m) = timedCommand(root, command, out);
    std::string line;
    std::ifstream log(out);
    while (std::getline(log, line))
        for (const char* word : {"Zusammenführen ", "gathering "})
            if (auto p = line.find(word); p != std::string::npos) {
                std::string figure = line.substr(p + std::strlen(word), 16);
                std::replace(figure.begin(), figure.end(), ',', '.');  // a German run's decimal comma
                m.gathering = std::atof(figure.c_str());
            }
    if (m.status != 0) {
        std::ifstream again(out);
        std::cerr << command << " failed (status " << m.status << "):\n" << again.rdbuf() << "\n";
    }
    return m;
}

uintmax_t bytesOf(const fs::path& dir)
{
    uintmax_t total = 0;
    std::error_code ec;
    for (const auto& e : fs::recursive_directory_iterator(dir, ec))
        if (e.is_regular_file()) total += e.file_size();
    return total;
}

void row(const char* what, const EnsembleMeasure& m)
{
    printf("%-34s %8.2f %8.2f %9.1f", what, m.seconds, m.cpu, m.peakKb / 1024.0);
    if (m.gathering >= 0) printf(" %9.2f (%4.1f %%)", m.gathering, 100 * m.gathering / m.seconds);
    printf("\n");
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool help = a == "-h" || a == "--help";
        if (help || a.empty() || a.find_first_not_of("0123456789") != std::string::npos || std::atoi(a.c_str()) <= 0) {
            if (!help) std::cerr << "ensemblebench: " << a << ": not a count above 0\n";
            (help ? std::cout : std::cerr)
                << "usage: ensemblebench [regions] [members] [years]     default: 1000 100 10\n"
                   "Times an ensemble of a synthetic study area: one full run, the members one after another on\n"
                   "one core (-j 1), with -j 2, and under mpirun -np 1 and -np 2 where MPI is there; prints the\n"
                   "gathering's share, peak memory and the disk used against that of the full runs.\n";
            return help ? 0 : 2;
        }
    }
    int regions = argc > 1 ? std::atoi(argv[1]) : 1000;
    int members = argc > 2 ? std::atoi(argv[2]) : 100;
    int years = argc > 3 ? std::atoi(argv[3]) : 10;
    fs::path bench = fs::canonical("/proc/self/exe").parent_path();
    fs::path app = bench.parent_path() / "App";
    fs::path root = fs::temp_directory_path() / ("veldor-ensemblebench-" + std::to_string(getpid()));
    fs::remove_all(root);
    fs::create_directories(root / "Data");
    fs::create_directory_symlink(app, root / "App");
    std::ofstream(root / "Data" / "veldor.ini") << "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=0\n";
    std::string gen = "'" + (bench / "forecastbench").string() + "' --years " + std::to_string(years) + " --generate " +
                      std::to_string(regions) + " '" + (root / "var").string() + "' >/dev/null";
    if (std::system(gen.c_str()) != 0) {
        std::cerr << "forecastbench --generate failed\n";
        return 1;
    }
    const std::string ensemble = "./App/orvane orvane -d var/ -v v -o 'option($ENSEMBLE " + std::to_string(members) + ")'";
    printf("%d regions, %d years, %d members\n", regions, years, members);
    printf("%-34s %8s %8s %9s %9s\n", "case", "wall s", "cpu s", "peak MB", "gather s");

    EnsembleMeasure single = timed(root, "./App/orvane orvane -d var/ -v v");
    if (single.status != 0) return 1;
    // the results of one full run, without the ensemble
    uintmax_t fullRun = bytesOf(root / "var" / "v");
    row("one full run", single);
    EnsembleMeasure serial = timed(root, "taskset -c 0 " + ensemble + " -j 1");
    if (serial.status != 0) return 1;
    row("ensemble, one core, -j 1", serial);
    EnsembleMeasure both = timed(root, ensemble + " -j 2");
    if (both.status != 0) return 1;
    row("ensemble, -j 2", both);
    uintmax_t ensembleBytes = bytesOf(root / "var" / "v" / "ensemble");
    printf("\n-j 2 / one core: %.3f (goal at most 0.55)\n", both.seconds / serial.seconds);
    printf("gathering: %.1f %% of the ensemble (goal at most 5 %%)\n", 100 * both.gathering / both.seconds);
    printf("peak memory: %.1f MB, two single runs %.1f MB\n", both.peakKb / 1024.0, 2 * single.peakKb / 1024.0);
    printf("disk: ensemble/ %.1f MB, %d full runs %.1f MB: %.1f %% (goal at most 5 %%)\n", ensembleBytes / 1048576.0,
           members, double(fullRun) * members / 1048576.0, 100.0 * double(ensembleBytes) / (double(fullRun) * members));
    if (std::system("command -v mpirun >/dev/null 2>&1") == 0) {
        const std::string mpirun = "env OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 mpirun --oversubscribe -np ";
        EnsembleMeasure one = timed(root, mpirun + "1 " + ensemble + " -j 1");
        EnsembleMeasure two = timed(root, mpirun + "2 " + ensemble + " -j 1");
        if (one.status == 0 && two.status == 0) {
            row("mpirun -np 1, -j 1", one);
            row("mpirun -np 2, -j 1", two);
            printf("mpirun -np 2 against -np 1: %.2f times as fast (goal at least 1.7)\n", one.seconds / two.seconds);
        }
    }
    fs::remove_all(root);
    return 0;
}
