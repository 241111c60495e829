// Forecasts end to end with module T 0: ageing in its two forms, special groups, negative results,
// the year's tables, serial against parallel work and dense against sparse storage.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/sandbox.h"

namespace {


const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";
const char* const NO_COMMENTS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nKommentar=0\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

// a sandbox whose tables are separated by semicolons
struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

std::string variant(int start, int end, const std::string& defaults = "", const std::string& modules = "",
                    int nag = 4, int ngg = 1, int nbg = 1)
{
    std::ostringstream s;
    s << "[DEFAULTS]\nSTARTJAHR=" << start << "\nENDJAHR=" << end << "\nAUSGABE_PROTOKOLL=2\n" << defaults
      << "[METHODE]\nNAG=" << nag << "\nNGG=" << ngg << "\nNBG=" << nbg << "\nNTYA=1\nGRND=1\n" << modules
      << "[LA]\nAUSGABE_EINZELWERTE=2\n";
    return s.str();
}

// one region per line: key, name, TYAGF; every other type 1
std::string reftyp(const std::vector<std::pair<long long, int>>& regions)
{
    std::string t = "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n";
    for (const auto& [key, tyagf] : regions)
        t += std::to_string(key) + ";G" + std::to_string(key) + ";1;1;1;1;1;1;1;1;" + std::to_string(tyagf) + ";1;1\n";
    return t;
}

// ages 0.. of one region, group 1, sex 1, as a vector (absent cells 0)
std::vector<double> ages(const Table& t, long long key, int nag, int bg = 1, int gg = 1)
{
    std::vector<double> v(static_cast<size_t>(nag), 0.0);
    for (int a = 0; a < nag; ++a) {
        auto it = t.find({key, bg, gg, a});
        if (it != t.end()) v[static_cast<size_t>(a)] = it->second;
    }
    return v;
}

std::string protocol(const Sandbox& s) { return s.read("var/v/prot/index.html"); }

RunResult run(const Sandbox& s, std::vector<std::string> extra = {})
{
    std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
    args.insert(args.end(), extra.begin(), extra.end());
    return s.run(args);
}

// three regions of TYAGF 0, 1 and 2, each with 1, 2, 3, 4 persons at ages 0 to 3
void threeRegions(const Sandbox& s, int end, const std::string& modules = "")
{
    s.write("var/v.ini", variant(2024, end, "", modules));
    s.write("var/reftyp.csv", reftyp({{1, 0}, {2, 1}, {3, 2}}));
    s.write("var/v/gem2023.csv", "2023;1..3;1;1;0;1\n2023;1..3;1;1;1;2\n2023;1..3;1;1;2;3\n2023;1..3;1;1;3;4\n");
}

} // namespace

TEST(ForecastYear, AgeingByTheAgeingTypeIntoTheLastAgeGroup)
{
    Area s;
    threeRegions(s, 2025);
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    Table y1 = gemOf(s, 2024);
    EXPECT_EQ(ages(y1, 1, 4), (std::vector<double>{1, 2, 3, 4}));   // TYAGF 0: no ageing
    EXPECT_EQ(ages(y1, 2, 4), (std::vector<double>{0, 1, 2, 7}));   // one age group, the last collects
    EXPECT_EQ(ages(y1, 3, 4), (std::vector<double>{0, 0, 1, 9}));   // two age groups
    Table y2 = gemOf(s, 2025);
    EXPECT_EQ(ages(y2, 2, 4), (std::vector<double>{0, 0, 1, 9}));
    EXPECT_EQ(ages(y2, 3, 4), (std::vector<double>{0, 0, 0, 10}));
    // empty cells are not written
    EXPECT_EQ(y1.count({2, 1, 1, 0}), 0u);
    // the start population is an input: no gem2023.csv in the variant's results... it stays as given
    EXPECT_EQ(s.read("var/v/gem2023.csv").substr(0, 4), "2023");
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("Summe der Bevölkerung am 31.12.2023 24:00 ist 30"), std::string::npos);
    EXPECT_NE(prot.find("deterministische Prognose"), std::string::npos);
}

TEST(ForecastYear, AgeingTypeCountsAsWrittenWhenAllRegionsUseOne)
{
    // a reference table whose TYAGF column holds only 1 still ages by one age group
    Area s;
    s.write("var/v.ini", variant(2024, 2024));
    s.write("var/reftyp.csv", reftyp({{10, 1}, {20, 1}}));
    s.write("var/v/gem2023.csv", "2023;10;1;1;0..3;5\n2023;20;1;1;0..3;5\n");
    ASSERT_EQ(run(s).status, 0);
    EXPECT_EQ(ages(gemOf(s, 2024), 20, 4), (std::vector<double>{0, 5, 5, 10}));
}

