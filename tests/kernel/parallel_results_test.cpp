// A forecast with several modules (births, deaths, external migration with a stock target) over
// enough regions for many batches of the result writer: the run with parallel loops writes the
// same bytes into every result table as the serial run.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/sandbox.h"

namespace {

// 700 regions of 2 groups, 2 sexes and 21 age groups, 3 years; comment lines off, so that the
// tables carry no time of day; the long tables written too
void studyArea(const Sandbox& s)
{
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\nKommentar=0\nLangeTabellen=1\n"
                                "[TRACE]\nlogfile=0\n");
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2026\nAUSGABE_PROTOKOLL=1\nABEW=1\nABEWGEM=1\n"
                         "DIFF_G=13\nDIFF_BG=1\nDIFF_GG=1\nDIFF_AG=5\nPYRAMIDE=1\nPLOT_DATEN=0\n"
                         "[METHODE]\nNAG=21\nNGG=2\nNBG=2\nGRND=1\nNTYA=2\nBEVOELKERUNGSBEWEGUNGEN=T1\n"
                         "AUSSENWANDERUNGSDATEN=K1\nANPASSUNG_WEGZUG=A1\nZIELWERT_BESTAND=M1\n"
                         "[LA]\nAUSGABE_EINZELWERTE=0\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "100001..100700;Gebiet $;1..2;1..2;1..14;1..14;1;1;1;1;1;1;1..3\n");
    s.write("var/v/gem2023.csv", "2023;100001..100700;1..2;1..2;0..20;floor((40 - ix(5)) * (1 + 0.2 * sin(ix(2))) / "
                                 "ix(3) + 0.5)\n");
    s.write("var/strb2023.csv", "*;*;*;0..20;0.001 * exp(0.3 * ix(4))\n");
    s.write("var/fruc2023.csv", "*;*;3..9;0.1 * exp(0 - ((ix(3) - 6) * (ix(3) - 6)) / 5)\n");
    s.write("var/wegz2023.csv", "*;1..2;*;*;0..20;0.01 + 0.04 * exp(0 - ((ix(5) - 5) * (ix(5) - 5)) / 6)\n");
    s.write("var/zuvol.csv", "2024..2027;1;1;1;9000\n");
    s.write("var/zuaq2023.csv", "1..2;*;*;0..20;1\n");
    s.write("var/zudq2023.csv", "1..2;*;*;*;0..20;1\n");
    s.write("var/eckreg.csv", "2024..2027;1;1;0;400000*(1+0.005*($JAHR-2023))\n");
}

} // namespace

TEST(ParallelResults, SerialAndParallelRunsWriteTheSameBytes)
{
    Sandbox serial, parallel;
    studyArea(serial);
    studyArea(parallel);
    RunResult a = serial.run({"orvane", "-d", "var/", "-v", "v"});
    RunResult b = parallel.run({"orvane", "-d", "var/", "-v", "v", "-p"});
    ASSERT_EQ(a.status, 0) << a.out << a.err;
    ASSERT_EQ(b.status, 0) << b.out << b.err;
    int tables = 0;
    for (const auto& e : std::filesystem::directory_iterator(serial.path("var/v"))) {
        if (e.path().extension() != ".csv") continue;
        std::string name = e.path().filename().string();
        ASSERT_TRUE(parallel.exists("var/v/" + name)) << name;
        EXPECT_TRUE(serial.read("var/v/" + name) == parallel.read("var/v/" + name)) << name << " differs";
        ++tables;
    }
    // gem for each year and the start year, agg, pyramid, bew, bewgem, bewagg, bewgemagg
    EXPECT_GE(tables, 11);
    std::string bew = serial.read("var/v/bew.csv");
    EXPECT_NE(bew.find("\n2026;100700;2;2;"), std::string::npos);
    EXPECT_GT(bew.size(), 1000000u);
}
