// The reference table of regions: small tables written into a temporary study area, read by
// RK::REF, the regions and counts checked by hand and the protocol read back for the messages.
#include <gtest/gtest.h>

#include "tests/protocol_fixture.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "tables/input_reader.h"

namespace fs = std::filesystem;

namespace {

const char* const HEAD = "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n";

class RefTable : public ProtocolFixture {
protected:
    void SetUp() override
    {
        protocolLevel = 2;
        throwing = true;
        ProtocolFixture::SetUp();
        fs::create_directories(root + "/App");
        // the messages of the reference table with their conversions
        std::ofstream(root + "/App/datadict_xx.xml")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<data-dictionary>\n"
               "<k id=\"rk1ref_fmt1100\">Spalte %s: Wert %d außerhalb [%d .. %d]</k>\n"
               "<k id=\"rk1ref_fmt1500\">Spalte %d (%s): Wert %d fehlt</k>\n"
               "<k id=\"rk1ref_fmt1700\">Aggregat verloren</k>\n"
               "<k id=\"rk1ref_fmt1900\">Schlüssel nicht steigend</k>\n"
               "<k id=\"rk1ref_fmt2200\">Gebietszahl geändert</k>\n"
               "<k id=\"fn_empty\">leer</k>\n"
               "<k id=\"reading\">Lese</k>\n"
               "</data-dictionary>\n";
        si::appDir = root + "/App/";
        DD::clear();
        DD::load("xx", {});
        si::Directory = dir;
        si::Version = "v";
        si::separator = ';';
        ini::STARTJAHR = 2024;
        ini::ENDJAHR = 2026;
        ini::GRND = 0;
        JAHR = 0;
        traceLevel = 0;
        run = std::make_unique<Orvane>();
        fillFileTable();
    }
    void TearDown() override
    {
        run.reset();
        exprClearTable();
        DD::clear();
        ProtocolFixture::TearDown();
    }
    void table(const std::string& text, const std::string& name = "reftyp.csv")
    {
        std::ofstream(dir + name, std::ios::binary) << HEAD << text;
    }
    // a reference table that must end the run; the protocol it left
    std::string failing()
    {
        EXPECT_THROW(RK::REF(), std::runtime_error);
        return newText();
    }

