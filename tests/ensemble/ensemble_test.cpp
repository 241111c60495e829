// Forecast ensembles end to end on a small area of whole persons: the files an ensemble writes,
// the seeds of its members, quantiles checked against an independent calculation, the same
// numbers whatever the number of members at once, a member that fails, and the statistics of
// the draws (the mean approaching the deterministic forecast, the spread of the births).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <cmath>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ensemble/cluster.h"
#include "ensemble/ensemble_driver.h"
#include "ensemble/member_summary.h"
#include "ensemble/quantiles.h"
#include "tables/expression.h"
#include "tests/sandbox.h"

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=0\n";

// regions 1..n, one group and one sex, ages 0 to 3: 100 women of age 1 at the end of 2023, who
// bear at ages 2 and 3 with the rate 0.4 (half of the children count) and do not die. So the
// births of a region in 2024 and 2025 are each drawn from 100 women with probability 0.2.
struct Area : Sandbox {
    explicit Area(int regions, const std::string& methode = "")
    {
        write("Data/veldor.ini", SETTINGS);
        write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=1\nDIFF_G=1\n[METHODE]\nNAG=4\n"
                           "NGG=1\nNBG=1\nNTYA=1\nGRND=1\n" + methode);
        std::string ref = "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n";
        for (int k = 1; k <= regions; ++k) ref += std::to_string(k) + ";G;1;1;1;1;1;1;1;1;1;1;1\n";
        write("var/reftyp.csv", ref);
        write("var/gem2023.csv", "2023;1.." + std::to_string(regions) + ";1;1;1;100\n");
        write("var/fruc2024.csv", "1;1;2..3;0.4\n");
        write("var/strb2024.csv", "1;1;1;0..3;0\n");
    }
    RunResult ensemble(int members, int jobs) const
    {
        return run({"orvane", "-d", "var/", "-v", "v", "-j", std::to_string(jobs), "-o",
                    "option($ENSEMBLE " + std::to_string(members) + ")"});
    }
};

using Rows = std::vector<std::vector<std::string>>;

// a plain table: header and rows of cells
Rows plain(const std::string& text, std::string* header = nullptr)
{
    Rows rows;
    std::istringstream in(text);
    std::string line;
    bool first = true;
    while (std::getline(in, line)) {
        if (first) {
            if (header) *header = line;
            first = false;
            continue;
        }
        std::vector<std::string> cells;
        std::stringstream ls(line);
        std::string cell;
        while (std::getline(ls, cell, ',')) cells.push_back(cell);
        rows.push_back(cells);
    }
    return rows;
}

// the value of a key (the cells before the last) in a member's summary
std::map<std::string, double> summary(const std::string& text)
{
    std::map<std::string, double> m;
    for (const auto& r : plain(text)) {
        std::string key;
        for (size_t i = 0; i + 1 < r.size(); ++i) key += r[i] + ",";
        m[key] = std::stod(r.back());
    }
    return m;
}

std::string memberFile(int i, const char* table)
{
    char name[64];
    snprintf(name, sizeof name, "var/v/ensemble/member%04d_%s.bin", i, table);
    return name;
}

// a summary (key table and values file) as the plain table it stands for
std::string summaryText(const Sandbox& s, const std::string& keys, const std::string& values)
{
    const SummaryTable t = values.find("_population") != std::string::npos ? SummaryTable::Population
                                                                            : SummaryTable::Components;
    std::string error;
    EXPECT_TRUE(writeSummaryText(t, s.path(keys), s.path(values), s.path("summary.txt"), error)) << error;
    return s.read("summary.txt");
}

// the plain table of a member's summary
std::string memberText(const Sandbox& s, int i, const char* table)
{
    return summaryText(s, std::string("var/v/ensemble/summary_") + table + "_keys.csv", memberFile(i, table));
}

// the births of every region and year of members 1..n: key -> values
std::map<std::string, std::vector<double>> birthsOf(const Sandbox& s, int n)
{
    std::map<std::string, std::vector<double>> b;
    for (int i = 1; i <= n; ++i)
        for (const auto& [key, v] : summary(memberText(s, i, "components")))
            if (key.find(",births,") != std::string::npos && key.find(",all,") == std::string::npos &&
                key.find(",agg") == std::string::npos)
                b[key].push_back(v);
    return b;
}

} // namespace

