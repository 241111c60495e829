// The input stage: the table of files, opening of the outputs with their heads, the rate
// loaders, the $ variables of the state, the demo study area, and whole runs of the program.
#include <gtest/gtest.h>

#include "tests/protocol_fixture.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
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
#include "kernel/run_values.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "kernel/region_table_reading.h"
#include "tests/sandbox.h"

namespace fs = std::filesystem;

namespace {

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }


class InputStage : public ProtocolFixture {
protected:
    void SetUp() override
    {
        protocolLevel = 2;
        throwing = true;
        ProtocolFixture::SetUp();
        // the system's own dictionary, so that heads show its texts
        si::appDir = std::string(VELDOR_APPDIR) + "/";
        DD::clear();
        DD::load("de", {});
        si::Directory = dir;
        si::Version = "v";
        si::separator = ';';
        si::csvBom = 0;
        si::kommentar = 0;
        si::spaltenname = 2;
        ini::STARTJAHR = 2024;
        ini::ENDJAHR = 2026;
        JAHR = 0;
        opt::clear();
        run = std::make_unique<Orvane>();
    }
    void TearDown() override
    {
        withdrawStateVariables();
        run.reset();
        exprClearTable();
        opt::clear();
        DD::clear();
        ProtocolFixture::TearDown();
    }
    // opens an output entry, writes one line, closes it; the file name opened
    std::string emit(int entry, const std::string& line)
    {
        FILE* f = nullptr;
        char name[64];
        EXPECT_EQ(openTable(&f, entry, name, sizeof name), 0);
        if (f) {
            fputs(line.c_str(), f);
            closeTable(f);
        }
        return name;
    }

    SettingsGuard guard;
    std::unique_ptr<Orvane> run;
};

// ---------------------------------------------------------------- the table of files

TEST_F(InputStage, TableHoldsFiftyFiveEntriesInTheirOrder)
{
    fillFileTable();
    EXPECT_EQ(fileTable.size(), 55u);
    const FileEntry& gem = fileTable[1];
    EXPECT_EQ(gem.name, "gem%d");
    EXPECT_EQ(gem.kind, 0);
    EXPECT_EQ(gem.checkMode, 2);
    EXPECT_EQ(gem.regionColumn, 2);
    EXPECT_EQ(gem.yearOffset, 1);
    const FileEntry& reft = fileTable[23];
    EXPECT_EQ(reft.name, "reft%d");
    EXPECT_EQ(reft.kind, 1);
    EXPECT_EQ(reft.yearOffset, 1);
    EXPECT_EQ(fileTable[6].name, "eckgem");
    EXPECT_EQ(fileTable[6].regionColumn, 3);
    EXPECT_EQ(fileTable[29].name, "zuvg%d");
    EXPECT_EQ(fileTable[29].checkMode, 1);
    EXPECT_EQ(fileTable[37].name, "eckstrbg");
    for (int i = 0; i < 38; ++i) {
        EXPECT_TRUE(fileTable[i].kind == 0 || fileTable[i].kind == 1) << i;
        EXPECT_TRUE(fileTable[i].columnNames.empty()) << i;
    }
    for (int i = 38; i < 55; ++i) {
        EXPECT_TRUE(fileTable[i].kind >= 4 && fileTable[i].kind <= 6) << i;
        EXPECT_EQ(fileTable[i].checkMode, -1) << i;
        EXPECT_FALSE(fileTable[i].columnNames.empty()) << i;
    }
    EXPECT_EQ(fileTable[38].name, "gem%d");
    EXPECT_EQ(fileTable[38].kind, 4);
    EXPECT_EQ(fileTable[48].yearOffset, 1);
    EXPECT_EQ(fileTable[42].name, "zuzug");
    EXPECT_EQ(MONATE, 12);
    EXPECT_EQ(GEMALL, 0);
}

TEST_F(InputStage, OptionsChooseOneFileForAllYearsAndTheMonths)
{
    opt::set("$GEMALL", 1);
    opt::set("$MONATE", 6);
    ini::AUSGABE_AUSSEN_MATRIX = 2;
    fillFileTable();
    ini::AUSGABE_AUSSEN_MATRIX = 0;
    EXPECT_EQ(fileTable[38].name, "gem");
    EXPECT_EQ(fileTable[38].kind, 6);
    EXPECT_EQ(fileTable[39].name, "gebam");
    EXPECT_EQ(fileTable[42].name, "gzuzug");
    EXPECT_EQ(fileTable[42].columnNames[2], "@GKZ;");
    EXPECT_EQ(MONATE, 6);
    MONATE = 12;
}

