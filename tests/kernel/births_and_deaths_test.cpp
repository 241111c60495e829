// Natural change end to end with module T 0: births by the fertility rates with one and two sex
// groups, the child's group, Monte Carlo births, the birth and death targets of modules G and S,
// the plausibility of the oldest death rates, the life table against an independent calculation,
// the fit of the mortality doubling time by gnuplot, and the failures that stop a run.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/sandbox.h"

namespace {


const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

std::string variant(int end, const std::string& methode = "", int nag = 4, int ngg = 1, int nbg = 1)
{
    std::ostringstream s;
    s << "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=" << end << "\nAUSGABE_PROTOKOLL=2\n"
      << "[METHODE]\nNAG=" << nag << "\nNGG=" << ngg << "\nNBG=" << nbg << "\nNTYA=1\nGRND=1\n" << methode
      << "[LA]\nAUSGABE_EINZELWERTE=2\n";
    return s.str();
}

// regions with the keys given, every type 1, ageing by one age group
std::string reftyp(const std::vector<long long>& keys, const std::string& tyg = "1", const std::string& tys = "1")
{
    std::string t = "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n";
    for (long long k : keys) t += std::to_string(k) + ";G;" + tyg + ";" + tys + ";1;1;1;1;1;1;1;1;1\n";
    return t;
}

double at(const Table& t, long long key, int bg, int gg, int ag)
{
    auto it = t.find({key, bg, gg, ag});
    return it == t.end() ? 0.0 : it->second;
}

// data lines of a table, without its head
std::string dataOf(const std::string& text)
{
    std::string out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("\xEF\xBB\xBF", 0) == 0) line = line.substr(3);
        if (!line.empty() && line[0] != '#') out += line + "\n";
    }
    return out;
}

std::string protocol(const Sandbox& s) { return s.read("var/v/prot/index.html"); }

RunResult run(const Sandbox& s, const std::string& options = "", const std::vector<std::string>& env = {})
{
    std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
    if (!options.empty()) {
        args.push_back("-o");
        args.push_back(options);
    }
    return s.run(args, env);
}

bool has(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }

// a run that stopped with an error: status 1, the message, and a protocol that was closed
void expectStopped(const Sandbox& s, const RunResult& r, const std::string& message)
{
    EXPECT_EQ(r.status, 1) << r.out;
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, message)) << message;
    EXPECT_TRUE(has(prot, "<div id=toc>"));
    EXPECT_EQ(prot.substr(prot.size() - 8), "</html>\n");
    EXPECT_TRUE(has(r.out, "1 Fehler"));
}

// one region with 100 women (one sex group) of age group 1, fertile at age group 2
void oneSexGroup(const Sandbox& s, const std::string& methode = "")
{
    s.write("var/v.ini", variant(2025, methode));
    s.write("var/reftyp.csv", reftyp({1}));
    s.write("var/v/gem2023.csv", "2023;1;1;1;1;100\n");
    s.write("var/fruc2024.csv", "1;1;2;0.4\n");
    s.write("var/strb2024.csv", "1;1;1;0;0.05\n1;1;1;2;0.1\n");
}

// regions 1 to n, each with 100 women of age group 1 (one sex group)
void regions(const Sandbox& s, int n, const std::string& methode)
{
    std::vector<long long> keys;
    for (int k = 1; k <= n; ++k) keys.push_back(k);
    s.write("var/v.ini", variant(2024, methode));
    s.write("var/reftyp.csv", reftyp(keys));
    s.write("var/v/gem2023.csv", "2023;1.." + std::to_string(n) + ";1;1;1;100\n");
    s.write("var/fruc2024.csv", "1;1;2;0.4\n");
    s.write("var/strb2024.csv", "1;1;1;2;0.1\n");
}

} // namespace

// ---------------------------------------------------------------- births

