// The input file reader: small tables written into a temporary variant, read into arrays, and
// the protocol read back for the exact message texts.
#include <gtest/gtest.h>

#include "tests/protocol_fixture.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/sparse_tables.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/functions.h"
#include "tables/kept_tables.h"
#include "kernel/region_table_reading.h"

namespace fs = std::filesystem;

namespace {

class ReadTab : public ProtocolFixture {
protected:
    void SetUp() override
    {
        protocolLevel = 3;
        throwing = true;
        ProtocolFixture::SetUp();
        fs::create_directories(root + "/App");
        // a few texts with conversions; every other key shows as [key]
        std::ofstream(root + "/App/datadict_xx.xml")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<data-dictionary>\n"
               "<k id=\"csv_W1\">Zeile %zu: %s: unerwarteter Text „%s“ vor Trennzeichen „%c“ überlesen</k>\n"
               "<k id=\"fn_missingSection\">%s: kein Abschnitt für das Jahr %d</k>\n"
               "</data-dictionary>\n";
        si::appDir = root + "/App/";
        DD::clear();
        DD::load("xx", {});
        si::Directory = dir;
        si::Version = "v";
        si::separator = ';';
        ini::STARTJAHR = 2020;
        JAHR = 2020;
        Prot::openFilePages();
        exprClearTable();
        keyScale = 1;
        traceLevel = 0;
        checkTrailingDelimiter = 0;
        run = std::make_unique<Orvane>();
        for (long long key : {1001, 1002, 1005}) {
            RegionRow r;
            r.key = key;
            r.name = "R" + std::to_string(key);
            run->regions.push_back(r);
        }
        run->indexRegions();
        run->NGZ = 3;
        regionKeyUse().clear();
    }
    void TearDown() override
    {
        run.reset();
        exprClearTable();
        keyScale = 1;
        DD::clear();
        ProtocolFixture::TearDown();
        Prot::setThrow(true);
    }
    static FileEntry entry(const std::string& name, int zero = 0, int mode = 0, int region = 0, int offset = 0)
    {
        FileEntry f;
        f.name = name;
        f.kind = 1;
        f.lastIndexFromZero = zero;
        f.checkMode = mode;
        f.regionColumn = region;
        f.yearOffset = offset;
        return f;
    }
    // reads a table that must end in an error; returns the protocol text
    template <class F> std::string failing(F&& f)
    {
        EXPECT_THROW(f(), std::runtime_error);
        return newText();
    }

