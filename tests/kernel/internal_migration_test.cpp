// Internal migration: the fit of the flows inside a type against an independent script on random
// problems, and end-to-end runs of small areas whose types have regions at their upper and lower
// limits, with the balance of moves out and in over the study area.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kernel/year_step.h"
#include "platform/variant_settings.h"
#include "tests/sandbox.h"

namespace {

// a random problem with feasible limits: the targets are the demand moved around and scaled
// back to its total, each with a margin of 1 %
TypeFit randomProblem(std::mt19937& rng, size_t n, size_t m)
{
    std::uniform_real_distribution<double> value(1, 50), move(0.7, 1.3);
    TypeFit f;
    f.regions.resize(n);
    for (size_t z = 0; z < n; ++z) {
        f.regions[z] = static_cast<int>(z);
        f.keys.push_back(static_cast<long long>(z + 1));
    }
    f.nbg = 1, f.ngg = 1, f.nag = m;
    f.DG5FI.make("DG5FI", {n, n, 1, 1, m}, 0.0);
    f.DG5FI.forEach([&](double& v) { v = value(rng); });
    f.STAYER.make("STAYER", {n, 1, 1, m}, 0.0);
    f.STAYER.forEach([&](double& v) { v = 4 * value(rng); });
    f.DG4ZB.make("DG4ZB", {n, 1, 1, m}, 0.0);
    f.DG4ZB.forEach([&](double& v) { v = value(rng); });
    std::vector<double> demand(n, 0.0), target(n);
    double N = 0, T = 0;
    for (size_t v = 0; v < n; ++v)
        for (size_t w = 0; w < n; ++w)
            for (double x : f.DG5FI[v][w][0][0]) demand[w] += x;
    for (size_t z = 0; z < n; ++z) {
        for (double x : f.STAYER[z][0][0]) demand[z] += x;
        for (double x : f.DG4ZB[z][0][0]) demand[z] += x;
        N += demand[z];
        T += target[z] = demand[z] * move(rng);
    }
    f.BG2A.make("BG2A", {2, n}, 0.0);
    for (size_t z = 0; z < n; ++z) {
        f.BG2A[0][z] = target[z] * N / T * 0.99;
        f.BG2A[1][z] = z == 0 ? INFINITY : target[z] * N / T * 1.01;
    }
    return f;
}

void writeProblem(const TypeFit& f, const std::string& path, double eps, int niter)
{
    std::ofstream out(path);
    out.precision(17);
    const size_t n = f.regions.size(), m = f.nag;
    out << n << ' ' << m << '\n' << eps << ' ' << niter << '\n';
    f.DG5FI.forEach([&](double v) { out << v << '\n'; });
    f.STAYER.forEach([&](double v) { out << v << '\n'; });
    f.DG4ZB.forEach([&](double v) { out << v << '\n'; });
    for (size_t k = 0; k < 2; ++k)
        for (double v : f.BG2A[k]) {
            if (std::isinf(v))
                out << "inf\n";
            else
                out << v << '\n';
        }
    (void)m;
}

// the demand of each region: its column of flows, stayers and arrivals
std::vector<double> demandOf(const TypeFit& f)
{
    const size_t n = f.regions.size();
    std::vector<double> d(n, 0.0);
    for (size_t v = 0; v < n; ++v)
        for (size_t w = 0; w < n; ++w)
            for (double x : f.DG5FI[v][w][0][0]) d[w] += x;
    for (size_t z = 0; z < n; ++z) {
        for (double x : f.STAYER[z][0][0]) d[z] += x;
        for (double x : f.DG4ZB[z][0][0]) d[z] += x;
    }
    return d;
}

} // namespace

