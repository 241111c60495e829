// The subtle pieces of the run frame: option scanner, key expansion, text conversions,
// profile file semantics.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/option_scanner.h"
#include "platform/settings.h"

namespace {

std::string tempDir(const std::string& name)
{
    auto dir = std::filesystem::temp_directory_path() / ("veldor-unit-" + std::to_string(getpid()) + "-" + name);
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir.string();
}

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

TEST(Getopt, ScansTheShiftedVectorFromItsFirstElement)
{
    char a0[] = "-cd", a1[] = "dir/", a2[] = "-vname", a3[] = "--", a4[] = "-p";
    char* argv[] = {a0, a1, a2, a3, a4};
    Getopt g;
    EXPECT_EQ(g(5, argv, "cd:l:o:pv:w:"), 'c');
    EXPECT_EQ(g(5, argv, "cd:l:o:pv:w:"), 'd');
    EXPECT_STREQ(g.optarg, "dir/");
    EXPECT_EQ(g(5, argv, "cd:l:o:pv:w:"), 'v');
    EXPECT_STREQ(g.optarg, "name");
    // "--" ends the scan and is consumed
    EXPECT_EQ(g(5, argv, "cd:l:o:pv:w:"), -1);
    EXPECT_EQ(g.optind, 4);
}

TEST(Getopt, UnknownLetterAndMissingArgumentGiveQuestionMark)
{
    char a0[] = "-xp", a1[] = "-d";
    char* argv[] = {a0, a1};
    Getopt g;
    g.opterr = 1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(g(2, argv, "d:p"), '?');
    EXPECT_EQ(g(2, argv, "d:p"), 'p');
    EXPECT_EQ(g(2, argv, "d:p"), '?');
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "-xp: illegal option -- x\n-xp: option requires an argument -- d\n");
    // a lone "-" ends the scan
    char b0[] = "-";
    char* argv2[] = {b0};
    Getopt h;
    EXPECT_EQ(h(1, argv2, "p"), -1);
}

class Dictionary : public testing::Test {
protected:
    void SetUp() override
    {
        dir = tempDir("dd");
        std::filesystem::create_directories(dir + "/App");
        std::ofstream(dir + "/App/datadict_xx.xml")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<data-dictionary>\n"
               "<k id=\"a\">Alpha</k>\n<k id=\"b\">B @a; B</k>\n<k id=\"t\">~Ti~lde</k>\n"
               "<k id=\"v\">Basis<NEUBAU> mit Neubau</NEUBAU><RUECKBAU> mit Rückbau</RUECKBAU><OTHER>nie</OTHER> Ende</k>\n"
               "<k id=\"a\">+</k>\n<ignored>x</ignored>\n"
               "<k id=\"long\">0123456789012345678901234567890123456789012345678901234567890123456789"
               "0123456789012345678901234567890123456789012345678901234567890123456789</k>\n"
               "</data-dictionary>\n";
        saved = si::appDir;
        si::appDir = dir + "/App/";
        DD::clear();
        DD::load("xx", {"NEUBAU", "RUECKBAU", ""});
    }
    void TearDown() override
    {
        DD::clear();
        si::appDir = saved;
        std::filesystem::remove_all(dir);
    }
    std::string dir, saved;
};

TEST_F(Dictionary, LoadsTextsVariantsAndRepeatedKeys)
{
    EXPECT_EQ(DD::lookup("a"), "Alpha+");
    EXPECT_EQ(DD::lookup("v"), "Basis mit Neubau mit Rückbau Ende");
    EXPECT_EQ(DD::lookup("t"), "Ti~lde");
    EXPECT_EQ(DD::lookup("missing"), "[missing]");
    EXPECT_TRUE(DD::has("missing"));   // stored on the first miss
}

TEST_F(Dictionary, ExpandsMacrosRecursivelyWithoutTildes)
{
    EXPECT_EQ(DD::expKey("x @b; y"), "x B Alpha+ B y");
    EXPECT_EQ(DD::expKey("@t;"), "Tilde");
    EXPECT_EQ(DD::expKey("mail@host"), "mail@host");
    EXPECT_EQ(DD::expKey("@nokey;@a;"), "[nokey]Alpha+");
    char small[128];
    EXPECT_EQ(DD::expKey(small, sizeof small, "@long;"), 1);
    EXPECT_EQ(std::string(small).size(), 127u);
    EXPECT_EQ(DD::expKey(small, sizeof small, "plain"), 0);
}

TEST(Dictionary2, LiteralGermanTextsFollowTheLanguage)
{
    std::string dir = tempDir("ddlit");
    std::filesystem::create_directories(dir + "/App");
    const char* const texts = "<data-dictionary><k id=\"de:%d Gebiete ohne Grenze\">%d regions without a bound</k>"
                              "<k id=\"de:Falsch %d\">Wrong %s</k></data-dictionary>";
    std::ofstream(dir + "/App/datadict_en.xml") << texts;
    std::ofstream(dir + "/App/datadict_de.xml") << texts;
    std::string saved = si::appDir;
    si::appDir = dir + "/App/";
    const char* german = "%d Gebiete ohne Grenze";
    DD::clear();
    DD::load("en", {});
    EXPECT_STREQ(DD::literal(german), "%d regions without a bound");
    EXPECT_STREQ(DD::literal("Falsch %d"), "Falsch %d");       // a translation that would misread its value
    EXPECT_STREQ(DD::literal("Unbekannt"), "Unbekannt");       // none in the dictionary
    EXPECT_TRUE(std::regex_search(os::dateTime(), std::regex("^(Mon|Tue|Wed|Thu|Fri|Sat|Sun) ")));
    DD::clear();
    DD::load("de", {});
    EXPECT_EQ(DD::literal(german), german);                     // a German run keeps its text
    DD::clear();
    si::appDir = saved;
    std::filesystem::remove_all(dir);
}