    SettingsGuard guard;
    std::unique_ptr<Orvane> run;
};

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// ---------------------------------------------------------------- regions and counts

TEST_F(RefTable, LinesBecomeRegionsWithTypesCountedFromZero)
{
    table("101;Markt;1;1;1;1;1;1;1;1;1;1;10\n"
          "102;Kirche;2;1;1;1;2;1;1;1;1;1;10\n"
          "205;Am Hang;1;1;2;2;2;1;1;1;0;2;30\n");
    RK::REF();
    const Orvane& c = *run;
    ASSERT_EQ(c.NGZ, 3);
    ASSERT_EQ(c.regions.size(), 3u);
    EXPECT_EQ(c.regions[2].key, 205);
    EXPECT_EQ(c.regions[2].name, "Am Hang");
    // numbers starting at 1 are shifted to 0; TYAGF uses 0, so it keeps its numbers
    EXPECT_EQ(c.regions[1].tyg, 1);
    EXPECT_EQ(c.regions[2].tyb, 1);
    EXPECT_EQ(c.regions[2].tyagf, 0);
    EXPECT_EQ(c.regions[0].tyagf, 1);
    EXPECT_EQ(c.NTYG, 2);
    EXPECT_EQ(c.NTYS, 1);
    EXPECT_EQ(c.NTYB, 2);
    EXPECT_EQ(c.NTYQWA, 2);
    EXPECT_EQ(c.NTYAGF, 2);
    EXPECT_EQ(c.NTYHH, 2);
    EXPECT_EQ(c.NTYBv, 2);
    EXPECT_EQ(c.NTYBn, 2);
    EXPECT_EQ(RK::refLowest(3), 1);
    EXPECT_EQ(RK::refLowest(11), 0);
    EXPECT_EQ(RK::refHighest(5), 2);
    // the aggregates 10 and 30 become the positions 0 and 1
    EXPECT_EQ(c.regions[0].agg, 0);
    EXPECT_EQ(c.regions[2].agg, 1);
    EXPECT_EQ(c.findgem(205), 2);
    EXPECT_EQ(c.maxKey, 205);
    // every key starts unused
    EXPECT_EQ(regionKeyUse().size(), 3u);
    EXPECT_EQ(regionKeyUse().at(102), 0);
    std::string p = newText();
    EXPECT_TRUE(has(p, "Lese reftyp")) << p;
    EXPECT_EQ(Prot::count(SEV_WARNING), 0);
}

TEST_F(RefTable, IntervalOfKeysHandsOutTheTypesInTurnFromTheDrawnOffset)
{
    table("1000..1004;Ort $;1;1;1..2;1..5;1;1;1;1;1;1;1\n");
    RK::REF();
    const Orvane& c = *run;
    ASSERT_EQ(c.NGZ, 5);
    // the same generator, drawn independently: twelve offsets for the line, TYB takes the fourth
    std::mt19937 g(4711);
    unsigned long long offsets[13] = {};
    for (int k = 1; k < 13; ++k) offsets[k] = g() % 5;
    for (int i = 0; i < 5; ++i) {
        long long v = 1000 + i;
        EXPECT_EQ(c.regions[i].key, v);
        EXPECT_EQ(c.regions[i].name, "Ort " + std::to_string(v));
        long long tyb = 1 + (static_cast<long long>(offsets[4]) - 1 + v) % 2;
        EXPECT_EQ(c.regions[i].tyb, tyb - 1) << i;
    }
    EXPECT_NE(c.regions[0].tyb, c.regions[1].tyb);
    EXPECT_EQ(c.regions[0].tyb, c.regions[2].tyb);
    EXPECT_EQ(c.NTYB, 2);
}

TEST_F(RefTable, WithoutOffsetsTheResultDoesNotDependOnTheSeed)
{
    ini::GRND = 1;
    run = std::make_unique<Orvane>();
    table("1000..1004;Ort $;1;1;1..2;1..5;1;1;1;1;1;1;1..3*10\n");
    RK::REF();
    const Orvane& c = *run;
    // offset 0: 1 + (v - 1) mod 2 gives 2, 1, 2, 1, 2 for 1000 .. 1004
    for (int i = 0; i < 5; ++i) EXPECT_EQ(c.regions[i].tyb, i % 2 == 0 ? 1 : 0) << i;
    // the aggregate 1 + (v - 1) mod 3, times 10: 10, 20, 30, 10, 20, and so positions 0, 1, 2, 0, 1
    const int positions[] = {0, 1, 2, 0, 1};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(c.regions[i].agg, positions[i]) << i;
    EXPECT_EQ(RK::refRows(13), 3);
    EXPECT_EQ(RK::refKey(13, 0), 10);
    EXPECT_EQ(RK::refKey(13, 2), 30);
    EXPECT_EQ(RK::refMaxKey(13), 30);
}

TEST_F(RefTable, KeyMultiplierNameInsideAndAllZeroTypes)
{
    table("1..3*100;Block $ Nord;0;0;1;1;1;1;1;1;1;1;1\n");
    RK::REF();
    const Orvane& c = *run;
    ASSERT_EQ(c.NGZ, 3);
    EXPECT_EQ(c.regions[1].key, 200);
    EXPECT_EQ(c.regions[1].name, "Block 200 Nord");
    // all TYG 0: the lowest number is 0 and there is one type
    EXPECT_EQ(RK::refLowest(3), 0);
    EXPECT_EQ(c.NTYG, 1);
    EXPECT_EQ(c.regions[2].tyg, 0);
    // the multiplier is index arithmetic: the spelled out table stands beside the variant's files
    std::string copy = slurpFile(dir + "v/reftyp.csv");
    EXPECT_TRUE(has(copy, "# expanded from ../reftyp.csv\n")) << copy;
    EXPECT_TRUE(has(copy, "200;\"Block 200 Nord\";0;0;1;1;1;1;1;1;1;1;1\n")) << copy;
}

TEST_F(RefTable, CommandsSetVariablesAndTheListingShowsEachLine)
{
    table("#! let($N 3) list(1)\n"
          "1..$N;Ort $;1;1;1;1..3;1;1;1;1;1;1;1\n");
    RK::REF();
    EXPECT_EQ(run->NGZ, 3);
    EXPECT_EQ(run->regions[2].key, 3);
    std::string p = newText();
    EXPECT_TRUE(has(p, "<table><tr><th>Spalte</th><th>Name</th><th>Wert</th></tr>\n")) << p;
    EXPECT_TRUE(has(p, "<tr><td class=\"r\">1</td><td>GKZ</td><td class=\"r\">1..3</td></tr>\n")) << p;
    EXPECT_TRUE(has(p, "<tr><td class=\"r\">2</td><td>Name</td><td>Ort $</td></tr>\n")) << p;
    EXPECT_TRUE(has(p, "&gt;      2;Ort 2;1;1;1;")) << p;
    // the listing ends with the table, and so do its variables
    EXPECT_EQ(traceLevel, 0);
    EXPECT_EQ(findVariable("$N"), nullptr);
    // the variable bound the keys: the spelled out table is written
    EXPECT_TRUE(has(slurpFile(dir + "v/reftyp.csv"), "3;\"Ort 3\";1;1;1;"));
}

TEST_F(RefTable, AccessorsByLevel)
{
    table("11;A;1;1;1;1;1;1;1;1;1;1;7\n12;B;2;1;1;1;1;1;1;1;1;1;7\n40;C;3;1;2;2;1;1;1;1;1;1;9\n");
    RK::REF();
    EXPECT_EQ(RK::refRows(0), 0);
    EXPECT_EQ(RK::refKey(0, 0), 0);
    EXPECT_EQ(RK::refMaxKey(0), 0);
    EXPECT_EQ(RK::refRows(1), 1);
    EXPECT_EQ(RK::refKey(1, 0), 1);
    EXPECT_EQ(RK::refMaxKey(1), 2);     // the number of aggregates
    EXPECT_EQ(RK::refRows(2), 3);
    EXPECT_EQ(RK::refKey(2, 2), 40);
    EXPECT_EQ(RK::refMaxKey(2), 40);
    EXPECT_EQ(RK::refRows(3), 3);       // NTYG
    EXPECT_EQ(RK::refKey(3, 1), 2);
    EXPECT_EQ(RK::refMaxKey(3), 3);
    EXPECT_EQ(RK::refRows(5), 2);       // NTYB
    EXPECT_EQ(RK::refRows(13), 2);
    EXPECT_EQ(RK::refKey(13, 1), 9);
    EXPECT_EQ(RK::refMaxKey(14), 9);
}

TEST_F(RefTable, ProtocolTableListsEveryRegionWithItsName)
{
    table("101;Markt <Ost>;1;1;1;1;1;1;1;1;1;1;10\n102;Kirche;1;1;1;1;1;1;1;1;1;1;20\n");
    RK::REF();
    std::string p = newText();
    EXPECT_TRUE(has(p, "<a title=\"Markt &lt;Ost&gt;\"><span class=tooltip>Markt &lt;Ost&gt;</span></a>")) << p;
    EXPECT_TRUE(has(p, "<td class=\"r\">102</td>")) << p;
}

// ---------------------------------------------------------------- what ends the run

TEST_F(RefTable, GapInATypeColumnNamesTheMissingNumber)
{
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;3;1;1;1;1;1;1;1;1;1;1\n");
    std::string p = failing();
    EXPECT_TRUE(has(p, "reftyp Spalte 3: TYG enthält:\n1: 1 mal, 3: 1 mal, ")) << p;
    EXPECT_TRUE(has(p, "Spalte 3 (TYG): Wert 2 fehlt")) << p;
}

TEST_F(RefTable, AgeingTypeMayHaveGaps)
{
    table("1;A;1;1;1;1;1;1;1;1;0;1;1\n2;B;1;1;1;1;1;1;1;1;2;1;1\n");
    RK::REF();
    EXPECT_EQ(run->NTYAGF, 3);
    EXPECT_EQ(run->regions[1].tyagf, 2);
}

TEST_F(RefTable, RefinementFailureWarnsPerTypeAndEnds)
{
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n"
          "2;B;1;1;2;1;1;1;1;1;1;1;1\n"
          "3;C;1;1;2;2;1;1;1;1;1;1;1\n"
          "4;D;1;1;3;2;1;1;1;1;1;1;1\n");
    std::string p = failing();
    EXPECT_TRUE(has(p, "TYZZA 1 kommt bei TYB 1, 2 vor")) << p;
    EXPECT_TRUE(has(p, "TYZZA 2 kommt bei TYB 2, 3 vor")) << p;
    EXPECT_TRUE(has(p, "REFTYP Spalte 6 TYZZA (Typ Außenzuzug) ist nicht Verfeinerung von Spalte 5 TYB (Typ "
                       "Binnenwanderung)"))
        << p;
    EXPECT_EQ(Prot::count(SEV_WARNING), 2);
    EXPECT_EQ(Prot::count(SEV_ERROR), 1);
}

