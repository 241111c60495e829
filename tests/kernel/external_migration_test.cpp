// External migration end to end on small areas computed by hand: in-migration quotas that are
// all 0, out-migration adjusted to a stock target and to a balance target, out-migration taken
// by region from its table, and new building and demolition once internal migration runs.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

std::string variant(const std::string& methode, const std::string& defaults = "")
{
    std::ostringstream s;
    s << "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=2\n" << defaults
      << "[METHODE]\nNAG=2\nNGG=1\nNBG=1\nNTYA=2\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\n" << methode
      << "[LA]\nAUSGABE_EINZELWERTE=2\n";
    return s.str();
}

// two regions of one internal type, in-migration types 1 and 2, nobody ages, is born or dies;
// 100 and 300 persons at age group 0; 5 % leave for each of the two external areas
void twoRegions(const Sandbox& s, const std::string& methode, const std::string& defaults = "")
{
    s.write("var/v.ini", variant(methode, defaults));
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;1;2;1;1;1;1;0;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;0;100\n2023;2;1;1;0;300\n");
    s.write("var/fruc2024.csv", "1;1;0..1;0\n");
    s.write("var/strb2024.csv", "1;1;1;0..1;0\n");
    s.write("var/wegz2024.csv", "1;1..2;1;1;0..1;0.05\n");
    // in-migration of 40, quotas by area all 0; to the in-migration types a quarter and three quarters
    s.write("var/zuvol.csv", "2024..2030;1;1;1;40\n");
    s.write("var/zuaq2024.csv", "1;1;1;0;0\n");
    s.write("var/zudq2024.csv", "1..2;1;1;1;0;0.25\n1..2;2;1;1;0;0.75\n");
}

RunResult run(const Sandbox& s) { return s.run({"orvane", "-d", "var/", "-v", "v"}); }
std::string protocol(const Sandbox& s) { return s.read("var/v/prot/index.html"); }
bool has(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }
double at(const Table& t, long long key, int ag)
{
    auto it = t.find({key, 1, 1, ag});
    return it == t.end() ? 0.0 : it->second;
}
double total(const Table& t)
{
    double s = 0;
    for (const auto& [cell, v] : t) s += v;
    return s;
}

// the movement columns of bew.csv by region and age: text after "2024;key;1;1;age;"
std::string bewLine(const Sandbox& s, long long key, int ag)
{
    std::string bew = s.read("var/v/bew.csv");
    std::string head = "\n2024;" + std::to_string(key) + ";1;1;" + std::to_string(ag) + ";";
    size_t p = bew.find(head);
    if (p == std::string::npos) return "";
    size_t e = bew.find('\n', p + 1);
    return bew.substr(p + head.size(), e - p - head.size());
}

// the movement column n (0 deaths, 1 out-migration, ...) of a bew.csv line, 0 when empty
double column(const std::string& line, int n)
{
    std::vector<std::string> cells;
    std::stringstream in(line);
    std::string cell;
    while (std::getline(in, cell, ';')) cells.push_back(cell);
    return static_cast<size_t>(n) < cells.size() && !cells[size_t(n)].empty() ? std::stod(cells[size_t(n)]) : 0.0;
}

bool internalMigrationBuilt(const Sandbox& s)
{
    return !has(protocol(s), "nicht verfügbar, die Prognose wird nicht gerechnet: I1");
}

} // namespace

TEST(ExternalMigration, QuotasAllZeroShareEquallyAndOutMigrationMeetsTheStockTarget)
{
    Area s;
    twoRegions(s, "AUSSENWANDERUNGSDATEN=K1\nANPASSUNG_WEGZUG=A1\nZIELWERT_BESTAND=M1\n");
    s.write("var/eckreg.csv", "2024..2030;1;1;0;420\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    // in-migration: 40 over 2 areas x 2 age groups, 10 each; out-migration 40 by the rates.
    // The target 420 = 400 + 40 - f * 40 makes f = 0.5: 20 leave, 5 and 15 by the regions' stock.
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(total(t), 420);
    EXPECT_DOUBLE_EQ(at(t, 1, 0), 100 - 5 + 5);
    EXPECT_DOUBLE_EQ(at(t, 2, 0), 300 - 15 + 15);
    // age group 1 has no quota to the in-migration types: halves
    EXPECT_DOUBLE_EQ(at(t, 1, 1), 10);
    EXPECT_DOUBLE_EQ(at(t, 2, 1), 10);
    EXPECT_DOUBLE_EQ(column(bewLine(s, 2, 0), 1), 15);
    EXPECT_DOUBLE_EQ(column(bewLine(s, 2, 0), 8), 15);
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "QR3ZA wurde auf Summe 1 skaliert"));
    EXPECT_TRUE(has(prot, "Anpassung Außenwegzug: Summe vorher 40, nachher 20"));
    EXPECT_TRUE(has(prot, "2 Anpassungen Allokationsquoten"));
}

