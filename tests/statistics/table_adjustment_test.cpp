// The tool adeton end to end: the adjusted table on disk, and each outcome in its log.
#include <gtest/gtest.h>

#include <algorithm>
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

TEST(TableAdjustmentTool, EveryFailureIsSaidOnTheConsoleAndLeavesNoOutput)
{
    Adjustment s;
    RunResult r = s.adeton({"in.csv"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "adeton: usage: adeton input.csv output.csv\n");
    EXPECT_EQ(s.log(), "adeton in.csv\nusage: adeton input.csv output.csv\n");
    std::remove(s.path("Data/log.txt").c_str());

    r = s.adeton({"missing.csv", "out.csv"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "adeton: open missing.csv: No such file or directory\n");
    EXPECT_EQ(s.log(), "adeton missing.csv out.csv\nopen missing.csv: No such file or directory\n");
    EXPECT_FALSE(s.exists("out.csv"));
    std::remove(s.path("Data/log.txt").c_str());

    // each bad input: its log line and its console line; the exit status stays 0 and no
    // output (not even the copied comment) is left behind
    struct Case {
        const char* input;
        const char* log;
        const char* console;
    };
    const Case cases[] = {
        // targets that differ by the least amount
        {"#c\n1;2\n3;4\n4;6\n4;6.000000000000001\n", "Spaltenziele Untergrenze ungleich Obergrenze\n",
         "adeton: in.csv:5: Spaltenziele Untergrenze ungleich Obergrenze\nadeton: column 2: 6 and 6.0000000000000009\n"},
        {"0;0\n0;0\n1;1\n1;1\n", "warning: the column targets add up to 2, the table to 0\nSVD Null Matrix!\n",
         "adeton: in.csv:3: warning: the column targets add up to 2, the table to 0\nadeton: in.csv: SVD Null Matrix!\n"},
        {"1;2\n3;x\n1;1\n1;1\n", "2: 3;x: not a number: \"x\"\n", "adeton: in.csv: 2: 3;x: not a number: \"x\"\n"},
        {"1;2\n\"3\"x;1\n", "2: \"3\"x;1: invalid character 'x' (120) after string\n",
         "adeton: in.csv: 2: \"3\"x;1: invalid character 'x' (120) after string\n"},
        {"1;2\n3;nan\n1;1\n1;1\n", "2: 3;nan: not a finite number: \"nan\"\n",
         "adeton: in.csv: 2: 3;nan: not a finite number: \"nan\"\n"},
        {"1;inf\n3;4\n1;1\n1;1\n", "1: 1;inf: not a finite number: \"inf\"\n",
         "adeton: in.csv: 1: 1;inf: not a finite number: \"inf\"\n"},
        {"1;2\n3;-4\n4;6\n4;6\n", "negative count -4 in column 2\n", "adeton: in.csv:2: negative count -4 in column 2\n"},
        {"1;2\n3\n4;6\n4;6\n", "line 2 has 1 cells, the first data line 2\n",
         "adeton: in.csv:2: line 2 has 1 cells, the first data line 2\n"},
        {"1;2\n3;4\n4;0\n4;0\n", "column target 0 of column 2 is not above 0\n",
         "adeton: in.csv:3: column target 0 of column 2 is not above 0\n"},
        {"", "0 data lines: the table needs at least one row and the lines of the lower and the upper column targets\n",
         "adeton: in.csv: 0 data lines: the table needs at least one row and the lines of the lower and the upper column "
         "targets\n"},
        {"# nur ein Kopf\n1;2\n", "1 data lines: the table needs at least one row and the lines of the lower and the "
                                  "upper column targets\n",
         "adeton: in.csv: 1 data lines: the table needs at least one row and the lines of the lower and the upper "
         "column targets\n"},
    };
    for (const Case& c : cases) {
        s.write("in.csv", c.input);
        r = s.adeton({"in.csv", "out.csv"});
        EXPECT_EQ(r.status, 0) << c.input;
        EXPECT_EQ(s.log(), std::string("adeton in.csv out.csv\n") + c.log) << c.input;
        EXPECT_EQ(r.err, c.console) << c.input;
        EXPECT_FALSE(s.exists("out.csv")) << c.input;
        std::remove(s.path("Data/log.txt").c_str());
    }

    // a failed run leaves an earlier output as it was
    s.write("out.csv", "earlier\n");
    s.write("in.csv", "1;2\n3;x\n1;1\n1;1\n");
    s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(s.read("out.csv"), "earlier\n");
    std::remove(s.path("out.csv").c_str());

    // a full disk: the output's path and the cause on the console, no output
    s.write("in.csv", "# Kommentar\n1;1\n1;1\n1;3\n1;3\n");
    r = s.run({"adeton", "in.csv", "out.csv"}, {"VELDOR_WRITE_LIMIT=5"});
    EXPECT_EQ(r.err, "adeton: out.csv: No space left on device\n");
    EXPECT_FALSE(s.exists("out.csv"));
}

TEST(TableAdjustmentTool, NegativeCellsAndOddTargetsAreWarnedAboutAndTheTableStillWritten)
{
    Adjustment s;
    // 5 1 / 1 5 to the column targets 1 and 11: the rows keep their sums 6, the columns reach
    // 1 and 11 only with a negative cell, which stays (the least squares solution is not
    // clipped) and is said
    s.write("in.csv", "5;1\n1;5\n1;11\n1;11\n");
    RunResult r = s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "adeton: in.csv:2: warning: 1 adjusted cells are negative, the least -1.5 in column 1\n");
    auto x = numbers(s.read("out.csv"));
    ASSERT_EQ(x.size(), 2u);
    EXPECT_NEAR(x[0][0], 2.5, 1e-13);
    EXPECT_NEAR(x[0][1], 3.5, 1e-13);
    EXPECT_NEAR(x[1][0], -1.5, 1e-13);
    EXPECT_NEAR(x[1][1], 7.5, 1e-13);

    // targets that add up to 10 against a table of 4, and a last line without its line end
    s.write("in.csv", "1;1\n1;1\n1;9\n1;9");
    r = s.adeton({"in.csv", "out.csv"});
    EXPECT_EQ(r.err, "adeton: in.csv:4: warning: the last line has no line end, the file may be cut\n"
                     "adeton: in.csv:3: warning: the column targets add up to 10, the table to 4\n");
    EXPECT_EQ(numbers(s.read("out.csv")).size(), 2u);
    EXPECT_NE(s.log().find("Singular Value Decomposition completed\n"), std::string::npos);
}
