// End-to-end runs of the executable: dispatcher, forecast command, variant file repair,
// protocol pages and the driver's year loop.
#include <gtest/gtest.h>
#include <filesystem>
#include <sys/stat.h>

#include "tests/sandbox.h"

namespace {

const char* const MINIMAL = "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2026\n";

std::string protocol(const Sandbox& s, const std::string& variant = "v") { return s.read("var/" + variant + "/prot/index.html"); }

// numbered messages of a severity, counted by their entries in the table of contents
int messages(const std::string& prot, const std::string& severity) { return countOf(prot, "\"><span class=" + severity + ">"); }

TEST(Dispatcher, WithoutArgumentNamesAllToolsAndEndsWithZero)
{
    Sandbox s;
    RunResult r = s.run({});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "./App/orvane: wrong argument: , use adeton dstmak hhprog orvane shp2plt zrgem\n");
}

TEST(Dispatcher, ToolNamesAreCaseSensitive)
{
    Sandbox s;
    RunResult r = s.run({"ZRGEM"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "./App/orvane: wrong argument: ZRGEM, use adeton dstmak hhprog orvane shp2plt zrgem\n");
}

TEST(Dispatcher, MapConverterWithoutShapefileShowsItsUsage)
{
    Sandbox s;
    // the map converter is built: without a shapefile it shows its usage
    RunResult r = s.run({"shp2plt", "-c"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.substr(0, 15), "usage: shp2plt ");
    EXPECT_NE(r.err.find(" shapefile: shp2plt -c\n"), std::string::npos);
}

TEST(Dispatcher, FailedAllocationEndsWithStatusOne)
{
#ifdef VELDOR_SANITIZED
    GTEST_SKIP() << "the address sanitizer reserves terabytes of address space: a limit of 400 MB stops the "
                    "program before it starts";
#endif
    Sandbox s;
    // a million groups of a thousand ages: the start population cannot be held in 400 MB
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n[METHODE]\nNBG=1000000\nNAG=1000\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"}, {}, 400000);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "FATAL ERROR: OUT OF MEMORY\n");
}

TEST(ForecastCommand, UnknownOptionOrMissingArgumentShowsUsageAndTouchesNoFile)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-x"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "usage: orvane -c -d directory -l language -p -v version -w working_dir: orvane -d var/ -v v -x\n");
    EXPECT_FALSE(s.exists("var/v"));
    EXPECT_EQ(s.read("var/v.ini"), MINIMAL);

    r = s.run({"orvane", "-d", "var/", "-v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "usage: orvane -c -d directory -l language -p -v version -w working_dir: orvane -d var/ -v\n");
}

TEST(ForecastCommand, NonOptionEndsTheScanSilently)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    // "-x" after a plain word is never looked at, so no option error
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "plain", "-x"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(s.exists("var/v/prot/index.html"));
}

TEST(ForecastCommand, MissingVariantFileWarnsAndEndsWithOne)
{
    Sandbox s;
    std::filesystem::create_directories(s.path("var"));
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "nothere"});
    EXPECT_EQ(r.status, 1);
    // without a variant file no protocol is opened: the warning goes to the console
    EXPECT_NE(r.out.find("var/nothere.ini not found\n"), std::string::npos) << r.out;
    EXPECT_FALSE(s.exists("var/nothere"));
}

TEST(ForecastCommand, FreshVariantFileIsFilledAndTheRunEndsCleanly)
{
    Sandbox s;
    s.write("var/v.ini", "");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::string ini = s.read("var/v.ini");
    for (const char* line : {"RUNFORECAST=1", "ENDJAHR=", "FMT_ANZAHL=%.1f", "FMT_RATE=%.6f", "NITER=100", "EPS=0.0001",
                             "SUMTOL=1e-06", "ZRGEM=zr_gem", "GKZ=$i", "NAG=100", "NGG=2", "GP=0.514", "GPAR=0",
                             "NEUBAU=D0", "BGWQG=Y0", "ANSTALTSBEVOELKERUNG=R0", "GNRA=1"})
        EXPECT_NE(ini.find(line), std::string::npos) << line;
    std::string prot = protocol(s);
    // 51 keys were missing: one warning each; 17 modules: one hint each
    EXPECT_EQ(messages(prot, "warning"), 51);
    EXPECT_EQ(countOf(prot, " inserted</span>"), 17);
    EXPECT_NE(prot.find("<span id=1 class=warning>"), std::string::npos);
    EXPECT_NE(prot.find("NEUBAU=D0 inserted"), std::string::npos);
    // closed page with its table of contents
    EXPECT_NE(prot.find("<div id=toc>"), std::string::npos);
    EXPECT_EQ(prot.substr(prot.size() - 16), "</body>\n</html>\n");
    EXPECT_TRUE(s.exists("var/v/prot/inp.htm"));
    EXPECT_TRUE(s.exists("var/v/prot/out.htm"));

    // a second run finds nothing to repair
    r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(s.read("var/v.ini"), ini);
    EXPECT_EQ(messages(protocol(s), "warning"), 0);
}