TEST(Ensemble, WritesSummariesQuantilesAndThePageAndKeepsTheVariantsOwnResults)
{
    Area s(3);
    RunResult r = s.ensemble(6, 2);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    // the variant's own forecast stands as if run alone
    EXPECT_TRUE(s.exists("var/v/gem2025.csv"));
    EXPECT_TRUE(s.exists("var/v/prot/index.html"));

    // members: the deterministic forecast and six members, each seed from the variant's and i alone
    Rows members = plain(s.read("var/v/ensemble/members.csv"));
    ASSERT_EQ(members.size(), 7u);
    EXPECT_EQ(members[0], (std::vector<std::string>{"deterministic", "0", "ok"}));
    for (int i = 1; i <= 6; ++i) {
        EXPECT_EQ(members[size_t(i)][1], std::to_string(memberSeed(5489, i)));
        EXPECT_EQ(members[size_t(i)][2], "ok");
    }
    EXPECT_NE(memberSeed(5489, 1), memberSeed(5489, 2));
    EXPECT_NE(memberSeed(5489, 1), memberSeed(5490, 1));
    EXPECT_LT(memberSeed(5489, 1), 1ULL << 53);
    // the members' work is gone, their summaries stay
    EXPECT_FALSE(s.exists("var/v/ensemble/work"));

    // every member keeps the accounts: population change = births - deaths + moves in - moves out;
    // the study area is the sum of its regions
    for (int i = 1; i <= 6; ++i) {
        auto pop = summary(memberText(s, i, "population"));
        auto comp = summary(memberText(s, i, "components"));
        for (int y : {2024, 2025}) {
            std::string Y = std::to_string(y), P = std::to_string(y - 1);
            double regions = 0;
            for (int z = 1; z <= 3; ++z) {
                std::string Z = std::to_string(z);
                double change = pop[Y + "," + Z + ",all,all,all,"] - pop[P + "," + Z + ",all,all,all,"];
                double births = comp[Y + "," + Z + ",births,"];
                EXPECT_EQ(change, births - comp[Y + "," + Z + ",deaths,"] + comp[Y + "," + Z + ",moves_in,"] -
                                      comp[Y + "," + Z + ",moves_out,"]);
                EXPECT_EQ(births, std::floor(births)) << "whole persons";
                // ages 0 to 3 all stand in the first age band: the women and their children
                EXPECT_EQ(pop[Y + "," + Z + ",1,1,0,"], 100 + births + (y == 2025 ? comp["2024," + Z + ",births,"] : 0));
                regions += pop[Y + "," + Z + ",all,all,all,"];
            }
            EXPECT_EQ(pop[Y + ",all,all,all,all,"], regions);
            EXPECT_EQ(pop[Y + ",agg1,all,all,all,"], regions);
        }
    }

    // the quantile table: one header, a row per key, quantiles checked by hand for one key
    std::string header;
    Rows q = plain(s.read("var/v/ensemble/ensemble_quantiles.csv"), &header);
    EXPECT_EQ(header, "year,area,group,sex,age_band,mean,q05,q10,q25,q50,q75,q90,q95");
    ASSERT_FALSE(q.empty());
    EXPECT_EQ(q.front(), (std::vector<std::string>{"2023", "all", "all", "all", "all", "300", "300", "300", "300",
                                                     "300", "300", "300", "300"}));
    for (const auto& row : q) {
        ASSERT_EQ(row.size(), 13u);
        for (size_t c = 7; c < 13; ++c) EXPECT_LE(std::stod(row[c - 1]), std::stod(row[c]));
    }
    std::vector<double> v;
    for (int i = 1; i <= 6; ++i) v.push_back(summary(memberText(s, i, "population"))["2025,all,all,all,all,"]);
    std::sort(v.begin(), v.end());
    // linear between order statistics: h = 5p; q25 = x1 + 0.25 (x2 - x1), q50 = (x2 + x3) / 2
    auto row = std::find_if(q.begin(), q.end(), [](const auto& r) { return r[0] == "2025" && r[1] == "all" && r[2] == "all"; });
    ASSERT_NE(row, q.end());
    double mean = (v[0] + v[1] + v[2] + v[3] + v[4] + v[5]) / 6;
    EXPECT_NEAR(std::stod((*row)[5]), mean, 1e-9);
    EXPECT_NEAR(std::stod((*row)[6]), v[0] + 0.25 * (v[1] - v[0]), 1e-9);
    EXPECT_NEAR(std::stod((*row)[8]), v[1] + 0.25 * (v[2] - v[1]), 1e-9);
    EXPECT_NEAR(std::stod((*row)[9]), (v[2] + v[3]) / 2, 1e-9);
    EXPECT_NEAR(std::stod((*row)[12]), v[4] + 0.75 * (v[5] - v[4]), 1e-9);

    Rows c = plain(s.read("var/v/ensemble/ensemble_components_quantiles.csv"), &header);
    EXPECT_EQ(header, "year,area,component,mean,q05,q10,q25,q50,q75,q90,q95");
    // the deterministic forecast: 3 regions of 100 women, 20 children each a year
    auto det = summary(s.read("var/v/ensemble/deterministic_components.csv"));
    EXPECT_EQ(det["2024,all,births,"], 60);
    EXPECT_EQ(summary(s.read("var/v/ensemble/deterministic_population.csv"))["2025,all,all,all,all,"], 420);

    // the page, linked from the results overview of the protocol, and its pictures
    EXPECT_NE(s.read("var/v/prot/results.htm").find("<a href=\"ensemble.html\">"), std::string::npos);
    EXPECT_EQ(s.read("var/v/prot/results.htm").find("scenarios.html"), std::string::npos);
    std::string page = s.read("var/v/prot/ensemble.html");
    for (const char* picture : {"ensemble_all_population", "ensemble_all_births", "ensemble_all_net_migration",
                                "ensemble_agg1_population", "ensemble_pyramid"}) {
        EXPECT_NE(page.find(std::string("src=\"") + picture + ".png\""), std::string::npos) << picture;
        EXPECT_TRUE(s.exists(std::string("var/v/prot/") + picture + ".png")) << picture;
    }
}

