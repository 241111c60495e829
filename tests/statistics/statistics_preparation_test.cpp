// dstmak on small record sets whose tables were counted by hand.
#include <gtest/gtest.h>

#include <filesystem>

#include <string>
#include <vector>

#include "../sandbox.h"
#include "statistics/fixed_width_fields.h"
#include "statistics/region_map.h"

namespace {
// a record of a layout, filled field by field (numbers right-aligned)
struct Record {
    explicit Record(const FixedLayout& l) : layout(l), text(static_cast<size_t>(l.length()), ' ') {}
    Record& set(const char* name, const std::string& value)
    {
        const FixedField& f = layout.field(name);
        std::string v = value.size() < static_cast<size_t>(f.width)
                            ? std::string(static_cast<size_t>(f.width) - value.size(), ' ') + value
                            : value;
        text.replace(static_cast<size_t>(f.column - 1), static_cast<size_t>(f.width), v);
        return *this;
    }
    const FixedLayout& layout;
    std::string text;
};

// a person of block region*10000 at the end of 2023
std::string person(int region, int sex, int nationality, const std::string& age)
{
    return Record(stockLayout())
               .set("R01", "9001000").set("R02", std::to_string(region * 10000)).set("W01", "1")
               .set("Z02", "20231231").set("P02", std::to_string(sex)).set("P05", std::to_string(nationality))
               .set("A01", age).set("DS350", "1")
               .text + "\n";
}

// an event of 2024 of a person born in birthYear
Record event(int region, int sex, int birthYear, const char* b03, const char* b04, const char* b07)
{
    Record r(movementLayout());
    r.set("R01", "9001000").set("R02", std::to_string(region * 10000)).set("W01", "1").set("Z01", "20240615")
        .set("Z02", "20240620").set("P01", std::to_string(birthYear) + "0101").set("P02", std::to_string(sex))
        .set("P05", "0").set("P05QZ", "0").set("B03", b03).set("B04", b04).set("B05", "0").set("B07", b07)
        .set("NEUB", "0").set("DSW", "1");
    return r;
}

class Dstmak : public ::testing::Test {
protected:
    void settings(const std::string& raten)
    {
        s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\nKommentar=0\nSpaltenname=0\nBOM=0\n"
                                   "[RATEN]\ndirDSTmak=work/\n" + raten);
    }
    Sandbox s;
};
} // namespace

TEST_F(Dstmak, StockRecordsCountedByHandWithTheirFaults)
{
    settings("R02DST=3\n");
    std::string stock = person(101, 1, 0, "30") + person(101, 1, 0, "30") + person(101, 2, 163, "7") +
                        person(102, 2, 0, "85");
    std::string shortRecord = person(102, 1, 0, "40");
    shortRecord.erase(349, 1);  // column 350 missing
    stock += shortRecord;
    stock += person(102, 1, 0, "4x");                 // age not a number
    stock += person(102, 1, 0, "");                   // age missing
    std::string other = person(102, 1, 0, "50");
    other[30] = '2';                                  // W01 not 1
    stock += other;
    s.write("work/dstbest2023.txt", stock);
    s.write("work/dstfoo.txt", "no data set\n");
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(s.read("work/bestand_2023.csv"), "2023;101;1;1;30;2\n2023;101;2;2;7;1\n2023;102;1;2;85;1\n");
    std::string prot = s.read("work/prot.htm");
    EXPECT_NE(prot.find("8 records, verworfen 0 wegen R01-Filter + 1 wegen W01!=1, 1 Alter fehlt, 0 Anstalt "), std::string::npos);
    EXPECT_NE(prot.find("verworfen 1 zu kurz, 1 mit ungültigen Feldern, 0 aus anderem Berichtsjahr"), std::string::npos);
    EXPECT_NE(prot.find("<span class=\"h\">  dstfoo.txt: kein Statistikdatensatz</span>"), std::string::npos);
    EXPECT_EQ(countOf(prot, "kein Statistikdatensatz"), 1);
    EXPECT_NE(prot.find("&gt;      bestand_2023.csv 3 records, Summe 4"), std::string::npos);
    // the template of the reference file: the two keys, twelve types each
    EXPECT_NE(s.read("work/reftyp_roh.csv").find("101;\"\";1;1;1;1;1;1;1;1;1;1;1;1\n102;"), std::string::npos);
    EXPECT_NE(s.read("work/dstbest.csv").find("350; 1;DS350;I\n"), std::string::npos);
}