TEST(NaturalBirths, OneSexGroupCountsHalfTheBirthsAndTheNewBornDieToo)
{
    Area s;
    oneSexGroup(s);
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    // 100 * 0.4 / 2 = 20 born, of whom 5 % die; 10 % of the 100 mothers die
    Table y1 = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(y1, 1, 1, 1, 0), 19);
    EXPECT_DOUBLE_EQ(at(y1, 1, 1, 1, 2), 90);
    EXPECT_EQ(y1.size(), 2u);
    // the second year: no woman of age group 2, no rate at age groups 1 and 3
    Table y2 = gemOf(s, 2025);
    EXPECT_DOUBLE_EQ(at(y2, 1, 1, 1, 1), 19);
    EXPECT_DOUBLE_EQ(at(y2, 1, 1, 1, 3), 90);
    // deaths are outflows: negative in DG4S, shown as positive counts in the movements
    std::string bew = s.read("var/v/bew.csv");
    EXPECT_TRUE(has(bew, "\n2024;1;1;1;0;1;"));
    EXPECT_TRUE(has(bew, "\n2024;1;1;1;2;10;"));
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "Geburten im Zeitraum 2023 bis 2024"));
    EXPECT_EQ(countOf(prot, "Altersbereich der Fruchtbarkeit 2 .. 2"), 2);
    EXPECT_TRUE(has(prot, "DG4S</span></a> &Sigma;: -11.0"));
    // no target module: no factor tables
    EXPECT_FALSE(s.exists("var/v/frucfak.csv"));
    EXPECT_FALSE(s.exists("var/v/strbfak.csv"));
}

TEST(NaturalBirths, TwoSexGroupsSplitByTheShareOfBoys)
{
    Area s;
    s.write("var/v.ini", variant(2024, "GP=0.525\n", 4, 2));
    s.write("var/reftyp.csv", reftyp({7}));
    // women are sex group 2; men of the same age have no children
    s.write("var/v/gem2023.csv", "2023;7;1;2;1;100\n2023;7;1;1;1;50\n");
    s.write("var/fruc2024.csv", "1;1;2;0.4\n");
    s.write("var/strb2024.csv", "1;1;1;0;0.2\n1;1;2;0;0.1\n1;1;1;2;0.2\n1;1;2;2;0.1\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    // 40 born: 21 boys (4.2 die), 19 girls (1.9 die)
    EXPECT_NEAR(at(t, 7, 1, 1, 0), 16.8, 1e-9);
    EXPECT_NEAR(at(t, 7, 1, 2, 0), 17.1, 1e-9);
    EXPECT_DOUBLE_EQ(at(t, 7, 1, 1, 2), 40);
    EXPECT_DOUBLE_EQ(at(t, 7, 1, 2, 2), 90);
}

TEST(NaturalBirths, QuotasOfTheChildsGroupAreScaledToOne)
{
    Area s;
    s.write("var/v.ini", variant(2024, "BGWQG=Y1\n", 4, 1, 2));
    s.write("var/reftyp.csv", reftyp({1}));
    s.write("var/v/gem2023.csv", "2023;1;1;1;1;100\n2023;1;2;1;1;50\n");
    s.write("var/fruc2024.csv", "1;1..2;2;0.4\n");
    s.write("var/strb2024.csv", "1;1..2;1;0..3;0\n");
    // mothers of group 1: 0.6 and 0.6, scaled to halves; mothers of group 2: no quota, so 1/NBG each
    s.write("var/bgwqg.csv", "2024..2030;1;1;1;0.6\n2024..2030;1;1;2;0.6\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    // 20 children of group 1 mothers, 10 of group 2 mothers, each split in halves
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 0), 15);
    EXPECT_DOUBLE_EQ(at(t, 1, 2, 1, 0), 15);
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "QR2G wurde bei 2 Geburtstypen auf Summe 1 skaliert"));
}

TEST(NaturalBirths, QuotasThatSumToOneStayAndNoRatesGiveNoRange)
{
    Area s;
    oneSexGroup(s);
    s.write("var/fruc2024.csv", "1;1;0..3;0\n");
    ASSERT_EQ(run(s).status, 0);
    std::string prot = protocol(s);
    EXPECT_FALSE(has(prot, "Altersbereich der Fruchtbarkeit"));
    EXPECT_FALSE(has(prot, "QR2G wurde"));
    EXPECT_DOUBLE_EQ(at(gemOf(s, 2024), 1, 1, 1, 0), 0);
}