// ---------------------------------------------------------------- outputs

TEST_F(InputStage, YearlyPopulationFileCarriesTheForecastYear)
{
    fillFileTable();
    JAHR = 2025;
    EXPECT_EQ(emit(FT_OUT_GEM, "x\n"), "gem2025.csv");
    EXPECT_EQ(fileTable[FT_OUT_GEM].fileNumber, 2025);
    // a new file with its head each time it is opened
    EXPECT_EQ(slurpFile(dir + "v/gem2025.csv"), "#Jahr;Gebietskennzeichen;Bevölkerungsgruppe;Geschlecht;Altersgruppe;Anzahl\nx\n");
    EXPECT_EQ(emit(FT_OUT_GEM, "y\n"), "gem2025.csv");
    EXPECT_EQ(slurpFile(dir + "v/gem2025.csv"), "#Jahr;Gebietskennzeichen;Bevölkerungsgruppe;Geschlecht;Altersgruppe;Anzahl\ny\n");
    EXPECT_EQ(fileTable[FT_OUT_GEM].linesWritten, 1);
}

TEST_F(InputStage, AggregateFileFollowsTheReferenceTableAndIsAppended)
{
    fillFileTable();
    JAHR = 2024;
    fileTable[FT_REFT].fileNumber = 1;
    EXPECT_EQ(emit(FT_OUT_AGG, "a\n"), "agg.csv");
    EXPECT_EQ(emit(FT_OUT_AGG, "b\n"), "agg.csv");
    std::string text = slurpFile(dir + "v/agg.csv");
    EXPECT_EQ(text.substr(text.find('\n') + 1), "a\nb\n");
    EXPECT_TRUE(has(text, "#Jahr;ohne Aggregat;Bevölkerungsgruppe;")) << text;
    fileTable[FT_REFT].fileNumber = 2030;
    EXPECT_EQ(emit(FT_OUT_BEWGEMAGG, "c\n"), "bewgemagg2030.csv");
}

TEST_F(InputStage, OneFileForAllYearsStartsAfreshInTheStartYear)
{
    write("v/bewgem.csv", "old\n");
    fillFileTable();
    JAHR = 2024;
    emit(FT_OUT_BEWGEM, "2024\n");
    emit(FT_OUT_BEWGEM, "2024b\n");
    JAHR = 2025;
    emit(FT_OUT_BEWGEM, "2025\n");
    std::string text = slurpFile(dir + "v/bewgem.csv");
    EXPECT_FALSE(has(text, "old")) << text;
    EXPECT_EQ(text.substr(text.find('\n') + 1), "2024\n2024b\n2025\n");
    EXPECT_TRUE(text.rfind("#Jahr;Gebietskennzeichen;Sterbefälle;Außenwegzug;", 0) == 0) << text;

    removeTable(FT_OUT_BEWGEM);
    EXPECT_FALSE(fs::exists(dir + "v/bewgem.csv"));
    removeTable(FT_OUT_AGG);      // agg%d: the bare stem
    write("v/agg.csv", "x");
    removeTable(FT_OUT_AGG);
    EXPECT_FALSE(fs::exists(dir + "v/agg.csv"));
}

TEST_F(InputStage, InputKindsAndUnknownKindsOpen)
{
    fillFileTable();
    FILE* f = nullptr;
    char name[64];
    write("reftyp.csv", "1;A;1;1;1;1;1;1;1;1;1;1;1\n");
    ASSERT_EQ(openTable(&f, FT_REFT, name, sizeof name), 0);
    ASSERT_NE(f, nullptr);
    fclose(f);
    EXPECT_STREQ(name, "reftyp.csv");
    fileTable[FT_OUT_ZUVOLO].kind = 9;
    EXPECT_EQ(openTable(&f, FT_OUT_ZUVOLO, name, sizeof name), 1);
    EXPECT_EQ(f, nullptr);
    EXPECT_EQ(openTable(&f, 77, name, sizeof name), 1);
}

// ---------------------------------------------------------------- rate loaders