TEST_F(Dstmak, KeysCutByRtgkzAndYearFromTheFirstRecord)
{
    settings("R02DST=5\nRTGKZ=2\n");
    // keys 10123 and 10145 differ in their last two digits only; the name has no year
    s.write("work/dstbest.txt", person(1012, 1, 0, "1").replace(23, 7, "1012300") +
                                    person(1014, 1, 0, "2").replace(23, 7, "1014500"));
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(s.read("work/reftyp_roh.csv"), "#! cut(2)\n101;\"\";1;1;1;1;1;1;1;1;1;1;1;1\n");
    // with the byte order mark, the comment and the column names the cut is still the first line
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\nKommentar=1\nSpaltenname=1\nBOM=1\n"
                               "[RATEN]\ndirDSTmak=work/\nR02DST=5\nRTGKZ=2\n");
    ASSERT_EQ(s.run({"dstmak", "makro"}).status, 0);
    std::string reftyp = s.read("work/reftyp_roh.csv");
    EXPECT_EQ(reftyp.substr(0, 14), "\xEF\xBB\xBF#! cut(2)\n#") << reftyp;
    EXPECT_NE(reftyp.find("\n101;\"\";1;"), std::string::npos);
    EXPECT_TRUE(s.exists("work/bestand_2023.csv"));
}