TEST(NaturalBirths, TypesCountedFromZeroInTheReferenceTable)
{
    Area s;
    oneSexGroup(s);
    s.write("var/reftyp.csv", reftyp({1}, "0", "0"));
    s.write("var/fruc2024.csv", "0;1;2;0.4\n");
    s.write("var/strb2024.csv", "0;1;1;0;0.05\n0;1;1;2;0.1\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 0), 19);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 2), 90);

    // a type beyond the reference table is an error of the rate table
    s.write("var/fruc2024.csv", "1;1;2;0.4\n");
    expectStopped(s, run(s), "fruc2024.csv: TYG 1 außerhalb [0..0]");
}

TEST(NaturalBirths, MonteCarloBirthsAreWholePersons)
{
    Area s;
    s.write("var/v.ini", variant(2024, "GP=0.514\n", 4, 2));
    s.write("var/reftyp.csv", reftyp({1, 2}));
    // region 1: 100 women, above a limit of 0: rounded expected values; region 2: 20 women, drawn one by one
    s.write("var/v/gem2023.csv", "2023;1;1;2;1;100\n2023;2;1;2;1;20\n");
    s.write("var/fruc2024.csv", "1;1;2;0.25\n");
    s.write("var/strb2024.csv", "1;1;1..2;0..3;0\n");
    ASSERT_EQ(run(s, "option($MONTE_CARLO 4711) option($RANDOMLIMIT 0)").status, 0);
    Table t = gemOf(s, 2024);
    // 12.85 boys and 12.15 girls, rounded
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 0), 13);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 2, 0), 12);

    ASSERT_EQ(run(s, "option($MONTE_CARLO 4711)").status, 0);
    std::string first = s.read("var/v/gem2024.csv");
    Table d = gemOf(s, 2024);
    double born = at(d, 2, 1, 1, 0) + at(d, 2, 1, 2, 0);
    EXPECT_GE(born, 0);
    EXPECT_LE(born, 20);
    for (const auto& [cell, v] : d) EXPECT_EQ(v, std::floor(v));
    // the same seed gives the same persons
    ASSERT_EQ(run(s, "option($MONTE_CARLO 4711)").status, 0);
    EXPECT_EQ(dataOf(first), dataOf(s.read("var/v/gem2024.csv")));
}

TEST(NaturalBirths, RateAboveOneAfterTheMultipleBirthFactorStopsTheRun)
{
    Area s;
    s.write("var/v.ini", variant(2024, "GP=0.514\n", 4, 2));
    s.write("var/reftyp.csv", reftyp({1}));
    s.write("var/v/gem2023.csv", "2023;1;1;2;1;3\n");
    s.write("var/fruc2024.csv", "1;1;2;1.6\n");
    s.write("var/strb2024.csv", "1;1;1..2;0..3;0\n");
    // with a factor of 2 each of the 6 draws has the rate 0.8
    RunResult ok = run(s, "option($MONTE_CARLO 4711) option($MBF 2)");
    ASSERT_EQ(ok.status, 0) << ok.out;
    Table t = gemOf(s, 2024);
    EXPECT_LE(at(t, 1, 1, 1, 0) + at(t, 1, 1, 2, 0), 6);
    expectStopped(s, run(s, "option($MONTE_CARLO 4711)"), "Geburtenrate erfordert höheren Wert für !MBF");
}

// ---------------------------------------------------------------- birth targets

TEST(NaturalTargets, AreaBirthTargetScalesTheBirths)
{
    Area s;
    oneSexGroup(s, "GEBURTENECKWERT=G1\n");
    s.write("var/eckgeb.csv", "2024..2030;30\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    // 20 computed, 30 wanted: factor 1.5, then 5 % of 30 die
    EXPECT_DOUBLE_EQ(at(gemOf(s, 2024), 1, 1, 1, 0), 28.5);
    // the second year has no births: no factor
    EXPECT_EQ(dataOf(s.read("var/v/frucfak.csv")), "2024;1.5\n");
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "Anpassung der Geburten: berechnet 20, Eckwert 30, Faktor 1.5"));
    EXPECT_TRUE(has(prot, "GB1000_ 300"));
}