TEST_F(InputStage, RateLoaderFilesEveryYearAndSkipsOtherNames)
{
    ini::NAG = 3;
    ini::NBG = 1;
    ini::NGG = 2;
    run = std::make_unique<Orvane>();
    run->NTYS = 2;
    fillFileTable();
    write("strb2020.csv", "*;*;*;*;0.01\n");
    write("strb2026.csv", "1;1;1;0..2;0.5\n2;*;*;*;0.25\n1;1;2;*;0\n");
    write("strbfak.csv", "#Jahr;Faktor\n2024;1\n");
    auto rates = ratesByYearStrb();
    ASSERT_EQ(rates.size(), 2u);
    EXPECT_DOUBLE_EQ(rates.at(2020)[1][0][1][2], 0.01);
    EXPECT_DOUBLE_EQ(rates.at(2026)[0][0][0][1], 0.5);
    EXPECT_DOUBLE_EQ(rates.at(2026)[1][0][1][0], 0.25);
    EXPECT_DOUBLE_EQ(rates.at(2026).sum(), 3 * 0.5 + 6 * 0.25);
    EXPECT_EQ(rates.at(2026).name, "PR3S2026");

    int year = 0;
    EXPECT_TRUE(rateFileYear("fruc2031.csv", year));
    EXPECT_EQ(year, 2031);
    EXPECT_FALSE(rateFileYear("frucfak.csv", year));
    EXPECT_FALSE(rateFileYear("fru", year));
}

TEST_F(InputStage, RateLoaderNeedsAFileNotLaterThanTheStartYear)
{
    ini::NAG = 2;
    ini::NBG = 1;
    run = std::make_unique<Orvane>();
    run->NTYG = 1;
    fillFileTable();
    EXPECT_THROW(ratesByYearFruc(), std::runtime_error);
    EXPECT_TRUE(has(newText(), "fehlende oder leere Datei fruc%d")) << "no file";
    write("fruc2025.csv", "1;1;*;1.5\n");
    EXPECT_THROW(ratesByYearFruc(), std::runtime_error);
    EXPECT_TRUE(has(newText(), "fruc: Jahresbezug 2025 nach Startjahr 2024"));
}

// ---------------------------------------------------------------- $ variables

double value(const char* text)
{
    Parser p(nullptr);
    p.parse(text);
    return evaluate(p, nullptr, 0, 0);
}

TEST_F(InputStage, StateIsReadOnlyVisibleToTheCells)
{
    publishStateVariables();
    run->NGZ = 30;
    run->NTYB = 4;
    JAHR = 2025;
    EXPECT_EQ(value("$NGZ"), 30);
    EXPECT_EQ(value("$NTYB * 10 + $JAHR"), 40 + 2025);
    EXPECT_EQ(value("$STARTJAHR"), 2024);
    EXPECT_EQ(value("$ENDJAHR"), 2026);
    // module M is off: the reduced extents are 1
    EXPECT_EQ(value("$NMAG"), 1);
    EXPECT_EQ(value("$NAG"), run->NAG);
    withdrawStateVariables();
    exprClearTable();
}

// ---------------------------------------------------------------- the demo study area

TEST_F(InputStage, DemoStudyAreaReadsItsRegionsAndStartPopulation)
{
    fs::copy_file(fs::path(VELDOR_SOURCE_DIR) / "examples/reftyp.csv", dir + "reftyp.csv");
    fs::copy_file(fs::path(VELDOR_SOURCE_DIR) / "examples/gem2023.csv", dir + "gem2023.csv");
    ini::NAG = 101;
    ini::NBG = 2;
    ini::NGG = 2;
    run = std::make_unique<Orvane>();
    RK::input();
    const Orvane& c = *run;
    EXPECT_EQ(c.NGZ, 30);
    EXPECT_EQ(c.NTYG, 2);
    EXPECT_EQ(c.NTYS, 1);
    EXPECT_EQ(c.NTYB, 4);
    EXPECT_EQ(c.NTYZZA, 5);
    EXPECT_EQ(c.NTYNEE, 2);
    EXPECT_EQ(RK::refRows(13), 4);
    EXPECT_EQ(c.regions[9].name, "Nordstadt Block 203");
    EXPECT_EQ(Prot::count(SEV_WARNING), 0);
    // the start population: per region 1412 in the old town, 1314 in the north, 1188 in the
    // valley, 1100 on the hill, counted by hand from the age bands of the file
    run->makeGem(run->BGEM, "C.BGEM");
    ReadResult r = readTable(fileTable[FT_GEM], run->BGEM, "C.NGZ\0NBG\0NGG\0NAG\0");
    EXPECT_DOUBLE_EQ(run->BGEM.sum(), 7 * 1412 + 8 * 1314 + 9 * 1188 + 6 * 1100);
    EXPECT_DOUBLE_EQ(r.sum, 37688);
    EXPECT_DOUBLE_EQ(run->BGEM.regionSum(0), 1412);
    EXPECT_DOUBLE_EQ(run->BGEM.regionSum(29), 1100);
    EXPECT_EQ(Prot::count(SEV_WARNING), 0);
    EXPECT_EQ(Prot::count(SEV_ERROR), 0);
}

