// Misspelt keys and numbers with text behind them in a variant file.
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "kernel/variant_key_check.h"
#include "tests/sandbox.h"

namespace {

TEST(VariantKeyCheck, ClosestKeyTakesSwapsAndSlipsButNotStrangers)
{
    EXPECT_EQ(keyDistance("STARTJHAR", "STARTJAHR"), 1u);   // two letters swapped
    EXPECT_EQ(keyDistance("endjahr", "ENDJAHR"), 0u);
    EXPECT_EQ(keyDistance("NAG", "NGG"), 1u);
    EXPECT_EQ(keyDistance("ABC", "CA"), 3u);
    const std::vector<std::string> known = {"STARTJAHR", "ENDJAHR", "GAM", "ABEW", "ABEWGEM"};
    EXPECT_EQ(closestKey("STARTJHAR", known), "STARTJAHR");
    EXPECT_EQ(closestKey("ENDJAHRE", known), "ENDJAHR");
    EXPECT_EQ(closestKey("ABEWGM", known), "ABEWGEM");
    EXPECT_EQ(closestKey("ALT", known), "");      // short: two edits are no slip
    EXPECT_EQ(closestKey("NOTIZEN", known), "");
    EXPECT_EQ(closestKey("ENDJAHR", known), "");  // the key itself is no slip
}

TEST(VariantKeyCheck, WholeNumbers)
{
    EXPECT_TRUE(wholeInteger(" 2024 "));
    EXPECT_TRUE(wholeInteger("-3"));
    EXPECT_FALSE(wholeInteger("20x4"));
    EXPECT_FALSE(wholeInteger("1O1"));
    EXPECT_FALSE(wholeInteger("2024.0"));
    EXPECT_FALSE(wholeInteger(""));
    EXPECT_TRUE(wholeNumber("0,514"));
    EXPECT_TRUE(wholeNumber("1e-06"));
    EXPECT_FALSE(wholeNumber("0.5x"));
}

TEST(VariantKeyCheck, MisspeltKeysAndCutNumbersAreWarnedOnTheConsoleAndInTheProtocol)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nENDJHR_=2030\nGEHEIM=1\n"
                         "[METHODE]\nNAG=1O1\nNEUBAU=D0x\nGP=0.5q\n[DEFALTS]\nSTARTJAHR=2020\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0) << r.err;
    const char* const warnings[] = {
        "var/v.ini [METHODE] NAG=1O1 is not a whole number, read as 1",
        "var/v.ini [METHODE] GP=0.5q is not a whole number, read as 0.5",
        "var/v.ini [METHODE] NEUBAU=D0x is not a whole number, read as D0",
        "var/v.ini [DEFALTS]: unknown section, did you mean [DEFAULTS]?",
        "var/v.ini [DEFAULTS] ENDJHR_=2030: unknown key, did you mean ENDJAHR?",
    };
    std::string prot = s.read("var/v/prot/index.html");
    for (const char* w : warnings) {
        EXPECT_NE(r.out.find(std::string(w) + "\n"), std::string::npos) << w << "\n" << r.out;
        EXPECT_NE(prot.find(std::string(": ") + w + "</span>"), std::string::npos) << w;
    }
    // a key far from every known one is an obsolete entry as before, without a guess
    EXPECT_EQ(r.out.find("GEHEIM=1:"), std::string::npos);
    EXPECT_NE(prot.find("var/v.ini[DEFAULTS]GEHEIM=1 obsolete entry removed"), std::string::npos);
    // the value taken stands in the repaired file, the unknown keys as comments under the message
    std::string repaired = s.read("var/v.ini");
    EXPECT_NE(repaired.find("NAG=1O1"), std::string::npos);
    EXPECT_NE(repaired.find("; ENDJHR_: unknown key, did you mean ENDJAHR? (removed by the repair, kept as a comment)\n"
                            ";ENDJHR_=2030\n"),
              std::string::npos)
        << repaired;
    EXPECT_NE(repaired.find("\n;GEHEIM=1\n"), std::string::npos) << repaired;
    EXPECT_NE(repaired.find("\n;STARTJAHR=2020\n"), std::string::npos) << repaired;
    // a second run keeps them and has nothing left to say about them
    r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("unknown key"), std::string::npos);
    std::string again = s.read("var/v.ini");
    for (const char* kept : {";ENDJHR_=2030\n", ";GEHEIM=1\n", ";STARTJAHR=2020\n"})
        EXPECT_NE(again.find(kept), std::string::npos) << kept << "\n" << again;

    // the year that the settings reader takes from "20x4" is named, so the search for gem19.csv makes sense
    s.write("var/w.ini", "[DEFAULTS]\nSTARTJAHR=20x4\nENDJAHR=2024\n");
    r = s.run({"orvane", "-d", "var/", "-v", "w"});
    EXPECT_NE(r.out.find("var/w.ini [DEFAULTS] STARTJAHR=20x4 is not a whole number, read as 20\n"), std::string::npos)
        << r.out;
}