TEST(VariantMaintenance, RepairsModulesRemovesObsoleteAndKeepsFrontEndSections)
{
    Sandbox s;
    s.write("var/v.ini", "[NOTIZ]\n000=keep me\nfree=also kept\n[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nALT=1\n"
                         "[METHODE]\nNEUBAU=X1\n[EMPTY]\n[OLD]\nA=1\n[PYRAMID]\nx=1\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    // new building without population movements is no valid combination: the file is repaired
    // all the same, and the forecast stops at the check of the modules
    EXPECT_EQ(r.status, 1) << r.out;
    std::string ini = s.read("var/v.ini");
    EXPECT_NE(ini.find("NEUBAU=D1"), std::string::npos);
    EXPECT_EQ(ini.find("\nALT="), std::string::npos);
    EXPECT_NE(ini.find("\n;ALT=1\n"), std::string::npos);   // kept as a comment
    EXPECT_EQ(ini.find("[EMPTY]"), std::string::npos);
    EXPECT_EQ(ini.find("\nA=1"), std::string::npos);
    EXPECT_NE(ini.find("000=keep me"), std::string::npos);
    EXPECT_NE(ini.find("free=also kept"), std::string::npos);
    EXPECT_NE(ini.find("[PYRAMID]\nx=1"), std::string::npos);
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("var/v.ini [METHODE] NEUBAU=X1 replaced by NEUBAU=D1"), std::string::npos);
    EXPECT_NE(prot.find("class=error>Fehler 1: source\\c\\rkini: "), std::string::npos);
    EXPECT_NE(prot.find(": _(A_0) && _(B_0) && _(C_0) && _(D_0) && _(E_0)"), std::string::npos);
    EXPECT_NE(prot.find("var/v.ini[DEFAULTS]ALT=1 obsolete entry removed"), std::string::npos);
    EXPECT_NE(prot.find("var/v.ini[EMPTY] obsolete empty section removed"), std::string::npos);
}

TEST(VariantMaintenance, WindowsFileWithBomCrlfAndBlanksIsReadAndStaysWindows)
{
    Sandbox s;
    s.write("var/v.ini", "\xEF\xBB\xBF[defaults]\r\nstartjahr = 2030\r\nENDJAHR= 2031 \r\n; a comment\r\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.out;
    std::string ini = s.read("var/v.ini");
    EXPECT_EQ(ini.substr(0, 3), "\xEF\xBB\xBF");
    EXPECT_NE(ini.find("startjahr=2030\r\n"), std::string::npos) << ini;
    EXPECT_NE(ini.find("; a comment"), std::string::npos);
    EXPECT_EQ(countOf(ini, "\n"), countOf(ini, "\r\n"));
    std::string prot = protocol(s);
    EXPECT_NE(prot.find(" 2030</h4>"), std::string::npos);
    EXPECT_NE(prot.find(" 2031</h4>"), std::string::npos);
    EXPECT_EQ(prot.find(" 2029</h4>"), std::string::npos);
    EXPECT_EQ(prot.find(" 2032</h4>"), std::string::npos);
}

TEST(VariantMaintenance, DoubleKeyKeepsTheLaterValue)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2020\nENDJAHR=2021\nENDJAHR=2022\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0);
    std::string ini = s.read("var/v.ini");
    EXPECT_EQ(countOf(ini, "ENDJAHR="), 1);
    EXPECT_NE(ini.find("ENDJAHR=2022"), std::string::npos);
    EXPECT_NE(protocol(s).find("double entry [DEFAULTS]ENDJAHR=2021 ENDJAHR=2022"), std::string::npos);
}

