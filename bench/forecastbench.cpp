// Benchmark of the yearly forecast: generates synthetic study areas of N regions (2 groups,
// 2 sexes, 101 ages; rates from expressions, the start population from a formula), runs the
// forecast years serially and with -p under /usr/bin/time -v, and reports CPU time (user +
// system), wall time, peak memory, the bytes of results written per file and the rate of
// writing them (MB of results per second of wall time). A run that fails or writes no
// population table ends the benchmark with its log and a non-zero status: no time is shown.
//
// The modes are told by USAGE below (forecastbench --help prints them).
//
// The program is taken from App/ beside the directory of this benchmark (the build tree).
#include <algorithm>
#include <cstdio>
#include <cctype>
#include <charconv>
#include <cmath>
#include <ctime>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "bench/timed_command.h"

namespace fs = std::filesystem;

namespace {

const char* const USAGE =
    "usage: forecastbench [mode] [--years N] [regions ...]   (default regions: 1000 10000)\n"
    "Times whole forecasts of synthetic study areas (2 groups, 2 sexes, 101 ages) serially and with -p:\n"
    "CPU, wall time, peak memory, MB of results and MB/s per result table.\n"
    "\n"
    "  (no mode)              natural change only (births and deaths)\n"
    "  --years N              N forecast years (default 10)\n"
    "  --all                  every case: 1000, 10000, 30000 regions, 10 and 30 years, every module variant\n"
    "  --migration            external migration by rates, in-migration by area with quotas, out-migration\n"
    "                         adjusted to a stock target (T1 K1 A1 M1)\n"
    "  --building             the same with new building and demolition (D1 E3) and internal migration (I1)\n"
    "  --internal             internal migration in 50 types (I1) with limits for every tenth region (P1)\n"
    "  --internal-list        two internal types, flows in their list forms ($SPARSESTRM, $BFWKG), 21 ages\n"
    "  --step                 the year step from the run's trace against the bare arithmetic on plain arrays\n"
    "  --floor                a serial run against formatting and writing its results again with to_chars\n"
    "  --long                 the cost of the long tables (LangeTabellen=1): the writing of the year's\n"
    "                         outputs from the run's trace without and with them, and the whole runs\n"
    "  --pairs N              with --long: N pairs of runs, without and with in turn, and the median\n"
    "                         share (the page cache's state moves a single pair a lot):\n"
    "                           forecastbench --long --pairs 5 10000\n"
    "  --duplicates MB        with --building: the weights of demolition by region (reagzr.csv, a table\n"
    "                         without a year in its name, read every year) as MB megabytes of rows that\n"
    "                         repeat each region's row, as a table appended to over the years may; the\n"
    "                         first reading of a run warns of the cells given twice, later years take the\n"
    "                         table from memory:\n"
    "                           forecastbench --building --duplicates 200 --generate 1000 dup\n"
    "  --generate N dir       only writes a study area of N regions into dir (dir/v.ini, dir/v/gem2023.csv,\n"
    "                         rates, ...), to try the program on a large area:\n"
    "                           forecastbench --generate 10000 big && App/orvane orvane -d big/ -v v\n"
    "  -h, --help             this text\n";

const int START = 2024;
int YEARS = 10;

// 0 natural change only, 1 external migration with a stock target, 2 with new building and demolition
int movements = 0;
// internal migration with limits of regions: 0 none, 1 dense in 50 types, 2 list forms in one type
int internal = 0;

// with the trace on, the run's protocol gives the wall time of every scope of every year; the
// option that turns it on turns on the parallel loops as well, so such a run is kept to one core
bool traceOn = false;
// the long tables case: every specified table is written (also with the trace on), and the long
// tables of all years beside them when longTablesOn (LangeTabellen=1)
bool longTables = false, longTablesOn = false;
// megabytes of repeated rows in the weights of demolition by region (0: one line for all regions)
long long duplicateMB = 0;

void writeFile(const fs::path& p, const std::string& text)
{
    fs::create_directories(p.parent_path());
    std::ofstream f(p, std::ios::binary);
    f << text;
}

// Internal migration: 5 % of each age move inside their type, 1 % to the next type; every tenth
// region has an upper limit below its population, and the sixth of each ten a lower limit above it.
void generateInternal(int n, const fs::path& dir)
{
    const bool list = internal == 2;
    const int types = list ? 2 : 50, nag = list ? 21 : 101, nbg = list ? 1 : 2;
    const std::string y = std::to_string(START - 1), span = std::to_string(START) + ".." + std::to_string(START + YEARS);
    const std::string regions = "100001.." + std::to_string(100000 + n), last = std::to_string(nag - 1);
    std::ostringstream ini;
    ini << "[DEFAULTS]\nRUNFORECAST=1\nSTARTJAHR=" << START << "\nENDJAHR=" << START + YEARS - 1
        << "\nAUSGABE_PROTOKOLL=1\nGAM=0\nABEW=1\nABEWGEM=1\nAusgabeNull=0\nSTRunden=0\nDIFF_G=0\nPYRAMIDE=0\n"
           "PLOT_DATEN=0\nNITER=50\nEPS=0.0001\n[METHODE]\nNAG="
        << nag << "\nNGG=2\nNBG=" << nbg
        << "\nGRND=1\nNTYA=1\nBEVOELKERUNGSBEWEGUNGEN=T1\nBINNENWANDERUNG=I1\nZIELWERTE=P1\n"
           "[LA]\nAUSGABE_EINZELWERTE=0\nMATRIX_AUSGABEFORMAT=0\n";
    writeFile(dir / "v.ini", ini.str());
    std::ostringstream ref;
    // each in-migration type lies inside one internal type
    ref << "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
        << regions << ";Gebiet $;1;1;1.." << types << ";1.." << types << ";1;1;1;1;1;1;1\n";
    writeFile(dir / "reftyp.csv", ref.str());
    const std::string cell = list ? "floor(20 - ix(5) / 2 + 0.5) * eq(floor((ix(2) + ix(5)) / 10) * 10 (ix(2) + ix(5)))"
                                  : "floor((12 - ix(5) / 10) * (1 + 0.2 * sin(ix(2))) / ix(3) + 0.5)";
    writeFile(dir / "v" / ("gem" + y + ".csv"), y + ";" + regions + ";*;*;0.." + last + ";" + cell + "\n");
    writeFile(dir / ("strb" + y + ".csv"), "*;*;*;0.." + last + ";0.0001 * exp(0.085 * ix(4))\n");
    writeFile(dir / ("fruc" + y + ".csv"), "*;*;*;0\n");
    writeFile(dir / ("wegz" + y + ".csv"), "*;*;*;*;0.." + last + ";0\n");
    std::ostringstream strm;
    for (int t = 1; t <= types; ++t) {
        strm << t << ";" << t << ";*;*;0.." << last << ";0.05\n";
        if (types > 1) strm << t << ";" << t % types + 1 << ";*;*;0.." << last << ";0.01\n";
    }
    writeFile(dir / ("strm" + y + ".csv"), strm.str());
    std::ostringstream eck;
    for (int z = 1; z <= n; z += 10) {
        eck << span << ";2;" << 100000 + z << ";" << (list ? 30 : 1500) << "\n";
        if (z + 5 <= n) eck << span << ";1;" << 100000 + z + 5 << ";" << (list ? 90 : 2500) << "\n";
    }
    writeFile(dir / "eckgem.csv", eck.str());
}

// The study area: regions 100001 .. 100000+N in types of 50 regions for internal migration and
// of 500 for births and deaths; ages 0..100.
void generate(int n, const fs::path& dir)
{
    std::ostringstream ini;
    if (internal) {
        generateInternal(n, dir);
        return;
    }
    ini << "[DEFAULTS]\nRUNFORECAST=1\nSTARTJAHR=" << START << "\nENDJAHR=" << START + YEARS - 1
        << "\nAUSGABE_PROTOKOLL=1\nGAM=0\nAusgabeNull=0\nSTRunden=0\nDIFF_BG=1\nDIFF_GG=1\nDIFF_AG=5\nPLOT_DATEN=0\n"
        // the year step case writes the population tables only, so that less writing back
        // of results to the disk goes on beside the step
        << (traceOn && !longTables ? "ABEW=0\nABEWGEM=0\nDIFF_G=0\nPYRAMIDE=0\n"
                                   : "ABEW=1\nABEWGEM=1\nDIFF_G=13\nPYRAMIDE=1\n")
        << "[METHODE]\nNAG=101\nNGG=2\nNBG=2\nGRND=1\n"
        << (movements ? "NTYA=2\nBEVOELKERUNGSBEWEGUNGEN=T1\nAUSSENWANDERUNGSDATEN=K1\nANPASSUNG_WEGZUG=A1\n"
                        "ZIELWERT_BESTAND=M1\n"
                      : "NTYA=1\n")
        << (movements == 2 ? "BINNENWANDERUNG=I1\nNEUBAU=D1\nRUECKBAU=E3\n" : "")
        << "[LA]\nAUSGABE_EINZELWERTE=0\nMATRIX_AUSGABEFORMAT=0\n";
    writeFile(dir / "v.ini", ini.str());

    // the reference table: one line spans all regions, the types handed out in turn
    int tyb = (n + 49) / 50, tys = (n + 499) / 500, agg = (n + 999) / 1000;
    std::ostringstream ref;
    ref << "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
        << "100001.." << 100000 + n << ";Gebiet $;1.." << tys << ";1.." << tys << ";1.." << tyb << ";1.." << tyb
        << ";1;1;1;1;1;1;1.." << agg << "\n";
    writeFile(dir / "reftyp.csv", ref.str());

    // the start population by a formula of group, sex, age and region
    writeFile(dir / "v" / ("gem" + std::to_string(START - 1) + ".csv"),
              "# start population: fewer persons at high ages, some variation by region\n" +
                  std::to_string(START - 1) + ";100001.." + std::to_string(100000 + n) +
                  ";1..2;1..2;0..100;floor((12 - ix(5) / 10) * (1 + 0.2 * sin(ix(2))) / ix(3) + 0.5)\n");

    // rates from expressions, for the stages that read them
    writeFile(dir / ("strb" + std::to_string(START - 1) + ".csv"),
              "# death rates: Gompertz curve\n*;*;*;0..100;0.0001 * exp(0.085 * ix(4))\n");
    writeFile(dir / ("fruc" + std::to_string(START - 1) + ".csv"),
              "# fertility rates: bell curve around age 31\n*;*;15..49;0.1 * exp(0 - ((ix(3) - 31) * (ix(3) - 31)) / 50)\n");
    if (!movements) return;
    const std::string y = std::to_string(START - 1), regions = "100001.." + std::to_string(100000 + n);
    // out-migration: young adults most; in-migration 2 % of the start population by age
    writeFile(dir / ("wegz" + y + ".csv"), "*;1..2;*;*;0..100;0.01 + 0.04 * exp(0 - ((ix(5) - 24) * (ix(5) - 24)) / 60)\n");
    writeFile(dir / "zuvol.csv", std::to_string(START) + ".." + std::to_string(START + YEARS) + ";1;1;1;" +
                                     std::to_string(20 * n) + "\n");
    writeFile(dir / ("zuaq" + y + ".csv"), "1..2;*;*;0..100;1\n");
    writeFile(dir / ("zudq" + y + ".csv"), "1..2;*;*;*;0..100;1\n");
    // the stock target: the start population grows by 0.5 % a year
    writeFile(dir / "eckreg.csv", std::to_string(START) + ".." + std::to_string(START + YEARS) + ";1;1;0;" +
                                      std::to_string(1000 * n) + "*(1+0.005*($JAHR-" + y + "))\n");
    if (movements < 2) return;
    const std::string span = std::to_string(START) + ".." + std::to_string(START + YEARS);
    // internal migration between the types of 50 regions: 5 % move inside their type and 3 % to
    // the next type, so that the rates of a type stay below 1 however many types there are
    std::ostringstream strm;
    for (int t = 1; t <= tyb; ++t) {
        strm << t << ";" << t << ";*;*;0..100;0.05\n";
        if (tyb > 1) strm << t << ";" << t % tyb + 1 << ";*;*;0..100;0.03\n";
    }
    writeFile(dir / ("strm" + y + ".csv"), strm.str());
    // new building in the first seventh of the regions, demolition in the last eleventh
    const std::string building = "100001.." + std::to_string(100000 + std::max(1, n / 7));
    const std::string demolition = std::to_string(100001 + n - std::max(1, n / 11)) + ".." + std::to_string(100000 + n);
    writeFile(dir / "nebb.csv", span + ";" + building + ";30\n");
    writeFile(dir / ("nebq" + y + ".csv"), "*;*;*;0..100;1\n");
    writeFile(dir / "nebqqa.csv", span + ";*;1..2;0.2\n");
    writeFile(dir / "rear.csv", span + ";" + demolition + ";0.05\n");
    writeFile(dir / "reaqza.csv", span + ";*;1..2;0.1\n");
    if (duplicateMB <= 0) {
        writeFile(dir / "reagzr.csv", span + ";" + regions + ";1\n");
        return;
    }
    // each region's row again and again, until the table holds the megabytes asked for
    std::ofstream f(dir / "reagzr.csv", std::ios::binary);
    const long long bytes = duplicateMB * 1000000;
    long long written = 0;
    std::string rows;
    for (int z = 1; z <= n; ++z) rows += span + ";" + std::to_string(100000 + z) + ";1\n";
    while (written < bytes) {
        f << rows;
        written += static_cast<long long>(rows.size());
    }
}

// CPU seconds of the last case run
double lastCpu = 0;


Measure run(const fs::path& root, bool parallel)
{
    return timedCommand(root,
                        std::string(traceOn ? "taskset -c 0 " : "") + "./App/orvane orvane -d var/ -v v" +
                            (parallel ? " -p" : "") +
                            (internal == 2 ? " -o 'option($SPARSESTRM 1)' -o 'option($BFWKG 1)'" : "") +
                            (traceOn ? " -o 'option($STACK 1)'" : ""),
                        root / "run.log");
}

// bytes of the result tables by file, the yearly population tables gem<y>.csv taken together
std::map<std::string, uintmax_t> resultBytes(const fs::path& dir)
{
    std::map<std::string, uintmax_t> bytes;
    for (const auto& e : fs::directory_iterator(dir)) {
        if (!e.is_regular_file() || e.path().extension() != ".csv") continue;
        std::string name = e.path().filename().string();
        if (name.size() == 11 && name.rfind("gem", 0) == 0 && std::isdigit(static_cast<unsigned char>(name[3])))
            name = "gem<y>.csv";
        bytes[name] += e.file_size();
    }
    return bytes;
}

// one case: generates the study area, runs the forecast, prints a row; false when the run failed
bool runCase(const fs::path& app, const fs::path& root, int n, bool parallel)
{
    fs::remove_all(root);
    fs::create_directories(root / "Data");
    fs::create_directory_symlink(app, root / "App");
    writeFile(root / "Data" / "veldor.ini",
              std::string("[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n") +
                  (longTablesOn ? "LangeTabellen=1\n" : "") + "[TRACE]\nlogfile=0\n");
    generate(n, root / "var");
    // the results of the case before are on the disk first: otherwise their writing back
    // throttles this run's writes, and the order of the cases decides the figures
    sync();
    Measure m = run(root, parallel);
    lastCpu = m.cpu;
    auto bytes = resultBytes(root / "var" / "v");
    if (m.status != 0 || m.seconds < 0 || bytes.count("gem<y>.csv") == 0) {
        std::ifstream log(root / "run.log");
        std::cerr << "forecast of " << n << " regions" << (parallel ? " with -p" : "") << " failed (status " << m.status
                  << ", " << bytes.size() << " result tables):\n"
                  << log.rdbuf() << "\n";
        fs::remove_all(root);
        return false;
    }
    uintmax_t total = 0;
    for (const auto& [name, b] : bytes) total += b;
    static const char* variants[] = {"natural", "migration", "building"};
    const char* modules = internal == 1 ? "internal" : internal == 2 ? "int-list" : variants[movements];
    printf("%-8d %-6d %-10s %-7s %8.2f %8.2f %8.1f %10.1f %8.1f", n, YEARS, modules,
           parallel ? "-p" : "serial", m.cpu, m.seconds, m.peakKb / 1024.0, total / 1048576.0,
           m.seconds > 0 ? total / 1048576.0 / m.seconds : 0.0);
    for (const auto& [name, b] : bytes) printf("  %s %.1f", name.c_str(), b / 1048576.0);
    printf("\n");
    fflush(stdout);
    return true;
}

// The seconds of the scopes of every year that the trace of the run's protocol gives: the year
// step (RKPAG), the writing of its outputs inside it (RKOUT) and the year's start (RKINI).
struct StepTimes {
    double step = 0, outputs = 0, start = 0;
    int years = 0;
};

StepTimes traceTimes(const fs::path& protocol)
{
    StepTimes t;
    for (const auto& e : fs::directory_iterator(protocol)) {
        std::ifstream f(e.path());
        std::string line;
        while (std::getline(f, line)) {
            auto p = line.find("<span class=tracePop>");
            if (p == std::string::npos) continue;
            std::string scopes = line.substr(p + 21, line.find("</span>", p) - p - 21);
            auto blank = scopes.rfind(' ');
            if (blank == std::string::npos || scopes.back() != 's') continue;
            double seconds = std::atof(scopes.c_str() + blank + 1);
            std::string path = scopes.substr(0, blank);
            auto ends = [&](const std::string& tail) {
                return path.size() >= tail.size() && path.compare(path.size() - tail.size(), tail.size(), tail) == 0;
            };
            if (ends(" RKPAG")) {
                t.step += seconds;
                ++t.years;
            } else if (ends(" RKPAG RKOUT")) {
                t.outputs += seconds;
            } else if (ends(" RKINI")) {
                t.start += seconds;
            }
        }
    }
    return t;
}

// The bare arithmetic of the natural change: ageing with an open last age, the births of the
// women of 15 to 49 into age 0 by sex, deaths by the same Gompertz rates, region by region. Once
// in place on one flat array, and once on tables as the year step keeps them: the population in
// one block, the deaths written into a block of their own and taken off. CPU seconds of each.
struct Bare {
    double flat = 0, tables = 0;
};

Bare bareArithmetic(int n, int years)
{
    const size_t NBG = 2, NGG = 2, NAG = 101, cohort = NAG, region = NBG * NGG * NAG, N = static_cast<size_t>(n);
    std::vector<double> q(NAG), f(NAG, 0.0);
    for (size_t a = 0; a < NAG; ++a) q[a] = 0.0001 * std::exp(0.085 * static_cast<double>(a + 1));
    for (size_t a = 15; a <= 49; ++a) f[a] = 0.1 * std::exp(-((a + 1.0 - 31) * (a + 1.0 - 31)) / 50);
    auto start = [](size_t z, size_t c, size_t a) {
        return std::floor((12 - (a + 1.0) / 10) * (1 + 0.2 * std::sin(z + 1.0)) / (c % 2 + 1.0) + 0.5);
    };
    Bare b;
    volatile double keep = 0;
    {
        std::vector<double> pop(N * region);
        for (size_t z = 0; z < N; ++z)
            for (size_t c = 0; c < NBG * NGG; ++c)
                for (size_t a = 0; a < NAG; ++a) pop[z * region + c * cohort + a] = start(z, c, a);
        std::clock_t t0 = std::clock();
        for (int y = 0; y < years; ++y)
            for (size_t z = 0; z < N; ++z) {
                double* r = &pop[z * region];
                for (size_t c = 0; c < NBG * NGG; ++c) {
                    double* p = r + c * cohort;
                    p[NAG - 1] += p[NAG - 2];
                    for (size_t a = NAG - 2; a > 0; --a) p[a] = p[a - 1];
                    p[0] = 0;
                }
                for (size_t g = 0; g < NBG; ++g) {
                    const double* women = r + (g * NGG + 1) * cohort;
                    double born = 0;
                    for (size_t a = 15; a <= 49; ++a) born += f[a] * women[a];
                    r[(g * NGG) * cohort] += born * 0.515;
                    r[(g * NGG + 1) * cohort] += born * 0.485;
                }
                for (size_t c = 0; c < NBG * NGG; ++c)
                    for (size_t a = 0; a < NAG; ++a) r[c * cohort + a] -= r[c * cohort + a] * q[a];
            }
        b.flat = double(std::clock() - t0) / CLOCKS_PER_SEC;
        for (double v : pop) keep = keep + v;
    }
    // the population in one block that ages in place, the deaths of the year written into a block
    // of their own and taken off the population, region by region
    std::vector<double> pop(N * region), deaths(N * region);
    for (size_t z = 0; z < N; ++z)
        for (size_t c = 0; c < NBG * NGG; ++c)
            for (size_t a = 0; a < NAG; ++a) pop[z * region + c * cohort + a] = start(z, c, a);
    std::clock_t t0 = std::clock();
    for (int y = 0; y < years; ++y)
        for (size_t z = 0; z < N; ++z) {
            double* r = &pop[z * region];
            double* d = &deaths[z * region];
            for (size_t c = 0; c < NBG * NGG; ++c) {
                double* p = r + c * cohort;
                p[NAG - 1] += p[NAG - 2];
                for (size_t a = NAG - 2; a > 0; --a) p[a] = p[a - 1];
                p[0] = 0;
            }
            for (size_t g = 0; g < NBG; ++g) {
                const double* women = r + (g * NGG + 1) * cohort;
                double born = 0;
                for (size_t a = 15; a <= 49; ++a) born += f[a] * women[a];
                r[(g * NGG) * cohort] += born * 0.515;
                r[(g * NGG + 1) * cohort] += born * 0.485;
            }
            for (size_t c = 0; c < NBG * NGG; ++c)
                for (size_t a = 0; a < NAG; ++a) {
                    d[c * cohort + a] = -(r[c * cohort + a] * q[a]);
                    r[c * cohort + a] += d[c * cohort + a];
                }
        }
    b.tables = double(std::clock() - t0) / CLOCKS_PER_SEC;
    for (size_t z = 0; z < N; ++z) keep = keep + pop[z * region + 30] + deaths[z * region + 30];
    return b;
}

// The floor of writing the results: every number of the result tables of a finished run
// formatted again with std::to_chars (whole numbers as integers, the others in the general form
// with the 15 digits of %.15g) into lines, and the
// lines written to a new file in large blocks. Reading and parsing the tables is not counted;
// the CPU time of the formatting and the writing (user and system) is.
double formatFloor(const fs::path& dir)
{
    double seconds = 0;
    std::vector<char> block(size_t(1) << 18);
    for (const auto& e : fs::directory_iterator(dir)) {
        if (!e.is_regular_file() || e.path().extension() != ".csv") continue;
        std::ifstream in(e.path(), std::ios::binary);
        fs::path copy = dir / ("floor-" + e.path().filename().string() + ".tmp");
        FILE* out = std::fopen(copy.c_str(), "wb");
        if (!out) continue;
        std::setvbuf(out, nullptr, _IONBF, 0);
        std::string line;
        std::vector<double> values;
        std::vector<unsigned char> cellsPerLine;
        std::vector<std::string> verbatim;   // heads and comments, in their place
        auto flushChunk = [&] {
            timespec t0, t1;
            clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t0);
            size_t used = 0, v = 0, text = 0;
            for (unsigned char cells : cellsPerLine) {
                if (used + 1024 > block.size()) {
                    std::fwrite(block.data(), 1, used, out);
                    used = 0;
                }
                if (cells == 0) {
                    const std::string& t = verbatim[text++];
                    std::fwrite(block.data(), 1, used, out);
                    used = 0;
                    std::fwrite(t.data(), 1, t.size(), out);
                    continue;
                }
                for (unsigned char c = 0; c < cells; ++c) {
                    // keys and whole numbers as integers, the rest in the general form
                    double x = values[v++];
                    char* at = block.data() + used;
                    auto r = x == std::trunc(x) && std::fabs(x) < 9e15
                                 ? std::to_chars(at, block.data() + block.size(), static_cast<long long>(x))
                                 : std::to_chars(at, block.data() + block.size(), x, std::chars_format::general, 15);
                    used = static_cast<size_t>(r.ptr - block.data());
                    block[used++] = c + 1 < cells ? ';' : '\n';
                }
            }
            std::fwrite(block.data(), 1, used, out);
            clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t1);
            seconds += double(t1.tv_sec - t0.tv_sec) + double(t1.tv_nsec - t0.tv_nsec) / 1e9;
            values.clear();
            cellsPerLine.clear();
            verbatim.clear();
        };
        while (std::getline(in, line)) {
            bool number = !line.empty() && (std::isdigit(static_cast<unsigned char>(line[0])) || line[0] == '-');
            if (!number) {
                verbatim.push_back(line + "\n");
                cellsPerLine.push_back(0);
            } else {
                unsigned char cells = 0;
                const char* p = line.c_str();
                while (*p) {
                    char* end;
                    values.push_back(std::strtod(p, &end));
                    ++cells;
                    p = *end ? end + 1 : end;
                }
                cellsPerLine.push_back(cells);
            }
            if (cellsPerLine.size() >= 100000) flushChunk();
        }
        flushChunk();
        std::fclose(out);
        fs::remove(copy);
    }
    return seconds;
}

