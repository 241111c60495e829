// What a failed forecast run says on standard error, and that a run without its variant file
// leaves no directory behind.
#include <gtest/gtest.h>
#include <filesystem>

#include "tests/sandbox.h"

namespace {

const char* const MINIMAL = "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n";

std::vector<std::string> entries(const Sandbox& s, const std::string& rel)
{
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(s.path(rel))) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(RunFailure, DirectoryWithoutSeparatorIsNamedAndLeavesNoFolder)
{
    Sandbox s;
    s.write("var/demo.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var", "-v", "demo"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "orvane: Variantendatei vardemo.ini nicht gefunden (" + s.root() + "/vardemo.ini)\n"
                     "orvane: -d var endet nicht mit \"/\": Verzeichnis und Variante werden ohne Trennzeichen "
                     "aneinandergefügt; gemeint ist wohl -d var/\n"
                     "orvane: Variantendateien in " + s.root() + "/var: demo\n");
    EXPECT_NE(r.out.find("vardemo.ini not found"), std::string::npos) << r.out;
    EXPECT_FALSE(s.exists("vardemo"));
    EXPECT_EQ(entries(s, "var"), (std::vector<std::string>{"_variant", "demo.ini"}));
}

TEST(RunFailure, VariantWithoutDirectoryNamesTheSettingsFile)
{
    Sandbox s;
    RunResult r = s.run({"orvane", "-v", "demo", "-l", "en"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "orvane: variant file demo.ini not found (" + s.root() + "/demo.ini)\n"
                     "orvane: -v demo without -d: the directory comes from Directory= in ./Data/veldor.ini\n");
    EXPECT_FALSE(s.exists("demo"));
    EXPECT_FALSE(s.exists("prot.tmp"));
}

TEST(RunFailure, InvalidValueAndFailedRunNameTheProtocol)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\n[METHODE]\nNAG=0\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "orvane: var/v.ini enthält einen ungültigen Wert (oben genannt); keine Prognose\n"
                     "orvane: die Prognose endete mit Status 1; ihr Protokoll: " + s.root() + "/var/v/prot/index.html\n");

    // an error inside the forecast: the reason on the console, then where the protocol is
    s.write("var/w.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n[METHODE]\nNEUBAU=D1\n");
    r = s.run({"orvane", "-d", "var/", "-v", "w"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("_(D_0) && _(E_0)"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "orvane: die Prognose endete mit Status 1; ihr Protokoll: " + s.root() + "/var/w/prot/index.html\n");
}

TEST(RunFailure, MissingOrBrokenDictionaryIsToldAndTheRunGoesOn)
{
    Sandbox s;
    s.write("var/v.ini", MINIMAL);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-l", "fr"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "No such file or directory: ./App/datadict_fr.xml\n"
                     "./App/datadict_fr.xml: messages show their keys in [brackets]; languages at hand: de en\n");

    // -w into a directory without App/: where the program looked, and what to do
    r = s.run({"orvane", "-w", "var", "-d", "./", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("./App/datadict_de.xml: no ./App/ in " + s.root() + "/var: start the program in the directory "
                         "that holds App/, or name that directory with -w\n"),
              std::string::npos)
        << r.err;

    s.write("App/datadict_de.xml", "<?xml version=\"1.0\"?>\n<data-dictionary>\n<k id=\"a\">x</b>\n</data-dictionary>\n");
    r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "datadict_de.xml: mismatched tag at line 3\n"
                     "missing file leads to cryptic output: open datadict_./App/datadict_de.xml.xml\n");
}

} // namespace