    SettingsGuard guard;
    std::unique_ptr<Orvane> run;
};

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// ---------------------------------------------------------------- index cells

TEST_F(ReadTab, IndexCellForms)
{
    IndexInterval v;
    ASSERT_TRUE(parseIndexCell("5", 1, 9, v));
    EXPECT_EQ(v.lo, 5);
    EXPECT_EQ(v.hi, 5);
    EXPECT_FALSE(v.computed);
    ASSERT_TRUE(parseIndexCell(" 2 .. 7 ", 1, 9, v));
    EXPECT_EQ(v.lo, 2);
    EXPECT_EQ(v.hi, 7);
    ASSERT_TRUE(parseIndexCell("2..7*10", 1, 9, v));
    EXPECT_EQ(v.m, 10);
    EXPECT_EQ(v.hi, 7);
    ASSERT_TRUE(parseIndexCell("4*100", 1, 9, v));
    EXPECT_EQ(v.lo, 4);
    EXPECT_EQ(v.hi, 4);
    EXPECT_EQ(v.m, 100);
    ASSERT_TRUE(parseIndexCell("*", 0, 100, v));
    EXPECT_TRUE(v.star);
    EXPECT_EQ(v.lo, 0);
    EXPECT_EQ(v.hi, 100);
    Bits b;
    b.d = 101;
    setVariable("$N", NUM, b);
    ASSERT_TRUE(parseIndexCell("1..$N-1", 1, 200, v));
    EXPECT_EQ(v.lo, 1);
    EXPECT_EQ(v.hi, 100);
    EXPECT_TRUE(v.computed);
    ASSERT_TRUE(parseIndexCell("$N", 1, 200, v));
    EXPECT_EQ(v.lo, 101);
    EXPECT_EQ(v.hi, 101);
    ASSERT_TRUE(parseIndexCell("irand(3,7)", 1, 9, v));
    EXPECT_TRUE(v.isRandom());
    EXPECT_EQ(v.m, (3 << 16) | 7);
    ASSERT_TRUE(parseIndexCell("ir(3,7)", 1, 9, v));
    EXPECT_EQ(v.randomLow(), 3);
    EXPECT_EQ(v.randomHigh(), 7);
    for (int k = 0; k < 200; ++k) {
        long long x = drawRandomIndex(v);
        ASSERT_TRUE(x >= 3 && x <= 7) << x;
    }
    long long lo, hi, m;
    ASSERT_TRUE(parseIndexCell("10..12*1000", 1, 9, lo, hi, m));
    EXPECT_EQ(lo, 10);
    EXPECT_EQ(hi, 12);
    EXPECT_EQ(m, 1000);
    EXPECT_FALSE(parseIndexCell("", 1, 9, v));
    EXPECT_GT(v.lo, v.hi);
}

TEST_F(ReadTab, IndexCellFaults)
{
    Prot::setThrow(false);
    IndexInterval v;
    EXPECT_TRUE(parseIndexCell("3 x", 1, 9, v));
    EXPECT_EQ(v.lo, 3);
    EXPECT_TRUE(has(newText(), "Zeile 0: : unerwarteter Text „x“ vor Trennzeichen „;“ überlesen"));
    EXPECT_FALSE(parseIndexCell("$NOPE", 1, 9, v));
    EXPECT_TRUE(has(newText(), "invalid variable $NOPE in input"));
    EXPECT_FALSE(parseIndexCell("rand(1,2)", 1, 9, v));
    EXPECT_TRUE(has(newText(), "invalid function rand in input"));
    EXPECT_EQ(Prot::count(SEV_ERROR), 2);
}

// ---------------------------------------------------------------- values and blocks

TEST_F(ReadTab, BlocksExpressionsAndIndexValues)
{
    write("t.csv", "# two indices, the last from 0\n"
                   "1;0..5;0.25\n"
                   "2;*;ix(1)*100+ix(2)\n"
                   "2;3;ix(2)*2 # the cell's own comment\n");
    FileEntry f = entry("t", 1);
    LA2 a("T", {2, 6}, 0);
    ReadResult r = readTable(f, a, "A\0B\0", VC_PLAIN);
    for (int j = 0; j < 6; ++j) EXPECT_EQ(a[0][j], 0.25);
    EXPECT_EQ(a[1][0], 200);
    EXPECT_EQ(a[1][3], 6);     // the last line wins
    EXPECT_EQ(a[1][5], 205);
    EXPECT_EQ(r.nonZero, 13u);    // every assignment counts, the overwritten one too
    EXPECT_EQ(r.nonInteger, 6u);
    EXPECT_DOUBLE_EQ(r.sum, 1.5 + 200 + 201 + 202 + 203 + 204 + 205 + 6);
    std::string p = newText();
    EXPECT_TRUE(has(p, "[reading] t.csv, 2 [indices], [without] [checkNumber]"));
    EXPECT_TRUE(has(p, "t.csv: 1 [fn_doubleValue]"));
    Prot::close();
    EXPECT_TRUE(has(slurpFile(dir + "v/prot/inp.htm"), ">t.csv</a>"));
}

TEST_F(ReadTab, EmptyIntervalAssignsNothingAndOnlyCommentsIsEmpty)
{
    write("t.csv", "2..1;5\n");
    FileEntry f = entry("t");
    LA1 a("T", {3}, 7);
    ReadResult r = readTable(f, a, "A\0");
    EXPECT_EQ(r.nonZero, 0u);
    for (double x : a) EXPECT_EQ(x, 0);   // all unassigned, filled with 0
    std::string p = newText();
    EXPECT_TRUE(has(p, "t.csv [fn_empty]"));
    EXPECT_TRUE(has(p, "t.csv: 3 [fn_zeros] ([fillDeg] 0.00%)"));
    EXPECT_EQ(Prot::count(SEV_ERROR), 0);

    write("c.csv", "# only\n#comments\n");
    FileEntry c = entry("c");
    LA2 b("B", {2, 2}, 7);
    readTable(c, b, "A\0B\0");
    p = newText();
    EXPECT_TRUE(has(p, "c.csv [fn_empty]"));
    EXPECT_TRUE(has(p, "c.csv: 4 [fn_zeros] ([fillDeg] 0.00%)"));
    EXPECT_FALSE(has(p, "[fn_missingIndex]"));   // nothing assigned: no listing
    EXPECT_FALSE(has(p, "[fn_noLines]"));         // comments are lines: an empty table meant as such

    write("e.csv", "");
    FileEntry e = entry("e");
    readTable(e, b, "A\0B\0");
    EXPECT_TRUE(has(newText(), "[file] e.csv: [fn_noLines]"));
}

TEST_F(ReadTab, WeightTableGivesCellsNotNamedItsFillValue)
{
    // weights of two rows read as "fill 1": a cell named keeps its value (a 0 as well), one
    // named twice the last, the others 1; an array made with 1 but read plainly holds 0 there
    write("w.csv", "1;1;3\n1;2;0\n2;3;2\n2;3;5\n");
    FileEntry f = entry("w");
    LA2 w("W", {2, 3}, 1.0);
    readTable(f, w, "A\0B\0", VC_PLAIN, 1.0);
    EXPECT_EQ(w[0], (std::vector<double>{3, 0, 1}));
    EXPECT_EQ(w[1], (std::vector<double>{1, 1, 5}));
    std::string p = newText();
    EXPECT_TRUE(has(p, "w.csv: 3 [fn_filledWith] 1 ([fillDeg] 50.00%)"));
    EXPECT_TRUE(has(p, "w.csv: 1 [fn_doubleValue]"));
    EXPECT_FALSE(has(p, "[fn_zeros]"));
    LA2 plain("P", {2, 3}, 1.0);
    readTable(f, plain, "A\0B\0");
    EXPECT_EQ(plain[0], (std::vector<double>{3, 0, 0}));
}

TEST_F(ReadTab, UnassignedCellsListedWithFillDegree)
{
    write("t.csv", "1;1;1\n");
    FileEntry f = entry("t");
    LA2 a("T", {2, 4}, 0);
    readTable(f, a, "A\0B\0");
    std::string p = newText();
    EXPECT_TRUE(has(p, "t.csv: 7 [fn_zeros] ([fillDeg] 12.50%)"));
    EXPECT_TRUE(has(p, "[fn_missingIndex] (A:1, B:2)"));
    EXPECT_TRUE(has(p, "[fn_missingIndex] (A:2, B:1)"));
    EXPECT_FALSE(has(p, "[fn_missingIndex] (A:2, B:2)"));   // only four listed
    EXPECT_TRUE(has(p, "...<br>"));
}

TEST_F(ReadTab, GuardsAndCommandsAnywhereInACommentLine)
{
    write("t.csv", "# set up;#! let($a 3) let($NBG 1)\n"
                   "?$NBG 2..9 1;9\n"
                   "?$NBG 1 2;$a*2\n"
                   "#!?$a 5..6 let($b 100)\n"
                   "#!?$a 1..4 let($b 7)\n"
                   "3;$b\n");
    FileEntry f = entry("t");
    LA1 a("T", {3}, 0);
    readTable(f, a, "A\0");
    EXPECT_EQ(a[0], 0);      // guarded away
    EXPECT_EQ(a[1], 6);
    EXPECT_EQ(a[2], 7);      // the second command ran, the first was guarded
}

TEST_F(ReadTab, TrailingDelimitersAndCellsBeyondTheValue)
{
    write("t.csv", "1;1;\n2;2;text;more\n");
    FileEntry f = entry("t");
    LA1 a("T", {2}, 0);
    readTable(f, a, "A\0");
    EXPECT_EQ(a[1], 2);
    EXPECT_FALSE(has(newText(), "endende Strichpunkte"));
    write("u.csv", "#! check_trailing_delimiter(1)\n1;1\n2;2;\n1;3;;\n");
    FileEntry u = entry("u");
    readTable(u, a, "A\0");
    EXPECT_TRUE(has(newText(), "Datei enthält ab Zeile 3 3 endende Strichpunkte"));
}

TEST_F(ReadTab, RatesAreCheckedBirthRatesUpToTwo)
{
    Prot::setThrow(false);
    write("rate.csv", "1;1.5\n2;-0.1\n3;0.5\n");
    FileEntry f = entry("rate");
    LA1 a("P", {3}, 0);
    readTable(f, a, "TYS\0", VC_RATE);
    EXPECT_EQ(a[0], 1.5);
    EXPECT_EQ(a[1], 0);
    EXPECT_EQ(a[2], 0.5);
    std::string p = newText();
    EXPECT_TRUE(has(p, "rate.csv(TYS:1) = 1.5 [outside] [0..1]"));
    EXPECT_TRUE(has(p, "rate.csv(TYS:2) = -0.1 [outside] [0..1]"));
    EXPECT_TRUE(has(p, "1 [rk2inp_fmt1870]"));
    EXPECT_EQ(Prot::count(SEV_WARNING), 2);

    write("fruc2020.csv", "1;1.7\n2;2.5\n");
    FileEntry g = entry("fruc%d");
    LA1 b("PR2G", {3}, 0);
    readTable(g, b, "TYG\0", VC_RATE);
    p = newText();
    EXPECT_FALSE(has(p, "fruc2020.csv(TYG:1)"));
    EXPECT_TRUE(has(p, "fruc2020.csv(TYG:2) = 2.5 [outside] [0..2]"));
    EXPECT_FALSE(has(p, "[fn_zeros]"));   // birth rates: the unassigned cell is not counted
    EXPECT_EQ(b[2], 0);
}

TEST_F(ReadTab, ExpandedCopyOfATableWithExpressions)
{
    write("x.csv", "1;0..1;2\n2;1;ix(2)+0.5\n");
    FileEntry f = entry("x", 1);
    LA2 a("X", {2, 2}, 0);
    readTable(f, a, "A\0B\0");
    std::string copy = slurpFile(dir + "v/x.csv");
    EXPECT_EQ(copy, "\xEF\xBB\xBF# expanded from ../x.csv\n2;1;1.5\n");
    // a constant table leaves no copy
    write("y.csv", "1;0..1;2\n");
    FileEntry g = entry("y", 1);
    readTable(g, a, "A\0B\0");
    EXPECT_FALSE(fs::exists(dir + "v/y.csv"));
    // expand(1) from the first line on writes all rows, the region as its key
    write("z.csv", "#! expand(1)\n1001;1;2\n1002..1005;1;0.5*ix(1)\n");
    FileEntry h = entry("z", 0, 0, 2);
    LA2 b("Z", {3, 1}, 0);
    readTable(h, b, "NGZ\0B\0");
    EXPECT_EQ(b[2][0], 1.5);
    EXPECT_EQ(slurpFile(dir + "v/z.csv"),
              "\xEF\xBB\xBF# expanded from ../z.csv\n1001;1;2\n1002;1;1\n1005;1;1.5\n");
}

TEST_F(ReadTab, OneValueAndCheckColumnInExpressions)
{
    write("one.csv", "# the value\n0.75\n");
    FileEntry f = entry("one");
    double v = 0;
    readTable(f, v, "one");
    EXPECT_EQ(v, 0.75);
    write("two.csv", "2019;9\n2020;0.5*4\n");
    FileEntry g = entry("two", 0, 3);
    readTable(g, v, "two");
    EXPECT_EQ(v, 2);
}

// ---------------------------------------------------------------- check modes

TEST_F(ReadTab, CheckNumberModes)
{
    write("gem2019.csv", "2019;1001;1;0..1;10\n2019;1005;1;0;ix(1)\n");
    FileEntry f = entry("gem%d", 1, 2, 2, 1);
    f.kind = 0;
    LA3 a("G", {3, 1, 2}, 0);
    readTable(f, a, "NGZ\0NBG\0NAG\0");
    EXPECT_EQ(f.fileNumber, 2019);
    EXPECT_EQ(a[0][0][1], 10);
    EXPECT_EQ(a[2][0][0], 2019);
    EXPECT_TRUE(has(newText(), "[reading] gem2019.csv, 3 [indices], [checkNumber] 2019"));

    write("w.csv", "2018;1;5\n");
    FileEntry w = entry("w", 0, 2);
    LA1 b("W", {2}, 0);
    std::string p = failing([&] { readTable(w, b, "A\0"); });
    EXPECT_TRUE(has(p, "[file] w.csv, [row]<br>1: <code>2018;1;5</code><br>[wrongCheckNumber]"));
    EXPECT_TRUE(has(p, "[fn_structure] w.csv:\n2020;1..2;float"));
    EXPECT_EQ(Prot::count(SEV_WARNING), 1);

    write("e.csv", "2020;1;5\n;2;5\n");
    FileEntry e = entry("e", 0, 2);
    p = failing([&] { readTable(e, b, "A\0"); });
    EXPECT_TRUE(has(p, "[row]<br>2: <code>;2;5</code><br>[fn_emptyLine]"));
    EXPECT_EQ(b[0], 5);

    write("m.csv", "17;1;5\n*;2;6\n");
    FileEntry m = entry("m", 0, 1);
    readTable(m, b, "A\0");
    EXPECT_EQ(b[0], 5);
    EXPECT_EQ(b[1], 6);
}

TEST_F(ReadTab, YearSections)
{
    write("s.csv", "2000..2019;1;1\n2020..2029;1;2\n*;2;3\n2021;2;4\n");
    FileEntry f = entry("s", 0, 3);
    LA1 a("S", {2}, 0);
    readTable(f, a, "A\0");
    EXPECT_EQ(a[0], 2);
    EXPECT_EQ(a[1], 3);
    EXPECT_TRUE(has(newText(), "[reading] s.csv 1 [indices], [section] 2020"));
    JAHR = 2021;
    readTable(f, a, "A\0");
    EXPECT_EQ(a[1], 4);
    write("old.csv", "2000..2019;1;1\n");
    FileEntry o = entry("old", 0, 3);
    std::string p = failing([&] { readTable(o, a, "A\0"); });
    EXPECT_TRUE(has(p, "old.csv: kein Abschnitt für das Jahr 2021"));
}

// ---------------------------------------------------------------- failures

TEST_F(ReadTab, IndexOutOfBoundsAndTextAfterTheValue)
{
    write("t.csv", "1;1;5\n0;1;5\n");
    FileEntry f = entry("t");
    LA2 a("T", {2, 3}, 0);
    std::string p = failing([&] { readTable(f, a, "A\0C.NTYB\0"); });
    EXPECT_TRUE(has(p, "[row]<br>2: <code>0;1;5</code><br>[attribute] 1 A = [0..0] [outside] [1..2] [fn_Eindex]"));
    EXPECT_TRUE(has(p, "[fn_structure] t.csv:\n1..2;1..3;float"));

    write("u.csv", "1;1;2 'abc'\n");
    FileEntry u = entry("u");
    p = failing([&] { readTable(u, a, "A\0B\0"); });
    EXPECT_TRUE(has(p, "1: <code>1;1;2 'abc'</code><br>[fn_long1]"));

    // without throwing, a structure error returns with what was read
    Prot::setThrow(false);
    write("v.csv", "1;1;5\n1;9;5\n2;1;5\n");
    FileEntry v = entry("v");
    ReadResult r = readTable(v, a, "A\0B\0");
    EXPECT_EQ(r.nonZero, 1u);
    EXPECT_EQ(a[0][0], 5);
    EXPECT_TRUE(isUndef(a[1][0]));
}

TEST_F(ReadTab, ValueNotFiniteAndCellSyntax)
{
    write("t.csv", "1;1/0\n");
    FileEntry f = entry("t");
    LA1 a("T", {1}, 0);
    std::string p = failing([&] { readTable(f, a, "A\0"); });
    EXPECT_TRUE(has(p, "Zeile 1: Ausdruck \"1/0\" liefert Wert \"inf\""));

    write("q.csv", "1;2\n1;\"open");
    FileEntry q = entry("q");
    p = failing([&] { readTable(q, a, "A\0"); });
    EXPECT_TRUE(has(p, "open: unfinished string in Zeile<br>2:")) << p;

    write("r.csv", "1;2\n1;\"x\"y;3\n");
    FileEntry r = entry("r");
    p = failing([&] { readTable(r, a, "A\0"); });
    EXPECT_TRUE(has(p, ": invalid character 'y' (121) after string in Zeile<br>2:")) << p;
}

TEST_F(ReadTab, ShortLineAndUnknownNamesInIndexCells)
{
    Prot::setThrow(false);
    write("t.csv", "1;2\n2\n$Q;1\nfoo(1);2\n");
    FileEntry f = entry("t");
    LA1 a("T", {2}, 0);
    readTable(f, a, "A\0");
    std::string p = newText();
    EXPECT_TRUE(has(p, "[row]<br>2: <code>2</code><br>[fn_short]"));
    EXPECT_TRUE(has(p, "invalid variable $Q in input"));
    EXPECT_TRUE(has(p, "invalid function foo in input"));
    EXPECT_EQ(a[0], 2);
    EXPECT_EQ(a[1], 0);
}

TEST_F(ReadTab, WholeLinesOfPlainCellsAndTheLinesBetweenThem)
{
    // plain lines are taken whole from the scanner, the others cell by cell: the values, the
    // line numbers and the texts of the messages are the same either way
    Prot::setThrow(false);
    write("t.csv", "1;1;5\n1;2;6\n\n# note\n2; 1;7\n2;3;8\r\n1;3;4;5\n2\n2;2;0.5\n1;4;9\n2;2;1\n");
    FileEntry f = entry("t");
    LA2 a("T", {2, 3}, 0);
    readTable(f, a, "A\0C.NTYB\0");
    std::string p = newText();
    EXPECT_EQ(a[0][0], 5);
    EXPECT_EQ(a[0][1], 6);
    EXPECT_EQ(a[0][2], 4);
    EXPECT_EQ(a[1][0], 7);
    EXPECT_EQ(a[1][1], 0.5);     // the line after the error is not read
    EXPECT_EQ(a[1][2], 8);
    EXPECT_TRUE(has(p, "<br>7: <code>1;3;4;5</code>")) << p;
    EXPECT_TRUE(has(p, "[row]<br>8: <code>2</code><br>[fn_short]")) << p;
    EXPECT_TRUE(has(p, "[row]<br>10: <code>1;4;9</code><br>[attribute] 2 NTYB = [4..4] [outside] [1..3] [fn_Eindex]")) << p;

    // a region named again by the next line counts as used by each line
    regionKeyUse().clear();
    write("r.csv", "1002;1;1\n1002;2;2\n1005;1;3\n1001..1005;2;4\n1005;1;5\n");
    FileEntry r = entry("r", 0, 0, 2);
    LA2 b("R", {3, 2}, 0);
    readTable(r, b, "NGZ\0B\0");
    EXPECT_EQ(b[1][0], 1);
    EXPECT_EQ(b[1][1], 4);
    EXPECT_EQ(b[2][0], 5);
    EXPECT_EQ(b[0][1], 4);
    EXPECT_EQ(regionKeyUse()[1001], 1);
    EXPECT_EQ(regionKeyUse()[1002], 3);
    EXPECT_EQ(regionKeyUse()[1005], 3);
}

// ---------------------------------------------------------------- region keys

TEST_F(ReadTab, RegionKeysInTheReferenceTable)
{
    write("r.csv", "1001..1005;7\n1002;ix(1)\n");
    FileEntry f = entry("r", 0, 0, 2);
    LA1 a("R", {3}, 0);
    readTable(f, a, "NGZ\0");
    EXPECT_EQ(a[0], 7);
    EXPECT_EQ(a[1], 2);     // the position, counted from 1
    EXPECT_EQ(a[2], 7);
    EXPECT_EQ(regionKeyUse()[1002], 2);
    EXPECT_EQ(regionKeyUse()[1005], 1);
    newText();

    write("u.csv", "1001..1003;1\n");
    FileEntry u = entry("u", 0, 0, 2);
    std::string p = failing([&] { readTable(u, a, "NGZ\0"); });
    EXPECT_TRUE(has(p, "unbekanntes Gebietskennzeichen 1003 in Zeile<br>1: <code>1001..1003;1</code>"));

    Prot::setThrow(false);
    write("w.csv", "1005..1001;1\n17*59;2\n1*1001;3\n");
    FileEntry w = entry("w", 0, 0, 2);
    readTable(w, a, "NGZ\0");
    p = newText();
    EXPECT_TRUE(has(p, "leeres Intervall Gebietskennzeichen 1005 .. 1001 in Zeile:<br>1: <code>1005..1001;1</code>"));
    EXPECT_TRUE(has(p, "unbekanntes Gebietskennzeichen 1003 in Zeile<br>2:"));
    EXPECT_TRUE(has(p, "[fn_gkz] 1003 (1)"));
    EXPECT_TRUE(has(p, "1 fehlende Gebietskennzeichen"));
    EXPECT_EQ(a[0], 3);
}

TEST_F(ReadTab, RegionKeyGroupsUnderCut)
{
    Prot::setThrow(false);
    FileEntry f = entry("g", 0, 0, 2);
    std::vector<GemCell> cells;
    long long sizes[4] = {-1, 1, 1, 1};
    write("g.csv", "#! cut(2)\n100100;1;1;1;1\n100101;1;1;1;2\n100500;1;1;1;3\n100101;1;1;1;4\n"
                   "100099;1;1;1;5\n300000;1;1;1;6\n");
    readTableList(f, cells, sizes, "NGZ\0NBG\0NGG\0NAG\0");
    EXPECT_EQ(keyScale, 100);
    ASSERT_EQ(run->indexKeys, (std::vector<int64_t>{100100, 100101, 100500}));
    ASSERT_EQ(cells.size(), 4u);
    EXPECT_EQ(GemKey::gz(cells[1].key), 1u);
    EXPECT_EQ(GemKey::gz(cells[3].key), 1u);
    std::string p = newText();
    EXPECT_TRUE(has(p, "Gebietskennzeichen 100099 nicht aufsteigend"));
    EXPECT_TRUE(has(p, "Gebietskennzeichen 300000 nicht als 3000 in REFTYP"));
    EXPECT_TRUE(has(p, "Indices nicht aufsteigend:\n4: (NGZ:3, NBG:1, NGG:1, NAG:1)\n5: (NGZ:2, NBG:1, NGG:1, NAG:1)"));
}

// ---------------------------------------------------------------- sparse and compact targets

TEST_F(ReadTab, SparseAndCompactTargets)
{
    write("p.csv", "1001;1;1;0;5\n1002;1;*;0..1;1\n1002;1;1;0;2\n");
    FileEntry f = entry("p", 1, 0, 2);
    GemTable sparse("S");
    sparse.make("S", 3, 1, 2, 2, true);
    ReadResult r = readTableAdd(f, sparse, "NGZ\0NBG\0NGG\0NAG\0");
    EXPECT_EQ(r.nonZero, 6u);
    EXPECT_EQ(sparse.get(0, 0, 0, 0), 5);
    EXPECT_EQ(sparse.get(1, 0, 0, 0), 3);    // added
    EXPECT_EQ(sparse.get(1, 0, 1, 1), 1);
    EXPECT_EQ(sparse.stored(), 5u);

    GemTable compact("C");
    compact.make("C", 3, 1, 2, 2, true);
    r = readTable(f, compact, "NGZ\0NBG\0NGG\0NAG\0");
    EXPECT_EQ(compact.get(1, 0, 0, 0), 2);   // overwritten
    EXPECT_EQ(compact.stored(), 5u);
    std::string p = newText();
    EXPECT_TRUE(has(p, "p.csv: 1 [fn_doubleValue]"));
    EXPECT_TRUE(has(p, "p.csv: 7 [fn_zeros] ([fillDeg] 41.67%)"));

    write("fb.csv", "1;2;1;1;0;1\n1;1;1;1;0;2\n1;2;1;1;0;3\n2;2;1;1;0;0\n");
    FileEntry b = entry("fb", 1);
    FBList list;
    long long sizes[5] = {2, 2, 1, 1, 1};
    readTableAdd(b, list, sizes, "TYB\0TYB\0NBG\0NGG\0NAG\0");
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list.get(0, 0, 0, 0, 0), 2);
    EXPECT_EQ(list.get(0, 1, 0, 0, 0), 4);
}