TEST(NaturalTargets, RegionBirthTargetsWithMissingTargetsAndRegionsWithoutBirths)
{
    Area s;
    regions(s, 4, "GEBURTENECKWERT=G2\n");
    // region 4 has no women; region 2 has no target; region 3 wants none
    s.write("var/v/gem2023.csv", "2023;1..3;1;1;1;100\n2023;4;1;1;3;1\n");
    s.write("var/eckgebg.csv", "2024..2030;1;10\n2024..2030;3;0\n2024..2030;4;5\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 0), 10);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 0), 20);
    EXPECT_EQ(t.count({3, 1, 1, 0}), 0u);
    EXPECT_EQ(t.count({4, 1, 1, 0}), 0u);
    // (10 + 20 + 0 + 5) / 60
    EXPECT_EQ(dataOf(s.read("var/v/frucfak.csv")), "2024;0.583333333333333\n");
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "Bei 1 Gebieten keine Anpassung an Geburteneckwert wegen fehlender Geburten"));
    EXPECT_TRUE(has(prot, "Bei 1 Gebieten ohne Eckwert keine Anpassung"));
}

TEST(NaturalTargets, NegativeBirthTargetsStopTheRun)
{
    Area s;
    oneSexGroup(s, "GEBURTENECKWERT=G1\n");
    s.write("var/eckgeb.csv", "2024..2030;-5\n");
    expectStopped(s, run(s), "Fehler in der Datei eckgeb.csv: Geburteneckwert muss positiv sein");
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));

    Area g;
    regions(g, 2, "GEBURTENECKWERT=G2\n");
    g.write("var/eckgebg.csv", "2024..2030;2;-5\n");
    expectStopped(g, run(g), "Fehler in der Datei eckgebg.csv: Geburteneckwert 2 -5 muss positiv sein");
}

// ---------------------------------------------------------------- death targets

TEST(NaturalTargets, AreaDeathTargetScalesTheDeaths)
{
    Area s;
    oneSexGroup(s, "STERBEECKWERT=S1\n");
    s.write("var/eckstrb.csv", "2024..2030;22\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    // 11 computed deaths, 22 wanted: each doubled
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 0), 18);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 2), 80);
    // 2025 has no deaths: no factor
    EXPECT_EQ(dataOf(s.read("var/v/strbfak.csv")), "2024;2\n");
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "Sterbeeckwert 22"));
    EXPECT_TRUE(has(prot, "SFAK 2"));
}