TEST(ForecastYear, SpecialGroupsAreSubtractedCorrectedAndAddedBack)
{
    Area s;
    threeRegions(s, 2024, "ANSTALTSBEVOELKERUNG=R1\n");
    // region 2: 2 persons at age 3 live in an institution; 5 at age 0 is more than its 1 person
    s.write("var/dsga2023.csv", "2023;2;1;1;3;2\n2023;2;1;1;0;5\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    Table y1 = gemOf(s, 2024);
    EXPECT_EQ(ages(y1, 1, 4), (std::vector<double>{1, 2, 3, 4}));
    // (1-5 -> 0, 2, 3, 4-2) aged by one: (0, 0, 2, 5), the special groups join at their ages
    EXPECT_EQ(ages(y1, 2, 4), (std::vector<double>{5, 0, 2, 7}));
    // with special groups only TYAGF 1 ages
    EXPECT_EQ(ages(y1, 3, 4), (std::vector<double>{1, 2, 3, 4}));
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("Index GZ 2(#2), BG 1, GG 1, AG 0: GEM(1) - BG40DSG(5) = -4"), std::string::npos);
    EXPECT_NE(prot.find("1 Zellen mit Anstaltsbevölkerung über der Bevölkerung: Minimum 4, Maximum 4, Summe 4, "
                        "Mittelwert 4"),
              std::string::npos);
    EXPECT_NE(prot.find("Summe der Anstaltsbevölkerung = 7"), std::string::npos);
}

TEST(ForecastYear, NegativeResultsAreCorrectedOrKept)
{
    Area s;
    s.write("var/v.ini", variant(2024, 2024));
    s.write("var/reftyp.csv", reftyp({{1, 0}, {2, 0}}));
    s.write("var/v/gem2023.csv", "2023;1;1;1;1;-3\n2023;2;1;1;2;-0.5\n2023;1..2;1;1;0;1\n");
    ASSERT_EQ(run(s).status, 0);
    Table fixed = gemOf(s, 2024);
    EXPECT_EQ(ages(fixed, 1, 4), (std::vector<double>{1, 0, 0, 0}));
    EXPECT_EQ(ages(fixed, 2, 4), (std::vector<double>{1, 0, 0, 0}));
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("GEM 1 1 1 1 = -3 negativ"), std::string::npos);
    // the correction is a numbered warning: the accounting of two cohorts no longer holds
    EXPECT_NE(prot.find(": 2 negative Werte auf die Untergrenze korrigiert in GEM2024.CSV (sum -3.5, min -3)"),
              std::string::npos);
    EXPECT_NE(prot.find("Warnung"), std::string::npos);

    ASSERT_EQ(run(s, {"-o", "option($KEEP_NEG_GEM 1)"}).status, 0);
    Table kept = gemOf(s, 2024);
    EXPECT_EQ(ages(kept, 1, 4), (std::vector<double>{1, -3, 0, 0}));
    EXPECT_EQ(ages(kept, 2, 4), (std::vector<double>{1, 0, -0.5, 0}));
    prot = protocol(s);
    EXPECT_EQ(prot.find("negativ<"), std::string::npos);
    EXPECT_NE(prot.find("2 negative Werte in GEM2024.CSV (sum -3.5, min -3)"), std::string::npos);
}

TEST(ForecastYear, ModuleCheckStopsTheRunWithTheLiteralCondition)
{
    Area s;
    threeRegions(s, 2024, "BINNENWANDERUNG=I1\n");
    RunResult r = run(s);
    EXPECT_EQ(r.status, 1);
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("source\\c\\rkini: "), std::string::npos);
    EXPECT_NE(prot.find(": _(A_0) && _(B_0) && _(C_0) && _(D_0) && _(E_0) && _(I_0) && _(K_0) && _(M_0) && _(N_0) && "
                        "_(P_0) && _(V_0) && C.NTYA == 1; BEVOELKERUNGSBEWEGUNGEN=T0 als Vorgabe ergänzt, der "
                        "Schlüssel fehlte in var/v.ini</span>"),
              std::string::npos);
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));
}

TEST(ForecastYear, KeyTableIsReportedInEveryYear)
{
    Area s;
    threeRegions(s, 2026);
    s.write("var/EVA.csv", "a;1\nb;2;3\n");
    ASSERT_EQ(run(s).status, 0);
    EXPECT_EQ(countOf(protocol(s), "EVA.csv</a>"), 3);
}