TEST(Ensemble, AForecastOfOnlyItsSummaryWritesNoResultTables)
{
    // deterministic: each region's 100 women bear 20 children a year, nobody dies or moves
    Area s(2);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-o", "option($SUMMARY_ONLY 1)"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_FALSE(s.exists("var/v/gem2025.csv"));
    EXPECT_FALSE(s.exists("var/v/bewgem.csv"));
    EXPECT_FALSE(s.exists("var/v/agg.csv"));
    // the key tables, and the values: a header and per year its label and a float64 per key
    EXPECT_EQ(s.read("var/v/summary_components_keys.csv"),
              "area,component,always\nall,births,1\nall,deaths,1\nall,moves_in,1\nall,moves_out,1\nall,net_migration,1\n"
              "agg1,births,1\nagg1,deaths,1\nagg1,moves_in,1\nagg1,moves_out,1\nagg1,net_migration,1\n"
              "1,births,1\n1,deaths,1\n1,moves_in,1\n1,moves_out,1\n1,net_migration,1\n"
              "2,births,1\n2,deaths,1\n2,moves_in,1\n2,moves_out,1\n2,net_migration,1\n");
    EXPECT_EQ(s.read("var/v/summary_population_keys.csv"),
              "area,group,sex,age_band,always\nall,all,all,all,1\nall,all,1,0,1\nall,1,1,0,0\n"
              "agg1,all,all,all,1\nagg1,1,1,0,0\n1,all,all,all,1\n1,1,1,0,0\n2,all,all,all,1\n2,1,1,0,0\n");
    const std::string values = s.read("var/v/summary_components.bin");
    ASSERT_EQ(values.size(), 24u + 2 * 8 * (1 + 20));
    EXPECT_EQ(values.substr(0, 8), "VELDSUM1");
    uint64_t keys = 0, hash = 0;
    int64_t year = 0;
    double births = 0;
    memcpy(&keys, values.data() + 8, 8);
    memcpy(&hash, values.data() + 16, 8);
    memcpy(&year, values.data() + 24 + 8 * 21, 8);
    memcpy(&births, values.data() + 24 + 8 * 21 + 8 * 11, 8);
    EXPECT_EQ(keys, 20u);
    EXPECT_EQ(hash, fnv1a(s.read("var/v/summary_components_keys.csv")));
    EXPECT_EQ(year, 2025);
    EXPECT_EQ(births, 20);   // 2025, region 1
    EXPECT_EQ(summaryText(s, "var/v/summary_population_keys.csv", "var/v/summary_population.bin").substr(0, 40),
              "year,area,group,sex,age_band,population\n");
    EXPECT_EQ(summaryText(s, "var/v/summary_components_keys.csv", "var/v/summary_components.bin"),
              "year,area,component,value\n"
              "2024,all,births,40\n2024,all,deaths,0\n2024,all,moves_in,0\n2024,all,moves_out,0\n2024,all,net_migration,0\n"
              "2024,agg1,births,40\n2024,agg1,deaths,0\n2024,agg1,moves_in,0\n2024,agg1,moves_out,0\n2024,agg1,net_migration,0\n"
              "2024,1,births,20\n2024,1,deaths,0\n2024,1,moves_in,0\n2024,1,moves_out,0\n2024,1,net_migration,0\n"
              "2024,2,births,20\n2024,2,deaths,0\n2024,2,moves_in,0\n2024,2,moves_out,0\n2024,2,net_migration,0\n"
              "2025,all,births,40\n2025,all,deaths,0\n2025,all,moves_in,0\n2025,all,moves_out,0\n2025,all,net_migration,0\n"
              "2025,agg1,births,40\n2025,agg1,deaths,0\n2025,agg1,moves_in,0\n2025,agg1,moves_out,0\n2025,agg1,net_migration,0\n"
              "2025,1,births,20\n2025,1,deaths,0\n2025,1,moves_in,0\n2025,1,moves_out,0\n2025,1,net_migration,0\n"
              "2025,2,births,20\n2025,2,deaths,0\n2025,2,moves_in,0\n2025,2,moves_out,0\n2025,2,net_migration,0\n");
    // the small tool of the README reads the same tables
    for (const char* table : {"population", "components"}) {
        const std::string keys = std::string("var/v/summary_") + table + "_keys.csv",
                          bin = std::string("var/v/summary_") + table + ".bin";
        const std::string cmd = "python3 '" VELDOR_SOURCE_DIR "/scripts/summary_table.py' '" + s.path(keys) + "' '" +
                                s.path(bin) + "' > '" + s.path("tool.txt") + "'";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        EXPECT_EQ(s.read("tool.txt"), summaryText(s, keys, bin)) << table;
    }
    auto pop = summary(summaryText(s, "var/v/summary_population_keys.csv", "var/v/summary_population.bin"));
    EXPECT_EQ(pop["2023,all,all,all,all,"], 200);
    EXPECT_EQ(pop["2023,all,all,1,0,"], 200);
    EXPECT_EQ(pop["2025,agg1,all,all,all,"], 280);
    EXPECT_EQ(pop["2025,2,1,1,0,"], 140);
    EXPECT_EQ(pop.size(), 3u * (3 + 2 + 2 * 2));   // a year: all (total, sex, cell), agg1 and 2 regions (total, cell)
}

