// The migration paths of the module combinations, end to end on one small area whose figures
// are worked out by hand in each case: in-migration set by a stock target beside new building,
// in-migration by region (K 6) and by numbers (K 5) beside new building, the joint adjustment
// with demolition abroad, the cohort targets of out- and in-migration, the weights of new
// building and demolition, and the table adjustment of internal migration.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace {

// three regions at age group 0: 100 in type 1, 300 and 50 in type 2; nobody ages, is born or
// dies; 5 % leave for each of two external areas; 10 % of each type move to the other type
struct Area : Sandbox {
    explicit Area(const std::string& methode)
    {
        write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n");
        write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=2\n[METHODE]\nNAG=2\nNGG=1\n"
                           "NBG=1\nNTYA=2\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\nBINNENWANDERUNG=I1\n" +
                               methode + "[LA]\nAUSGABE_EINZELWERTE=2\n");
        write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                                "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;2;2;1;1;1;1;0;1;1\n3;C;1;1;2;2;1;1;1;1;0;1;1\n");
        write("var/v/gem2023.csv", "2023;1;1;1;0;100\n2023;2;1;1;0;300\n2023;3;1;1;0;50\n");
        write("var/fruc2024.csv", "1;1;0..1;0\n");
        write("var/strb2024.csv", "1;1;1;0..1;0\n");
        write("var/wegz2024.csv", "1;1..2;1;1;0..1;0.05\n");
        write("var/strm2024.csv", "1;2;1;1;0;0.1\n2;1;1;1;0;0.1\n");
        write("var/zuvol.csv", "2024..2030;1;1;1;40\n");
        write("var/zuaq2024.csv", "1;1;1;0;0\n");
        write("var/zudq2024.csv", "1..2;1;1;1;0;0.25\n1..2;2;1;1;0;0.75\n");
    }
    // 20 first occupiers in region 1, half of them from external area 1
    void newBuilding() const
    {
        write("var/nebb.csv", "2024..2030;1;20\n");
        write("var/nebq2024.csv", "1;1;1;0;1\n");
        write("var/nebqqa.csv", "2024..2030;1;1;0.5\n");
    }
};

using Bew = std::vector<std::vector<double>>;   // region (0-based) -> movement column -> value

// the movement columns of bew.csv over all age groups, by region
Bew movements(const Sandbox& s)
{
    Bew by(3, std::vector<double>(15, 0.0));
    std::istringstream in(s.read("var/v/bew.csv"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#' || line.rfind("\xEF\xBB\xBF", 0) == 0) continue;
        std::vector<std::string> c;
        std::stringstream cells(line);
        std::string cell;
        while (std::getline(cells, cell, ';')) c.push_back(cell);
        if (c.size() < 6) continue;
        for (size_t k = 5; k < c.size() && k - 5 < 15; ++k) {
            std::string v = c[k];
            for (char& ch : v)
                if (ch == ',') ch = '.';
            by[size_t(std::stoll(c[1]) - 1)][k - 5] += v.empty() ? 0.0 : std::stod(v);
        }
    }
    return by;
}
double column(const Bew& b, int k)
{
    double s = 0;
    for (const auto& r : b) s += r[size_t(k)];
    return s;
}
double total(const Table& t, int ag = -1)
{
    double s = 0;
    for (const auto& [cell, v] : t)
        if (ag < 0 || std::get<3>(cell) == ag) s += v;
    return s;
}
bool has(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }

// movement columns of bew.csv
enum { OUT = 1, TO_NEW = 2, DEMOLISHED_INSIDE = 5, DEMOLISHED_ABROAD = 6, FROM_DEMOLITION = 7, IN = 8,
       NEW_FROM_AREA = 9, NEW_FROM_ABROAD = 10 };

struct Case {
    const char* name;
    std::string methode;
    std::function<void(const Area&)> tables;
    std::function<void(const Area&, const Table&, const Bew&)> check;
};

} // namespace