TEST(ExternalMigration, BalanceTargetAboveInMigrationStopsOutMigrationAndRaisesInMigration)
{
    Area s;
    twoRegions(s, "AUSSENWANDERUNGSDATEN=K1\nANPASSUNG_WEGZUG=A1\nZIELWERT_AUSSENWANDERUNGSSALDO=N1\n");
    s.write("var/saldvol.csv", "2024..2030;1;1;1;50\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    std::string prot = protocol(s);
    // a balance of 50 with 40 arriving would need negative out-migration: the factor becomes 0
    EXPECT_TRUE(has(prot, "Zielwert Außenwanderungssaldo 50 größer als Außenzuzug 40: Faktor Außenwegzug auf 0"));
    // the joint adjustment then scales the in-migration to the balance: 50 arrive, nobody leaves
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(total(t), 450);
    EXPECT_DOUBLE_EQ(column(bewLine(s, 1, 0), 1), 0);
}

TEST(ExternalMigration, OutMigrationByRegionFromItsTableWithoutRates)
{
    Area s;
    twoRegions(s, "ZIELWERT_WEGZUG=C6\n", "AUSGABE_AUSSEN_MATRIX=1\n");
    // region 2 loses 7 to area 1 and 3 to area 2 at age group 0
    s.write("var/wegv2024.csv", "2024;2;1;1;1;0;7\n2024;2;2;1;1;0;3\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2024);
    EXPECT_DOUBLE_EQ(at(t, 1, 0), 100);
    EXPECT_DOUBLE_EQ(at(t, 2, 0), 290);
    EXPECT_FALSE(s.exists("var/v/wegzug.csv"));
    EXPECT_TRUE(has(protocol(s), "keine Ausgabe wegzug.csv, da mit Eingabedatei wegv identisch"));
}

TEST(ExternalMigration, NegativeOutMigrationTargetIsReportedAndTheRunGoesOn)
{
    Area s;
    twoRegions(s, "ZIELWERT_WEGZUG=C1\n");
    s.write("var/wegvol.csv", "2024..2030;1;1;1;-4\n");
    RunResult r = run(s);
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(has(protocol(s), "negativer Zielwert für den Außenwegzug (TYA 1, BG 1, GG 1: -4)"));
}

TEST(ExternalMigration, NewBuildingAndDemolitionBalanceInsideTheArea)
{
    Area s;
    // region 1 builds 20 dwellings' worth of occupiers, half from abroad; region 2 is emptied
    twoRegions(s, "BINNENWANDERUNG=I1\nNEUBAU=D1\nRUECKBAU=E3\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;2;2;1;1;1;1;0;1;1\n3;C;1;1;2;2;1;1;1;1;0;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;0;100\n2023;2;1;1;0;300\n2023;3;1;1;0;50\n");
    s.write("var/strm2024.csv", "1;2;1;1;0;0.1\n2;1;1;1;0;0.1\n");
    s.write("var/nebb.csv", "2024..2030;1;20\n");
    s.write("var/nebq2024.csv", "1;1;1;0;1\n");
    s.write("var/nebqqa.csv", "2024..2030;1;1;0.5\n");
    s.write("var/rear.csv", "2024..2030;2;1\n");
    s.write("var/reaqza.csv", "2024..2030;1;1;0.2\n");
    s.write("var/reagzr.csv", "2024..2030;1..3;1\n");
    RunResult r = run(s);
    if (!internalMigrationBuilt(s)) GTEST_SKIP() << "new building and demolition need internal migration";
    ASSERT_EQ(r.status, 0) << r.out;
    // first occupiers: 10 from abroad, 10 from the area; demolition: 300 leave, 60 of them abroad
    EXPECT_DOUBLE_EQ(column(bewLine(s, 1, 0), 10), 10);
    EXPECT_DOUBLE_EQ(column(bewLine(s, 1, 0), 9), 10);
    EXPECT_DOUBLE_EQ(column(bewLine(s, 2, 0), 6), 60);
    EXPECT_DOUBLE_EQ(column(bewLine(s, 2, 0), 5), 240);
    double obn = 0, ibn = 0, obr = 0, ibr = 0;
    for (long long k : {1, 2, 3}) {
        std::string line = bewLine(s, k, 0);
        obn += column(line, 2), ibn += column(line, 9), obr += column(line, 5), ibr += column(line, 7);
    }
    EXPECT_NEAR(obn, ibn, 1e-9);
    EXPECT_NEAR(obr, ibr, 1e-9);
    // the moves into new building come from the types by their moves out: 10 and 35 of 45
    EXPECT_NEAR(column(bewLine(s, 1, 0), 2), 10.0 * 10 / 45, 1e-9);
    // out-migration leaves out those already gone abroad from demolished dwellings: 10 % of 240
    EXPECT_NEAR(column(bewLine(s, 2, 0), 1), 24, 1e-9);
}