TEST(Ensemble, TheSameNumbersWhateverTheMembersAtOnce)
{
    Area s(2);
    // the start population in the variant's own directory: the members find it there
    s.write("var/v/gem2023.csv", s.read("var/gem2023.csv"));
    std::filesystem::remove(s.path("var/gem2023.csv"));
    ASSERT_EQ(s.ensemble(5, 1).status, 0);
    std::string q1 = s.read("var/v/ensemble/ensemble_quantiles.csv");
    std::string c1 = s.read("var/v/ensemble/ensemble_components_quantiles.csv");
    ASSERT_EQ(s.ensemble(5, 3).status, 0);
    EXPECT_EQ(s.read("var/v/ensemble/ensemble_quantiles.csv"), q1);
    EXPECT_EQ(s.read("var/v/ensemble/ensemble_components_quantiles.csv"), c1);
    // the members drew differently
    EXPECT_NE(memberText(s, 1, "components"), memberText(s, 2, "components"));
}

TEST(Ensemble, AFailedMemberIsNamedWithItsSeedAndTheOthersAreKept)
{
    // a birth target that fails for the first member's seed only (8091218750247260 from 5489)
    Area s(2, "GEBURTENECKWERT=G1\n");
    s.write("var/eckgeb.csv", "2024..2025;if(gt(option($SEED) 8e15) (0-1) 40)\n");
    ASSERT_GT(memberSeed(5489, 1), 8000000000000000ULL);
    for (int i = 2; i <= 4; ++i) ASSERT_LT(memberSeed(5489, i), 8000000000000000ULL);
    RunResult r = s.ensemble(4, 2);
    EXPECT_EQ(r.status, 1);
    std::string named = "Ensemble-Lauf member0001 (Startwert " + std::to_string(memberSeed(5489, 1)) +
                        ") fehlgeschlagen: Fehler in der Datei eckgeb.csv: Geburteneckwert muss positiv sein";
    EXPECT_NE(r.err.find(named), std::string::npos) << r.err;
    Rows members = plain(s.read("var/v/ensemble/members.csv"));
    ASSERT_EQ(members.size(), 5u);
    EXPECT_EQ(members[1][2], "failed");
    EXPECT_EQ(members[1][3], "Fehler in der Datei eckgeb.csv: Geburteneckwert muss positiv sein");
    // the others are gathered; the failed member's directory stays for its protocol
    EXPECT_TRUE(s.exists("var/v/ensemble/work/member0001/prot/index.html"));
    EXPECT_FALSE(s.exists(memberFile(1, "population")));
    EXPECT_TRUE(s.exists(memberFile(4, "population")));
    EXPECT_TRUE(s.exists("var/v/ensemble/ensemble_quantiles.csv"));
    EXPECT_NE(s.read("var/v/prot/ensemble.html").find("fehlgeschlagen: 1"), std::string::npos);
}