TEST_F(RefTable, KeysMustRiseStrictly)
{
    table("5;A;1;1;1;1;1;1;1;1;1;1;1\n5;B;1;1;1;1;1;1;1;1;1;1;1\n");
    std::string p = failing();
    EXPECT_TRUE(has(p, "Schlüssel nicht steigend (5, 5)")) << p;
    // a failed table leaves the regions of the run as they were
    EXPECT_EQ(run->NGZ, 2);
    EXPECT_TRUE(run->regions.empty());

    table("7;A;1;1;1;1;1;1;1;1;1;1;1\n3..4;B;1;1;1;1;1;1;1;1;1;1;1\n");
    p = failing();
    EXPECT_TRUE(has(p, "Schlüssel nicht steigend (7, 3)")) << p;
}

TEST_F(RefTable, NegativeTypeNamesColumnValueAndLine)
{
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;0..1-2;1;1;1;1;1;1;1;1\n");
    std::string p = failing();
    EXPECT_TRUE(has(p, "Spalte TYB: Wert -1 außerhalb [0 .. 2147483647] (Zeile 3, GKZ 2)")) << p;
}

TEST_F(RefTable, ShortLineWarnsAndItsMissingColumnsAreEmpty)
{
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;1\n");
    RK::REF();
    std::string p = newText();
    EXPECT_TRUE(has(p, "reftyp Zeile 3: enthält nur 5 Spalten statt mindestens 13")) << p;
    EXPECT_EQ(run->NGZ, 2);
    // the empty cells give type 0
    EXPECT_EQ(RK::refLowest(6), 0);
    EXPECT_EQ(run->NTYZZA, 2);
    EXPECT_EQ(run->regions[1].tyzza, 0);
}

