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

namespace {

// the pictures of a GIF file: walks its blocks, -1 when it is no GIF
int gifFrames(const std::string& g)
{
    if (g.compare(0, 6, "GIF89a") != 0 || g.size() < 13) return -1;
    auto table = [&](unsigned char flags) { return flags & 0x80 ? 3 * (2 << (flags & 7)) : 0; };
    size_t i = 13 + static_cast<size_t>(table(static_cast<unsigned char>(g[10])));
    auto subBlocks = [&]() {
        while (i < g.size() && g[i] != 0) i += 1 + static_cast<unsigned char>(g[i]);
        ++i;
    };
    int frames = 0;
    while (i < g.size()) {
        const unsigned char c = static_cast<unsigned char>(g[i]);
        if (c == 0x3B) return frames;
        if (c == 0x21) {
            i += 2;
            subBlocks();
        } else if (c == 0x2C && i + 10 <= g.size()) {
            ++frames;
            i += 10 + static_cast<size_t>(table(static_cast<unsigned char>(g[i + 9]))) + 1;
            subBlocks();
        } else {
            return -1;
        }
    }
    return -1;
}

} // namespace

TEST(RunSummary, TargetChartsAndThePyramidAnimationOneFramePerYear)
{
    Area s;
    area(s, "DIFF_G=0\nPLOT_DATEN=2\nPYRAMIDE=1\nDELAY=300\n");
    s.write("var/v.ini", s.read("var/v.ini") + "GEBURTENECKWERT=G1\nSTERBEECKWERT=S1\n");
    s.write("var/eckgeb.csv", "2024..2025;50\n");
    s.write("var/eckstrb.csv", "2024..2025;30\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_TRUE(has(prot, "Geglättete Eckwerte der Eingabe"));
    EXPECT_TRUE(has(prot, "<img alt=\"Geburteneckwert+Sterbefalleckwert\" src=\"eckgebstrb.png\">\n"));
    EXPECT_EQ(s.read("var/v/prot/eckgebstrb.png").substr(1, 3), "PNG");
    // the start population and the two years of the run
    EXPECT_EQ(gifFrames(s.read("var/v/prot/pyramid.gif")), 3);
    EXPECT_FALSE(has(prot, "could not launch gnuplot"));

    // with births alone their own chart
    Area b;
    area(b, "DIFF_G=0\nPLOT_DATEN=2\n");
    b.write("var/v.ini", b.read("var/v.ini") + "GEBURTENECKWERT=G1\n");
    b.write("var/eckgeb.csv", "2024..2025;50\n");
    ASSERT_EQ(run(b).status, 0);
    EXPECT_TRUE(has(b.read("var/v/prot/index.html"), "<img alt=\"Geburteneckwert\" src=\"eckgeb.png\">\n"));
    EXPECT_TRUE(b.exists("var/v/prot/eckgeb.png"));
}

TEST(RunSummary, WithoutGnuplotTheRunEndsNormallyWithoutPictures)
{
    Area s;
    area(s, "DIFF_G=1\nPLOT_DATEN=2\nPYRAMIDE=1\n");
    s.write("var/v.ini", s.read("var/v.ini") + "GEBURTENECKWERT=G1\n");
    s.write("var/eckgeb.csv", "2024..2025;50\n");
    s.write("bin/.keep", "");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"}, {"PATH=" + s.path("bin")});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(s.exists("var/v/gem2025.csv"));
    std::string prot = s.read("var/v/prot/index.html");
    // target chart, population chart, movement chart, pyramid
    EXPECT_EQ(countOf(prot, "could not launch gnuplot"), 4) << prot;
    EXPECT_FALSE(s.exists("var/v/prot/agg001.png"));
    EXPECT_FALSE(s.exists("var/v/prot/pyramid.gif"));
}

TEST(RunSummary, AKeyNamedByATableIsUsedEvenWithoutPopulation)
{
    Area s;
    area(s, "");
    s.write("var/v/gem2023.csv", "2023;1..2;1;1;1;100\n2023;1..2;1;2;1;120\n2023;3;1;1;1;0\n");
    ASSERT_EQ(run(s).status, 0);
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_FALSE(has(prot, "Unbenutzte Gebietskennzeichen"));
    EXPECT_FALSE(has(prot, " 3:\n"));
}

// Type 1 holds the regions 1 (100 persons) and 2 (300), type 2 region 3 (200). 10 % move inside
// type 1, spread by population: 1 -> 2 is 10 * 3/4, 2 -> 1 is 30 * 1/4. 5 % of type 1 go to
// region 3: 5 from region 1, 15 from region 2. 20 % of region 3 go to type 1: 10 to region 1, 30 to 2.
TEST(RunSummary, FlowSummariesPerSourceAndPerTarget)
{
    Area s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=1\nAUSGABE_BINNEN_MATRIX=2\n"
                         "[METHODE]\nNAG=2\nNGG=1\nNBG=1\nNTYA=1\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\nBINNENWANDERUNG=I1\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;1;1;1;1;1;1;0;1;1\n3;C;1;1;2;2;1;1;1;1;0;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;0;100\n2023;2;1;1;0;300\n2023;3;1;1;0;200\n");
    s.write("var/fruc2024.csv", "1;1;0..1;0\n");
    s.write("var/strb2024.csv", "1;1;1;0..1;0\n");
    s.write("var/wegz2024.csv", "1;1;1;1;0..1;0\n");
    s.write("var/strm2024.csv", "1;1;1;1;0;0.1\n1;2;1;1;0;0.05\n2;1;1;1;0;0.2\n");
    ASSERT_EQ(run(s).status, 0);
    std::string out = s.read("var/v/gstrom_weg.csv"), in = s.read("var/v/gstrom_zu.csv");
    EXPECT_TRUE(has(out, "#Jahr;Herkunftsgebiet;Anzahl\n2024;1;12.5\n2024;2;22.5\n2024;3;40\n")) << out;
    EXPECT_TRUE(has(in, "#Jahr;Zielgebiet;Anzahl\n2024;1;17.5\n2024;2;37.5\n2024;3;20\n")) << in;
    EXPECT_TRUE(has(s.read("var/v/prot/out.htm"), "gstrom_zu.csv"));
}
