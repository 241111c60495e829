// The time series aggregation end to end: the tool zrgem on hand-made yearly tables, and
// the aggregation at the end of a forecast run summed independently.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\nDirectory=var/\nVersion=v\n[CSV]\nKommentar=0\n"
                             "Spaltenname=0\nBOM=0\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

// two years of results and an input table of the year before, one level up
struct Series : Sandbox {
    Series()
    {
        write("Data/veldor.ini", SETTINGS);
        write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\n");
        write("var/gem2023.csv", "2023;1001;1;1;0;1\n");
        std::filesystem::remove(path("var/_variant/gem2023.csv"));   // the sandbox's shared copy comes first
        write("var/v/gem2024.csv", "#head\n2024;1001;1;1;0;2\n2024;1001;1;1;91;3\n\n2024;2002;1;2;95;4\n");
        write("var/v/gem2025.csv", "2025;1001;1;1;0;5\n2025;2002;1;2;95;6\n");
    }
    RunResult zrgem(const std::vector<std::string>& args) const
    {
        std::vector<std::string> all = {"zrgem"};
        all.insert(all.end(), args.begin(), args.end());
        return run(all);
    }
    std::string result(const std::string& name = "zr_gem") const { return read("var/v/" + name + ".csv"); }
};

} // namespace

TEST(TimeSeriesTool, WithoutAggregationTheDataLinesFollowEachOther)
{
    Series s;
    RunResult r = s.zrgem({"-o", "all"});
    EXPECT_EQ(r.status, 1) << r.err;   // the settled status of a completed aggregation
    EXPECT_EQ(s.result("all"), "2023;1001;1;1;0;1\n2024;1001;1;1;0;2\n2024;1001;1;1;91;3\n2024;2002;1;2;95;4\n"
                               "2025;1001;1;1;0;5\n2025;2002;1;2;95;6\n");
    EXPECT_NE(r.out.find("< var/v/../gem2023.csv\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Zusammenfassung der GEM-Dateien ohne Aggregation\n"
                         "6 Eingabesätze + 1 Kommentarzeilen + 1 Leerzeilen\n0 Kommentarzeilen + 6 Ausgabesätze, "),
              std::string::npos)
        << r.out;

    // -r leaves out the year before the start
    s.zrgem({"-r", "-a", "$i,$i,$i,$i,$i"});
    EXPECT_EQ(s.result().substr(0, 6), "2024;1");
}

