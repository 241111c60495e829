// The built-in functions: values checked against independent calculations, the settled
// behaviour of and/or/if, side tables through read, and the link to the forecast state.
#include <gtest/gtest.h>

#include "tests/protocol_fixture.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "tables/constants_table.h"

namespace fs = std::filesystem;

class FnTest : public ProtocolFixture {
protected:
    void SetUp() override
    {
        ProtocolFixture::SetUp();
        exprClearTable();
        oldDirectory = si::Directory;
        oldSeparator = si::separator;
        si::Directory = dir;
        si::separator = ';';
    }
    void TearDown() override
    {
        exprClearTable();
        si::Directory = oldDirectory;
        si::separator = oldSeparator;
        ProtocolFixture::TearDown();
    }
    // evaluates text as a cell with the given indices
    double value(const std::string& text, std::vector<long long> indices = {}, int shift = 0, int check = 0)
    {
        Parser p(nullptr);
        p.parse(text.c_str());
        return evaluate(p, indices.empty() ? nullptr : indices.data(), static_cast<int>(indices.size()), shift,
                        check);
    }
    void writeFile(const std::string& name, const std::string& content)
    {
        std::ofstream(dir + name, std::ios::binary) << content;
    }
    bool said(const std::string& text) { return newText().find(text) != std::string::npos; }

    std::string oldDirectory;
    char oldSeparator = ';';
};

// ---------------------------------------------------------------- the table

TEST_F(FnTest, AllFortySixFunctionsAreKnown)
{
    const char* names[] = {"and", "at", "ceil", "check_undef", "check_trailing_delimiter", "checksum", "constant",
                           "cos", "cut", "dim", "eq", "eval", "eval_file", "exp", "expand", "floor", "gauss", "gem",
                           "getenv", "getopt", "gt", "hadwiger", "if", "ix", "let", "line", "line2p", "list", "log",
                           "log10", "lt", "max", "min", "not", "option", "or", "pi", "pow", "print", "rand", "read",
                           "sin", "skip", "sqrt", "tan", "weibull"};
    ASSERT_EQ(sizeof names / sizeof names[0], 46u);
    Parser p(nullptr);
    for (const char* n : names) {
        EXPECT_NE(findFunction(n), nullptr) << n;
        EXPECT_STREQ(functionName(findFunction(n)), n);
    }
    EXPECT_EQ(findFunction("irand"), nullptr);
}

// ---------------------------------------------------------------- arithmetic and curves

TEST_F(FnTest, ElementaryFunctions)
{
    EXPECT_EQ(value("ceil(1.2)"), 2);
    EXPECT_EQ(value("floor(-1.2)"), -2);
    EXPECT_DOUBLE_EQ(value("exp(1)"), 2.718281828459045);
    EXPECT_DOUBLE_EQ(value("log(10)"), 2.302585092994046);
    EXPECT_DOUBLE_EQ(value("log10(1000)"), 3);
    EXPECT_DOUBLE_EQ(value("sin(pi()/2)"), 1);
    EXPECT_DOUBLE_EQ(value("cos(0)"), 1);
    EXPECT_DOUBLE_EQ(value("tan(pi()/4)"), 0.9999999999999999);
    EXPECT_EQ(value("sqrt(2.25)"), 1.5);
    EXPECT_EQ(value("pow(2 10)"), 1024);
    EXPECT_EQ(value("pi()"), 3.141592653589793);
    EXPECT_EQ(value("line(2 3 4)"), 10);
    EXPECT_EQ(value("line2p(5 0 0 10 20)"), 10);
    EXPECT_EQ(value("line2p(15 10 1 20 3)"), 2);
    EXPECT_EQ(value("max(3 9 (-1))"), 9);
    EXPECT_EQ(value("min(3 9 (-1))"), -1);
    EXPECT_EQ(value("min(3 9 -1)"), 3);   // 9 -1 is one argument
    EXPECT_EQ(newText(), "");
}

TEST_F(FnTest, GaussCarriesAnExtraFactorOfS)
{
    EXPECT_DOUBLE_EQ(value("gauss(0 0 1)"), 0.3989422804014327);
    // the usual density at 1 with m 0 and s 2 is 0.17603266338214976, halved once more
    EXPECT_DOUBLE_EQ(value("gauss(1 0 2)"), 0.08801633169107488);
}