TEST_F(Dstmak, MovementRecordsIntoTheEventTables)
{
    settings("R02DST=3\n");
    std::string records;
    records += event(101, 2, 1950, "2", "2", "1").text + "\n";                          // death at 74
    records += event(101, 1, 2024, "1", "1", "1").set("G01", "31").set("G02", "0").text + "\n";  // boy, mother 31
    records += event(102, 2, 2024, "1", "1", "1").set("G01", "28").set("G02", "163").text + "\n"; // girl, mother BG 2
    records += event(102, 1, 2024, "1", "1", "2").text + "\n";                          // B07 2: no birth, no count
    records += event(101, 1, 1990, "2", "3", "1").set("W40", "005").set("W41", "111000").text + "\n";  // away, key 500111000
    records += event(102, 1, 1990, "1", "3", "2").set("W40", "009").set("W41", "1").text + "\n";       // in, key 900000001
    records += event(102, 2, 1980, "2", "4", "1").set("RQZ", "1010000").text + "\n";    // 101 -> 102
    records += event(101, 1, 1970, "2", "9", "1").set("B05", "4").set("P05", "0").set("P05QZ", "163").text + "\n";
    records += event(101, 1, 1970, "2", "9", "1").set("B05", "4").text + "\n";          // 0 and 0: no change
    records += event(101, 1, 2030, "2", "2", "1").text + "\n";                          // negative age
    s.write("work/dstbew2024.txt", records);
    s.write("work/reftya.csv", "500111000;2\n777;1\n");
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(s.read("work/sterb_2024.csv"), "2024;101;1;2;74;1\n");
    EXPECT_EQ(s.read("work/geburt_2024.csv"), "2024;101;1;31;1\n2024;102;2;28;1\n");
    EXPECT_EQ(s.read("work/baby_2024.csv"), "2024;101;1;1;0;1\n2024;102;1;2;0;1\n");
    EXPECT_EQ(s.read("work/aussenwegzug_2024.csv"), "2024;101;2;1;1;34;1\n");
    EXPECT_EQ(s.read("work/aussenzuzug_2024.csv"), "2024;1;102;1;1;34;1\n");
    EXPECT_EQ(s.read("work/binnenwegzug_2024.csv"), "2024;101;102;1;2;44;1\n");
    EXPECT_EQ(s.read("work/bgw_2024.csv"), "2024;101;2;1;1;54;1\n");
    EXPECT_EQ(s.read("work/neubaubezug_2024.csv"), "");
    std::string prot = s.read("work/prot.htm");
    EXPECT_NE(prot.find("  Geborene m 1, w 1, Proportion m/w 1\n"), std::string::npos);
    EXPECT_NE(prot.find("Alter -6 aus P01(20300101) u Z01(20240615) negativ"), std::string::npos);
    EXPECT_NE(prot.find("Bitte Plausibilitätstest Statistikdatensatz ausführen"), std::string::npos);
    EXPECT_NE(prot.find("Warnung, fehlende Schlüssel in reftya:</span>\n</pre>\n<code>900000001 </code>"), std::string::npos);
    EXPECT_NE(prot.find("Hinweis, unbenutzte Schlüssel in reftya:</span>\n</pre>\n<code>777 </code>"), std::string::npos);
    EXPECT_EQ(s.read("work/reftya_roh.csv"), "00500111000;2\n00900000001;1\n");

    // the indicators of the same records: the deaths of region 101, group 1
    r = s.run({"dstmak", "indi"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(s.read("work/indikator.csv").find("2024;101;1;4;1;74;74;74.5;74;74.5;0;nan;0;0;1;nan;nan;nan\n"),
              std::string::npos);
}

TEST_F(Dstmak, EveryIndicatorKindFedByItsOwnTable)
{
    // one person or event of each kind in region 101, group 1, 2024, each at its own age, so
    // that every row of indikator.csv shows by its age which table fed it
    settings("R02DST=3\nNEUB=1\n");
    std::string stock = person(101, 1, 0, "40");
    stock.replace(226, 8, "20241231");
    std::string institution = person(101, 2, 0, "80");
    institution.replace(226, 8, "20241231");
    institution[179] = '1';                                                                          // ANSTE
    s.write("work/dstbest2024.txt", stock + institution);
    std::string records;
    records += event(101, 1, 2024, "1", "1", "1").set("G01", "31").set("G02", "0").text + "\n";   // boy, mother 31
    records += event(101, 2, 1950, "2", "2", "1").text + "\n";                                    // death at 74
    records += event(101, 1, 1989, "1", "3", "1").set("NEUB", "1").text + "\n";                   // first occupier, 35
    records += event(101, 1, 1990, "1", "3", "1").set("W40", "009").set("W41", "1").text + "\n";  // from outside, 34
    records += event(102, 2, 1980, "2", "4", "1").set("RQZ", "1010000").text + "\n";              // 101 -> 102 at 44
    records += event(101, 1, 1970, "2", "9", "1").set("B05", "4").set("P05QZ", "163").text + "\n"; // 2 -> 1 at 54
    s.write("work/dstbew2024.txt", records);
    RunResult r = s.run({"dstmak", "indi"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::string table = s.read("work/indikator.csv");
    // year, region, group, kind, count, the age measures, the dependency block (20..64). The stock
    // holds both persons (the institution stays in it with ANST=0): mean 60.5, two peaks give
    // 40.5, variance (40² + 80² - 120²/2) / 2 = 400, Billeter (0 - 1) / 1. The mothers keep no
    // dependency block, the newborns (all of age 0) no age measures. The arrival from outside
    // (34) feeds no kind; the first occupier (35) feeds kind 5.
    const char* rows[] = {
        "2024;101;1;0;2;40;80;60.5;40.5;41;400;-1;0;1;1;0;1;1\n",
        "2024;101;1;1;1;80;80;80.5;80;80.5;0;nan;0;0;1;nan;nan;nan\n",
        "2024;101;1;2;1;31;31;31.5;31;31.5;0;0;;;;;;\n",
        "2024;101;1;3;1;;;;;;;;1;0;0;nan;nan;nan\n",
        "2024;101;1;4;1;74;74;74.5;74;74.5;0;nan;0;0;1;nan;nan;nan\n",
        "2024;101;1;5;1;35;35;35.5;35;35.5;0;0;0;1;0;0;0;0\n",
        "2024;101;1;6;1;44;44;44.5;44;44.5;0;0;0;1;0;0;0;0\n",
        "2024;101;1;9;1;54;54;54.5;54;54.5;0;nan;0;1;0;0;0;0\n",   // joining group 1 ...
        "2024;101;2;8;1;54;54;54.5;54;54.5;0;nan;0;1;0;0;0;0\n",   // ... from group 2
        "2024;102;1;7;1;44;44;44.5;44;44.5;0;0;0;1;0;0;0;0\n",     // internal move into 102
    };
    for (const char* row : rows) EXPECT_NE(table.find(row), std::string::npos) << row;
    // every other row (3 places of 10 kinds) counts nobody
    int lines = 0, filled = 0;
    for (size_t at = 0; at < table.size(); at = table.find('\n', at) + 1, ++lines)
        filled += table.compare(at + 12, 3, ";0;") != 0;
    EXPECT_EQ(lines, 30);
    EXPECT_EQ(filled, 10);
}

TEST_F(Dstmak, WrongCallAndBadMap)
{
    settings("R02DST=9\n");
    s.write("work/prot.htm", "");   // the page of an earlier run is no data set
    RunResult r = s.run({"dstmak"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.substr(0, 62), "falscher Aufruf (0): dstmak\ndstmak list | makro | indi\n  list ");
    EXPECT_NE(r.err.find("\n  makro  "), std::string::npos);
    EXPECT_NE(r.err.find("\n  indi   "), std::string::npos);
    r = s.run({"dstmak", "foo"});
    EXPECT_EQ(r.err.substr(0, 51), "falscher Aufruf (1): dstmak foo\ndstmak list | makro");
    r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(s.read("work/prot.htm").find("9: ungültige Abbildung in kleinräumige Gliederung"), std::string::npos);
}

TEST(RegionMap, RulesAndReferenceFile)
{
    EXPECT_TRUE(r02map::valid("") && r02map::valid("3") && r02map::valid("8e") && r02map::valid("#1238ei"));
    EXPECT_FALSE(r02map::valid("9") || r02map::valid("3x") || r02map::valid("#11") || r02map::valid("#123456789"));
    EXPECT_EQ(r02map::key("0", "1234567", '8'), 1);
    EXPECT_EQ(r02map::key("3", "1234567", '8'), 123);
    EXPECT_EQ(r02map::key("8", "1234567", '8'), 12345678);
    EXPECT_EQ(r02map::key("#738", "1234567", '8'), 738);
    EXPECT_EQ(r02map::key("2e", "12", '8', ' '), 129);   // a blank appended digit counts as 9
    EXPECT_EQ(r02map::key("3", "1 3", ' '), 103);
    EXPECT_EQ(r02map::key("3", "1x3", ' '), -1);

    Sandbox s;
    G2T table;
    table.build("", true, s.path("none.csv"), 12);
    EXPECT_EQ(table.regions(), 1);
    EXPECT_EQ(table.maxType, 1);
    s.write("ref.csv", "# keys\n10;a;1\n10;b;2\n");
    table.build("2", true, s.path("ref.csv"), 2);
    EXPECT_EQ(table.error, 3);
    EXPECT_EQ(table.line, 3);
    s.write("ref.csv", "10;a;1\n20;b\n");
    table.build("2", true, s.path("ref.csv"), 2);
    EXPECT_EQ(table.error, 2);
    table.build("2", true, s.path("missing.csv"), 2);
    EXPECT_EQ(table.error, 1);
    s.write("ref.csv", "10;a;1\n20;b;3\n");
    table.build("2", true, s.path("ref.csv"), 2);
    EXPECT_EQ(table.error, 0);
    EXPECT_EQ(table.region(20), 1);
    EXPECT_EQ(table.region(15), -1);
    table.build("1", false, "", 0);
    EXPECT_EQ(table.regions(), 10);
}

TEST(FixedWidthFields, NumberTooLongForItsTypeIsNoNumber)
{
    // P12 is forty columns wide: forty digits do not fit a number and are refused, not wrapped
    const FixedField& p12 = stockLayout().field("P12");
    std::string record(350, ' ');
    record.replace(static_cast<size_t>(p12.column - 1), 40, std::string(40, '1'));
    long long v = 7;
    EXPECT_FALSE(fieldNumber(record, p12, v));
    record.replace(static_cast<size_t>(p12.column - 1), 40, std::string(20, ' ') + "-9223372036854775807");
    EXPECT_TRUE(fieldNumber(record, p12, v));
    EXPECT_EQ(v, -9223372036854775807LL);
}

TEST_F(Dstmak, WithoutItsDirectoryNothingIsWritten)
{
    s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[RATEN]\nR02DST=3\n");
    s.write("dstbest2023.txt", person(101, 1, 0, "30"));
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("dstmak: kein Verzeichnis der Statistikdatensätze \"\" (dirDSTmak in Abschnitt RATEN von "),
              std::string::npos) << r.err;
    EXPECT_FALSE(s.exists("prot.htm") || s.exists("bestand_2023.csv") || s.exists("reftyp_roh.csv"));
    settings("R02DST=3\n");
    r = s.run({"dstmak", "indi"});   // work/ is not there
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("\"work/\""), std::string::npos) << r.err;
}

TEST_F(Dstmak, DamagedRecordsAreCountedAndSaid)
{
    settings("R02DST=3\n");
    // a NUL byte inside a record, a record cut by the end of the file
    std::string nul = person(101, 1, 0, "30");
    nul[100] = '\0';
    std::string cut = person(102, 2, 0, "41");
    s.write("work/dstbest2023.txt", person(101, 1, 0, "30") + nul + cut.substr(0, 200));
    s.write("work/dstbest2022.txt", "");   // empty: its table is still written, empty
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(s.read("work/bestand_2023.csv"), "2023;101;1;1;30;1\n");
    EXPECT_TRUE(s.exists("work/bestand_2022.csv"));
    EXPECT_EQ(s.read("work/bestand_2022.csv"), "");
    // on the console as in the protocol
    for (const char* said : {"dstbest2023.txt: Record 2: NUL-Zeichen in Spalte 101\n",
                             "dstbest2023.txt: Record 3: 200 Zeichen, Satzlänge dstbest ist 350\n",
                             "dstbest2023.txt: Satz 3 ohne Zeilenende, die Datei ist vielleicht abgeschnitten\n",
                             "verworfen 1 zu kurz, 1 mit ungültigen Feldern, 0 aus anderem Berichtsjahr\n",
                             "dstbest2022.txt: leerer Statistikdatensatz\n"}) {
        EXPECT_NE(r.out.find(said), std::string::npos) << said << r.out;
        EXPECT_NE(s.read("work/prot.htm").find(std::string(said).substr(0, 30)), std::string::npos) << said;
    }
}

TEST_F(Dstmak, AFullDiskNamesTheTableAndEndsWithStatusOne)
{
    settings("R02DST=3\n");
    s.write("work/dstbest2023.txt", person(101, 1, 0, "30") + person(102, 2, 0, "41"));
    for (int limit : {0, 20, 200, 2000}) {
        RunResult r = s.run({"dstmak", "makro"}, {"VELDOR_WRITE_LIMIT=" + std::to_string(limit)});
        EXPECT_EQ(r.status, 1) << limit;
        EXPECT_NE(r.err.find("Fatal output error in csv: work/"), std::string::npos) << limit << r.err;
        EXPECT_NE(r.err.find(": No space left on device"), std::string::npos) << limit << r.err;
        EXPECT_EQ(r.out.find("Ende "), std::string::npos) << limit;
        EXPECT_FALSE(s.exists("work/prot.tmp")) << limit;    // the protocol's temp file goes
    }
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Ende "), std::string::npos);
}

TEST_F(Dstmak, AnOutputThatFailsIsSaidInTheProtocolWhichIsPutIntoPlaceWhole)
{
    // a directory stands where a table goes: the rename fails, the run ends with status 1, and
    // the protocol page holds the failure, ends as a page and leaves no working file behind
    settings("R02DST=3\n");
    s.write("work/dstbest2023.txt", person(101, 1, 0, "30") + person(102, 2, 0, "41"));
    namespace fs = std::filesystem;
    fs::create_directories(s.path("work/bestand_roh.csv/in the way"));
    RunResult r = s.run({"dstmak", "makro"});
    EXPECT_EQ(r.status, 1);
    const std::string failure = "Fatal output error in csv: work/bestand_roh.csv: Is a directory";
    EXPECT_NE(r.err.find(failure), std::string::npos) << r.err;
    const std::string page = s.read("work/prot.htm");
    EXPECT_NE(page.find("<span class=\"w\">" + failure + "</span>\n</pre>\n</body>\n</html>\n"), std::string::npos)
        << page;
    EXPECT_NE(page.find("dstbest2023.txt"), std::string::npos);     // the lines before the failure
    for (const auto& e : fs::directory_iterator(s.path("work")))
        EXPECT_NE(e.path().filename().string().substr(0, 2), ".~") << e.path();
    EXPECT_FALSE(s.exists("work/prot.tmp"));
}