TEST(IterativeFitting, AgreesWithTheIndependentScriptOnRandomProblems)
{
    ini::EPS = 1e-9;
    ini::NITER = 500;
    std::mt19937 rng(20240613);
    // a directory of this run's own (the same test may run in another build at the same time),
    // removed with everything in it however the test ends
    std::string tmpl = testing::TempDir() + "veldor-ipf-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
    struct Removed {
        std::string path;
        ~Removed() { std::filesystem::remove_all(path); }
    } removed{tmpl};
    const std::string dir = tmpl + "/";
    for (int problem = 0; problem < 6; ++problem) {
        const size_t n = 2 + static_cast<size_t>(problem), m = 1 + static_cast<size_t>(problem % 3);
        TypeFit f = randomProblem(rng, n, m);
        writeProblem(f, dir + "ipf_in.txt", ini::EPS, ini::NITER);
        const std::string cmd = "python3 '" VELDOR_SOURCE_DIR "/tests/kernel/ipf_oracle.py' '" + dir + "ipf_in.txt' '" +
                                dir + "ipf_out.txt'";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        std::vector<double> rowsBefore(n * m, 0.0);
        for (size_t v = 0; v < n; ++v)
            for (size_t c = 0; c < m; ++c) {
                for (size_t w = 0; w < n; ++w) rowsBefore[v * m + c] += f.DG5FI[v][w][0][0][c];
                rowsBefore[v * m + c] += f.STAYER[v][0][0][c];
            }
        const double arrivalsBefore = f.DG4ZB.sum();

        const int k = abgleichInnenwanderung(f);

        std::ifstream in(dir + "ipf_out.txt");
        int expectedPasses = 0;
        in >> expectedPasses;
        EXPECT_EQ(k, expectedPasses) << "problem " << problem;
        EXPECT_LT(k, ini::NITER) << "problem " << problem;
        double x = 0;
        f.DG5FI.forEach([&](double v) {
            in >> x;
            EXPECT_NEAR(v, x, 1e-9 * (1 + std::fabs(x)));
        });
        f.STAYER.forEach([&](double v) {
            in >> x;
            EXPECT_NEAR(v, x, 1e-9 * (1 + std::fabs(x)));
        });
        f.DG4ZB.forEach([&](double v) {
            in >> x;
            EXPECT_NEAR(v, x, 1e-9 * (1 + std::fabs(x)));
        });
        // the margins: each region within its limits to EPS, rows and arrivals as they were
        std::vector<double> d = demandOf(f);
        for (size_t z = 0; z < n; ++z) {
            EXPECT_GE(d[z], f.BG2A[0][z] * (1 - 1e-8));
            if (!std::isinf(f.BG2A[1][z])) {
                EXPECT_LE(d[z], f.BG2A[1][z] * (1 + 1e-8));
            }
        }
        for (size_t v = 0; v < n; ++v)
            for (size_t c = 0; c < m; ++c) {
                double now = f.STAYER[v][0][0][c];
                for (size_t w = 0; w < n; ++w) now += f.DG5FI[v][w][0][0][c];
                EXPECT_NEAR(now, rowsBefore[v * m + c], 1e-9 * now);
            }
        EXPECT_NEAR(f.DG4ZB.sum(), arrivalsBefore, 1e-9 * arrivalsBefore);
    }
}

TEST(IterativeFitting, RegionsWithinTheirLimitsStopAtOnceAndNoIterationsKeepTheFlows)
{
    ini::EPS = 1e-6;
    ini::NITER = 0;
    std::mt19937 rng(7);
    TypeFit f = randomProblem(rng, 3, 2);
    const LA5 before = f.DG5FI;
    // with no pass allowed the flows stay as they came in
    EXPECT_EQ(abgleichInnenwanderung(f), 1);
    EXPECT_EQ(f.DG5FI, before);
    // limits around the demand: converged in the first pass
    std::vector<double> d = demandOf(f);
    for (size_t z = 0; z < 3; ++z) f.BG2A[0][z] = 0, f.BG2A[1][z] = d[z] * 2;
    ini::NITER = 100;
    EXPECT_EQ(abgleichInnenwanderung(f), 1);
    EXPECT_EQ(f.DG5FI, before);
}

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