TEST_F(RefTable, OnlyCommentsGiveAnEmptyTable)
{
    table("# nichts\n");
    RK::REF();
    EXPECT_EQ(run->NGZ, 0);
    EXPECT_EQ(run->NTYG, 0);
    EXPECT_EQ(RK::refRows(13), 0);
    EXPECT_TRUE(has(newText(), "reftyp leer")) << "empty table";
}

TEST_F(RefTable, CellErrorsNameLineAndCell)
{
    table("1;\"Markt;1;1;1;1;1;1;1;1;1;1;1\n");
    std::string p = failing();
    EXPECT_TRUE(has(p, ": unfinished string")) << p;

    table("1;A;1;1;abc;1;1;1;1;1;1;1;1\n");
    p = failing();
    EXPECT_TRUE(has(p, "invalid function abc in input")) << p;

    table("1;A;1;1;*;1;1;1;1;1;1;1;1\n");
    p = failing();
    EXPECT_TRUE(has(p, "2: *: * hat in reftyp keine Bedeutung")) << p;
}

TEST_F(RefTable, HugeIntervalIsRefusedInsteadOfExhaustingMemory)
{
    table("1..99999999999;A;1;1;1;1;1;1;1;1;1;1;1\n");
    std::string p = failing();
    EXPECT_TRUE(has(p, "reftyp Zeile 2: Intervall 1..99999999999 umfasst mehr als 10000000 Gebiete")) << p;
}

TEST_F(RefTable, MissingTableIsAnError)
{
    std::string p = failing();
    EXPECT_TRUE(has(p, "var/v/reftyp.csv: ")) << p;
}

TEST_F(RefTable, LaterTableMustKeepTheRegionCount)
{
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;1;1;1;1;1;1;1;1;1\n");
    RK::REF();
    EXPECT_EQ(fileTable[FT_REFT].fileNumber, 1);
    // from 2025 on the newer table is in force: same count, new types
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;2;2;1;1;1;1;1;1;1\n", "reft2025.csv");
    JAHR = 2026;
    RK::REF();
    EXPECT_EQ(fileTable[FT_REFT].fileNumber, 2025);
    EXPECT_EQ(run->NTYB, 2);
    // one region less is an error
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n", "reft2026.csv");
    JAHR = 2027;
    std::string p = failing();
    EXPECT_TRUE(has(p, "Gebietszahl geändert (1 / 2)")) << p;
}

TEST_F(RefTable, ANewerTableWithOtherKeysMakesKeptTablesBeReadAgain)
{
    // a table by region without a year in its name is kept from 2024 on; from 2026 a newer
    // reference table renumbers the regions, and the kept cell must follow its key
    table("1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;1;1;1;1;1;1;1;1;1\n");
    std::ofstream(dir + "w.csv", std::ios::binary) << "2;20\n";
    FileEntry w;
    w.name = "w";
    w.kind = 1;
    w.regionColumn = 2;
    auto readWeights = [&] {
        LA1 a("W", {2}, 0);
        readTable(w, a, "NGZ\0");
        return a;
    };
    for (int year : {2024, 2025}) {
        JAHR = year;
        RK::REF();
        LA1 a = readWeights();
        EXPECT_EQ(a[0], 0);
        EXPECT_EQ(a[1], 20);
    }
    EXPECT_TRUE(has(newText(), "[fn_kept]"));
    // region 1 is gone and 3 came: key 2 stands in the first place now
    table("2;B;1;1;1;1;1;1;1;1;1;1;1\n3;C;1;1;1;1;1;1;1;1;1;1;1\n", "reft2025.csv");
    JAHR = 2026;
    RK::REF();
    LA1 a = readWeights();
    EXPECT_EQ(a[0], 20);
    EXPECT_EQ(a[1], 0);
    EXPECT_FALSE(has(newText(), "[fn_kept]"));
}

} // namespace