TEST(TimeSeriesTool, ColumnFormsReKeyAndSum)
{
    Series s;
    // the region through a reference file with cut(3); region 2 maps to -1 and is dropped
    s.write("var/bezirk.csv", "# Bezirke\n#! cut( 3 )\n1;7\n2;-1\n");
    RunResult r = s.zrgem({"-a", "/1,bezirk 1 2,1,^1,^90"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(s.result(), "2023;7;1;1;00;1\n2024;7;1;1;00;2\n2024;7;1;1;90;3\n2025;7;1;1;00;5\n");
    EXPECT_NE(r.out.find("< var/bezirk.csv\nAggregation der Zeitreihe:\n  year: /1\n  GKZ: bezirk 1 2 !cut(3)\n"
                         "  BG: zusammengefasst\n  GG: ^1\n  AG: ^90\n> zr_gem.csv\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("< [2023..2025][1001..2002][1..1][1..2][0..95]\n> [2023..2025][7..7][1..1][1..1][0..90]\n"),
              std::string::npos);
    EXPECT_NE(r.out.find("6 Eingabesätze + 1 Kommentarzeilen + 1 Leerzeilen\n2 verworfene Sätze\n"
                         "0 Kommentarzeilen + 4 Ausgabesätze, "),
              std::string::npos)
        << r.out;

    // a constant age sums all ages of a cohort
    s.zrgem({"-r", "-a", "$i,$i,$i,$i,0"});
    EXPECT_EQ(s.result(), "2024;1001;1;1;0;5\n2024;2002;1;2;0;4\n2025;1001;1;1;0;5\n2025;2002;1;2;0;6\n");
}

TEST(TimeSeriesTool, BadReferencesAndBadLines)
{
    Series s;
    // a missing key ends the process with status 1
    s.write("var/bezirk.csv", "#! cut(3)\n1;7\n");
    RunResult r = s.zrgem({"-a", "$i,bezirk 1 2,$i,$i,$i"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("missing key 2 = 2002 / 1000 in var/bezirk.csv\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("Ausgabesätze"), std::string::npos);
    s.write("var/bezirk.csv", "1001;7\n");
    r = s.zrgem({"-a", "$i,bezirk 1 2,$i,$i,$i"});
    EXPECT_NE(r.out.find("missing key 2002 in var/bezirk.csv\n"), std::string::npos) << r.out;

    // a missing or malformed reference file leaves the column as it is
    r = s.zrgem({"-r", "-a", "$i,nirgends 1 2,$i,$i,bezirk 1"});
    EXPECT_NE(r.out.find("Referenzdatei var/nirgends.csv nicht gefunden, keine Aggregation\n"
                         "Unbekannte Aggregationsfunkion: \"bezirk 1\": keine Aggregation\n"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(s.result(), "2024;1001;1;1;00;2\n2024;1001;1;1;91;3\n2024;2002;1;2;95;4\n2025;1001;1;1;00;5\n"
                          "2025;2002;1;2;95;6\n");

    // short and long lines of a reference file and of a yearly table; a missing year
    s.write("var/bezirk.csv", "1001;7\n2002\n2002;8;x\n");
    s.write("var/v/gem2024.csv", "2024;1001;1;1;0\n2024;1001;1;1;0;2;9\n2024;2002;1;2;x;4\n");
    std::filesystem::remove(s.path("var/v/gem2025.csv"));
    r = s.zrgem({"-r", "-a", "$i,bezirk 1 2,$i,$i,$i"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Spalte 1 oder 2 fehlt in Referenzdatei var/bezirk.csv Zeile 2:2002 mit 1 Feldern\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("var/v/gem2024.csv: Zeile 1:2024;1001;1;1;0 weniger als 6 Datenspalten\n"
                         "var/v/gem2024.csv: Zeile 2:2024;1001;1;1;0;2;9 mehr als 6 Datenspalten\n"
                         "var/v/gem2024.csv: Zeile 3:2024;2002;1;2;x;4 Schlüssel \"x\" ist keine Zahl\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("zrgem open var/v/gem2025.csv: No such file or directory\n"), std::string::npos);
    // the long line counts as handled
    EXPECT_EQ(s.result(), "2024;7;1;1;0;2\n");
}

TEST(TimeSeriesTool, PlainAndOddLinesMixed)
{
    // plain lines are cut into cells in place, the others go through the table reader: a byte
    // order mark, a comment whose quoted cell runs over two lines, a carriage return, blanks,
    // an empty line, a quoted key, a short line and a last line without a newline
    Series s;
    s.write("var/v/gem2024.csv", "\xEF\xBB\xBF#head;\"quoted\n comment\";x\n2024;1001;1;1;0;1\r\n2024; 1001 ;1;1;1;2\n\n"
                                 "\"2024\";1001;1;1;2;4\n2024;1001;1;1;3;8\n2024;1001;1;1;4\n2024;1001;1;1;5;16");
    RunResult r = s.zrgem({"-r", "-a", "$i,$i,$i,$i,0"});
    EXPECT_EQ(s.result(), "2024;1001;1;1;0;31\n2025;1001;1;1;0;5\n2025;2002;1;2;0;6\n");
    EXPECT_NE(r.out.find("var/v/gem2024.csv: Zeile 7:2024;1001;1;1;4 weniger als 6 Datenspalten\n"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("8 Eingabesätze + 1 Kommentarzeilen + 1 Leerzeilen\n"), std::string::npos) << r.out;

    // without aggregation the lines are written as the reader gives their cells
    s.zrgem({"-r", "-o", "all"});
    EXPECT_EQ(s.result("all"), "2024;1001;1;1;0;1\n2024;1001;1;1;1;2\n2024;1001;1;1;2;4\n2024;1001;1;1;3;8\n"
                               "2024;1001;1;1;5;16\n2025;1001;1;1;0;5\n2025;2002;1;2;95;6\n");

    // a table of many odd lines goes to the reader as a whole after a while
    std::string odd;
    for (int age = 0; age < 150; ++age) odd += "2024; 1001;1;1;" + std::to_string(age) + ";1\n";
    s.write("var/v/gem2024.csv", odd + "#tail\n2024;1001;1;1;7\n2024;1001;1;1;150;2\n");
    r = s.zrgem({"-r", "-a", "$i,$i,$i,$i,0"});
    EXPECT_EQ(s.result(), "2024;1001;1;1;0;152\n2025;1001;1;1;0;5\n2025;2002;1;2;0;6\n");
    EXPECT_NE(r.out.find("var/v/gem2024.csv: Zeile 152:2024;1001;1;1;7 weniger als 6 Datenspalten\n"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("154 Eingabesätze + 1 Kommentarzeilen\n"), std::string::npos) << r.out;
}

TEST(TimeSeriesTool, YearBeforeThroughALinkAndTheUsage)
{
    Series s;
    std::filesystem::remove(s.path("var/gem2023.csv"));
    std::filesystem::remove(s.path("var/_variant/gem2023.csv"));
    s.write("elsewhere/start.csv", "2023;1001;1;1;0;8\n");
    std::filesystem::create_directories(s.path("var/_variant"));
    std::filesystem::create_symlink(s.path("elsewhere/start.csv"), s.path("var/_variant/gem2023.csv.lnk"));
    RunResult r = s.zrgem({"-a", "$i,$i,$i,$i,^0"});
    EXPECT_NE(r.out.find("var/v/../_variant/gem2023.csv.lnk -> " + s.path("elsewhere/start.csv") +
                         "\n< var/v/../_variant/gem2023.csv\n"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(s.result().substr(0, 17), "2023;1001;1;1;0;8");

    // the shared _variant comes before ../
    s.write("var/gem2023.csv", "2023;1001;1;1;0;9\n");
    std::filesystem::remove(s.path("var/_variant/gem2023.csv.lnk"));
    s.write("var/_variant/gem2023.csv", "2023;1001;1;1;0;7\n");
    r = s.zrgem({"-a", "$i,$i,$i,$i,^0"});
    EXPECT_EQ(s.result().substr(0, 17), "2023;1001;1;1;0;7");

    r = s.zrgem({"-x"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "usage: zrgem -o zr_gem -a \"$i,$i,$i,$i,$i\" -r: zrgem -x\n");
}

TEST(TimeSeriesForecast, RunzrTwoSumsTheYearsByDistrictAndCappedAge)
{
    Sandbox s;
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n");
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2026\nAUSGABE_PROTOKOLL=1\n[METHODE]\nNAG=4\nNGG=2\n"
                         "NBG=1\nNTYA=1\nGRND=1\n[ZR]\nRUNZR=2\nZRGEM=zr\nGKZ=bezirk 1 2\nBG=$i\nGG=$i\nAG=^2\n");
    s.write("var/reftyp.csv", "1;A;1;1;1;1;1;1;1;1;1;1;1\n2;B;1;1;1;1;1;1;1;1;1;1;1\n3;C;1;1;1;1;1;1;1;1;1;1;1\n");
    s.write("var/bezirk.csv", "1;10\n2;10\n3;20\n");
    std::string start;
    for (int region = 1; region <= 3; ++region)
        for (int sex = 1; sex <= 2; ++sex)
            for (int age = 0; age < 4; ++age)
                start += "2023;" + std::to_string(region) + ";1;" + std::to_string(sex) + ";" + std::to_string(age) +
                         ";" + std::to_string(region * 10 + sex * 3 + age) + "\n";
    s.write("var/v/gem2023.csv", start);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;

    // the same sums from the yearly tables
    const std::map<long long, long long> district = {{1, 10}, {2, 10}, {3, 20}};
    Table expected[4];
    for (int year = 2023; year <= 2026; ++year) {
        auto all = readPopulation(s.read("var/v/gem" + std::to_string(year) + ".csv"));
        ASSERT_GE(all[year].size(), 6u) << year;   // cells of 0 are not written
        for (const auto& [cell, value] : all[year]) {
            auto [region, bg, gg, ag] = cell;
            expected[year - 2023][{district.at(region), bg, gg, std::min(ag, 2)}] += value;
        }
    }
    auto series = readPopulation(s.read("var/v/zr.csv"));
    ASSERT_EQ(series.size(), 4u);
    for (int year = 2023; year <= 2026; ++year) {
        const Table& got = series[year];
        ASSERT_EQ(got.size(), expected[year - 2023].size()) << year;
        for (const auto& [cell, value] : expected[year - 2023]) {
            ASSERT_TRUE(got.count(cell)) << year;
            EXPECT_NEAR(got.at(cell), value, 1e-9 * value) << year;
        }
    }
    // the start year's table by hand: district 10, sex 1, ages 2 and 3 together
    EXPECT_DOUBLE_EQ(series[2023].at({10, 1, 1, 2}), (15 + 16) + (25 + 26));
}

TEST(TimeSeriesTool, SuspectRecordsAreWarnedAboutAndTakenAsTheyAre)
{
    // each line of a yearly table that a count table should not hold: the warning names file,
    // line and value, and the record still counts as the settled reading does
    Series s;
    struct Case {
        const char* table;     // gem2024.csv
        const char* warning;
    };
    const Case cases[] = {
        {"2024;1001;1;1;0;nan\n", "var/v/gem2024.csv: Zeile 1: Anzahl nan ist keine Personenzahl"},
        {"2024;1001;1;1;0;inf\n", "var/v/gem2024.csv: Zeile 1: Anzahl inf ist keine Personenzahl"},
        {"2024;1001;1;1;0;1e308\n", "var/v/gem2024.csv: Zeile 1: Anzahl 1e+308 ist keine Personenzahl"},
        {"#k\n2024;1001;1;1;0;-3\n", "var/v/gem2024.csv: Zeile 2: Anzahl -3 ist keine Personenzahl"},
        {"2024;1001;1;1;0;2\n2024;1001;1;1;0;2\n", "var/v/gem2024.csv: Zeile 2: Schlüssel 2024;1001;1;1;0 doppelt (auch Zeile 1)"},
        {"2024;1001;1;1;5;2\n2024;1001;1;1;0;2\n2024;1001;1;1;5;1\n",
         "var/v/gem2024.csv: Zeile 3: Schlüssel doppelt (auch Zeile 1)"},
        {"", "var/v/gem2024.csv: keine Datensätze"},
        {"#nur Kopf\n", "var/v/gem2024.csv: keine Datensätze"},
        {"2024;1001;1;1;150;2\n", "var/v/gem2024.csv: Zeile 1: Altersgruppe 150 außerhalb von 0..100"},
        {"2031;1001;1;1;0;2\n", "var/v/gem2024.csv: Zeile 1: Jahr 2031 in der Tabelle des Jahres 2024"},
        {"2024;1001;1;1;0;2\n2024;1001;1;1;1;3", "var/v/gem2024.csv: letzte Zeile ohne Zeilenende"},
    };
    for (const Case& c : cases) {
        for (const char* args : {"$i,$i,$i,$i,$i", "$i,$i,$i,$i,^90"}) {
            s.write("var/v/gem2024.csv", c.table);
            RunResult r = s.zrgem({"-r", "-a", args});
            EXPECT_EQ(r.status, 1);
            EXPECT_NE(r.out.find(c.warning), std::string::npos) << c.table << args << "\n" << r.out;
            EXPECT_TRUE(s.exists("var/v/zr_gem.csv"));
        }
    }
    // a clean table says nothing
    s.write("var/v/gem2024.csv", "2024;1001;1;1;0;2\n2024;1001;1;1;1;3\n");
    RunResult r = s.zrgem({"-r", "-a", "$i,$i,$i,$i,$i"});
    EXPECT_EQ(r.out.find("Warnung"), std::string::npos) << r.out;
    EXPECT_EQ(countOf(r.out, "Zeile"), 0) << r.out;
}

TEST(TimeSeriesTool, WithoutAResultDirectoryNothingIsWritten)
{
    Series s;
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n");
    RunResult r = s.zrgem({});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("zrgem: kein Ergebnisverzeichnis \"\" (Directory=, Version= in "), std::string::npos) << r.err;
    EXPECT_FALSE(s.exists("zr_gem.csv"));
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\nDirectory=var/\nVersion=nothere\n");
    r = s.zrgem({});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("kein Ergebnisverzeichnis \"var/nothere\""), std::string::npos) << r.err;
    EXPECT_FALSE(s.exists("var/nothere/zr_gem.csv"));

    // a full disk: the table's path and the cause, and no table
    s.write("Data/veldor.ini", SETTINGS);
    r = s.run({"zrgem", "-a", "$i,$i,$i,$i,0"}, {"VELDOR_WRITE_LIMIT=10"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("var/v/zr_gem.csv: No space left on device"), std::string::npos) << r.err;
    EXPECT_FALSE(s.exists("var/v/zr_gem.csv"));
}
