// The expression language: tokeniser, parser with its fast path and look-ahead, the machine
// and its messages, and the text of the forecast command's option -o.
#include <gtest/gtest.h>

#include "tests/protocol_fixture.h"

#include <clocale>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/functions.h"

namespace fs = std::filesystem;

namespace {

// a cell of a table: the file holds a comment line and then the text, so that messages name line 2
struct TableCell {
    explicit TableCell(const std::string& text)
    {
        file = tmpfile();
        fputs("# head\n", file);
        fputs(text.c_str(), file);
        fputs("\n", file);
        rewind(file);
        reader = std::make_unique<CsvReader>(file, ";");
        char cell[1024];
        reader->next(cell, sizeof cell);
        reader->next(cell, sizeof cell);
        parser = std::make_unique<Parser>(reader.get());
        source = text;
        try {
            rest = parser->parse(source.c_str());
        } catch (...) {
            parser.reset();
            reader.reset();
            fclose(file);
            throw;
        }
    }
    ~TableCell()
    {
        parser.reset();
        reader.reset();
        fclose(file);
    }
    double value(std::vector<long long> indices = {}, int shift = 0, int check = 0)
    {
        return evaluate(*parser, indices.empty() ? nullptr : indices.data(), static_cast<int>(indices.size()), shift,
                        check);
    }
    std::vector<int> codes() const
    {
        std::vector<int> c;
        for (const Operation& o : parser->program) c.push_back(o.code);
        return c;
    }
    FILE* file;
    std::unique_ptr<CsvReader> reader;
    std::unique_ptr<Parser> parser;
    std::string source;
    const char* rest;
};

} // namespace

class ExprTest : public ProtocolFixture {
protected:
    void SetUp() override
    {
        ProtocolFixture::SetUp();
        exprClearTable();
    }
    void TearDown() override
    {
        exprClearTable();
        ProtocolFixture::TearDown();
    }
    double value(const std::string& text)
    {
        TableCell c(text);
        return c.value();
    }
};

// ---------------------------------------------------------------- fast path and tokens

TEST_F(ExprTest, FastPathTakesAWholeNumberWithoutTokens)
{
    TableCell a("1.5"), b("1e3"), c("-3"), d("-3 ");
    EXPECT_EQ(a.codes(), std::vector<int>{NUM});
    EXPECT_EQ(a.value(), 1.5);
    EXPECT_EQ(b.codes(), std::vector<int>{NUM});
    EXPECT_EQ(b.value(), 1000);
    EXPECT_EQ(c.codes(), std::vector<int>{NUM});
    EXPECT_EQ(c.value(), -3);
    // a trailing blank: the tokeniser reads the number, and the sign is the unary operation
    EXPECT_EQ(d.codes(), (std::vector<int>{NUM, '_'}));
    EXPECT_EQ(d.value(), -3);
    EXPECT_EQ(*d.rest, 0);
    EXPECT_EQ(newText(), "");
}

TEST_F(ExprTest, FastPathAcceptsWhatStrtodAcceptsTheTokeniserDoesNot)
{
    EXPECT_TRUE(std::isinf(value("inf")));
    EXPECT_EQ(newText(), "");
    // ".5" is no number at token level
    TableCell c(".5 ");
    EXPECT_NE(newText().find("2: .5 : syntax error (.) at '5 '"), std::string::npos);
}

TEST_F(ExprTest, NumbersUseThePointWhateverTheLocale)
{
    std::string old = setlocale(LC_ALL, nullptr);
    if (!setlocale(LC_ALL, "de_DE.UTF-8")) GTEST_SKIP() << "de_DE.UTF-8 missing";
    EXPECT_EQ(value("1.25"), 1.25);
    EXPECT_EQ(value("1.25 *2"), 2.5);
    setlocale(LC_ALL, old.c_str());
}

TEST_F(ExprTest, TypeNames)
{
    char b[16];
    EXPECT_STREQ(typeName(STR, b), "STR");
    EXPECT_STREQ(typeName(ARR3, b), "ARR3");
    EXPECT_STREQ(typeName(DONE, b), "DONE");
    EXPECT_STREQ(typeName('(', b), "(");
    EXPECT_STREQ(typeName(7, b), "\\7");
    EXPECT_EQ(typeName(PARAMS), "PARAMS");
}

TEST_F(ExprTest, NameHashIsFnv1a64)
{
    EXPECT_EQ(fnv1a(""), 0xcbf29ce484222325ULL);
    EXPECT_EQ(fnv1a("a"), 0xaf63dc4c8601ec8cULL);
    EXPECT_EQ(fnv1a("foobar"), 0x85944171f73967e8ULL);
}