// Type 1 holds the regions 1, 2 (and 4 in the three-region case), type 2 region 3. Nobody ages,
// is born, dies or crosses the border; 10 % move inside type 1, 5 % from type 1 to type 2 and
// 10 % from type 2 to type 1. Region 1 may hold at most 90, region 2 at least 310.
struct InternalArea : Sandbox {
    explicit InternalArea(bool threeRegions, const std::string& extra = "")
    {
        write("Data/veldor.ini", SETTINGS);
        write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=2\nEPS=1e-7\n" +
                               (extra.empty() ? std::string("NITER=200\nAUSGABE_BINNEN_MATRIX=2\n") : extra) +
                               "[METHODE]\nNAG=2\nNGG=1\nNBG=1\nNTYA=1\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\n"
                               "BINNENWANDERUNG=I1\nZIELWERTE=P1\n[LA]\nAUSGABE_EINZELWERTE=2\n");
        std::string ref = "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                          "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;1;1;1;1;1;1;0;1;1\n3;C;1;1;2;2;1;1;1;1;0;1;1\n";
        std::string gem = "2023;1;1;1;0;100\n2023;2;1;1;0;300\n2023;3;1;1;0;200\n";
        if (threeRegions) {
            ref += "4;D;1;1;1;1;1;1;1;1;0;1;1\n";
            gem += "2023;4;1;1;0;200\n";
        }
        write("var/reftyp.csv", ref);
        write("var/v/gem2023.csv", gem);
        write("var/fruc2024.csv", "1;1;0..1;0\n");
        write("var/strb2024.csv", "1;1;1;0..1;0\n");
        write("var/wegz2024.csv", "1;1;1;1;0..1;0\n");
        write("var/strm2024.csv", "1;1;1;1;0;0.1\n1;2;1;1;0;0.05\n2;1;1;1;0;0.1\n");
        write("var/eckgem.csv", "2024..2030;2;1;90\n2024..2030;1;2;310\n");
    }
    RunResult run() const { return Sandbox::run({"orvane", "-d", "var/", "-v", "v"}); }
    std::string protocol() const { return read("var/v/prot/index.html"); }
};

double at(const Table& t, long long key)
{
    auto it = t.find({key, 1, 1, 0});
    return it == t.end() ? 0.0 : it->second;
}

// the sum of a movement column (0 deaths, 3 moves to other types, 4 moves inside the type,
// 11 arrivals from other types, 12 arrivals inside the type) over the regions of bew.csv
double columnSum(const Sandbox& s, int year, int n)
{
    std::stringstream bew(s.read("var/v/bew.csv"));
    std::string line;
    double sum = 0;
    while (std::getline(bew, line)) {
        if (line.rfind(std::to_string(year) + ";", 0) != 0) continue;
        std::vector<std::string> cells;
        std::stringstream in(line);
        std::string cell;
        while (std::getline(in, cell, ';')) cells.push_back(cell);
        size_t i = 5 + static_cast<size_t>(n);
        if (i < cells.size() && !cells[i].empty()) sum += std::stod(cells[i]);
    }
    return sum;
}

} // namespace

