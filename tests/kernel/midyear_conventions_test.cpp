// The conventions of the mean of the year on one region worked by hand: 1000 women of age 1 with
// a fertility of 0.1, death rates 0.02, 0.01, 0.05 by age, out-migration 0.1, group change 1 -> 2
// of 0.05, 60 women arriving (K6). Births on the mean of the women at the start and the end of the
// year, movers exposed for half the year (two thirds for the new-born), both together, and
// neither; the births column of bew.csv; and the hint that says why zuvol.csv is read under K6.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area(bool withZuvol = true)
    {
        write("Data/veldor.ini", SETTINGS);
        write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nAUSGABE_PROTOKOLL=1\nABEW=1\nABEWGEM=1\n"
                           "[METHODE]\nNAG=3\nNGG=2\nNBG=2\nNTYA=1\nGP=0.5\nGRND=1\nBEVOELKERUNGSBEWEGUNGEN=T1\n"
                           "AUSSENWANDERUNGSDATEN=K6\nBEVGRPWECHSEL=W1\n");
        write("var/reftyp.csv", "1;A;1;1;1;1;1;1;1;1;1;1;1\n");
        write("var/v/gem2023.csv", "2023;1;1;2;0;1000\n");
        write("var/fruc2024.csv", "1;1;1;0.1\n");
        write("var/strb2024.csv", "1;*;*;0;0.02\n1;*;*;1;0.01\n1;*;*;2;0.05\n");
        write("var/wegz2024.csv", "1;1;*;*;*;0.1\n");
        write("var/bgwr2024.csv", "1;1;2;*;*;0.05\n");
        write("var/zuvg2024.csv", "2024;1;1;1;2;1;60\n");
        if (withZuvol) write("var/zuvol.csv", "2024;*;*;*;1\n");
    }
    RunResult run(const std::string& options) const
    {
        std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
        if (!options.empty()) args.insert(args.end(), {"-o", options});
        return Sandbox::run(args);
    }
};

double at(const Table& t, int bg, int gg, int ag)
{
    auto it = t.find({1, bg, gg, ag});
    return it == t.end() ? 0.0 : it->second;
}

// the last cell of the bew.csv line of a cohort: the births
double birthsOf(const Sandbox& s, const std::string& start)
{
    std::istringstream in(s.read("var/v/bew.csv"));
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(start, 0) == 0) {
            std::string last = line.substr(line.rfind(';') + 1);
            for (char& c : last)
                if (c == ',') c = '.';
            return std::stod(last);
        }
    return -1;
}

} // namespace

TEST(MidyearConventions, BirthsOnTheMeanAndMoversExposedForHalfTheYearAsWorkedByHand)
{
    struct Case {
        const char* options;
        double women1, women2, boys1, boys2, births;
    };
    // women of group 1: 1000 - deaths - 100 out - 50 to group 2 + 60 in; their deaths 0.01 * 1000, or
    // exposed 0.01 * (1000 - 150 / 2) + 0.05 * 60 / 2 = 10.75; the new-born boys of group 1: births
    // / 2 less deaths, 10 % out, 5 % to group 2; exposed 0.02 * (B - 2/3 * 0.15 B); group 2 boys
    // 0.05 B, exposed less 0.01 * 2/3 of it
    const Case cases[] = {
        {"", 900, 50, 41.5, 2.5, 50},
        {"option($MIDYEAR_EXPOSURE 1)", 899.25, 48.75, 41.6, 2.5 - 0.01 * 2.0 / 3.0 * 2.5, 50},
        {"option($MIDYEAR_BIRTHS 1)", 900, 50, 39.425, 2.375, 47.5},
        {"option($MIDYEAR_BIRTHS 1) option($MIDYEAR_EXPOSURE 1)", 899.25, 48.75,
         47.48125 - 0.02 * (47.48125 - 2.0 / 3.0 * 0.15 * 47.48125) - 0.15 * 47.48125,
         0.05 * 47.48125 * (1 - 0.01 * 2.0 / 3.0), 47.48125},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        Area s;
        RunResult r = s.run(c.options);
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        Table end = gemOf(s, 2024);
        EXPECT_NEAR(at(end, 1, 2, 1), c.women1, 1e-9);
        EXPECT_NEAR(at(end, 2, 2, 1), c.women2, 1e-9);
        EXPECT_NEAR(at(end, 1, 1, 0), c.boys1, 1e-9);
        EXPECT_NEAR(at(end, 2, 1, 0), c.boys2, 1e-9);
        // girls as boys (GP 0.5)
        EXPECT_NEAR(at(end, 1, 2, 0), c.boys1, 1e-9);
        EXPECT_NEAR(birthsOf(s, "2024;1;1;1;0"), c.births, 1e-9);
    }
}

TEST(MidyearConventions, UnderK6AMissingZuvolIsReadAllTheSameAndAHintSaysWhy)
{
    Area s(false);
    RunResult r = s.run("");
    EXPECT_EQ(r.status, 1);
    std::string protocol = s.read("var/v/prot.tmp");
    EXPECT_NE(protocol.find("Baustein K6: die Zuzüge je Gebiet kommen aus zuvg; zuvol.csv wird trotzdem gelesen"),
              std::string::npos)
        << protocol;
    EXPECT_NE(protocol.find("zuvol.csv"), protocol.rfind("zuvol.csv")) << protocol;
}
