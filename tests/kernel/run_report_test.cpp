// The run report: the settings tables at the head of the protocol and the module code.
#include <gtest/gtest.h>

#include "tests/sandbox.h"

namespace {

std::string run(Sandbox& s, const std::string& variant, const std::string& ini, std::vector<std::string> extra = {})
{
    s.write("var/" + variant + ".ini", ini);
    std::vector<std::string> args = {"orvane", "-d", "var/", "-v", variant};
    args.insert(args.end(), extra.begin(), extra.end());
    // the report stands before the inputs are read: a run stopped by its modules still has it
    return s.run(args).out;
}

TEST(RunReport, ModuleCodeAndTheMarkOfAgreeingNames)
{
    Sandbox s;
    const std::string ini = "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n[METHODE]\nNEUBAU=D2\n";
    EXPECT_NE(run(s, "D2_test", ini).find("Bausteine D2 v\n"), std::string::npos);
    EXPECT_NE(run(s, "D2", ini).find("Bausteine D2 v\n"), std::string::npos);
    std::string out = run(s, "D2x", ini);
    EXPECT_NE(out.find("Bausteine D2\n"), std::string::npos) << out;
    // without any module the code is T0
    EXPECT_NE(run(s, "T0_base", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n").find("Bausteine T0 v\n"), std::string::npos);
    // $BSL 2 lists every module, $BSL 0 none
    out = run(s, "x", ini, {"-o", "option($BSL 2)"});
    EXPECT_NE(out.find("Bausteine A0B0C0D2E0G0I0K0M0N0P0R0S0T0V0W0Y0\n"), std::string::npos) << out;
    out = run(s, "x", ini, {"-o", "option($BSL 0)"});
    EXPECT_EQ(out.find("Bausteine"), std::string::npos);
    EXPECT_NE(s.read("var/x/prot/index.html").find("<tr><th class=l>D2</th>"), std::string::npos);
}

TEST(RunReport, TablesOfSettingsVariantOptionsAndModules)
{
    Sandbox s;
    run(s, "v",
        "[NOTIZ]\n000=erste Zeile\n001=zweite Zeile\n[CALLBACK0]\n000=a<b\n[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n"
        "DIFF_GG=1\nDIFF_AG=0\nAUSGABE_PROTOKOLL=2\n[METHODE]\nRUECKBAU=E3\nBEVOELKERUNGSBEWEGUNGEN=T1\nNTYA=4\n",
        {"-o", "option($ZZ 0.5)"});
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_NE(prot.find("<tr><td colspan=\"2\"><pre>erste Zeile\nzweite Zeile\n</pre></td></tr>\n"), std::string::npos);
    EXPECT_NE(prot.find("<tr><th class=l colspan=2>[CALLBACK0]</th></tr>\n<tr><th class=l>000</th><td>a&lt;b</td></tr>"),
              std::string::npos);
    // the row of DIFF_AG shows DIFF_GG
    size_t agRow = prot.find("Gliederung nach Altersgruppen");
    ASSERT_NE(agRow, std::string::npos);
    size_t rowEnd = prot.find("</tr>", agRow);
    EXPECT_NE(prot.substr(agRow, rowEnd - agRow).find("<td>1</td>"), std::string::npos);
    EXPECT_NE(prot.find("<caption>option</caption>\n<tr><th class=l>$ZZ</th><td>0.5</td></tr></table>\n"), std::string::npos);
    EXPECT_NE(prot.find("<tr><th class=l>E3</th>"), std::string::npos);
    // with module T 1 the row of external areas is shown, with its key
    EXPECT_NE(prot.find("<tr><th class=l>NTYA</th>"), std::string::npos);
    // the generic parameters at protocol level 2
    EXPECT_NE(prot.find("<tr><th class=l>GNTYWBG</th>"), std::string::npos);
}

TEST(RunReport, LevelZeroShowsNoTablesButTheModuleLine)
{
    Sandbox s;
    std::string out = run(s, "E1", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=0\n[METHODE]\nRUECKBAU=E1\n");
    EXPECT_NE(out.find("Bausteine E1 v\n"), std::string::npos);
    EXPECT_EQ(s.read("var/E1/prot/index.html").find("<table>"), std::string::npos);
}

TEST(RunReport, DimensionTableAtLevelThreeInTheStartYear)
{
    Sandbox s;
    run(s, "v", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=3\n");
    std::string prot = s.read("var/v/prot/index.html");
    EXPECT_EQ(countOf(prot, "<caption>Dimensionen des Jahres</caption>"), 1);
    EXPECT_NE(prot.find("<tr><th class=l>NTYHH</th>"), std::string::npos);
    // the memory report of the system comes at this level too
    EXPECT_NE(prot.find("percent of memory in use"), std::string::npos);
}

} // namespace