TEST(Ensemble, UnderTheDifferentialEquationsTheComponentsAreSaidToBeMissing)
{
    // one region, 100 men and 200 women, no births, deaths at 5 % a year
    Area s(1);
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2025\nAUSGABE_PROTOKOLL=1\n[METHODE]\nNAG=2\nNGG=2\nNBG=1\n"
                         "NTYA=1\nGRND=1\nGP=0.5\n");
    s.write("var/gem2023.csv", "2023;1;1;1;1;100\n2023;1;1;2;1;200\n");
    s.write("var/fruc2024.csv", "1;1;0..1;0\n");
    s.write("var/strb2024.csv", "1;1;1..2;0..1;0.05\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v", "-l", "en", "-o", "option($ENSEMBLE 3) option($ODE 1)"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string said = "Components of change are not available under $ODE";
    EXPECT_NE(r.out.find("ensemble: " + said), std::string::npos) << r.out;
    EXPECT_NE(s.read("var/v/prot/ensemble.html").find(said), std::string::npos);
    EXPECT_EQ(s.read("var/v/ensemble/ensemble_components_quantiles.csv"), "year,area,component,mean,q05,q10,q25,q50,q75,q90,q95\n");
    // the population is there: 300 persons less 5 % a year (Euler: exactly 0.95 a year)
    Rows q = plain(s.read("var/v/ensemble/ensemble_quantiles.csv"));
    auto row = std::find_if(q.begin(), q.end(), [](const auto& r) { return r[0] == "2025" && r[1] == "all" && r[2] == "all"; });
    ASSERT_NE(row, q.end());
    EXPECT_NEAR(std::stod((*row)[5]), 300 * 0.95 * 0.95, 1e-9);
}

