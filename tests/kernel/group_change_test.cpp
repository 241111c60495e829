// Group change end to end with module T 0: persons leave a group by the rates of their region's
// group-change type and enter the target group; a rate on the diagonal leaves and re-enters;
// rate sums above 1 are warned about; Monte Carlo moves whole persons and keeps the total.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>

#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

// two regions of group-change types 1 and 2, two population groups, one sex group
void twoGroups(const Sandbox& s, const std::string& bgwr)
{
    s.write("var/v.ini",
            "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=2\n"
            "[METHODE]\nNAG=4\nNGG=1\nNBG=2\nNTYA=1\nGRND=1\nBEVGRPWECHSEL=W1\n[LA]\nAUSGABE_EINZELWERTE=2\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;1;1;1;1;1;2;1;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;1;100\n2023;1;2;1;1;50\n2023;2;1;1;1;200\n");
    // nobody reaches the ages of births and deaths
    s.write("var/fruc2024.csv", "1;1;3;0.1\n");
    s.write("var/strb2024.csv", "1;1;1;3;0.1\n");
    s.write("var/bgwr2024.csv", bgwr);
}

double at(const Table& t, long long key, int bg, int gg, int ag)
{
    auto it = t.find({key, bg, gg, ag});
    return it == t.end() ? 0.0 : it->second;
}

bool has(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }

RunResult run(const Sandbox& s, const std::string& options = "")
{
    std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
    if (!options.empty()) {
        args.push_back("-o");
        args.push_back(options);
    }
    return s.run(args);
}

// the line of bew.csv for a cohort, without the byte order mark
std::string bewLine(const Sandbox& s, const std::string& start)
{
    std::istringstream in(s.read("var/v/bew.csv"));
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(start, 0) == 0) return line;
    return "";
}

// movement column n (0 deaths .. 13 leaving the group, 14 entering it) of a bew.csv line
double movement(const std::string& line, int n)
{
    std::istringstream in(line);
    std::string cell;
    for (int k = 0; std::getline(in, cell, ';'); ++k)
        if (k == 5 + n) return cell.empty() ? 0.0 : std::stod(cell);
    return 0.0;
}

} // namespace

TEST(GroupChange, RatesOfTheRegionsTypeMoveBetweenGroupsAndTheDiagonalReturns)
{
    Area s;
    // type 1: 10 % of group 1 to group 2; 20 % of group 2 on the diagonal; type 2: 25 %
    twoGroups(s, "1;1;2;1;2;0.1\n1;2;2;1;2;0.2\n2;1;2;1;2;0.25\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(t, 1, 1, 1, 2), 90);
    EXPECT_DOUBLE_EQ(at(t, 1, 2, 1, 2), 60);    // 50 + 10; the 10 of the diagonal net to 0
    EXPECT_DOUBLE_EQ(at(t, 2, 1, 1, 2), 150);
    EXPECT_DOUBLE_EQ(at(t, 2, 2, 1, 2), 50);
    // both movement columns, shown as positive flows; the diagonal puts 10 into each
    std::string g1 = bewLine(s, "2024;1;1;1;2;");
    std::string g2 = bewLine(s, "2024;1;2;1;2;");
    EXPECT_EQ(movement(g1, 13), 10) << g1;
    EXPECT_EQ(movement(g1, 14), 0) << g1;
    EXPECT_EQ(movement(g2, 13), 10) << g2;
    EXPECT_EQ(movement(g2, 14), 20) << g2;
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_TRUE(has(prot, "1 Wechselraten in die eigene Bevölkerungsgruppe (Diagonale) ungleich 0 "
                          "(TYWBG 1, BG 2, BG 2, GG 1, AG 2: 0.2)"));
    EXPECT_TRUE(has(prot, "Bevölkerungsgruppenwechsel nach Typen"));
    EXPECT_FALSE(has(prot, "größer als 1"));
}

TEST(GroupChange, RateSumsAboveOneAreWarnedAndMonteCarloMovesWholePersons)
{
    Area s;
    twoGroups(s, "1;1;2;1;2;0.7\n1;1;1;1;2;0.5\n2;1;2;1;2;0.3333\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    EXPECT_NEAR(at(t, 1, 1, 1, 2), 30, 1e-9);
    EXPECT_NEAR(at(t, 1, 2, 1, 2), 120, 1e-9);
    EXPECT_TRUE(has(s.read("var/v/prot/index.html"),
                    "Summe der Wechselraten 1.2 größer als 1 bei TYWBG 1, BG 1, GG 1, AG 2"));

    Area m;
    twoGroups(m, "2;1;2;1;2;0.3333\n");
    ASSERT_EQ(run(m, "option($MONTE_CARLO 4711) option($RANDOMLIMIT 0)").status, 0);
    Table u = gemOf(m, 2024);
    double moved = at(u, 2, 2, 1, 2);
    EXPECT_EQ(moved, std::round(moved));
    EXPECT_GT(moved, 40);
    EXPECT_LT(moved, 95);
    EXPECT_DOUBLE_EQ(at(u, 2, 1, 1, 2) + moved, 200);
}