TEST_F(ReadTab, AdditiveDenseTable)
{
    write("a.csv", "1;1\n1;2\n*;1\n");
    FileEntry f = entry("a");
    LA1 a("A", {2}, 10);
    readTable(f, a, "A\0", VC_ADDITIVE);
    EXPECT_EQ(a[0], 14);
    EXPECT_EQ(a[1], 11);
    std::string p = newText();
    // a cell named twice is summed, and said; "*" adds to every cell without a word
    EXPECT_TRUE(has(p, "a.csv: 1 [fn_doubleValue] [fn_summed]")) << p;
    EXPECT_TRUE(has(p, "<code>1;2</code><br>(A:1) [fn_doubleIndex]: 2 [fn_summed]")) << p;
    EXPECT_FALSE(has(p, "[fn_zeros]"));
}

// A table whose name carries no year is read once in a run: every later year gets the same
// cells from memory, as a reading of the file would give them (checked against one after the
// kept tables are forgotten); a year section not read before, a cell that may change with the
// year or a changed file makes the file be read again, and a warning about the content is given
// at its first reading only.
TEST_F(ReadTab, TableWithoutYearInItsNameIsReadOncePerRun)
{
    struct Case {
        const char* name;
        const char* text;
        int mode;
        int valueCheck;
        std::vector<bool> kept;     // the years 2020 to 2023 from memory
    };
    const std::vector<Case> cases = {
        // a cell given twice (the last counts) and a cell no line names
        {"plain", "1;4\n3;2.5\n1;7\n", 0, VC_PLAIN, {false, true, true, true}},
        // sections: 2022 is read for itself; 2023 has only "*", read in 2020
        {"sections", "2020..2021;1;1\n2022;1;5\n2020..2021;3;0.5\n*;2;3\n*;1;9\n", 3, VC_PLAIN,
         {false, true, false, true}},
        // a table of sums adds to what its array holds, every year alike
        {"sums", "1;2\n1;3\n*;0.25\n", 0, VC_ADDITIVE, {false, true, true, true}},
        // an expression, a guard and a command may give another value each year
        {"expression", "1;2*ix(1)\n2;1\n", 0, VC_PLAIN, {false, false, false, false}},
        {"guard", "?$JAHR 2021..2022;1;6\n2;1\n", 0, VC_PLAIN, {false, false, false, false}},
        {"command", "#! let($a 1)\n2;1\n", 0, VC_PLAIN, {false, false, false, false}},
    };
    Prot::setThrow(false);
    LA1 additive("A", {3}, 0), additiveFresh("A", {3}, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        write(std::string(c.name) + ".csv", c.text);
        FileEntry f = entry(c.name, 0, c.mode);
        for (int year = 2020; year <= 2023; ++year) {
            JAHR = year;
            LA1 a("A", {3}, 0), fresh("A", {3}, 0);
            LA1& got = c.valueCheck == VC_ADDITIVE ? additive : a;
            LA1& want = c.valueCheck == VC_ADDITIVE ? additiveFresh : fresh;
            ReadResult r = readTable(f, got, "A\0", c.valueCheck);
            std::string p = newText();
            EXPECT_EQ(has(p, "[fn_kept]"), c.kept[static_cast<size_t>(year - 2020)]) << year << p;
            // the same year read without what was kept
            keptTables::forget();
            ReadResult w = readTable(f, want, "A\0", c.valueCheck);
            newText();
            EXPECT_EQ(got[0], want[0]) << year;
            EXPECT_EQ(got[1], want[1]) << year;
            EXPECT_EQ(got[2], want[2]) << year;
            EXPECT_EQ(r.nonZero, w.nonZero);
            EXPECT_EQ(r.sum, w.sum);
            // again with memory, for the next year
            LA1 again("A", {3}, 0);
            if (c.valueCheck != VC_ADDITIVE) readTable(f, again, "A\0", c.valueCheck);
            newText();
        }
    }
    EXPECT_EQ(additive[0], 4 * 5.25);
    EXPECT_EQ(additive[2], 4 * 0.25);

    // the sparse forms: cells collected and added after the reading, and the compact table
    write("p.csv", "1001;1;1;0;5\n1002;1;*;0..1;1\n1002;1;1;0;2\n");
    write("fb.csv", "1;2;1;1;0;1\n1;1;1;1;0;2\n1;2;1;1;0;3\n2;2;1;1;0;0\n");
    FileEntry region = entry("p", 1, 0, 2), b = entry("fb", 1);
    const long long fbSizes[5] = {2, 2, 1, 1, 1};
    for (int year = 2020; year <= 2022; ++year) {
        JAHR = year;
        for (bool fresh : {false, true}) {
            if (fresh) keptTables::forget();
            GemTable sparse("S"), compact("C");
            sparse.make("S", 3, 1, 2, 2, true);
            compact.make("C", 3, 1, 2, 2, true);
            FBList list;
            readTableAdd(region, sparse, "NGZ\0NBG\0NGG\0NAG\0");
            readTable(region, compact, "NGZ\0NBG\0NGG\0NAG\0");
            readTableAdd(b, list, fbSizes, "TYB\0TYB\0NBG\0NGG\0NAG\0");
            EXPECT_EQ(has(newText(), "[fn_kept]"), year > 2020 && !fresh) << year;
            EXPECT_EQ(sparse.get(1, 0, 0, 0), 3) << year;
            EXPECT_EQ(sparse.get(1, 0, 1, 1), 1) << year;
            EXPECT_EQ(sparse.stored(), 5u) << year;
            EXPECT_EQ(compact.get(1, 0, 0, 0), 2) << year;
            EXPECT_EQ(compact.stored(), 5u) << year;
            ASSERT_EQ(list.size(), 2u) << year;
            EXPECT_EQ(list.get(0, 1, 0, 0, 0), 4) << year;
        }
    }

    // the warnings about a table's content come with its first reading, not every year
    keptTables::forget();
    FileEntry plain = entry("plain");
    std::string p;
    for (int year = 2020; year <= 2023; ++year) {
        JAHR = year;
        LA1 a("A", {3}, 0);
        readTable(plain, a, "A\0");
        EXPECT_EQ(a[0], 7);
        EXPECT_EQ(a[2], 2.5);
        p += newText();
    }
    size_t doubles = 0;
    for (size_t at = p.find("plain.csv: 1 [fn_doubleValue]"); at != std::string::npos;
         at = p.find("plain.csv: 1 [fn_doubleValue]", at + 1))
        ++doubles;
    EXPECT_EQ(doubles, 1u) << p;

    // a file changed during the run is read again
    JAHR = 2024;
    write("plain.csv", "1;8\n2;1\n3;1\n");
    LA1 changed("A", {3}, 0);
    readTable(plain, changed, "A\0");
    EXPECT_FALSE(has(newText(), "[fn_kept]"));
    EXPECT_EQ(changed[0], 8);
}