TEST(EnsembleQuantiles, StreamTheMembersValuesAndNameASummaryOfAnotherKeyTable)
{
    Sandbox s;
    const std::string keys = "area,group,sex,age_band,always\nall,all,all,all,1\n1,1,1,0,0\n1,2,1,0,0\n";
    s.write("keys.csv", keys);
    // a values file: the header, then per year the year and a value per key
    auto values = [&](const std::string& name, const std::vector<std::pair<int64_t, std::vector<double>>>& years,
                      uint64_t count = 3) {
        std::string b = "VELDSUM1";
        const uint64_t hash = fnv1a(keys);
        b.append(reinterpret_cast<const char*>(&count), 8).append(reinterpret_cast<const char*>(&hash), 8);
        for (const auto& [year, v] : years)
            b.append(reinterpret_cast<const char*>(&year), 8).append(reinterpret_cast<const char*>(v.data()), 8 * v.size());
        s.write(name, b);
        return s.path(name);
    };
    // four members; the cell of group 2 is 0 in every member in 2024: no row
    std::vector<std::string> members = {values("m1.bin", {{2024, {10, 4, 0}}, {2025, {12, 4, 1}}}),
                                        values("m2.bin", {{2024, {20, 4, 0}}, {2025, {10, 4, 0}}}),
                                        values("m3.bin", {{2024, {30, 4, 0}}, {2025, {14, 4, 0}}}),
                                        values("m4.bin", {{2024, {40, 4, 0}}, {2025, {16, 4, 0}}})};
    std::string error;
    ASSERT_TRUE(writeQuantiles(SummaryTable::Population, s.path("keys.csv"), members, s.path("q.csv"), error)) << error;
    // 10 20 30 40: h = 3p; q05 = 10 + 0.15 * 10, q25 = 17.5, q50 = 25, q95 = 30 + 0.85 * 10 (the
    // figures of the rule worked out independently, the last digits those of doubles)
    EXPECT_EQ(s.read("q.csv"), "year,area,group,sex,age_band,mean,q05,q10,q25,q50,q75,q90,q95\n"
                               "2024,all,all,all,all,25,11.5,13,17.5,25,32.5,37,38.5\n"
                               "2024,1,1,1,0,4,4,4,4,4,4,4,4\n"
                               "2025,all,all,all,all,13,10.3,10.6,11.5,13,14.5,15.4,15.7\n"
                               "2025,1,1,1,0,4,4,4,4,4,4,4,4\n"
                               "2025,1,2,1,0,0.25,0,0,0,0,0.25,0.7,0.85\n");
    // a member of another key table, one cut short and one of another year are named
    members.push_back(values("m5.bin", {{2024, {1, 2}}, {2025, {1, 2}}}, 2));
    EXPECT_FALSE(writeQuantiles(SummaryTable::Population, s.path("keys.csv"), members, s.path("q.csv"), error));
    EXPECT_EQ(error, s.path("m5.bin") + ": 2 keys of another key table than the ensemble's (3 keys)");
    members.back() = values("m5.bin", {{2024, {1, 2, 3}}});
    s.write("m5.bin", s.read("m5.bin").substr(0, 40));
    EXPECT_FALSE(writeQuantiles(SummaryTable::Population, s.path("keys.csv"), members, s.path("q.csv"), error));
    EXPECT_EQ(error, s.path("m5.bin") + ": 40 bytes, a year cut short");
    members.back() = values("m5.bin", {{2024, {1, 2, 3}}, {2026, {1, 2, 3}}});
    EXPECT_FALSE(writeQuantiles(SummaryTable::Population, s.path("keys.csv"), members, s.path("q.csv"), error));
    EXPECT_EQ(error, s.path("m5.bin") + ": year 2026 where " + s.path("m1.bin") + " has 2025");
    // the table of the earlier call stays as it was
    EXPECT_NE(s.read("q.csv").find("2025,1,2,1,0,0.25"), std::string::npos);
}

TEST(EnsembleStatistics, TheMeanApproachesTheForecastAndBirthsSpreadAsBinomialDraws)
{
    // 20 regions, 2 years: 40 cells of births, each drawn from 100 women with p = 0.2
    Area s(20);
    RunResult r = s.ensemble(256, 2);
    ASSERT_EQ(r.status, 0) << r.err;
    auto births = birthsOf(s, 256);
    ASSERT_EQ(births.size(), 40u);
    // the error of the mean against the deterministic 20, over all cells, with the first 64
    // members (an ensemble of 64 of the same seed) and with all 256
    auto error = [&](size_t n) {
        double sq = 0;
        for (const auto& [key, v] : births) {
            double mean = 0;
            for (size_t i = 0; i < n; ++i) mean += v[i];
            mean /= double(n);
            sq += (mean - 20) * (mean - 20);
        }
        return std::sqrt(sq / double(births.size()));
    };
    double e64 = error(64), e256 = error(256);
    std::printf("error of the mean: %g with 64 members, %g with 256\n", e64, e256);
    // expected: sqrt(16 / n), 0.5 and 0.25; the ratio 0.5 within the noise of 40 cells
    EXPECT_LT(e256, 0.5 * e64 * 1.3) << e64 << " " << e256;
    EXPECT_LT(e256, 0.25 * 1.5);
    // the variance of the births of one region and year: 100 * 0.2 * 0.8 = 16
    double pooled = 0;
    for (const auto& [key, v] : births) {
        double m = 0, var = 0;
        for (double x : v) m += x;
        m /= double(v.size());
        for (double x : v) var += (x - m) * (x - m);
        var /= double(v.size() - 1);
        // one cell of 256 draws: within about four standard errors (sqrt(2/255) * 16 = 1.4)
        EXPECT_NEAR(var, 16, 6) << key;
        pooled += var;
    }
    std::printf("variance of the births of a region and year: %g (binomial 16)\n", pooled / 40);
    // all 40 cells together: standard error about 0.22
    EXPECT_NEAR(pooled / 40, 16, 1.0);
}