TEST(VariantKeyCheck, AKeyOneSlipFromAKnownOneStopsTheRunBeforeTheRepair)
{
    // the user's year would be replaced by the default and the run would fail far from the cause
    Sandbox s;
    const std::string ini = "[DEFAULTS]\nSTARTJHAR=2024\nENDJAHR=2024\n[METHODE]\nNEUBAU=D0\n";
    s.write("var/v.ini", ini);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("var/v.ini [DEFAULTS] STARTJHAR=2024: unknown key, did you mean STARTJAHR? The file is left "
                         "as it is and no forecast runs: correct the key"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(s.read("var/v.ini"), ini);
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));
}

TEST(VariantKeyCheck, AnErrorThatFollowsFromAFilledInDefaultNamesTheMissingKey)
{
    // without its start year the run takes the default and looks for a start population that
    // is not there: the message says which key was missing
    Sandbox s;
    for (int year : {2018, 2025}) std::remove(s.path("var/_variant/gem" + std::to_string(year) + ".csv").c_str());
    s.write("var/v.ini", "[DEFAULTS]\nENDJAHR=2030\n[METHODE]\nNEUBAU=D0\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    size_t open = r.out.find("gem2025.csv (mode r): ");
    ASSERT_NE(open, std::string::npos) << r.out;
    std::string line = r.out.substr(open, r.out.find('\n', open) - open);
    EXPECT_NE(line.find("; STARTJAHR=2026 "), std::string::npos) << line;
    EXPECT_NE(line.find(" var/v.ini"), std::string::npos) << line;
    // with the key given, no such note
    s.write("var/w.ini", "[DEFAULTS]\nSTARTJAHR=2019\nENDJAHR=2030\n[METHODE]\nNEUBAU=D0\n");
    r = s.run({"orvane", "-d", "var/", "-v", "w"});
    EXPECT_EQ(r.out.find("STARTJAHR=2026"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("gem2018.csv (mode r): "), std::string::npos) << r.out;
}

TEST(VariantKeyCheck, EveryErrorThatFollowsFromAFilledInDefaultNamesItsKey)
{
    // each variant lacks a key whose default leads to an error (or, for the years, to an empty
    // forecast); with the key given the same message comes without naming it
    time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    const std::string year = std::to_string(local.tm_year + 1900);
    struct Case {
        const char* variant;
        std::string ini, given;
        std::vector<std::string> args;
        int status;
        std::string said;       // on the console, or in the protocol for a hint
        std::string named;      // the part that names the key
    };
    const std::vector<Case> cases = {
        // the default of NAG makes age 150 of the start population fall outside the table
        {"ages", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n[METHODE]\nNAG=100\n",
         {}, 1, "2023,1..maxNGZ,1..2,1..2,0..99,float; NAG=100 als Vorgabe ergänzt, der Schlüssel fehlte in var/ages.ini",
         "NAG=100"},
        // the default years find no section of the death target
        {"years", "[METHODE]\nSTERBEECKWERT=S1\n",
         "[DEFAULTS]\nSTARTJAHR=" + year + "\nENDJAHR=" + year + "\n[METHODE]\nSTERBEECKWERT=S1\n", {}, 1,
         "eckstrb.csv: kein Abschnitt für das Jahr " + year + "; STARTJAHR=" + year + ", ENDJAHR=" + year +
             " als Vorgaben ergänzt, die Schlüssel fehlten in var/years.ini",
         "STARTJAHR="},
        // new building without the key of the population movements, which then default to T0
        {"modules", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\n[METHODE]\nNEUBAU=D1\n",
         "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\n[METHODE]\nNEUBAU=D1\nBEVOELKERUNGSBEWEGUNGEN=T0\n", {"-l", "en"}, 1,
         "&& _(V_0) && C.NTYA == 1; BEVOELKERUNGSBEWEGUNGEN=T0 filled in as a default, the key was missing in "
         "var/modules.ini",
         "BEVOELKERUNGSBEWEGUNGEN=T0"},
        // an end year before the default start year
        {"empty", "[DEFAULTS]\nENDJAHR=2020\n", "[DEFAULTS]\nSTARTJAHR=" + year + "\nENDJAHR=2020\n", {}, 0,
         "leere Prognose: Startjahr " + year + " liegt nach Endjahr 2020; STARTJAHR=" + year +
             " als Vorgabe ergänzt, der Schlüssel fehlte in var/empty.ini",
         "STARTJAHR=" + year + " als"},
    };
    Sandbox s;
    s.write("var/ages/gem2023.csv", "2023,1,1,1,150,1\n");
    s.write("var/eckstrb.csv", "2019..2024,22\n");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.variant);
        for (bool lacking : {true, false}) {
            s.write(std::string("var/") + c.variant + ".ini", lacking ? c.ini : c.given);
            std::vector<std::string> args = {"orvane", "-d", "var/", "-v", c.variant};
            args.insert(args.end(), c.args.begin(), c.args.end());
            RunResult r = s.run(args);
            EXPECT_EQ(r.status, c.status) << r.out;
            const std::string seen = r.out + s.read(std::string("var/") + c.variant + "/prot/index.html");
            EXPECT_NE(seen.find(c.said.substr(0, c.said.find(';'))), std::string::npos) << r.out;
            if (lacking)
                EXPECT_NE(seen.find(c.said), std::string::npos) << r.out;
            else
                EXPECT_EQ(seen.find(c.named), std::string::npos) << r.out;
        }
    }
}

} // namespace