// a serial run against the floor of formatting and writing its results; false when the run failed
bool runFloorCase(const fs::path& app, const fs::path& root, int n)
{
    if (!runCase(app, root, n, false)) return false;
    double run = lastCpu, floor = formatFloor(root / "var" / "v");
    fs::remove_all(root);
    printf("%-8d %-6d floor: to_chars and writing the same results %.2f s of CPU, the run %.2f s: %.2fx\n", n, YEARS,
           floor, run, floor > 0 ? run / floor : 0.0);
    fflush(stdout);
    return true;
}

// the year step of the natural change against its bare arithmetic; false when the run failed
bool runStepCase(const fs::path& app, const fs::path& root, int n)
{
    movements = 0;
    internal = 0;
    traceOn = true;
    bool ok = runCase(app, root, n, false);
    traceOn = false;
    if (!ok) return false;
    StepTimes t = traceTimes(root / "var" / "v" / "prot");
    fs::remove_all(root);
    Bare bare = bareArithmetic(n, YEARS);
    double step = t.step - t.outputs;
    printf("%-8d %-6d year step %.2f s (outputs %.2f s, year starts %.2f s, %d years); bare arithmetic on the "
           "year step's tables %.2f s: %.1fx; in place on one flat array %.2f s: %.1fx\n",
           n, YEARS, step, t.outputs, t.start, t.years, bare.tables, bare.tables > 0 ? step / bare.tables : 0.0,
           bare.flat, bare.flat > 0 ? step / bare.flat : 0.0);
    fflush(stdout);
    return true;
}