TEST_F(FnTest, HadwigerCurveSumsToItsTotalRate)
{
    // values of an independent computation of the curve
    EXPECT_NEAR(value("hadwiger(27 1.5 15 28 3)"), 0.3752782720843132, 1e-14);
    EXPECT_NEAR(value("hadwiger(30 1.4 14 30 4)"), 0.24642402122353857, 1e-14);
    // over all ages the curve adds up to r
    Parser p(nullptr);
    p.parse("hadwiger($1 1.4 14 30 4)");
    double sum = 0;
    for (long long age = 0; age < 100; ++age) {
        double v = evaluate(p, &age, 1, 0);
        if (std::isfinite(v)) sum += v;
    }
    EXPECT_NEAR(sum, 1.4, 1e-5);
}

TEST_F(FnTest, Weibull)
{
    EXPECT_DOUBLE_EQ(value("weibull(9.5 20 2 0)"), 0.22119921692859512);
    EXPECT_EQ(value("weibull(-0.5 20 2 0)"), 0);
    // a negative base gives what the power gives, and no message
    EXPECT_TRUE(std::isnan(value("weibull(-5 20 0.5 0)")));
    EXPECT_EQ(newText(), "");
}

// ---------------------------------------------------------------- logic as it stands

TEST_F(FnTest, IfTestsForExactlyOne)
{
    EXPECT_EQ(value("if(2 1 0)"), 0);
    EXPECT_EQ(value("if(1 7 8)"), 7);
    EXPECT_EQ(value("if(0.999 7 8)"), 8);
    EXPECT_EQ(value("eq(2 2)") + value("gt(3 2)") + value("lt(3 2)") + value("not(0)") + value("not(5)"), 3);
}

TEST_F(FnTest, AndStopsAtTheFirstFalseAndLeavesTheRest)
{
    EXPECT_EQ(value("and(1 0 1)"), 0);
    ASSERT_EQ(exprStack.size(), 1u);   // the first argument stayed below the result
    EXPECT_EQ(exprStack[0].v.d, 1);
    exprStack.clear();
    EXPECT_EQ(value("and(1 2 0.5)"), 0);   // whole part 0 is false
    exprStack.clear();
    EXPECT_EQ(value("and(1 2 3)"), 1);
    EXPECT_TRUE(exprStack.empty());
    EXPECT_EQ(value("and()"), 1);
}

TEST_F(FnTest, OrIsAlwaysOneAndLeavesItsArguments)
{
    EXPECT_EQ(value("or()"), 1);
    EXPECT_TRUE(exprStack.empty());
    EXPECT_EQ(value("or(0 0)"), 1);
    ASSERT_EQ(exprStack.size(), 2u);
    EXPECT_EQ(exprStack[0].v.d, 0);
    EXPECT_EQ(exprStack[1].v.d, 0);
    exprStack.clear();
    // what stays behind takes part in the next operation: 5 + 1*2, and the 1 stays below
    EXPECT_EQ(value("1 + or(5) * 2"), 7);
    ASSERT_EQ(exprStack.size(), 1u);
    EXPECT_EQ(exprStack[0].v.d, 1);
}

// ---------------------------------------------------------------- cell context and reader settings

TEST_F(FnTest, IndicesOfTheCell)
{
    EXPECT_EQ(value("ix(1)*100+ix(2)", {3, 4}), 304);
    EXPECT_EQ(value("dim()", {3, 4, 5}), 3);
    EXPECT_EQ(value("ix(1)", {3, 4}, 1, 2025), 2025);
    EXPECT_EQ(value("ix(3)", {3, 4}, 1, 2025), 4);
    EXPECT_EQ(newText(), "");
    EXPECT_EQ(value("ix(5)", {3, 4}), 1);
    EXPECT_TRUE(said("1 = ix(5): index out of range 1 .. 2"));
    EXPECT_EQ(Prot::count(SEV_WARNING), 1);
    // a statement has no indices
    EXPECT_EQ(value("ix(1)"), 1);
    EXPECT_TRUE(said("1 = ix(1): index out of range 1 .. 0"));
}