TEST(NaturalTargets, RegionDeathTargets)
{
    Area s;
    regions(s, 3, "STERBEECKWERT=S2\n");
    s.write("var/eckstrbg.csv", "2024..2030;1;5\n2024..2030;3;0\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 2), 95);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 2), 90);
    EXPECT_DOUBLE_EQ(at(t, 3, 1, 1, 2), 100);
    // (-5 - 10 + 0) / -30
    EXPECT_EQ(dataOf(s.read("var/v/strbfak.csv")), "2024;0.5\n");
    EXPECT_TRUE(has(protocol(s), "Bei 1 Gebieten ohne Eckwert keine Anpassung"));
}

TEST(NaturalTargets, SparseStorageAndParallelWorkGiveTheSameResult)
{
    Area dense, sparse, parallel;
    for (Area* a : {&dense, &sparse, &parallel}) {
        regions(*a, 4, "GEBURTENECKWERT=G2\nSTERBEECKWERT=S2\n");
        a->write("var/v/gem2023.csv", "2023;1..3;1;1;1;100\n2023;4;1;1;3;1\n2023;2..4;1;1;0;7\n");
        a->write("var/strb2024.csv", "1;1;1;0;0.01\n1;1;1;2;0.1\n");
        a->write("var/eckgebg.csv", "2024..2030;1;10\n2024..2030;3;0\n");
        a->write("var/eckstrbg.csv", "2024..2030;2;3\n2024..2030;3;0\n");
    }
    ASSERT_EQ(run(dense).status, 0);
    ASSERT_EQ(run(sparse, "option($SPARSEGEM 100)").status, 0);
    ASSERT_EQ(parallel.run({"orvane", "-p", "-d", "var/", "-v", "v"}).status, 0);
    std::string expected = dataOf(dense.read("var/v/gem2024.csv"));
    EXPECT_TRUE(has(expected, "2024;1;1;1;0;9.9\n"));
    for (const char* f : {"gem2024.csv", "bew.csv", "frucfak.csv", "strbfak.csv"}) {
        EXPECT_EQ(dataOf(dense.read(std::string("var/v/") + f)), dataOf(sparse.read(std::string("var/v/") + f))) << f;
        EXPECT_EQ(dataOf(dense.read(std::string("var/v/") + f)), dataOf(parallel.read(std::string("var/v/") + f))) << f;
    }
}

// The year of births and deaths alone takes shortcuts on dense tables (ageing in place, the
// mothers' own group, the deaths entering the population at once); sparse storage and parallel
// work take the general paths. All write the same bytes, and a region that ages by two age groups
// agrees with a hand calculation.
TEST(NaturalChange, ShortcutsAndGeneralPathsWriteTheSameBytes)
{
    Area dense, sparse, parallel;
    for (Area* a : {&dense, &sparse, &parallel}) {
        a->write("var/v.ini", variant(2026, "GP=0.5\nBGWQG=Y1\n", 4, 2, 2));
        // region 2 ages by two age groups, its children stay in their mothers' group, its deaths
        // have no rate at the last age group
        a->write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                                   "1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;2;2;1;1;1;1;1;1;2;1;1\n"
                                   "3;C;1;2;1;1;1;1;1;1;1;1;1\n");
        a->write("var/v/gem2023.csv", "2023;1..3;1..2;1..2;0;10\n2023;1;1..2;1..2;1;20\n2023;3;1..2;1..2;1;20\n"
                                      "2023;2;2;1..2;1;20\n2023;2;1;2;1;20\n2023;2;1;1;1;-0\n"
                                      "2023;1..3;1..2;1..2;2;30\n2023;1..2;1..2;1..2;3;40\n"
                                      "2023;3;1;1..2;3;40\n2023;3;2;1;3;40\n2023;3;2;2;3;-50\n");
        a->write("var/fruc2024.csv", "*;*;2;0.5\n");
        a->write("var/strb2024.csv", "1;*;*;0..3;0.1\n2;*;*;0..2;0.2\n2;*;*;3;0\n");
        a->write("var/bgwqg.csv", "2024..2030;1;1;1;0.75\n2024..2030;1;1;2;0.25\n2024..2030;1;2;2;1\n"
                                  "2024..2030;2;1;1;1\n2024..2030;2;2;2;1\n");
    }
    ASSERT_EQ(run(dense).status, 0);
    ASSERT_EQ(run(sparse, "option($SPARSEGEM 100)").status, 0);
    ASSERT_EQ(parallel.run({"orvane", "-p", "-d", "var/", "-v", "v"}).status, 0);
    // region 3's women of group 2 fall below 0 in the last age group (30 - 50, no deaths by the
    // rates of its type): set to 0 with a warning, in every form
    for (Area* a : {&dense, &sparse, &parallel})
        EXPECT_TRUE(has(protocol(*a), "GEM2024.CSV (sum -20, min -20)")) << protocol(*a);
    for (const char* f : {"gem2024.csv", "gem2025.csv", "gem2026.csv", "bew.csv"}) {
        std::string expected = dataOf(dense.read(std::string("var/v/") + f));
        EXPECT_FALSE(has(expected, ";-0\n")) << f;
        EXPECT_EQ(expected, dataOf(sparse.read(std::string("var/v/") + f))) << f;
        EXPECT_EQ(expected, dataOf(parallel.read(std::string("var/v/") + f))) << f;
    }
    // the account of the run (persons, births and deaths by group and year) is summed alike
    auto account = [](const std::string& page) {
        const size_t from = page.find("<h2>Komponenten der Bevölkerungsveränderung</h2>");
        return from == std::string::npos ? std::string() : page.substr(from, page.find("</table>", from) - from);
    };
    const std::string expected = account(dense.read("var/v/prot/results.htm"));
    EXPECT_TRUE(has(expected, "<td>")) << expected;
    for (Area* a : {&sparse, &parallel}) EXPECT_EQ(expected, account(a->read("var/v/prot/results.htm")));
    // region 2, group 1: ten women of age group 2 after ageing by two give 5 children, half of them
    // boys, of whom a fifth die; the men of 0 (the -0 skipped), 30 and 40 collect in the last age
    // group and have no deaths there; the 10 of age group 0 reach age group 2, 2 of them die
    Table t = gemOf(dense, 2024);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 0), 2);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 1), 0);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 2), 8);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 3), 70);
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 2, 3), 90);
    // region 1, group 1: a quarter of the children of its mothers go to group 2
    EXPECT_NEAR(at(t, 1, 1, 1, 0), 20 * 0.5 * 0.5 * 0.75 * 0.9, 1e-12);
    EXPECT_NEAR(at(t, 1, 2, 1, 0), (20 * 0.5 * 0.5 * 0.25 + 20 * 0.5 * 0.5) * 0.9, 1e-12);

    // a member's summary of the population by band and of the components, from either storage
    ASSERT_EQ(dense.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($SUMMARY_ONLY 1)"}).status, 0);
    ASSERT_EQ(sparse.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($SUMMARY_ONLY 1)", "-o",
                          "option($SPARSEGEM 100)"}).status, 0);
    for (const char* f : {"summary_population.bin", "summary_components.bin"}) {
        EXPECT_GT(dense.read(std::string("var/v/") + f).size(), 100u) << f;
        EXPECT_EQ(dense.read(std::string("var/v/") + f), sparse.read(std::string("var/v/") + f)) << f;
    }
}