TEST(VariantMaintenance, ReadOnlyFileIsReadButNotRepaired)
{
    Sandbox s;
    std::string text = "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nOBSOLETE=1\n";
    s.write("var/v.ini", text);
    chmod(s.path("var/v.ini").c_str(), 0444);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(s.read("var/v.ini"), text);
    std::string prot = protocol(s);
    EXPECT_NE(prot.find(" 2025</h4>"), std::string::npos);
    EXPECT_EQ(messages(prot, "warning"), 0);
}

TEST(VariantMaintenance, OutOfRangeValuesAreAllReportedAndStopTheRun)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\n[METHODE]\nGNGZ=3\nGNTYG=4\nNAG=0\nNEUBAU=D7\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    // the range message names the value, the bounds and the key; the module message its variants
    EXPECT_NE(r.out.find("4"), std::string::npos);
    EXPECT_NE(r.out.find("GNTYG"), std::string::npos);
    EXPECT_NE(r.out.find("NAG"), std::string::npos);
    EXPECT_NE(r.out.find("NEUBAU"), std::string::npos);
    std::string prot = protocol(s);
    EXPECT_NE(prot.find("var/v.ini not found"), std::string::npos);
    // the forecast did not run: no year heading
    EXPECT_EQ(prot.find(" 2024</h4>"), std::string::npos);
}

TEST(VariantMaintenance, OtherReleaseStopsReadingTheMethodKeys)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n[METHODE]\nRELEASE=8.1\nNAG=5000\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    // NAG out of range is not seen, as the method keys stay unread
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("var/v.ini "), std::string::npos);
    EXPECT_NE(r.out.find("8.1"), std::string::npos);
    EXPECT_NE(s.read("var/v.ini").find("NAG=5000"), std::string::npos);
}

TEST(ForecastDriver, RunForecastZeroOpensNoProtocol)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nRUNFORECAST=0\nSTARTJAHR=2024\nENDJAHR=2024\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    EXPECT_FALSE(s.exists("var/v/prot/index.html"));
    // the maintenance still repaired the file
    EXPECT_NE(s.read("var/v.ini").find("NAG=100"), std::string::npos);
}

TEST(ForecastDriver, RunForecastTwoLeavesTheProtocolOpen)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nRUNFORECAST=2\nSTARTJAHR=2024\nENDJAHR=2025\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    std::string prot = protocol(s);
    EXPECT_NE(prot.find(" 2025</h4>"), std::string::npos);
    EXPECT_EQ(prot.find("<div id=toc>"), std::string::npos);
}

TEST(ForecastDriver, EndBeforeStartGivesOneHintAndNoYear)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2020\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    std::string prot = protocol(s);
    EXPECT_EQ(messages(prot, "hint"), 18);   // 17 inserted modules and the empty forecast
    EXPECT_EQ(countOf(prot, "</h4>"), 1);   // only the end
    EXPECT_EQ(prot.find(" 2024</h4>"), std::string::npos);
    EXPECT_NE(prot.find("<div id=toc>"), std::string::npos);
}

TEST(ForecastDriver, YearsRunFromStartToEndWithLinksInTheTableOfContents)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0);
    std::string prot = protocol(s);
    for (int y = 2024; y <= 2026; ++y) {
        std::string year = std::to_string(y);
        EXPECT_EQ(countOf(prot, ">" + year + "</a><br>"), 1) << year;
        EXPECT_EQ(countOf(prot, year + "</h4>"), 1) << year;
    }
    EXPECT_EQ(countOf(prot, "</h3>"), 1);   // the run
    EXPECT_EQ(countOf(prot, "</h4>"), 4);   // three years and the end
}

TEST(Protocol, LevelZeroDropsHeadingsButKeepsMessagesAndSummary)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=0\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    std::string prot = protocol(s);
    EXPECT_EQ(countOf(prot, "<h3"), 0);
    EXPECT_EQ(countOf(prot, "<h4"), 0);
    EXPECT_EQ(countOf(prot, " inserted</span>"), 17);
}