TEST(Dictionary2, EmptyLanguageLooksForTheBareName)
{
    std::string dir = tempDir("dd2");
    std::filesystem::create_directories(dir + "/App");
    std::ofstream(dir + "/App/datadict_.xml") << "<data-dictionary><k id=\"z\">Z</k></data-dictionary>";
    std::string saved = si::appDir;
    si::appDir = dir + "/App/";
    DD::clear();
    DD::load("", {});
    EXPECT_EQ(DD::lookup("z"), "Z");
    DD::clear();
    // a broken file keeps what stood before the fault
    std::ofstream(dir + "/App/datadict_bad.xml") << "<data-dictionary><k id=\"ok\">gut</k><k id=\"x\">";
    testing::internal::CaptureStderr();
    DD::load("bad", {});
    // without an echo stream the place of the fault goes to the console before the box
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "datadict_bad.xml: no element found at line 1\n"
              "missing file leads to cryptic output: open datadict_" + dir + "/App/datadict_bad.xml.xml\n");
    EXPECT_EQ(DD::lookup("ok"), "gut");
    DD::clear();
    si::appDir = saved;
    std::filesystem::remove_all(dir);
}

TEST(Conversions, UmlautsLatinAndUrls)
{
    EXPECT_EQ(utf2ascii("Äpfel Öl Über Straße ärger böse über é"), "Aepfel Oel Ueber Strasse aerger boese ueber é");
    EXPECT_EQ(utf8ToLatin1("Größe"), "Gr\xF6\xDF" "e");
    EXPECT_EQ(utf8ToLatin1("€ x"), "? x");
    // a continuation byte in lead position takes the following continuation bytes with it
    EXPECT_EQ(utf8ToLatin1("\x81\x81" "a"), "Aa");
    // a lead byte cut short: the next plain byte is read as a new character
    EXPECT_EQ(utf8ToLatin1("\xC3" "a"), "\x03" "a");
    EXPECT_EQ(latin1ToUtf8("Gr\xF6\xDF" "e"), "Größe");
    EXPECT_EQ(fileUrl("C:\\Daten\\Gärten 1.csv"), "file:///C:/Daten/G%C3%A4rten%201.csv");
    EXPECT_EQ(fileUrl("/tmp/a b"), "file:///tmp/a%20b");
    EXPECT_EQ(lastComponent("a/b/c.csv"), "c.csv");
    EXPECT_EQ(lastComponent("a\\b\\c.csv"), "c.csv");
    EXPECT_EQ(lastComponent("x/../c.csv"), "../c.csv");
    EXPECT_EQ(lastComponent("c.csv"), "c.csv");
}

TEST(Profile, WindowsSemantics)
{
    std::string dir = tempDir("ini");
    std::string file = dir + "/v.ini";
    EXPECT_EQ(si::profileString(file, "A", "k", "def"), "def");
    std::ofstream(file, std::ios::binary) << "\xEF\xBB\xBF; head\r\n[Sec]\r\nKey = value one \r\nnum=abc\r\n[Other]\r\nx=1\r\n";
    EXPECT_EQ(si::profileString(file, "SEC", "key", "def"), "value one");
    EXPECT_EQ(si::profileString(file, "Sec", "nokey", "def"), "def");
    // a text that is no number reads as 0, not as the default
    EXPECT_EQ(si::varInt("Sec", "num", 7, dir + "/", "v"), 0);
    EXPECT_EQ(si::varInt("Sec", "none", 7, dir + "/", "v"), 7);
    EXPECT_DOUBLE_EQ(si::varDouble("Sec", "none", 0.25, dir + "/", "v"), 0.25);
    ASSERT_TRUE(si::profileWrite(file, "sec", "KEY", "neu"));
    ASSERT_TRUE(si::profileWrite(file, "New", "n", "1"));
    std::string text = slurp(file);
    EXPECT_EQ(text.substr(0, 3), "\xEF\xBB\xBF");
    EXPECT_NE(text.find("; head\r\n"), std::string::npos);
    EXPECT_NE(text.find("Key=neu\r\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[Other]\r\nx=1\r\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[New]\r\nn=1\r\n"), std::string::npos);
    EXPECT_EQ(si::profileString(file, "new", "N", ""), "1");
    ASSERT_TRUE(si::profileWrite(file, "Other", "x", nullptr));
    EXPECT_EQ(si::profileString(file, "Other", "x", "gone"), "gone");
    std::filesystem::remove_all(dir);
}

TEST(Profile, NumbersWithEitherDecimalPoint)
{
    EXPECT_DOUBLE_EQ(si::parseNumber("0.514"), 0.514);
    EXPECT_DOUBLE_EQ(si::parseNumber("0,514"), 0.514);
    EXPECT_DOUBLE_EQ(si::parseNumber("1e-06"), 1e-6);
    EXPECT_DOUBLE_EQ(si::parseNumber("x"), 0);
}

} // namespace
