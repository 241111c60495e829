// The tool adeton end to end: the adjusted table on disk, and each outcome in its log.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace {

struct Adjustment : Sandbox {
    Adjustment() { write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n"); }
    RunResult adeton(const std::vector<std::string>& args) const
    {
        std::vector<std::string> all = {"adeton"};
        all.insert(all.end(), args.begin(), args.end());
        return run(all);
    }
    std::string log() const { return read("Data/log.txt"); }
};

std::vector<std::vector<double>> numbers(const std::string& text)
{
    std::vector<std::vector<double>> rows;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<double> row;
        std::stringstream cells(line);
        for (std::string cell; std::getline(cells, cell, ';');) row.push_back(std::stod(cell));
        rows.push_back(row);
    }
    return rows;
}

} // namespace

TEST(TableAdjustmentTool, AdjustsTheTableAndCopiesItsComments)
{
    Adjustment s;
    // 2 x 2 ones, column targets 1 and 3: by symmetry x = a, 2 - a in each row, and the
    // weighted total 2 * 2a + 2/3 * 2 (2 - a) = 4 gives a = 0.5, the column targets met
    s.write("in.csv", "# Tabelle\n1;1\n1;1\n1;3\n1;3\n");
    RunResult r = s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(r.status, 0);
    std::string out = s.read("out.csv");
    EXPECT_EQ(out.substr(0, 10), "# Tabelle\n");
    auto x = numbers(out);
    ASSERT_EQ(x.size(), 2u);
    for (const auto& row : x) {
        ASSERT_EQ(row.size(), 2u);
        EXPECT_NEAR(row[0], 0.5, 1e-13);
        EXPECT_NEAR(row[1], 1.5, 1e-13);
    }
    EXPECT_EQ(s.log(), "adeton in.csv out.csv\nSingular Value Decomposition completed\n");
}

TEST(TableAdjustmentTool, EveryFailureGoesToTheLogWithStatusZero)
{
    Adjustment s;
    EXPECT_EQ(s.adeton({"in.csv"}).status, 0);
    EXPECT_EQ(s.log(), "adeton in.csv\nusage: adeton input.csv output.csv\n");
    std::remove(s.path("Data/log.txt").c_str());

    EXPECT_EQ(s.adeton({"missing.csv", "out.csv"}).status, 0);
    EXPECT_EQ(s.log(), "adeton missing.csv out.csv\nopen missing.csv: No such file or directory\n");
    EXPECT_FALSE(s.exists("out.csv"));
    std::remove(s.path("Data/log.txt").c_str());

    // targets that differ by the least amount: the message, and no rows
    s.write("in.csv", "#c\n1;2\n3;4\n4;6\n4;6.000000000000001\n");
    EXPECT_EQ(s.adeton({"in.csv", "out.csv"}).status, 0);
    EXPECT_EQ(s.log(), "adeton in.csv out.csv\nSpaltenziele Untergrenze ungleich Obergrenze\n");
    EXPECT_EQ(s.read("out.csv"), "#c\n");
    std::remove(s.path("Data/log.txt").c_str());

    s.write("in.csv", "0;0\n0;0\n1;1\n1;1\n");
    s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(s.log(), "adeton in.csv out.csv\nSVD Null Matrix!\n");
    EXPECT_EQ(s.read("out.csv"), "");
    std::remove(s.path("Data/log.txt").c_str());

    s.write("in.csv", "1;2\n3;x\n1;1\n1;1\n");
    s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(s.log(), "adeton in.csv out.csv\n2: 3;x: not a number: \"x\"\n");
    std::remove(s.path("Data/log.txt").c_str());

    s.write("in.csv", "1;2\n\"3\"x;1\n");
    s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(s.log(), "adeton in.csv out.csv\n2: \"3\"x;1: invalid character 'x' (120) after string\n");
}