// ---------------------------------------------------------------- grammar

TEST_F(ExprTest, PrecedenceAndTheOrderOfOperations)
{
    int x = 4;
    publishVariable("$X", &x);
    TableCell c("1+2*$X");
    EXPECT_EQ(c.codes(), (std::vector<int>{NUM, NUM, ID, '*', '+'}));
    EXPECT_EQ(c.value(), 9);
    x = 5;   // an integer place is read when the cell is evaluated
    EXPECT_EQ(c.value(), 11);
    withdrawVariable("$X");
    EXPECT_EQ(value("(1+2)*3"), 9);
    EXPECT_EQ(value("2-3-4"), -5);
}

TEST_F(ExprTest, MultiplicationAndDivisionAreRightAssociative)
{
    EXPECT_EQ(value("8/4/2"), 4);
    EXPECT_EQ(value("8/2*2"), 2);
    EXPECT_EQ(value("2*3/6"), 1);
    EXPECT_EQ(value("(8/4)/2"), 1);
}

TEST_F(ExprTest, UnaryMinusCoversTheWholeFirstTerm)
{
    TableCell c("-8/4/2");
    EXPECT_EQ(c.codes(), (std::vector<int>{NUM, NUM, NUM, '/', '/', '_'}));
    EXPECT_EQ(c.value(), -4);
    EXPECT_EQ(value("-2*3+10"), 4);
    EXPECT_EQ(value("+2*3"), 6);
}

TEST_F(ExprTest, ArgumentsStandSideBySide)
{
    EXPECT_EQ(value("max(1 -2)"), -1);     // one argument: 1-2
    EXPECT_EQ(value("max(1 (-2))"), 1);    // two arguments
    EXPECT_EQ(value("max(3 5 4)"), 5);
    EXPECT_EQ(newText(), "");
    // a comma begins nothing: reported, and its place holds 0
    EXPECT_EQ(value("max(-1,-2)"), 0);
    EXPECT_NE(newText().find("syntax error (,) at '-2)'"), std::string::npos);
}

TEST_F(ExprTest, LookAheadSwallowsWhatFollowsAnExpression)
{
    {
        TableCell c("let($a 1) let($b 2)");
        EXPECT_STREQ(c.rest, "let($b 2)");
    }
    {
        TableCell c("1 2");   // the 2 was the look-ahead and is gone
        EXPECT_STREQ(c.rest, "");
        EXPECT_EQ(c.value(), 1);
    }
    {
        TableCell c("3)");
        EXPECT_STREQ(c.rest, "");
        EXPECT_EQ(c.value(), 3);
    }
    {
        // a string goes back by the length of its text only
        TableCell c("1 'ab'");
        EXPECT_STREQ(c.rest, "b'");
    }
}

TEST_F(ExprTest, CommentEndsTheText)
{
    EXPECT_EQ(value("1+2 # three"), 3);
    TableCell c("# only a comment");
    EXPECT_TRUE(c.codes().empty());
    EXPECT_EQ(c.value(), HUGE_VAL);
    EXPECT_EQ(newText(), "");
}

TEST_F(ExprTest, DollarDigitIsAnIndexOfTheCell)
{
    TableCell c("$1*10+$2");
    EXPECT_EQ(c.value({5, 7}), 57);
    // with a check column $1 is the check number
    TableCell d("$1");
    EXPECT_EQ(d.value({5, 7}, 1, 2030), 2030);
    TableCell e("$2");
    EXPECT_EQ(e.value({5, 7}, 1, 2030), 5);
    EXPECT_EQ(newText(), "");
    // two digits: a plain VAR, which no number can be taken from
    TableCell f("$12");
    f.value({5, 7});
    EXPECT_NE(newText().find("2: $12: pop expected type NUM(257) != undefined  VAR($12) on stack[0]"),
              std::string::npos);
}

// ---------------------------------------------------------------- messages with line number and line

TEST_F(ExprTest, ParserMessagesNameLineAndText)
{
    TableCell a("1+foo");
    EXPECT_NE(newText().find("2: 1+foo: parser error: unknown function: foo"), std::string::npos);
    EXPECT_EQ(a.value(), 1);   // the unknown function gives 0

    TableCell b("2+*3");
    EXPECT_NE(newText().find("2: 2+*3: syntax error (*) at '3'"), std::string::npos);
    EXPECT_EQ(b.value(), 2);

    TableCell c("max(1 2");
    EXPECT_NE(newText().find("2: max(1 2: expected ')', got 'DONE'"), std::string::npos);
    EXPECT_EQ(c.value(), 2);
    EXPECT_EQ(Prot::count(SEV_ERROR), 3);
}