TEST_F(FnTest, ReaderSettings)
{
    value("cut(3)");
    EXPECT_EQ(keyScale, 1000);
    long long told = 0;
    ForecastLink link;
    link.keyScaleChanged = [&](long long k) { told = k; };
    setForecastLink(&link);
    value("cut(2)");
    EXPECT_EQ(told, 100);
    setForecastLink(nullptr);
    value("cut(0)");
    EXPECT_EQ(keyScale, 1);
    value("check_undef(0)");
    EXPECT_EQ(checkUndef, 0);
    value("check_undef(1)");
    value("check_trailing_delimiter(1)");
    EXPECT_EQ(checkTrailingDelimiter, 1);
    value("check_trailing_delimiter(0)");
    value("expand(0)");
    EXPECT_EQ(expandRequested, 0);
    EXPECT_EQ(expandNeeded, 0);
    value("expand(1)");
    EXPECT_EQ(expandRequested, 1);
    EXPECT_EQ(expandNeeded, 1);
    EXPECT_TRUE(exprStack.empty());   // none of them has a result

    value("list(1)");
    EXPECT_EQ(traceLevel, 1);
    EXPECT_EQ(newText(), "<pre>");
    value("list(2)");
    EXPECT_EQ(newText(), "");
    value("list(0)");
    EXPECT_EQ(newText(), "</pre>");
    EXPECT_EQ(traceLevel, 0);
}

// ---------------------------------------------------------------- options, constants, environment

TEST_F(FnTest, OptionsAndGetopt)
{
    opt::clear();
    value("option($X 2.5)");
    EXPECT_EQ(opt::get("$X", 0), 2.5);
    EXPECT_EQ(value("option($X)"), 2.5);
    EXPECT_EQ(value("option($NOTSET)"), 0);
    EXPECT_EQ(value("getopt('$X' 7)"), 2.5);
    EXPECT_EQ(value("getopt('$Y' 7)"), 7);
    // a number where the name belongs: nothing is set, nothing is pushed
    EXPECT_EQ(value("option(1 2)"), HUGE_VAL);
    value("getopt('$X' 1 2)");
    EXPECT_TRUE(said("trace number of arguments 3 outside 1 .. 2"));
    value("option($X 1 2)");
    EXPECT_TRUE(said("trace number of arguments 3 outside 0 .. 2"));
    opt::clear();
}

TEST_F(FnTest, Constants)
{
    value("constant(1.5 $K1)");
    EXPECT_EQ(konst::text("K1"), "1.5");
    value("constant('abc' $K2)");
    EXPECT_EQ(konst::text("K2"), "abc");
    FILE* f = tmpfile();
    printStream = f;
    value("print(constant('K2') constant($K1))");
    printStream = nullptr;
    rewind(f);
    char buffer[64] = {};
    fread(buffer, 1, sizeof buffer - 1, f);
    fclose(f);
    EXPECT_STREQ(buffer, "abc 1.5 ");
    value("constant($A $K3)");
    EXPECT_TRUE(said("syntax error\n"));
    EXPECT_FALSE(konst::has("K3"));
    konst::all().erase("K1");
    konst::all().erase("K2");
}

TEST_F(FnTest, Getenv)
{
    setenv("VELDOR_FN_TEST", "2.5", 1);
    unsetenv("VELDOR_FN_UNSET");
    std::string old = setlocale(LC_NUMERIC, nullptr);
    setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(value("getenv('VELDOR_FN_TEST')"), 2.5);
    EXPECT_EQ(value("getenv('VELDOR_FN_UNSET' 3)"), 3);
    EXPECT_EQ(value("getenv('VELDOR_FN_UNSET')"), 0);
    setlocale(LC_NUMERIC, old.c_str());
    unsetenv("VELDOR_FN_TEST");
}

TEST_F(FnTest, SkipDropsAndReportsUnknownNames)
{
    EXPECT_EQ(value("skip(3)"), HUGE_VAL);
    EXPECT_EQ(newText(), "");
    value("skip($X)");
    EXPECT_TRUE(said("pop expected type NUM(257) != undefined  VAR($X) on stack[0]"));
}

TEST_F(FnTest, PrintWritesEachArgumentAndCutsTheStack)
{
    writeFile("p.csv", "1;0.5\n2;0.25\n");
    FILE* f = tmpfile();
    printStream = f;
    EXPECT_EQ(value("print('a' 1.5 2/3 read('p'))"), HUGE_VAL);
    printStream = nullptr;
    EXPECT_TRUE(exprStack.empty());
    rewind(f);
    char buffer[256] = {};
    fread(buffer, 1, sizeof buffer - 1, f);
    fclose(f);
    EXPECT_STREQ(buffer, "a 1.5 0.666666666666667 [1] 0.5\n[2] 0.25\n");
}