TEST(NaturalTargets, NegativeDeathTargetsStopTheRun)
{
    Area s;
    oneSexGroup(s, "STERBEECKWERT=S1\n");
    s.write("var/eckstrb.csv", "2024..2030;-5\n");
    expectStopped(s, run(s), "Fehler in der Datei eckstrb.csv: Sterbeeckwert -5 muss positiv sein");

    Area g;
    regions(g, 2, "STERBEECKWERT=S2\n");
    g.write("var/eckstrbg.csv", "2024..2030;1;-3\n");
    expectStopped(g, run(g), "Fehler in der Datei eckstrbg.csv: Sterbeeckwert -3 muss positiv sein");
}

// ---------------------------------------------------------------- deaths

namespace {

// 101 age groups with a rate of 1 % throughout, one person aged 50
void oldAges(const Sandbox& s, int nag, int end)
{
    s.write("var/v.ini", variant(end, "", nag));
    s.write("var/reftyp.csv", reftyp({1}));
    s.write("var/v/gem2023.csv", "2023;1;1;1;50;1\n");
    s.write("var/fruc2024.csv", "1;1;20;0\n");
    s.write("var/strb2024.csv", "1;1;1;*;0.01\n");
}

} // namespace

TEST(NaturalDeaths, OldestRatesBelowTheLimitsAreReportedOnceForANewTable)
{
    Area s;
    oldAges(s, 101, 2025);
    ASSERT_EQ(run(s).status, 0);
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "PR3S 1 1 1 91 0.01 &lt; 0.05"));
    EXPECT_TRUE(has(prot, "PR3S 1 1 1 101 0.01 &lt; 0.25"));
    EXPECT_EQ(countOf(prot, "10 Sterberaten PR3S ab Altersgruppe 90 (&lt; 0.05) (siehe Benutzerhandbuch)"), 1);
    EXPECT_EQ(countOf(prot, "1 Sterberaten PR3S in Altersgruppe 100 männlich &lt; 0.3, weiblich &lt; 0.25 "
                            "(manuelle Korrektur siehe Benutzerhandbuch)"),
              1);

    for (int nag : {99, 121}) {
        Area o;
        oldAges(o, nag, 2024);
        ASSERT_EQ(run(o).status, 0);
        EXPECT_FALSE(has(protocol(o), "Sterberaten PR3S")) << nag;
    }
}