// ---------------------------------------------------------------- whole runs

// the demo tables are written with ";" between the cells and "," as decimal sign
void copyExamples(const Sandbox& s)
{
    fs::copy(fs::path(VELDOR_SOURCE_DIR) / "examples", s.path("ex"), fs::copy_options::recursive);
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\n"
                               "Spaltentrennzeichen=;\n[TRACE]\nlogfile=1\n");
}

TEST(InputRun, DemoRunReportsItsInputsAndNoMissingText)
{
    Sandbox s;
    copyExamples(s);
    RunResult r = s.run({"orvane", "-d", "ex/", "-v", "demo"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::string p = s.read("ex/demo/prot/index.html");
    EXPECT_TRUE(has(p, "Lese reftyp")) << p;
    EXPECT_TRUE(has(p, "Nordstadt Block 208")) << p;
    EXPECT_TRUE(has(s.read("ex/demo/prot/inp.htm"), "reftyp.csv"));
    // no key without text: only the section rows of the settings stand in brackets
    const std::regex bracket("\\[[A-Za-z_0-9]*\\]");
    for (auto it = std::sregex_iterator(p.begin(), p.end(), bracket); it != std::sregex_iterator(); ++it) {
        std::string word = it->str();
        EXPECT_TRUE(word == "[CSV]" || word == "[Gnuplot]" || word == "[Voreinstellungen]" ||
                    word == "[Ablaufverfolgung]" || word == "[Ausgabedateien]")
            << word;
    }
}

TEST(InputRun, BrokenReferenceTableEndsTheRunWithItsMessage)
{
    Sandbox s;
    copyExamples(s);
    // Talviertel types in the north: TYZZA 4 now spans two internal migration types
    std::string t = s.read("ex/reftyp.csv");
    const std::string before = "301;Talstraße;2;1;3;4";
    auto at = t.find(before);
    ASSERT_NE(at, std::string::npos);
    t.replace(at, before.size(), "301;Talstraße;2;1;2;4");
    s.write("ex/reftyp.csv", t);
    RunResult r = s.run({"orvane", "-d", "ex/", "-v", "demo"});
    EXPECT_EQ(r.status, 1);
    std::string p = s.read("ex/demo/prot/index.html");
    EXPECT_TRUE(has(p, "TYZZA 4 kommt bei TYB 2, 3 vor")) << p;
    EXPECT_TRUE(has(p, "ist nicht Verfeinerung von Spalte 5 TYB")) << p;
    // the end statistics follow the abort, and no year was computed
    EXPECT_TRUE(has(p, "Ende der Prognose")) << p;
    EXPECT_FALSE(has(p, "Beginn Prognose 2024")) << p;
}

TEST(InputRun, MissingReferenceTableEndsTheRun)
{
    Sandbox s;
    copyExamples(s);
    fs::remove(s.path("ex/reftyp.csv"));
    fs::remove(s.path("var/_variant/reftyp.csv"));
    RunResult r = s.run({"orvane", "-d", "ex/", "-v", "demo"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.out, "demo/reftyp.csv: ")) << r.out;
}

} // namespace

namespace {

// the terminal shows a message of the protocol as text: a line break for <br>, no tags
TEST(InputRun, ConsoleShowsMessagesWithoutTags)
{
    Sandbox s;
    copyExamples(s);
    s.write("ex/gem2023.csv", "2023;101;1;1;0;5\n2023;999;1;1;0;5\n");
    RunResult r = s.run({"orvane", "-d", "ex/", "-v", "demo"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.out, "unbekanntes Gebietskennzeichen 999 in Zeile\n2: 2023;999;1;1;0;5\n")) << r.out;
    EXPECT_EQ(r.out.find('<'), std::string::npos) << r.out;
    EXPECT_TRUE(has(s.read("ex/demo/prot/index.html"), "in Zeile<br>2: <code>2023;999;1;1;0;5</code>"));
}

} // namespace