TEST(MigrationPaths, EachPathGivesTheFiguresWorkedOutByHand)
{
    const std::vector<Case> cases = {
        {"B1 with new building: first occupiers from abroad are part of the in-migration",
         "ANPASSUNG_ZUZUG=B1\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M1\nNEUBAU=D1\n",
         [](const Area& a) {
             a.newBuilding();
             a.write("var/eckreg.csv", "2024..2030;1;1;0;500\n");
         },
         [](const Area&, const Table& t, const Bew& b) {
             // 500 = 450 - 45 out + 10 first occupiers from abroad + 85 other in-migrants, spread
             // evenly over the areas and age groups
             EXPECT_NEAR(total(t), 500, 1e-9);
             EXPECT_NEAR(column(b, OUT), 45, 1e-9);
             EXPECT_NEAR(column(b, IN), 85, 1e-9);
             EXPECT_NEAR(column(b, NEW_FROM_ABROAD), 10, 1e-9);
         }},
        {"K6 with new building: the regions give up the first occupiers from abroad",
         "AUSSENWANDERUNGSDATEN=K6\nNEUBAU=D1\n",
         [](const Area& a) {
             a.newBuilding();
             a.write("var/zuvg2024.csv", "2024;1;1;1;1;0;30\n2024;1;2;1;1;0;30\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             // region 1 is the only one of its in-migration type: 30 - 10
             EXPECT_NEAR(b[0][IN], 20, 1e-9);
             EXPECT_NEAR(b[1][IN], 30, 1e-9);
             EXPECT_NEAR(column(b, IN) + column(b, NEW_FROM_ABROAD), 60, 1e-9);
         }},
        {"K5: in-migration by numbers to the in-migration types, less the first occupiers",
         "AUSSENWANDERUNGSDATEN=K5\nNEUBAU=D1\n",
         [](const Area& a) {
             a.newBuilding();
             a.write("var/zudq2024.csv", "1..2;1;1;1;0;15\n1..2;2;1;1;0;5\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             // 40 in all; area 1 gives 10 of its 20 to the first occupiers, shared 3:1 by the types
             EXPECT_NEAR(column(b, IN), 30, 1e-9);
             EXPECT_NEAR(b[0][IN], 15 - 7.5 + 15, 1e-9);
         }},
        {"A1 B1 M1 with demolition abroad: each region's share of the out-migration",
         "ANPASSUNG_WEGZUG=A1\nANPASSUNG_ZUZUG=B1\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M1\nRUECKBAU=E3\n",
         [](const Area& a) {
             a.write("var/eckreg.csv", "2024..2030;1;1;0;310\n");
             a.write("var/rear.csv", "2024..2030;2;0.5\n");
             a.write("var/reaqza.csv", "2024..2030;1;1;1\n");
             a.write("var/reagzr.csv", "2024..2030;1..3;1\n");
             a.write("var/zuaq2024.csv", "1;1;1;0;1\n");
         },
         [](const Area&, const Table& t, const Bew& b) {
             // 150 of region 2 go abroad; 10 % of the 300 left leave, 15 of them from region 2;
             // in-migration then brings 40 to reach 310
             EXPECT_NEAR(total(t), 310, 1e-6);
             EXPECT_NEAR(b[1][DEMOLISHED_ABROAD], 150, 1e-9);
             EXPECT_NEAR(b[0][OUT], 10, 1e-6);
             EXPECT_NEAR(b[1][OUT], 15, 1e-6);
             EXPECT_NEAR(b[2][OUT], 5, 1e-6);
             EXPECT_NEAR(column(b, IN), 40, 1e-6);
         }},
        {"A0 B1 C3 M1: out-migration to its target, in-migration to the stock",
         "ANPASSUNG_ZUZUG=B1\nZIELWERT_WEGZUG=C3\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M1\n",
         [](const Area& a) {
             a.write("var/wegvol.csv", "2024..2030;1..2;1;1;7\n");
             a.write("var/eckreg.csv", "2024..2030;1;1;0;460\n");
         },
         [](const Area&, const Table& t, const Bew& b) {
             EXPECT_NEAR(column(b, OUT), 14, 1e-9);
             EXPECT_NEAR(column(b, IN), 24, 1e-9);
             EXPECT_NEAR(total(t), 460, 1e-9);
         }},
        {"B1 M2: in-migration by cohort",
         "ANPASSUNG_ZUZUG=B1\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M2\n",
         [](const Area& a) { a.write("var/eckreg.csv", "2024..2030;1;1;0;420\n2024..2030;1;1;1;5\n"); },
         [](const Area&, const Table& t, const Bew& b) {
             // age 0: 450 - 45 out, 15 come; age 1: nobody lives there, 5 come
             EXPECT_NEAR(total(t, 0), 420, 1e-9);
             EXPECT_NEAR(total(t, 1), 5, 1e-9);
             EXPECT_NEAR(column(b, IN), 20, 1e-9);
         }},
        {"A1 B0 M2: out-migration by cohort; a cohort without out-migration can't be lowered",
         "ANPASSUNG_WEGZUG=A1\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M2\n",
         [](const Area& a) { a.write("var/eckreg.csv", "2024..2030;1;1;0;470\n2024..2030;1;1;1;5\n"); },
         [](const Area& a, const Table& t, const Bew& b) {
             // 40 in-migrants, 10 at each area and age: age 0 has 450 + 20, so nobody leaves;
             // age 1 gets 20 and has no out-migration to lower it to 5
             EXPECT_NEAR(total(t, 0), 470, 1e-9);
             EXPECT_NEAR(column(b, OUT), 0, 1e-9);
             EXPECT_NEAR(total(t, 1), 20, 1e-9);
             EXPECT_TRUE(has(a.read("var/v/prot/index.html"),
                             "BG 1 GG 1 AG 1: Bev 20 kann wegen fehlendem Wegzug nicht an Zielwert 5 angepasst werden"));
         }},
        {"A1 B1 M2: the joint adjustment to the sum of the cohort gaps",
         "ANPASSUNG_WEGZUG=A1\nANPASSUNG_ZUZUG=B1\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M2\n",
         [](const Area& a) { a.write("var/eckreg.csv", "2024..2030;1;1;0;460\n2024..2030;1;1;1;5\n"); },
         [](const Area&, const Table& t, const Bew& b) {
             // in-migration by cohort brings 55 and 5 beside the 45 who leave; the gaps 10 and 5
             // are then met, and the joint factor is 1
             EXPECT_NEAR(total(t), 465, 1e-6);
             EXPECT_NEAR(column(b, OUT), 45, 1e-6);
             EXPECT_NEAR(column(b, IN), 60, 1e-6);
         }},
        {"D3: the weights of new building by type",
         "NEUBAU=D3\n",
         [](const Area& a) {
             a.newBuilding();
             a.write("var/nebgqt.csv", "2024..2030;1;2;3\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             // 10 from the area, taken 10:35 from the types by their moves out: region 1 20/9,
             // region 2 60/9, region 3 10/9; type 2 weighs 3, type 1 is not named and weighs 1,
             // and the total stays 10
             EXPECT_NEAR(b[0][TO_NEW], 20.0 / 23, 1e-9);
             EXPECT_NEAR(b[1][TO_NEW], 180.0 / 23, 1e-9);
             EXPECT_NEAR(column(b, TO_NEW), column(b, NEW_FROM_AREA), 1e-9);
         }},
        {"D2: the weights of new building by region",
         "NEUBAU=D2\n",
         [](const Area& a) {
             a.newBuilding();
             a.write("var/nebgqr.csv", "2024..2030;3;4\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             // 20/9, 60/9 and 10/9 * 4 (the regions the table does not name weigh 1): 10 in all again
             EXPECT_NEAR(b[2][TO_NEW], 40.0 / 12, 1e-9);
             EXPECT_NEAR(column(b, TO_NEW), 10, 1e-9);
         }},
        {"E1: demolition by numbers, a fifth abroad",
         "RUECKBAU=E1\n",
         [](const Area& a) {
             a.write("var/reab.csv", "2024..2030;2;20\n");
             a.write("var/reaq2024.csv", "1;1;1;0;1\n");
             a.write("var/reaqza.csv", "2024..2030;1;1;0.2\n");
             a.write("var/reagzr.csv", "2024..2030;1..3;1\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             EXPECT_NEAR(b[1][DEMOLISHED_ABROAD], 4, 1e-9);
             EXPECT_NEAR(b[1][DEMOLISHED_INSIDE], 16, 1e-9);
             EXPECT_NEAR(column(b, FROM_DEMOLITION), 16, 1e-9);
         }},
        {"E2: demolition by numbers, arrivals weighed by type",
         "RUECKBAU=E2\n",
         [](const Area& a) {
             a.write("var/reab.csv", "2024..2030;2;20\n");
             a.write("var/reaq2024.csv", "1;1;1;0;1\n");
             a.write("var/reaqza.csv", "2024..2030;1;1;0.2\n");
             a.write("var/reagzt.csv", "2024..2030;1;1;2\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             EXPECT_NEAR(b[1][DEMOLISHED_INSIDE], 16, 1e-9);
             EXPECT_NEAR(column(b, FROM_DEMOLITION), 16, 1e-9);
             // the 16 arrive in the types as the moves between them do, 35:10; type 1 weighs 2
             // and the type not named keeps its weight 1: 70:10 of 16
             EXPECT_NEAR(b[0][FROM_DEMOLITION], 14, 1e-9);
             EXPECT_NEAR(b[1][FROM_DEMOLITION] + b[2][FROM_DEMOLITION], 2, 1e-9);
         }},
        {"E4: demolition by shares of the stock, arrivals weighed by type",
         "RUECKBAU=E4\n",
         [](const Area& a) {
             a.write("var/rear.csv", "2024..2030;2;0.1\n");
             a.write("var/reaqza.csv", "2024..2030;1;1;0.2\n");
             a.write("var/reagzt.csv", "2024..2030;1;1;2\n");
         },
         [](const Area&, const Table&, const Bew& b) {
             EXPECT_NEAR(b[1][DEMOLISHED_ABROAD], 6, 1e-9);
             EXPECT_NEAR(b[1][DEMOLISHED_INSIDE], 24, 1e-9);
             EXPECT_NEAR(column(b, FROM_DEMOLITION), 24, 1e-9);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Area a(c.methode);
        c.tables(a);
        RunResult r = a.run({"orvane", "-d", "var/", "-v", "v"});
        ASSERT_EQ(r.status, 0) << r.out;
        c.check(a, gemOf(a, 2024), movements(a));
    }
}

TEST(MigrationPaths, TableAdjustmentOfInternalMigrationMeetsEqualLimitsAndStopsOnUnequalOnes)
{
    {
        // 45 leave the area, 10 of type 1 and 35 of type 2; the type limits 100 and 305 are what
        // is left: the flows between the types bring each type back to its own
        Area a("ZIELWERTE=P2\n");
        a.write("var/ecktyp.csv", "2024..2030;1..2;1;100\n2024..2030;1..2;2;305\n");
        RunResult r = a.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($ADTBW 1)"});
        ASSERT_EQ(r.status, 0) << r.out;
        Table t = gemOf(a, 2024);
        EXPECT_NEAR((t[Cell{1, 1, 1, 0}]), 100, 1e-6);
        EXPECT_NEAR((t[Cell{2, 1, 1, 0}] + t[Cell{3, 1, 1, 0}]), 305, 1e-6);
        EXPECT_TRUE(has(a.read("var/v/prot/index.html"), "ADETON: Singular Value Decomposition completed"));
    }
    {
        // the limits of type 1 with its 10 out-migrants: 110 and 130
        Area a("ZIELWERTE=P2\n");
        a.write("var/ecktyp.csv", "2024..2030;1;1;100\n2024..2030;2;1;120\n2024..2030;1..2;2;305\n");
        RunResult r = a.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($ADTBW 1)"});
        EXPECT_EQ(r.status, 1);
        EXPECT_TRUE(has(a.read("var/v/prot/index.html"), "TYB 1, Untergrenze 110 != Obergrenze 130"));
    }
}

TEST(MigrationPaths, ForbiddenCombinationStopsBeforeTheFirstYearAndKeepsEarlierResults)
{
    Area a("ANPASSUNG_WEGZUG=A1\nZIELWERT_WEGZUG=C2\nAUSSENWANDERUNGSDATEN=K1\nZIELWERT_BESTAND=M1\n");
    a.write("var/eckreg.csv", "2024..2030;1;1;0;500\n");
    a.write("var/wegvol.csv", "2024..2030;1..2;1;1;7\n");
    a.write("var/v/gem2024.csv", "earlier\n");
    RunResult r = a.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.out + r.err, "source\\c\\rkirw")) << r.out;
    EXPECT_TRUE(has(r.out + r.err, ": _(C_0)")) << r.out;
    EXPECT_EQ(a.read("var/v/gem2024.csv"), "earlier\n");
}
