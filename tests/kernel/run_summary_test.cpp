// The summary at the end of a run: the chart of the aggregated population rendered by gnuplot
// into the protocol directory, the movement charts, the pyramid link, unused region keys.
#include <gtest/gtest.h>

#include <string>

#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

bool has(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }

// two regions of aggregate 1, region 3 without population; two sex groups, two years
void area(const Sandbox& s, const std::string& plots)
{
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=2\n" + plots +
                             "[METHODE]\nNAG=4\nNGG=2\nNBG=1\nNTYA=1\nGRND=1\nGP=0.5\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;1;1;1;1;1;1;1;1;1\n3;C;1;1;1;1;1;1;1;1;1;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1..2;1;1;1;100\n2023;1..2;1;2;1;120\n");
    s.write("var/fruc2024.csv", "1;1;2;0.4\n");
    s.write("var/strb2024.csv", "1;1;1..2;2;0.1\n");
}

RunResult run(const Sandbox& s) { return s.run({"orvane", "-d", "var/", "-v", "v"}); }

} // namespace

TEST(RunSummary, ChartsOfThePopulationAndTheMovementsAreRenderedIntoTheProtocol)
{
    Area s;
    area(s, "DIFF_G=1\nDIFF_GG=1\nPLOT_DATEN=1\nPYRAMIDE=1\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_TRUE(has(prot, "src=\"agg001.png\"")) << prot.substr(prot.size() > 3000 ? prot.size() - 3000 : 0);
    std::string png = s.read("var/v/prot/agg001.png");
    ASSERT_GT(png.size(), 5000u);
    EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
    // 1280 x 960 pixels at 22.6 cm x 16.94 cm
    EXPECT_EQ(png.substr(12, 4), "IHDR");
    EXPECT_TRUE(has(prot, "src=\"bewgemagg00101.png\""));
    EXPECT_EQ(s.read("var/v/prot/bewgemagg00101.png").substr(1, 3), "PNG");
    EXPECT_TRUE(has(prot, "Animierte Bevölkerungspyramide <a href=\"../pyramid.csv\">pyramid.csv</a>"));
    EXPECT_TRUE(has(prot, " 3:\n"));
    EXPECT_TRUE(has(prot, "Unbenutzte Gebietskennzeichen aus \"reftyp.csv\""));
}

TEST(RunSummary, WithoutPlotsTheSummaryHeadingStandsAloneOrIsAbsent)
{
    Area s;
    area(s, "DIFF_G=0\nPLOT_DATEN=1\n");
    ASSERT_EQ(run(s).status, 0);
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_TRUE(has(prot, "Zusammenfassung"));
    EXPECT_FALSE(has(prot, ".png\">"));

    Area n;
    area(n, "DIFF_G=1\n");
    ASSERT_EQ(run(n).status, 0);
    EXPECT_FALSE(has(n.read("var/v/prot/index.html"), "Zusammenfassung"));
    EXPECT_FALSE(n.exists("var/v/prot/agg001.png"));
}