TEST_F(ReadTab, LinesReadOtherwiseThanWrittenAreWarned)
{
    // each line below is read as something else than its writer meant; the reader says so,
    // naming file, line and cell, and reads the rest as before
    struct Case {
        const char* table;     // the lines of a year-section table: year; index; value
        const char* warning;   // what the protocol says
        double first, second;  // the cells afterwards
    } cases[] = {
        {"2020;1;5\n1;7\n", "2: <code>1;7</code><br>2 [fn_cells], 3 [fn_expected]", 5, 0},
        {"2020;1;5\n2020;2;7;9\n", "2: <code>2020;2;7;9</code><br>4 [fn_cells], 3 [fn_expected]: 1 [fn_cells] [fn_ignored]", 5, 7},
        {"2020;1;5\n2029..2020;2;7\n", "[attribute] 1 = 2029..2020: [fn_reversedYears]", 5, 0},
        {"2020;1;5\n1000000000000000000000000000000;2;7\n", "[fn_noYear] (1000..9999)", 5, 0},
        {"2020;1;5\n2020;2;0.01#2\n", "[attribute] 3 = 0.01#2: [fn_hashInNumber]", 5, 0.01},
        {"2020;1;5\n2020;2;37688+50", "2: <code>2020;2;37688+50</code><br>[attribute] 3 = 37688+50: [fn_unended]", 5, 37738},
        {"2020;1;-5\n2020;2;7\n", "(A:1) = -5: [fn_negativeCount]", -5, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.table);
        write("y.csv", c.table);
        FileEntry f = entry("y", 0, 3);
        f.valueDomain = 1;
        LA1 a("A", {2}, 0);
        readTable(f, a, "A\0");
        std::string p = newText();
        EXPECT_TRUE(has(p, "y.csv")) << p;
        EXPECT_TRUE(has(p, c.warning)) << p;
        EXPECT_EQ(a[0], c.first);
        EXPECT_EQ(a[1], c.second);
    }
    // shares: a quota of 10^30 and one below 0
    write("q.csv", "1;1e30\n2;-0.5\n");
    FileEntry q = entry("q");
    q.valueDomain = 2;
    LA1 b("B", {2}, 0);
    readTable(q, b, "B\0");
    std::string p = newText();
    EXPECT_TRUE(has(p, "(B:1) = 1e+30: [fn_shareOutside]")) << p;
    EXPECT_TRUE(has(p, "(B:2) = -0.5: [fn_shareOutside]")) << p;
    // a table read again in the next year says nothing new about the same lines
    readTable(q, b, "B\0");
    EXPECT_FALSE(has(newText(), "[fn_shareOutside]"));
}