TEST(ForecastOutputs, SingleFileAggregatesAndPyramid)
{
    Area s;
    s.write("Data/veldor.ini", NO_COMMENTS);
    s.write("var/v.ini", variant(2024, 2025, "DIFF_G=2\nDIFF_BG=1\nDIFF_GG=1\nDIFF_AG=2\nPYRAMIDE=1\n"));
    s.write("var/reftyp.csv", reftyp({{1, 0}, {2, 1}, {3, 2}}));
    s.write("var/v/gem2023.csv", "2023;1..3;1;1;0;1\n2023;1..3;1;1;1;2\n2023;1..3;1;1;2;3\n2023;1..3;1;1;3;4\n");
    ASSERT_EQ(run(s, {"-o", "option($GEMALL 2)"}).status, 0);
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));
    auto all = readPopulation(s.read("var/v/gem.csv"));
    ASSERT_EQ(all.size(), 3u);   // the start population and two years
    EXPECT_EQ(ages(all[2023], 3, 4), (std::vector<double>{1, 2, 3, 4}));
    EXPECT_EQ(ages(all[2025], 3, 4), (std::vector<double>{0, 0, 0, 10}));
    // by region, group and sex, in age classes of two years
    EXPECT_EQ(s.read("var/v/agg.csv"),
              "\xEF\xBB\xBF#Jahr;Gebiet;Bevölkerungsgruppe;Geschlecht;Altersgruppe;Wert\n"
              "2023;1;1;1;0;3\n2023;1;1;1;2;7\n2023;2;1;1;0;3\n2023;2;1;1;2;7\n2023;3;1;1;0;3\n2023;3;1;1;2;7\n"
              "2024;1;1;1;0;3\n2024;1;1;1;2;7\n2024;2;1;1;0;1\n2024;2;1;1;2;9\n2024;3;1;1;2;10\n"
              "2025;1;1;1;0;3\n2025;1;1;1;2;7\n2025;2;1;1;2;10\n2025;3;1;1;2;10\n");
    std::string pyramid = s.read("var/v/pyramid.csv");
    EXPECT_NE(pyramid.find("\n2023;1;1;1;0;1\n"), std::string::npos);
    EXPECT_NE(pyramid.find("\n2025;3;1;1;3;10\n"), std::string::npos);
}

namespace {

// a study area large enough for several batches of regions, with fractions
void largeArea(const Sandbox& s)
{
    s.write("Data/veldor.ini", NO_COMMENTS);
    s.write("var/v.ini", variant(2024, 2026, "DIFF_G=1\nDIFF_BG=1\nDIFF_GG=1\nDIFF_AG=1\nPYRAMIDE=1\n", "", 21, 2, 2));
    std::string ref = "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                      "1000..1599;Ort $;1;1;1..3;1..3;1;1;1;1;0..2;1;1\n";
    s.write("var/reftyp.csv", ref);
    s.write("var/v/gem2023.csv", "2023;1000..1099;1..2;1..2;0..20;ix(5) * 0.5 - 3\n"
                                 "2023;1100..1599;1..2;1..2;0..20;ix(5) * 0.5 + ix(3) + ix(4) * 0.25\n");
}

std::vector<std::string> resultFiles() { return {"gem2024.csv", "gem2025.csv", "gem2026.csv", "agg.csv", "pyramid.csv"}; }

} // namespace

TEST(ForecastOutputs, ParallelWorkWritesTheSameFilesAsSerial)
{
    Area serial, parallel;
    largeArea(serial);
    largeArea(parallel);
    ASSERT_EQ(run(serial, {"-o", "option($KEEP_NEG_GEM 1)"}).status, 0);
    ASSERT_EQ(run(parallel, {"-p", "-o", "option($KEEP_NEG_GEM 1)"}).status, 0);
    for (const std::string& f : resultFiles()) {
        std::string a = serial.read("var/v/" + f);
        EXPECT_GT(a.size(), 100u) << f;
        EXPECT_EQ(a, parallel.read("var/v/" + f)) << f;
    }
    EXPECT_NE(protocol(parallel).find(", parallel, logfile"), std::string::npos);
}

TEST(ForecastOutputs, SparseStorageGivesTheSameResultAsDense)
{
    Area dense, sparse;
    largeArea(dense);
    largeArea(sparse);
    ASSERT_EQ(run(dense).status, 0);
    ASSERT_EQ(run(sparse, {"-o", "option($SPARSEGEM 101)"}).status, 0);
    EXPECT_NE(protocol(sparse).find("SPARSEGEM=101, Speicherform sparse"), std::string::npos);
    EXPECT_NE(protocol(dense).find("SPARSEGEM=0, Speicherform full"), std::string::npos);
    for (const std::string& f : resultFiles()) EXPECT_EQ(dense.read("var/v/" + f), sparse.read("var/v/" + f)) << f;
}

TEST(ForecastOutputs, FixedSeedGivesTheSameResultTwiceAndTheReportStaysDeterministic)
{
    Area s;
    largeArea(s);
    ASSERT_EQ(run(s, {"-o", "option($MONTE_CARLO 4711) option($ZOMBIE 1)"}).status, 0);
    std::string first = s.read("var/v/gem2026.csv");
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("deterministische Prognose"), std::string::npos);
    // fractional start values are reported under Monte Carlo
    EXPECT_NE(prot.find("nicht ganzzahlige Werte in der Bevölkerung des Jahres 2023"), std::string::npos);
    ASSERT_EQ(run(s, {"-o", "option($MONTE_CARLO 4711) option($ZOMBIE 1)"}).status, 0);
    EXPECT_EQ(first, s.read("var/v/gem2026.csv"));
}

// a module whose stage this build cannot compute stops the run before the first year is written
TEST(ForecastYear, GroupChangeWithoutItsRateTableStopsTheRun)
{
    Area s;
    threeRegions(s, 2024, "BEVGRPWECHSEL=W1\nBEVOELKERUNGSBEWEGUNGEN=T1\n");
    RunResult r = run(s);
    EXPECT_EQ(r.status, 1);
    std::string prot = protocol(s);
    EXPECT_EQ(prot.find("Baustein in diesem Stand nicht verfügbar"), std::string::npos);
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));
}