TEST(EnsembleCluster, OneRankAndTwoRanksWriteTheSameQuantiles)
{
    if (!clusterBuiltIn() || std::system("command -v mpirun >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "built without MPI or no mpirun";
    Area s(4);
    auto mpirun = [&](int ranks) {
        std::string cmd = "cd '" + s.root() + "' && env -u LC_ALL LANG=C.UTF-8 XDG_CONFIG_HOME='" + s.root() +
                          "/cfg' OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 mpirun -np " +
                          std::to_string(ranks) + " --oversubscribe ./App/orvane orvane -d var/ -v v -o " +
                          "'option($ENSEMBLE 5)' >.mpi.out 2>&1 </dev/null";
        return std::system(cmd.c_str());
    };
    ASSERT_EQ(mpirun(1), 0) << s.read(".mpi.out");
    std::string q1 = s.read("var/v/ensemble/ensemble_quantiles.csv");
    std::string c1 = s.read("var/v/ensemble/ensemble_components_quantiles.csv");
    ASSERT_EQ(mpirun(2), 0) << s.read(".mpi.out");
    EXPECT_NE(s.read(".mpi.out").find("2 Ränge"), std::string::npos);
    EXPECT_EQ(s.read("var/v/ensemble/ensemble_quantiles.csv"), q1);
    EXPECT_EQ(s.read("var/v/ensemble/ensemble_components_quantiles.csv"), c1);
    // and without the launcher, the same
    ASSERT_EQ(s.ensemble(5, 2).status, 0);
    EXPECT_EQ(s.read("var/v/ensemble/ensemble_quantiles.csv"), q1);
    // rank 1's members reached rank 0
    EXPECT_EQ(plain(s.read("var/v/ensemble/members.csv")).size(), 6u);
}

TEST(Scenarios, FurtherVariantsRunAsIfAloneAndAreComparedWithTheFirst)
{
    // v with 100 women per region; its scenario w has 150 (its own start population)
    Area s(2);
    s.write("var/v.ini", s.read("var/v.ini") + "[SZENARIEN]\n1=w\n");
    s.write("var/w.ini", s.read("var/v.ini").substr(0, s.read("var/v.ini").find("[SZENARIEN]")));
    s.write("var/w/gem2023.csv", "2023;1..2;1;1;1;150\n");
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    // the section stays in the variant file
    EXPECT_NE(s.read("var/v.ini").find("[SZENARIEN]\n1=w"), std::string::npos);
    // the scenario's results are those of a run of it alone
    std::string together = s.read("var/w/gem2025.csv");
    ASSERT_EQ(s.run({"orvane", "-d", "var/", "-v", "w"}).status, 0);
    auto data = [](const std::string& t) { return t.substr(t.find('\n', t.find('\n') + 1)); };
    EXPECT_EQ(data(s.read("var/w/gem2025.csv")), data(together));
    // 2 regions of 100 (150) women and 20 (30) children a year each
    std::string header;
    Rows rows = plain(s.read("var/v/scenarios.csv"), &header);
    EXPECT_EQ(header, "year,area,variant,population,difference");
    std::map<std::string, std::pair<std::string, std::string>> at;
    for (const auto& row : rows) at[row[0] + "," + row[1] + "," + row[2]] = {row[3], row[4]};
    EXPECT_EQ(at["2025,all,v"], std::make_pair(std::string("280"), std::string("0")));
    EXPECT_EQ(at["2025,all,w"], std::make_pair(std::string("420"), std::string("140")));
    EXPECT_EQ(at["2023,agg1,w"], std::make_pair(std::string("300"), std::string("100")));
    std::string page = s.read("var/v/prot/scenarios.html");
    EXPECT_NE(s.read("var/v/prot/results.htm").find("<a href=\"scenarios.html\">"), std::string::npos);
    EXPECT_NE(page.find("src=\"scenarios_all.png\""), std::string::npos);
    EXPECT_NE(page.find("src=\"scenarios_agg1.png\""), std::string::npos);
    // a scenario that fails is named, the comparison keeps the others
    std::string ini = s.read("var/v.ini");
    ini.replace(ini.find("1=w\n"), 4, "1=w\n2=nowhere\n");
    s.write("var/v.ini", ini);
    r = s.run({"orvane", "-d", "var/", "-v", "v"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Szenario nowhere fehlgeschlagen: Exit-Status 1"), std::string::npos) << r.err;
    EXPECT_EQ(plain(s.read("var/v/scenarios.csv")).size(), rows.size());
}