// ---------------------------------------------------------------- opening

TEST_F(ReadTab, NumberedSearchFallbackAndLinks)
{
    write("strb2015.csv", "1;1\n");
    write("strb2023.csv", "1;9\n");
    FileEntry f = entry("strb%d");
    LA1 a("P", {1}, 0);
    readTable(f, a, "A\0");
    EXPECT_EQ(f.fileNumber, 2015);
    EXPECT_EQ(a[0], 1);
    EXPECT_TRUE(has(newText(), "[reading] strb2015.csv, 1 [indices]"));

    // the variant directory comes before the directory of the variant file, whatever the number
    write("v/strb2011.csv", "1;7\n");
    readTable(f, a, "A\0");
    EXPECT_EQ(f.fileNumber, 2011);
    EXPECT_EQ(a[0], 7);
    EXPECT_TRUE(has(newText(), "2011 <a href=\"../strb2011.csv\">strb2011.csv</a>"));

    // the shared variant beside the variant directory, linked from the protocol where it stands
    fs::create_directories(dir + "_variant");
    std::ofstream(dir + "_variant/wegz2019.csv") << "1;4\n";
    FileEntry w = entry("wegz%d");
    readTable(w, a, "A\0");
    EXPECT_EQ(a[0], 4);
    EXPECT_TRUE(has(newText(), "<a href=\"../../_variant/wegz2019.csv\">../_variant/wegz2019.csv</a>"));

    // reference table number 1
    write("reftyp.csv", "1;3\n");
    FileEntry t = entry("reft%d", 0, 0, 0, 1);
    readTable(t, a, "A\0");
    EXPECT_EQ(t.fileNumber, 1);
    EXPECT_EQ(a[0], 3);

    // a link file, followed as a symbolic link
    std::ofstream(root + "/elsewhere.csv") << "1;8\n";
    fs::create_symlink(root + "/elsewhere.csv", dir + "eckgem.csv.lnk");
    FileEntry l = entry("eckgem");
    readTable(l, a, "A\0");
    EXPECT_EQ(a[0], 8);
    EXPECT_TRUE(has(newText(), "[fn_isLink]"));

    // nothing found
    FileEntry n = entry("zuaq%d");
    std::string p = failing([&] { readTable(n, a, "A\0"); });
    EXPECT_TRUE(has(p, dir + "v/zuaq2020.csv: " + os::errorText(ENOENT))) << p;
    FileEntry m = entry("nebb");
    p = failing([&] { readTable(m, a, "A\0"); });
    EXPECT_TRUE(has(p, "[fn_open] " + dir + "v/nebb.csv (mode r): " + os::errorText(ENOENT))) << p;
}