// the writing of the year's outputs without and with the long tables, from the run's trace, in
// pairs (without, then with), each pair's figures and with more than one pair their median share;
// false when a run failed
int longPairs = 1;

bool runLongCase(const fs::path& app, const fs::path& root, int n)
{
    std::vector<double> shares;
    for (int pair = 0; pair < longPairs; ++pair) {
        StepTimes t[2];
        double cpu[2];
        for (int with = 0; with < 2; ++with) {
            longTables = true;
            longTablesOn = with == 1;
            traceOn = true;
            bool ok = runCase(app, root, n, false);
            traceOn = false;
            longTables = longTablesOn = false;
            if (!ok) return false;
            t[with] = traceTimes(root / "var" / "v" / "prot");
            cpu[with] = lastCpu;
            fs::remove_all(root);
        }
        double cost = t[1].outputs - t[0].outputs;
        double share = t[0].outputs > 0 ? 100 * cost / t[0].outputs : 0.0;
        shares.push_back(share);
        printf("%-8d %-6d long tables: outputs of the years %.2f s without, %.2f s with them: %.2f s, %.0f %% of the "
               "specified tables; whole run %.2f s and %.2f s of CPU\n",
               n, YEARS, t[0].outputs, t[1].outputs, cost, share, cpu[0], cpu[1]);
        fflush(stdout);
    }
    if (shares.size() > 1) {
        std::sort(shares.begin(), shares.end());
        size_t m = shares.size() / 2;
        double median = shares.size() % 2 ? shares[m] : (shares[m - 1] + shares[m]) / 2;
        printf("%-8d %-6d long tables over %zu pairs: median %.0f %% of the specified tables (%.0f %% to %.0f %%)\n", n,
               YEARS, shares.size(), median, shares.front(), shares.back());
        fflush(stdout);
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<int> sizes;
    bool all = false, step = false, floor = false, longCost = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--migration" || a == "--building") {
            movements = a == "--migration" ? 1 : 2;
        } else if (a == "--internal" || a == "--internal-list") {
            internal = a == "--internal" ? 1 : 2;
        } else if (a == "--years" && i + 1 < argc) {
            YEARS = std::max(1, std::atoi(argv[++i]));
        } else if (a == "--duplicates" && i + 1 < argc) {
            duplicateMB = std::max(0LL, std::atoll(argv[++i]));
        } else if (a == "--step") {
            step = true;
        } else if (a == "--floor") {
            floor = true;
        } else if (a == "--all") {
            all = true;
        } else if (a == "--long") {
            longCost = true;
        } else if (a == "--pairs" && i + 1 < argc) {
            longPairs = std::max(1, std::atoi(argv[++i]));
        } else if (a == "--help" || a == "-h") {
            fputs(USAGE, stdout);
            return 0;
        } else if (a == "--generate" && i + 2 < argc) {
            int n = std::atoi(argv[i + 1]);
            if (n <= 0) {
                fprintf(stderr, "forecastbench: --generate %s: the number of regions must be above 0\n%s", argv[i + 1], USAGE);
                return 2;
            }
            generate(n, argv[i + 2]);
            return 0;
        } else if (std::atoi(argv[i]) > 0 && a.find_first_not_of("0123456789") == std::string::npos) {
            sizes.push_back(std::atoi(argv[i]));
        } else {
            fprintf(stderr, "forecastbench: unknown argument %s\n%s", argv[i], USAGE);
            return 2;
        }
    }
    if (sizes.empty()) sizes = all ? std::vector<int>{1000, 10000, 30000} : std::vector<int>{1000, 10000};

    fs::path self = fs::canonical("/proc/self/exe");
    fs::path app = self.parent_path().parent_path() / "App";
    if (!fs::exists(app / "orvane")) {
        std::cerr << "no program at " << (app / "orvane") << "\n";
        return 1;
    }
    fs::path root = fs::temp_directory_path() / ("veldor-forecastbench-" + std::to_string(getpid()));
    printf("%-8s %-6s %-10s %-7s %8s %8s %8s %10s %8s  %s\n", "regions", "years", "modules", "mode", "cpu s", "wall s",
           "peak MB", "results MB", "MB/s", "by file (MB)");
    if (step || floor || longCost) {
        for (int n : sizes)
            if (!(step ? runStepCase(app, root, n) : floor ? runFloorCase(app, root, n) : runLongCase(app, root, n)))
                return 1;
        fs::remove_all(root);
        return 0;
    }
    std::vector<int> yearCases = all ? std::vector<int>{10, 30} : std::vector<int>{YEARS};
    std::vector<int> variantCases = all ? std::vector<int>{0, 1, 2} : std::vector<int>{movements};
    for (int variant : variantCases)
        for (int years : yearCases)
            for (int n : sizes)
                for (bool parallel : {false, true}) {
                    movements = variant;
                    YEARS = years;
                    if (!runCase(app, root, n, parallel)) return 1;
                }
    fs::remove_all(root);
    return 0;
}