// The life table of q = 0.01, 0.05, 0.2, 0.5, 0.8, computed apart from the program (one line per
// age group: p, l, d, L, T, e), and the short life expectancy E(x) = 0.5 + sum of the survival
// products from x on.
TEST(NaturalLifeTable, TableAgreesWithAnIndependentCalculation)
{
    Area s;
    s.write("var/v.ini", variant(2024, "", 5));
    s.write("var/reftyp.csv", reftyp({1}));
    s.write("var/v/gem2023.csv", "2023;1;1;1;0;1\n");
    s.write("var/fruc2024.csv", "1;1;1;0\n");
    s.write("var/strb2024.csv", "1;1;1;0;0.01\n1;1;1;1;0.05\n1;1;1;2;0.2\n1;1;1;3;0.5\n1;1;1;4;0.8\n");
    ASSERT_EQ(run(s, "option($LE 6)").status, 0);
    const double expected[5][7] = {
        {0.01, 0.99, 100000.0, 1000.0, 99500.0, 355910.0, 3.5591},
        {0.05, 0.95, 99000.0, 4950.0, 96525.0, 256410.0, 2.59},
        {0.2, 0.8, 94050.0, 18810.0, 84645.0, 159885.0, 1.7},
        {0.5, 0.5, 75240.0, 37620.0, 56430.0, 75240.0, 1.0},
        {0.8, 0.2, 37620.0, 37620.0, 18810.0, 18810.0, 0.5},
    };
    std::istringstream in(s.read("var/v/le.csv"));
    std::string line;
    ASSERT_TRUE(std::getline(in, line));
    EXPECT_EQ(line, "#Jahr;TYS;BG;GG;AG;q(x);p(x);l(x);d(x);L(x);T(x);e(x)");
    for (int a = 0; a < 5; ++a) {
        ASSERT_TRUE(std::getline(in, line)) << a;
        std::vector<std::string> f;
        std::stringstream ls(line);
        std::string cell;
        while (std::getline(ls, cell, ';')) f.push_back(cell);
        ASSERT_EQ(f.size(), 12u) << line;
        EXPECT_EQ(f[0] + ";" + f[1] + ";" + f[2] + ";" + f[3] + ";" + f[4], "2024;1;1;1;0" + std::to_string(a));
        for (int k = 0; k < 7; ++k) EXPECT_NEAR(std::stod(f[5 + k]), expected[a][k], 1e-9) << line;
    }
    EXPECT_FALSE(std::getline(in, line));
    EXPECT_TRUE(has(protocol(s), "<a href=\"../le.csv\">le.csv</a>"));

    // E(0) by both functions, E(x) by both, and the row e of the table
    ASSERT_EQ(run(s, "option($LE 1)").status, 0);
    EXPECT_TRUE(has(protocol(s), "<td class=l>3.634340</td>"));
    ASSERT_EQ(run(s, "option($LE 2)").status, 0);
    EXPECT_TRUE(has(protocol(s), "<td class=l>3.634340</td>"));
    for (const char* le : {"3", "4"}) {
        ASSERT_EQ(run(s, std::string("option($LE ") + le + ")").status, 0);
        std::string prot = protocol(s);
        for (const char* v : {"3.634340", "2.666000", "1.780000", "1.100000", "0.700000"})
            EXPECT_TRUE(has(prot, std::string("<td class=l>") + v + "</td>")) << le << " " << v;
    }
    ASSERT_EQ(run(s, "option($LE 5)").status, 0);
    std::string prot = protocol(s);
    for (const char* v : {"3.559100", "2.590000", "1.700000", "1.000000", "0.500000"})
        EXPECT_TRUE(has(prot, std::string("<td class=l>") + v + "</td>")) << v;
}

// ---------------------------------------------------------------- mortality doubling time