TEST_F(ReadTab, BrokenTablesNeverCrash)
{
    Prot::setThrow(false);
    const std::vector<std::string> tables = {
        "99999999999999999999;99999999999999999999;1\n",
        "1-9223372036854775807-9223372036854775807;1;1\n",
        "1..;1;1\n..;1;1\n$;1;1\n*5;1;1\n1*;1;1\n",
        "irand(70000,2);1;1\nirand(1,;1;1\nirand;1;1\ni(0,9);1;1\n",
        "?;1;1\n?$;1;1\n?$X;1;1\n?$X 1..;1;1\n#!\n#!?\n#!?$Q 1\n",
        std::string(3000, '7') + ";1;1\n",
        std::string("\x01\x02\xff;\x00;\"\n", 9),
        "1;1;let($a)\n1;1;(((\n1;1;)\n1;1;max(\n1;1;'x\n",
        "1;1;1;\"\n",
        ";;;;\n;\n\n\n",
    };
    int k = 0;
    for (const std::string& t : tables) {
        std::string n = "b" + std::to_string(k++);
        write(n + ".csv", t);
        FileEntry f = entry(n, 0, 0, 2);
        LA2 a("B", {3, 2}, 0);
        EXPECT_NO_THROW(readTable(f, a, "NGZ\0NBG\0")) << t;
        FileEntry g = entry(n, 1, 3, 0);
        std::vector<GemCell> cells;
        long long sizes[4] = {2, 2, 2, 2};
        EXPECT_NO_THROW(readTableList(g, cells, sizes, "A\0B\0C\0D\0")) << t;
        exprStack.clear();
    }
    EXPECT_GT(Prot::count(SEV_ERROR), 10);
}

} // namespace