TEST(InternalMigration, TwoRegionTypeMeetsUpperAndLowerLimitAndBalances)
{
    InternalArea s(false);
    RunResult r = s.run();
    ASSERT_EQ(r.status, 0) << r.out << s.protocol();
    for (int year : {2024, 2025}) {
        Table t = gemOf(s, year);
        // type 1 keeps 400: 60 leave it, 20 arrive from type 2, 40 stay inside; region 1 falls to
        // its upper limit 90, so region 2 takes the rest, 310; type 2 gives 20 and takes 20
        EXPECT_NEAR(at(t, 1), 90, 90 * 1e-6) << year;
        EXPECT_NEAR(at(t, 2), 310, 310 * 1e-6) << year;
        EXPECT_NEAR(at(t, 1) + at(t, 2), 400, 1e-9) << year;
        EXPECT_NEAR(at(t, 3), 200, 1e-9) << year;
        // moves balance over the area and inside the type
        EXPECT_NEAR(columnSum(s, year, 3), columnSum(s, year, 11), 1e-9) << year;
        EXPECT_NEAR(columnSum(s, year, 4), columnSum(s, year, 12), 1e-9) << year;
        EXPECT_GT(columnSum(s, year, 4), 0) << year;
    }
    std::string prot = s.protocol();
    EXPECT_NE(prot.find("Iterationen pro Binnentyp bei Abgleich Innenwanderung"), std::string::npos);
    EXPECT_NE(prot.find("Typ mit nur einem Gebiet wird nicht abgeglichen"), std::string::npos);
    // the region-to-region flows: region 1 to 2 inside the type, and from type 2's region 3
    std::string gstrom = s.read("var/v/gstrom.csv");
    EXPECT_NE(gstrom.find("\n2024;1;2;1;1;0;"), std::string::npos) << gstrom;
    EXPECT_NE(gstrom.find("\n2024;3;1;1;1;0;"), std::string::npos) << gstrom;
}

TEST(InternalMigration, ThreeRegionTypeWithListFormsAndTypeFlowsInStrom)
{
    for (const char* options : {"", "list forms"}) {
        InternalArea s(true, "NITER=200\nAUSGABE_BINNEN_MATRIX=1\n");
        std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
        if (*options) args.insert(args.end(), {"-o", "option($SPARSESTRM 1)", "-o", "option($BFWKG 1)"});
        RunResult r = s.Sandbox::run(args);
        ASSERT_EQ(r.status, 0) << options << r.out;
        Table t = gemOf(s, 2024);
        // type 1 sends 30 to type 2 and takes 20 from it; region 4 is free and takes what region 1
        // must give up, region 2 keeps at least its lower limit
        EXPECT_LE(at(t, 1), 90 * (1 + 1e-6)) << options;
        EXPECT_GE(at(t, 2), 310 * (1 - 1e-6)) << options;
        EXPECT_NEAR(at(t, 1) + at(t, 2) + at(t, 4), 590, 1e-6) << options;
        EXPECT_NEAR(at(t, 3), 210, 1e-9) << options;
        EXPECT_NEAR(columnSum(s, 2024, 3), columnSum(s, 2024, 11), 1e-9) << options;
        // strom.csv holds the balanced flows between the types: 30 from type 1 to 2 (5 % of 600)
        std::string strom = s.read("var/v/strom.csv");
        EXPECT_NE(strom.find("\n2024;1;2;1;1;0;30"), std::string::npos) << strom;
    }
}

TEST(InternalMigration, RatesAboveOneAndImpossibleLimitsAreReported)
{
    {
        InternalArea s(false);
        s.write("var/strm2024.csv", "1;1;1;1;0;0.7\n1;2;1;1;0;0.5\n2;1;1;1;0;0.1\n");
        RunResult r = s.run();
        // a warning: the run goes on, the message names the year's table
        EXPECT_EQ(r.status, 0) << r.out;
        EXPECT_NE(s.protocol().find("strm2024.csv: TYBv 1, BG 1, GG 1, AG 0: Summe der Raten 1.2 &gt; 1"),
                  std::string::npos);
        EXPECT_NE(s.protocol().find("strm2024.csv: bei 1 Kohorten ist die Summe"), std::string::npos);
    }
    {
        // region 1 cannot hold fewer than 500 people when only 400 live in its type
        InternalArea s(false, "NITER=5\nAUSGABE_BINNEN_MATRIX=0\n");
        s.write("var/eckgem.csv", "2024..2030;1;1;500\n");
        RunResult r = s.run();
        ASSERT_EQ(r.status, 0) << r.out;
        std::string prot = s.protocol();
        EXPECT_NE(prot.find("ausserhalb Intervall Angebot BG2A [500"), std::string::npos);
        EXPECT_NE(prot.find("Abbruch nach"), std::string::npos);
    }
}