namespace {

// rates that double every ln 2 / 0.09 years from 0.0005 at age 30
void gompertz(const Sandbox& s)
{
    s.write("var/v.ini", variant(2024, "", 101));
    s.write("var/reftyp.csv", reftyp({1}));
    s.write("var/v/gem2023.csv", "2023;1;1;1;50;1\n");
    s.write("var/fruc2024.csv", "1;1;20;0\n");
    s.write("var/strb2024.csv", "1;1;1;0..100;0.0005*exp(0.09*(ix(4)-30))\n");
}

// a stand-in for gnuplot in the installation that writes the given text as the fit's result
void fakePlotter(const Sandbox& s, const std::string& result)
{
    s.write("App/gnuplot64/bin/gnuplot",
            "#!/bin/sh\nwhile read cmd; do\n"
            "  f=$(echo \"$cmd\" | sed -n \"s/^load '\\(.*\\)'$/\\1/p\")\n"
            "  [ -n \"$f\" ] || continue\n"
            "  out=$(sed -n \"s/^set print '\\(.*\\)'$/\\1/p\" \"$f\")\n"
            "  printf '" + result + "' > \"$out\"\n"
            "done\n");
    std::filesystem::permissions(s.path("App/gnuplot64/bin/gnuplot"), std::filesystem::perms::owner_all);
}

} // namespace

TEST(NaturalDeaths, DoublingTimeFittedByGnuplot)
{
    Area s;
    gompertz(s);
    RunResult r = run(s, "option($MRDT 2)");
    ASSERT_EQ(r.status, 0) << r.out;
    std::string script = s.read("var/v/fit.tmp");
    EXPECT_EQ(script.substr(0, 16), "$STRB <<e\n30 5e-");
    EXPECT_TRUE(has(script, "\n99 "));
    EXPECT_FALSE(has(script, "\n100 "));
    EXPECT_TRUE(has(script, "e\nset fit nolog quiet\ns(x)=S30*exp(G*(x-30))\nset print 'var/v/fit.txt'\n"));
    EXPECT_TRUE(has(script, "G=0.08\nS30=0.0005\nfit s(x) $STRB using 1:2 via G\nprint G\n") ||
                has(script, "G=0.08\nS30=5e-04\nfit s(x) $STRB using 1:2 via G\nprint G\n"));
    double G = std::stod(s.read("var/v/fit.txt"));
    EXPECT_NEAR(G, 0.09, 1e-6);
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "0 MRDTs außerhalb [5 .. 12]"));
    EXPECT_TRUE(has(prot, "<td class=l>7.701635</td>"));   // ln 2 / 0.09

    // below 2 the result file goes
    ASSERT_EQ(run(s, "option($MRDT 1)").status, 0);
    EXPECT_FALSE(s.exists("var/v/fit.txt"));
    EXPECT_TRUE(s.exists("var/v/fit.tmp"));
}

TEST(NaturalDeaths, UnreadableFitResultsStopTheRun)
{
    Area s;
    gompertz(s);
    fakePlotter(s, "0.1x\\n");
    expectStopped(s, run(s, "option($MRDT 1)"), "fit.tmp: 0.1=getd(0.1x) unparsed(x) err(22:invalid argument)");

    Area e;
    gompertz(e);
    fakePlotter(e, "");
    expectStopped(e, run(e, "option($MRDT 1)"), "TYS 1, BG 1, GG 1: read var/v/fit.txt: end of file");

    Area o;
    gompertz(o);
    fakePlotter(o, "1e999\\n");
    expectStopped(o, run(o, "option($MRDT 1)"), "err(34:result out of range)");
}

TEST(NaturalDeaths, MissingGnuplotMakesTheFitAWarning)
{
    Area s;
    gompertz(s);
    RunResult r = run(s, "option($MRDT 1)", {"PATH=/nonexistent"});
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(has(protocol(s), "could not launch gnuplot"));
    EXPECT_FALSE(s.exists("var/v/fit.txt"));
    EXPECT_TRUE(s.exists("var/v/gem2024.csv"));
}
