// hhprog start: settings written back, usage, region types, its protocol and the phase notice.
#include <gtest/gtest.h>

#include "../sandbox.h"

namespace {
class Hhprog : public ::testing::Test {
protected:
    void SetUp() override
    {
        s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[HHPROG]\nDirectory=hh/\n");
    }
    Sandbox s;
};
} // namespace

TEST_F(Hhprog, UnimplementedOptionShowsTheUsage)
{
    RunResult r = s.run({"hhprog", "-C", "1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.rfind("Falscher Aufruf: hhprog [Optionen]\n -C= Ausgabe Kommentarzeilen in Ausgabedatei\n", 0), 0u);
    EXPECT_NE(r.err.find(" -V= Protokollumfang (0-3)\n"), std::string::npos);
}

TEST_F(Hhprog, StartsWithTypesAndStopsWithoutTheStockFile)
{
    s.write("hh/reftyp.csv", "# key;name;type\n10;a;1\n20;b;3\n30;c;3\n");
    RunResult r = s.run({"hhprog", "-F", "2", "-T", "2"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("HHPROG: open hh/dstbest.txt"),
              std::string::npos);
    std::string ini = s.read("hh/hhprog.ini");
    EXPECT_NE(ini.find("QtypCol=12\n"), std::string::npos);
    EXPECT_NE(ini.find("Jung=35\n"), std::string::npos);
    std::string page = s.read("hh/Prognose/index.html");
    EXPECT_NE(page.find("<title>Protokoll HHProg hh/Prognose/</title>"), std::string::npos);
    EXPECT_NE(page.find("class=warning>Warnung 1: L&uuml;cke bei Typen in Referenzdatei: Typ 2 fehlt</span><br>"),
              std::string::npos);
    EXPECT_NE(page.find("3 Gebiete, 3 Typen<br>"), std::string::npos);
    EXPECT_NE(page.find("Fehlerabbruch 2: open hh/dstbest.txt"), std::string::npos);
    EXPECT_NE(s.read("hh/Prognose/p/toc.htm").find("<a href=\"../index.html#2\" target=_top><span class=warning>Warnung 1</span></a>"),
              std::string::npos);
    EXPECT_TRUE(s.exists("hh/Prognose/p/style.css"));
}

TEST_F(Hhprog, ReferenceFileErrorsAndEmptyMap)
{
    s.write("hh/reftyp.csv", "10;a;1\n10;b;2\n");
    RunResult r = s.run({"hhprog", "-F", "2", "-T", "2", "-P", "1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("HHPROG: hh/reftyp.csv:2 (Abb '2') Gebietsschlüssel nicht aufsteigend"), std::string::npos);

    r = s.run({"hhprog", "-F", "9x"});
    EXPECT_NE(r.err.find("9x: ungueltige Abbildung in kleinräumige Gliederung"), std::string::npos);

    // no map: one region of one type, whatever the reference file holds
    r = s.run({"hhprog", "-P", "0"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(s.read("hh/Quoten/index.html").find("1 Gebiete, 1 Typen<br>"), std::string::npos);
}

TEST_F(Hhprog, WithoutItsDirectoryNothingIsWritten)
{
    for (const char* settings : {"[DEFAULTS]\nRelease=9.4\n", "[DEFAULTS]\nRelease=9.4\n[HHPROG]\nDirectory=nothere/\n"}) {
        s.write("Data/veldor.ini", settings);
        RunResult r = s.run({"hhprog"});
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find("HHPROG: kein Verzeichnis \""), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("(Directory in Abschnitt HHPROG von ./Data/veldor.ini oder -d): nichts geschrieben"),
                  std::string::npos) << r.err;
        EXPECT_FALSE(s.exists("hhprog.ini") || s.exists("Prognose") || s.exists("Quoten") || s.exists("nothere"));
    }
}