TEST(Protocol, ConsoleFileIsAppendedAndLogFollowsTheFlag)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    ASSERT_EQ(s.run({"orvane", "-d", "var/", "-v", "v"}).status, 0);
    std::string first = s.read("var/v/prot.tmp");
    std::string log = s.read("Data/log.htm");
    EXPECT_EQ(log.rfind("<!DOCTYPE html>\n<html lang=\"de\">\n<head><meta charset=\"utf-8\"></head>\n<body>\n<pre>", 0), 0u);
    ASSERT_EQ(s.run({"orvane", "-d", "var/", "-v", "v"}).status, 0);
    std::string second = s.read("var/v/prot.tmp");
    EXPECT_EQ(second.substr(0, first.size()), first);
    EXPECT_GT(second.size(), first.size());

    s.write("Data/veldor.ini", "[TRACE]\nlogfile=0\n");
    std::string before = s.read("Data/log.htm");
    ASSERT_EQ(s.run({"orvane", "-d", "var/", "-v", "v"}).status, 0);
    EXPECT_EQ(s.read("Data/log.htm"), before);
    EXPECT_GT(s.read("var/v/prot.tmp").size(), second.size());
}

TEST(Protocol, PlainConsoleGetsUmlautsInTwoLetterForm)
{
    Sandbox s;
    s.write("var/Größe.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "Größe"}, {"LANG=C"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("var/Groesse"), std::string::npos) << r.out;
    EXPECT_NE(s.read("var/Größe/prot.tmp").find("var/Größe"), std::string::npos);
}

TEST(Settings, PortableDataDirectoryOrUserConfigDirectory)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    ASSERT_EQ(s.run({"orvane", "-d", "var/", "-v", "v"}).status, 0);
    EXPECT_TRUE(s.exists("Data/log.htm"));
    EXPECT_FALSE(s.exists("cfg/veldor/log.htm"));
    // without Data/veldor.ini the user's configuration directory takes its place
    std::remove(s.path("Data/veldor.ini").c_str());
    std::filesystem::create_directories(s.path("cfg/veldor"));
    ASSERT_EQ(s.run({"orvane", "-d", "var/", "-v", "v"}).status, 0);
    EXPECT_TRUE(s.exists("cfg/veldor/log.htm"));
}

TEST(Settings, DirectoryAndVersionComeFromTheSettingsFile)
{
    Sandbox s;
    s.write("Data/veldor.ini", "[DEFAULTS]\nDirectory=var/\nVersion=w\n");
    s.write("var/w.ini", MINIMAL);
    RunResult r = s.run({"orvane"});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(s.exists("var/w/prot/index.html"));
}

TEST(Settings, WorkingDirectoryOptionComesBeforeTheApplicationFiles)
{
    Sandbox s;
    s.write("sub/var/v.ini", MINIMAL);
    // the App/ files are looked for in the new working directory: without them the run
    // stops at the constants table
    RunResult r = s.run({"orvane", "-w", "sub", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("read ./App/constant.csv: No such file or directory"), std::string::npos) << r.err;
}

} // namespace