TEST_F(ExprTest, NameOfMoreThan128CharactersIsReportedPerCharacter)
{
    std::string name128 = "$" + std::string(127, 'n');
    {
        TableCell c("let(" + name128 + " 1)");
        EXPECT_EQ(newText(), "");
    }
    std::string name129 = "$" + std::string(128, 'n');
    TableCell c(name129);
    std::string text = newText();
    EXPECT_NE(text.find("2: " + name129 + ": parser error: token size exceeds 128"), std::string::npos);
    EXPECT_EQ(Prot::count(SEV_ERROR), 1);
    TableCell d(name129 + "nn");
    EXPECT_EQ(Prot::count(SEV_ERROR), 4);
}

TEST_F(ExprTest, StringWithoutClosingQuoteStopsAtTheEnd)
{
    TableCell c("print('abc");
    EXPECT_NE(newText().find("2: print('abc: parser error: string without closing quote: 'abc"), std::string::npos);
    std::string long_(300, 'x');
    TableCell d("'" + long_);
    ASSERT_EQ(d.codes(), std::vector<int>{STR});
    EXPECT_EQ(std::string(d.parser->program[0].v.s), long_);
}

TEST_F(ExprTest, MachineMessages)
{
    value("$X+1");
    EXPECT_NE(newText().find("2: $X+1: pop expected type NUM(257) != undefined  VAR($X) on stack[0]"),
              std::string::npos);

    value("let(1 2)");
    EXPECT_NE(newText().find("2: let(1 2): popAny expected type VAR(266) != NUM(257) type on stack[0]"),
              std::string::npos);

    value("sqrt(1 2)");
    EXPECT_NE(newText().find("2: sqrt(1 2): sqrt number of arguments 2 outside 1 .. 1"), std::string::npos);

    // an operation the parser never makes
    TableCell c("1");
    c.parser->program.insert(c.parser->program.begin(), Operation{1, Bits{}});
    EXPECT_EQ(c.value(), 1);
    EXPECT_NE(newText().find("2: 1: unknown opcode (\\1) 1"), std::string::npos);
}

TEST_F(ExprTest, TooFewValuesOnTheStackAreCaught)
{
    // getopt always pops a number and a string: with one argument the string is missing
    ASSERT_TRUE(exprStack.empty());
    double v = value("getopt('$A')");
    EXPECT_TRUE(std::isfinite(v) || std::isnan(v));
    EXPECT_NE(newText().find("popAny: stack empty, STR expected"), std::string::npos);
    // a program that pops more than it pushed
    TableCell c("1");
    c.parser->program.push_back(Operation{'+', Bits{}});
    c.parser->program.push_back(Operation{'*', Bits{}});
    c.value();
    EXPECT_NE(newText().find("2: 1: pop: stack empty"), std::string::npos);
}

TEST_F(ExprTest, DivisionByZeroIsInfiniteWithoutMessage)
{
    EXPECT_EQ(value("1/0"), HUGE_VAL);
    EXPECT_EQ(value("-1/0"), -HUGE_VAL);
    EXPECT_TRUE(std::isnan(value("0/0")));
    EXPECT_EQ(newText(), "");
}

TEST_F(ExprTest, ErrorsThrowInThrowingMode)
{
    Prot::setThrow(true);
    EXPECT_THROW(value("nofunction(1)"), std::runtime_error);
    EXPECT_THROW(value("$Y*2"), std::runtime_error);
    Prot::setThrow(false);
}

TEST_F(ExprTest, DeepNestingIsRefused)
{
    std::string deep = std::string(5000, '(') + "1";
    Parser p(nullptr);
    p.parse(deep.c_str());
    EXPECT_NE(newText().find("0: : parser error: expression nested deeper than 2000"), std::string::npos);
    EXPECT_EQ(evaluate(p, nullptr, 0, 0), 0);
}

// ---------------------------------------------------------------- the machine

TEST_F(ExprTest, ComparisonsExistInTheMachineOnly)
{
    TableCell c("1");
    auto& p = c.parser->program;
    Bits two;
    two.d = 2;
    p.push_back(Operation{NUM, two});
    p.push_back(Operation{'<', Bits{}});
    EXPECT_EQ(c.value(), 1);
    p.back().code = '>';
    EXPECT_EQ(c.value(), 0);
    p.back().code = '=';
    EXPECT_EQ(c.value(), 0);
    p[1].v.d = 1;
    EXPECT_EQ(c.value(), 1);
    // no syntax for them
    value("1<2");
    EXPECT_EQ(exprStack.size(), 0u);
}

