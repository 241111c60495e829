// The end population against the stock target: reached after the joint adjustment of out- and
// in-migration, missed without any adjustment, and by cohort.
#include <gtest/gtest.h>

#include <string>

#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

// two regions, 100 and 300 persons at age group 0, nobody ages, is born or dies; 5 % leave for
// each of two external areas; 40 arrive
void twoRegions(const Sandbox& s, const std::string& methode)
{
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=3\n"
                         "[METHODE]\nNAG=2\nNGG=1\nNBG=1\nNTYA=2\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\n"
                         "AUSSENWANDERUNGSDATEN=K1\n" + methode);
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;1;2;1;1;1;1;0;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;0;100\n2023;2;1;1;0;300\n");
    s.write("var/fruc2024.csv", "1;1;0..1;0\n");
    s.write("var/strb2024.csv", "1;1;1;0..1;0\n");
    s.write("var/wegz2024.csv", "1;1..2;1;1;0..1;0.05\n");
    s.write("var/zuvol.csv", "2024..2030;1;1;1;40\n");
    s.write("var/zuaq2024.csv", "1;1;1;0;0.5\n2;1;1;0;0.5\n");
    s.write("var/zudq2024.csv", "1..2;1;1;1;0..1;0.5\n1..2;2;1;1;0..1;0.5\n");
}

RunResult run(const Sandbox& s) { return s.run({"orvane", "-d", "var/", "-v", "v"}); }
bool has(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }
double total(const Table& t)
{
    double s = 0;
    for (const auto& [cell, v] : t) s += v;
    return s;
}

} // namespace

TEST(TargetReport, StockTargetReachedByTheJointAdjustmentIsReported)
{
    Area s;
    twoRegions(s, "ANPASSUNG_WEGZUG=A1\nANPASSUNG_ZUZUG=B1\nZIELWERT_BESTAND=M1\n");
    s.write("var/eckreg.csv", "2024..2030;1;1;0;430\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NEAR(total(gemOf(s, 2024)), 430, 1e-6);
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_TRUE(has(prot, "Zielwert 430 M1: BR21 (eckreg) erreicht"));
    EXPECT_FALSE(has(prot, "Zielwert M1 nicht erreicht"));
}

TEST(TargetReport, StockTargetMissedWithoutAdjustmentIsAWarning)
{
    Area s;
    twoRegions(s, "ZIELWERT_BESTAND=M1\n");
    s.write("var/eckreg.csv", "2024..2030;1;1;0;500\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    // 400 - 40 leave + 40 arrive
    EXPECT_DOUBLE_EQ(total(gemOf(s, 2024)), 400);
    EXPECT_TRUE(has(s.read("var/v/prot/index.html"),
                    "Zielwert M1 nicht erreicht: Bevölkerung 400, Zielwert BR21 500, Differenz 100"));
}

TEST(TargetReport, RegionsAndTypesAreHeldAgainstTheirLimits)
{
    Area s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=3\nEPS=1e-7\nNITER=200\n"
                         "[METHODE]\nNAG=2\nNGG=1\nNBG=1\nNTYA=1\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\n"
                         "BINNENWANDERUNG=I1\nZIELWERTE=P1\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;1;1;1;1;1;1;0;1;1\n3;C;1;1;2;2;1;1;1;1;0;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;0;100\n2023;2;1;1;0;300\n2023;3;1;1;0;200\n");
    s.write("var/fruc2024.csv", "1;1;0..1;0\n");
    s.write("var/strb2024.csv", "1;1;1;0..1;0\n");
    s.write("var/wegz2024.csv", "1;1;1;1;0..1;0\n");
    s.write("var/strm2024.csv", "1;1;1;1;0;0.1\n1;2;1;1;0;0.05\n2;1;1;1;0;0.1\n");
    // region 1 at most 90, region 2 at least 310, region 3 at least 1000: out of reach
    s.write("var/eckgem.csv", "2024..2030;2;1;90\n2024..2030;1;2;310\n2024..2030;1;3;1000\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_TRUE(has(prot, "Prüfe Abweichung vom Zielwert &lt; 2e-05% (2*100*1e-07(EPS)):"));
    EXPECT_TRUE(has(prot, "\n1: 0 &le; ")) << prot;
    EXPECT_TRUE(has(prot, "\n3: 1000 &le; "));
    EXPECT_TRUE(has(prot, "Gebiet 3 "));
    EXPECT_TRUE(has(prot, "unter Untergrenze 1000"));
    EXPECT_TRUE(has(prot, "Gesamte absolute Abweichung von den Zielwerten"));
}