namespace {

// a front end script that notes each callback it is started for
const char* const SCRIPT = "open(my $f, '>>', 'callbacks.txt'); print $f join(' ', @ARGV), \"\\n\"; close $f;\n";

TEST(Callbacks, BeforeAndAfterTheRunWithTheVariantFile)
{
    Sandbox s;
    s.write("source/scripts/ptest.pm", SCRIPT);
    s.write("var/v.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-c", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(s.read("callbacks.txt"), "CALLBACK0 var/v.ini\nCALLBACK2 var/v.ini\n");
    EXPECT_NE(r.err.find("perl -Isource/scripts/ source/scripts/ptest.pm CALLBACK0 \"var/v.ini\"\n"), std::string::npos);
}

TEST(Callbacks, NoneWithoutTheFlagAndNoSecondWithoutTheEndStatistics)
{
    Sandbox s;
    s.write("source/scripts/ptest.pm", SCRIPT);
    s.write("var/v.ini", MINIMAL);
    EXPECT_EQ(s.run({"orvane", "-d", "var/", "-v", "v"}).status, 0);
    EXPECT_FALSE(s.exists("callbacks.txt"));
    s.write("var/v.ini", "[DEFAULTS]\nRUNFORECAST=2\nSTARTJAHR=2024\nENDJAHR=2024\n");
    EXPECT_EQ(s.run({"orvane", "-c", "-d", "var/", "-v", "v"}).status, 0);
    EXPECT_EQ(s.read("callbacks.txt"), "CALLBACK0 var/v.ini\n");
    // a failing script changes nothing in the result
    s.write("source/scripts/ptest.pm", "exit 3;\n");
    s.write("var/v.ini", MINIMAL);
    EXPECT_EQ(s.run({"orvane", "-c", "-d", "var/", "-v", "v"}).status, 0);
}

TEST(NamedOptions, ExpressionOptionSetsOptionsAndTheParallelFlag)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($STACK 1) option($XYZ 2.5)"});
    EXPECT_EQ(r.status, 0) << r.out;
    std::string prot = protocol(s);
    EXPECT_NE(prot.find(", parallel, logfile"), std::string::npos);
    EXPECT_NE(prot.find("<caption>option</caption>\n<tr><th class=l>$STACK</th><td>1</td></tr><tr><th class=l>$XYZ</th><td>2.5</td></tr></table>"),
              std::string::npos);
    EXPECT_NE(prot.find("<span class=tracePush> ORVANE RKPRO (2024)</span><br>"), std::string::npos);
    EXPECT_NE(prot.find("<span class=tracePop> ORVANE RKPRO (2024) "), std::string::npos);

    r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_NE(protocol(s).find(", seriell, logfile"), std::string::npos);
}

TEST(NamedOptions, CharsetTestPageOnlyForAnExistingVariantDirectory)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($TUTF8 1)"});
    EXPECT_FALSE(s.exists("var/v/prot/tutf8.htm"));
    r = s.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($TUTF8 1)"});
    EXPECT_NE(r.out.find("> var/v/prot/tutf8.htm\n"), std::string::npos);
    std::string page = s.read("var/v/prot/tutf8.htm");
    EXPECT_EQ(page.rfind("<html><head><meta charset=\"utf-8\"><body><pre>", 0), 0u);
    EXPECT_NE(page.find("\n00000040 @ A B C"), std::string::npos);
    EXPECT_NE(page.find("0000C380 À Á Â"), std::string::npos);
    EXPECT_NE(page.find("00E29880 ☀"), std::string::npos);
    EXPECT_NE(page.find("F09F9980 🙀"), std::string::npos);
    EXPECT_EQ(page.substr(page.size() - 20), "</pre></body></html>");
}

TEST(ForecastCommand, ConstantThatIsNoNumberStopsTheRun)
{
    Sandbox s;
    // a constant that is no number stops the run at its first use
    std::string constants = s.read("App/constant.csv");
    s.write("App/constant.csv", constants + "GPdef;abc\n");
    s.write("var/v.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("read ./App/constant.csv: stod: constant GPdef=abc"), std::string::npos) << r.err;
}

} // namespace

namespace {

TEST(ForecastDriver, PeriodsOfSixMonthsCarryTheirLabels)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2020\nENDJAHR=2022\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($MONATE 6)"});
    ASSERT_EQ(r.status, 0);
    std::string prot = protocol(s);
    // the counter values 2020, 2021, 2022 are the half years 2020/1, 2020/2, 2021/1
    EXPECT_NE(prot.find(" 202001</h4>"), std::string::npos);
    EXPECT_NE(prot.find(" 202002</h4>"), std::string::npos);
    EXPECT_NE(prot.find(" 202101</h4>"), std::string::npos);
    EXPECT_EQ(countOf(prot, ">2021</a><br>"), 1);
}

} // namespace

#include <regex>
#include <set>

namespace {

TEST(Protocol, NoKeyShowsInSquareBracketsAtTheHighestLevel)
{
    Sandbox s;
    s.write("var/v.ini", "[NOTIZ]\n000=x\n[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=3\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($STACK 1) option($DDTEST 1)"});
    ASSERT_EQ(r.status, 0);
    // section rows show their names in brackets; a missing key would show the same way
    const std::set<std::string> sections = {"[CSV]", "[METHODE]", "[Voreinstellungen]", "[Gnuplot]",
                                            "[Ablaufverfolgung]", "[Ausgabedateien]", "[Matrixausgabe]"};
    for (const char* page : {"index.html", "inp.htm", "out.htm"}) {
        std::string text = s.read(std::string("var/v/prot/") + page);
        std::regex bracket(R"(\[[A-Za-z_0-9?]+\])");
        for (auto it = std::sregex_iterator(text.begin(), text.end(), bracket); it != std::sregex_iterator(); ++it)
            EXPECT_TRUE(sections.count(it->str())) << page << ": " << it->str();
    }
    EXPECT_EQ(r.out.find("["), std::string::npos) << r.out;
}

} // namespace