TEST_F(ExprTest, EmptyStackGivesTheUndefinedValue)
{
    EXPECT_EQ(value("let($a 3)"), HUGE_VAL);
    // the variable is known to later parses, with its type
    TableCell c("$a*2");
    EXPECT_EQ(c.codes(), (std::vector<int>{NUM, NUM, '*'}));
    EXPECT_EQ(c.value(), 6);
}

TEST_F(ExprTest, LetUpdatesAVariableWhenTheLineIsEvaluatedAgain)
{
    TableCell c("let($n $1)");
    c.value({4});
    EXPECT_EQ(findVariable("$n")->v.d, 4);
    c.value({9});
    EXPECT_EQ(findVariable("$n")->v.d, 9);
    exprClearTable();
    EXPECT_EQ(findVariable("$n"), nullptr);
}

TEST_F(ExprTest, EvalRunsStatementsAndKeepsEachResult)
{
    EXPECT_EQ(value("eval('1+2')"), 3);
    EXPECT_EQ(value("eval('let($e 5) $e*2')"), 10);
    // the statement without a value left the undefined value below
    ASSERT_EQ(exprStack.size(), 1u);
    EXPECT_EQ(exprStack[0].v.d, HUGE_VAL);
    exprStack.clear();
    // the outer program goes on after eval
    EXPECT_EQ(value("eval('2') * 3 + eval('1')"), 7);
}

TEST_F(ExprTest, CodeTextShowsTheProgram)
{
    traceLevel = 2;
    value("eval('max(1 2)+$Q')");
    traceLevel = 0;
    EXPECT_NE(newText().find("&gt;      1 2 max [2] $Q +"), std::string::npos);
}

TEST_F(ExprTest, PublishedVariablesAndTheirWithdrawal)
{
    static double sumTol = 1e-9;
    publishVariable("$SUMTOL", [](const void* a) { return *static_cast<const double*>(a); }, &sumTol);
    int ngz = 12;
    publishVariable("$NGZ", &ngz);
    EXPECT_EQ(value("$NGZ*2"), 24);
    EXPECT_DOUBLE_EQ(value("$SUMTOL*1e9"), 1);
    EXPECT_EQ(newText(), "");
    withdrawSystemVariables();
    // without the forecast the name is an unknown variable, reported by name
    value("$NGZ*2");
    EXPECT_NE(newText().find("VAR($NGZ)"), std::string::npos);
    // the run object can answer for all its names at once
    setSystemVariableResolver([](const char* name, double& v) {
        if (std::string(name) != "$NAG") return false;
        v = 101;
        return true;
    });
    EXPECT_EQ(value("$NAG-1"), 100);
    EXPECT_EQ(newText(), "");
    setSystemVariableResolver(nullptr);
    value("$NAG-1");
    EXPECT_NE(newText().find("VAR($NAG)"), std::string::npos);
}

// ---------------------------------------------------------------- option -o

TEST_F(ExprTest, OptionTextSetsOptionsUntilUsedUp)
{
    opt::clear();
    os::setParallel(false);
    char old = si::separator;
    si::separator = ';';
    runOptionText("option($ODE 1);option($STACK 2) option($LE 65)");
    EXPECT_EQ(opt::get("$ODE", 0), 1);
    EXPECT_EQ(opt::get("$STACK", 0), 2);
    EXPECT_EQ(opt::get("$LE", 0), 65);
    EXPECT_TRUE(os::parallel());
    si::separator = old;
    opt::clear();
    os::setParallel(false);
}

TEST_F(ExprTest, OptionTextStopsAtAnErrorAndGoesOn)
{
    opt::clear();
    Prot::setThrow(true);
    EXPECT_NO_THROW(runOptionText("option($A 1) option($B sqrt()) option($C 3)"));
    EXPECT_EQ(opt::get("$A", 0), 1);
    EXPECT_FALSE(opt::has("$B"));
    EXPECT_FALSE(opt::has("$C"));
    std::string text = newText();
    EXPECT_NE(text.find("1: option($A 1) option($B sqrt()) option($C 3): sqrt number of arguments 0 outside 1 .. 1"),
              std::string::npos);
    EXPECT_NO_THROW(runOptionText(""));
    Prot::setThrow(false);
    opt::clear();
    os::setParallel(false);
}