TEST_F(FnTest, RandDrawsFromTheRunGenerator)
{
    std::mt19937_64 g(12345);
    setRunGenerator(&g);
    double sum = 0;
    for (int i = 0; i < 2000; ++i) {
        double u = value("rand()");
        ASSERT_GE(u, 0);
        ASSERT_LT(u, 1);
        sum += u;
    }
    EXPECT_NEAR(sum / 2000, 0.5, 0.03);
    double r = value("rand(10)");
    EXPECT_GE(r, 0);
    EXPECT_LT(r, 10);
    // the same seed gives the same numbers
    g.seed(7);
    double a = value("rand()");
    g.seed(7);
    EXPECT_EQ(value("rand()"), a);
    setRunGenerator(nullptr);
    EXPECT_NE(&runGenerator(), &g);
}

// ---------------------------------------------------------------- side tables

TEST_F(FnTest, ReadTwoColumnsGivesAVector)
{
    writeFile("x.csv", "# comment\n1;10\n\n2;20.5\n3;7\n");
    value("let($a read('x'))");
    Variable* a = findVariable("$a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->type, ARR1);
    std::string text = newText();
    EXPECT_NE(text.find("<a href=\"../../x.csv\">x.csv</a>"), std::string::npos);
    EXPECT_NE(text.find(": 37.5"), std::string::npos);
    EXPECT_EQ(value("$a(2)"), 20.5);
    EXPECT_EQ(value("at($a 3) + $a(1)"), 17);
    EXPECT_EQ(value("$a(9)"), 0);
    EXPECT_TRUE(said(": missing key 9 in reference file"));
    value("$a(1 2)");
    EXPECT_TRUE(said(": 2 indices for 1 dimensional array"));
}

TEST_F(FnTest, ReadWithKeyFilters)
{
    writeFile("y.csv", "1;5;0.1\n2;5;0.2\n2;6;0.3\n2;7;0.4\n");
    value("let($b read('y'))");
    EXPECT_EQ(findVariable("$b")->type, ARR2);
    EXPECT_EQ(value("$b(2 6)"), 0.3);
    value("let($c read('y' 2))");
    EXPECT_EQ(findVariable("$c")->type, ARR1);
    EXPECT_EQ(value("$c(7)"), 0.4);
    EXPECT_TRUE(said(": 0.9"));   // the sum of the kept lines
    // all keys given: a number, the last value kept
    EXPECT_EQ(value("read('y' 2 6)"), 0.3);
    // keys are masked to 16 bits
    EXPECT_EQ(value("read('y' 65538 6)"), 0.3);
    // a key beyond the columns
    value("read('y' 1 2 3)");
    EXPECT_TRUE(said("read(y): file " + dir + "y.csv: 1: 3 columns - 3 keys not supported"));
}

TEST_F(FnTest, ReadRankFourAndChecksum)
{
    std::string content;
    for (int a = 1; a <= 2; ++a)
        for (int b = 1; b <= 2; ++b) content += std::to_string(a) + ";" + std::to_string(b) + ";3;4;0.5\n";
    writeFile("z.csv", content);
    value("let($z read('z'))");
    EXPECT_EQ(findVariable("$z")->type, ARR4);
    EXPECT_EQ(value("$z(2 1 3 4)"), 0.5);
    newText();
    ForecastLink link;
    link.sumTol = [] { return 1e-9; };
    setForecastLink(&link);
    // sums over the second key per first key are 1
    value("checksum($z 1)");
    EXPECT_EQ(Prot::count(SEV_WARNING), 0);
    EXPECT_TRUE(said("checksum 1<br>"));
    // per first and second key 0.5
    value("checksum($z 1 2)");
    std::string text = newText();
    EXPECT_NE(text.find("checksum 2 1 0.5 outside range[1-1e-09 .. 1+1e-09]"), std::string::npos);
    EXPECT_EQ(Prot::count(SEV_WARNING), 4);
    // no columns: one sum over all, 2
    value("checksum($z)");
    EXPECT_TRUE(said("checksum  2 outside range"));
    value("checksum($z 1 2 3 4 1)");
    EXPECT_TRUE(said("5 colums not supported"));
    setForecastLink(nullptr);
}

TEST_F(FnTest, ReadMessages)
{
    writeFile("seven.csv", "1;2;3;4;5;6;7\n");
    value("read('seven')");
    EXPECT_TRUE(said("read(seven): file " + dir + "seven.csv: 1: 7 fields out of range 2..6"));

    writeFile("bad.csv", "1;0.5\nx1;0.5\n3;abc\n4;0.5;9\n5\n");
    double v = value("at(read('bad') 4)");
    EXPECT_EQ(v, 0.5);
    std::string text = newText();
    EXPECT_NE(text.find("read(bad): " + dir + "bad.csv:<br>2: x1;0.5<br>'x1' not a integer (x1)"), std::string::npos);
    EXPECT_NE(text.find("read(bad): " + dir + "bad.csv:<br>3: 3;abc<br>'abc' not a number (abc)"), std::string::npos);
    EXPECT_NE(text.find("read(bad): file " + dir + "bad.csv:<br>4: 4;0.5;9<br>3 != 2 columns"), std::string::npos);
    EXPECT_NE(text.find("read(bad): file " + dir + "bad.csv:<br>5: 5<br>1 != 2 columns"), std::string::npos);
    EXPECT_EQ(Prot::count(SEV_WARNING), 1);   // the longer line
    EXPECT_EQ(Prot::count(SEV_ERROR), 4);     // seven fields, x1, abc, the short line

    value("read('missing')");
    EXPECT_TRUE(said("read(missing): open " + dir + "missing.csv: No such file or directory\n"));

    writeFile("quote.csv", "1;\"0.5\n");
    value("read('quote')");
    EXPECT_TRUE(said(": unfinished string"));
}

TEST_F(FnTest, EvalFileRunsEachCell)
{
    opt::clear();
    writeFile("s.txt", "let($q 4);option($EF1 $q)\n#! option($EF2 2)\n# a comment\n");
    value("eval_file('s')");
    EXPECT_EQ(opt::get("$EF1", 0), 4);
    EXPECT_EQ(opt::get("$EF2", 0), 2);
    EXPECT_TRUE(exprStack.empty());
    value("eval_file('none')");
    EXPECT_TRUE(said("eval_file('none'): open " + dir + "none.txt: No such file or directory\n"));
    opt::clear();
}

TEST_F(FnTest, TextsThatEvaluateThemselvesEndInAnError)
{
    // a file that evaluates itself, a variable whose text evaluates itself, and a variable that
    // reaches the file: each stops at the nesting limit with an error, the stack unharmed
    writeFile("rec.txt", "eval_file('rec')\n");
    writeFile("via.txt", "eval($w)\n");
    for (const char* text : {"eval_file('rec')", "let($s 'eval($s)') eval($s)", "let($w 'eval_file($f)') let($f 'via') eval($w)"}) {
        SCOPED_TRACE(text);
        int before = Prot::count(SEV_ERROR);
        Parser p(nullptr);
        runStatements(p, text, false);
        EXPECT_TRUE(said("statements nested deeper than 64"));
        EXPECT_GE(Prot::count(SEV_ERROR), before + 1);
        exprStack.clear();
    }
    // a nesting below the limit runs
    Parser p(nullptr);
    runStatements(p, "let($a '7') let($b 'eval($a)') eval($b)", true);
    ASSERT_FALSE(exprStack.empty());
    EXPECT_EQ(exprStack.back().v.d, 7);
    exprStack.clear();
}

// ---------------------------------------------------------------- the forecast state

TEST_F(FnTest, GemNeedsTheForecast)
{
    setForecastLink(nullptr);
    EXPECT_EQ(value("gem(1001)"), 0);
    EXPECT_TRUE(said("gem: "));
    EXPECT_EQ(Prot::count(SEV_ERROR), 1);
}

TEST_F(FnTest, GemReadsThePopulationOfARegion)
{
    std::vector<double> totals = {100, 250.5, 30};
    std::vector<long long> keys = {1001, 1002, 2001};
    ForecastLink link;
    link.regionCount = [&] { return static_cast<int>(totals.size()); };
    link.regionTotal = [&](int p) { return totals[static_cast<size_t>(p)]; };
    link.regionPosition = [&](long long key) {
        for (size_t i = 0; i < keys.size(); ++i)
            if (keys[i] == key) return static_cast<int>(i);
        return -1;
    };
    setForecastLink(&link);
    EXPECT_EQ(value("gem(1002)"), 250.5);
    // the region of the cell: its second index, here behind the check number
    EXPECT_EQ(value("gem()", {3, 0}, 1, 2025), 30);
    EXPECT_EQ(newText(), "");
    EXPECT_EQ(value("gem(999)"), 0);
    EXPECT_TRUE(said("unbekanntes Gebietskennzeichen 999"));
    EXPECT_EQ(value("gem(1001 1002)"), 0);
    EXPECT_TRUE(said("zu viele (2) Parameter"));
    setForecastLink(nullptr);
}
