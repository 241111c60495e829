// Tests of the labelled arrays: the three formats, the three destinations, heads and labels,
// rounding with carry and the thousands separator.
#include "tables/labelled_array.h"

#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/table_text.h"

namespace fs = std::filesystem;

namespace {

std::string capture(const std::function<void(FILE*)>& body) {
    FILE* f = tmpfile();
    body(f);
    fflush(f);
    rewind(f);
    std::string out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    fclose(f);
    return out;
}

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// keeps the settings of the array output and a temporary variant directory
class LaTest : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir = fs::temp_directory_path() / ("veldor_la_" + std::to_string(getpid()) + "_" + std::to_string(counter++));
        fs::create_directories(dir);
        saved[0] = ini::AUSGABE_EINZELWERTE;
        saved[1] = ini::MATRIX_AUSGABEFORMAT;
        saved[2] = ini::AusgabeNull;
        savedSep = si::separator;
        for (int i = 0; i < 5; ++i) savedFormats[i] = LAFormats[i];
        setLAFormats("%.15g", "%.15g");
        ini::AUSGABE_EINZELWERTE = 2;
        ini::MATRIX_AUSGABEFORMAT = 0;
        ini::AusgabeNull = 0;
        si::separator = ';';
        DD::clear();
        laReset();
        laRegionKey = nullptr;
    }
    void TearDown() override {
        Prot::close();
        Prot::reset();
        ini::AUSGABE_EINZELWERTE = saved[0];
        ini::MATRIX_AUSGABEFORMAT = saved[1];
        ini::AusgabeNull = saved[2];
        si::separator = savedSep;
        for (int i = 0; i < 5; ++i) LAFormats[i] = savedFormats[i];
        laRegionKey = nullptr;
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    // a variant "v" under dir with its protocol open; returns the protocol path
    fs::path openProtocol(bool withProtDir) {
        Prot::setup(dir.string() + "/", "v", 3, 0);
        if (withProtDir) fs::create_directories(dir / "v" / "prot");
        fs::path p = dir / "protocol.html";
        EXPECT_EQ(Prot::open(p.string(), ""), 0);
        return p;
    }
    fs::path dir;
    int saved[3];
    char savedSep;
    std::string savedFormats[5];
};

LA2 matrix() {
    LA2 a("QX", {2, 3}, 0.0);
    a[0] = {1, 0, 2.5};
    a[1] = {3, 0, 4};
    return a;
}

TEST_F(LaTest, HtmlMatrixInProtocol) {
    std::string out = capture([](FILE* f) { laPrint2(matrix(), f, "C.NTYB\0NAG\0", nullptr, LA_NUMBER); });
    EXPECT_EQ(out,
              "<br>[number] QX &Sigma;: 10.5\n"
              "<table>\n"
              "<tr><th class=l>NAG</th><th>[type] 1</th><th>[type] 2</th></tr>\n"
              "<tr><th>0</th><td class=r>1</td><td class=r>3</td></tr>\n"
              "<tr><th>2</th><td class=r>2.5</td><td class=r>4</td></tr>\n"
              "<tr><th>&Sigma;</th><th class=r>3.5</th><th class=r>7</th></tr>\n"
              "</table>\n");

    // with AusgabeNull the row of zeros stays, an undefined cell is empty, a rate is left aligned
    ini::AusgabeNull = 1;
    LA2 b = matrix();
    b[1][2] = UNDEF;
    out = capture([&](FILE* f) { laPrint2(b, f, "NTYB\0NAG\0", "@x;", LA_RATE); });
    EXPECT_EQ(out,
              "<br>[rate] QX [x]\n"
              "<table>\n"
              "<tr><th class=l>NAG</th><th>[type] 1</th><th>[type] 2</th></tr>\n"
              "<tr><th>0</th><td class=l>1</td><td class=l>3</td></tr>\n"
              "<tr><th>1</th><td class=l>0</td><td class=l>0</td></tr>\n"
              "<tr><th>2</th><td class=l>2.5</td><td class=l></td></tr>\n"
              "<tr><th>&Sigma;</th><th class=l>3.5</th><th class=l></th></tr>\n"
              "</table>\n");
}

TEST_F(LaTest, SemicolonTextInProtocol) {
    ini::MATRIX_AUSGABEFORMAT = 1;
    LA1 a("BR0N_", {3}, 0.0);
    a[0] = 2;
    a[2] = UNDEF;
    std::string out = capture([&](FILE* f) { laPrint1(a, f, "C.NTYB\0", nullptr, LA_NUMBER); });
    EXPECT_EQ(out,
              "<pre class=minor>[number] BR0N_ &Sigma;: undef\n"
              "3 NTYB\n"
              "1:;2\n"
              "3:;\n"
              "[sum];\n"
              "</pre>\n");
}

TEST_F(LaTest, PlainTextWithSexAndEmptyArray) {
    ini::MATRIX_AUSGABEFORMAT = 2;
    LA3 a("P", {1, 2, 2}, 0.0);
    a[0][0] = {1, UNDEF};
    std::string out = capture([&](FILE* f) { laPrint3(a, f, "NBG\0NGG\0NAG\0", nullptr, LA_UNKNOWN); });
    EXPECT_EQ(out,
              "<pre class=major>[unknown] P Anzahl undefinierte Werte: 1\n"
              "1 NBG 2 NGG 2 NAG\n"
              "1: [m] 1 undef\n"
              "[sum] 1 undef\n"
              "</pre>\n");

    LA3 e("E");
    out = capture([&](FILE* f) { laPrint3(e, f, "NTYB\0NBG\0NAG\0", nullptr, LA_INTEGER); });
    EXPECT_EQ(out,
              "<pre class=major>[integer] E &Sigma;: 0\n"
              "0 NTYB 0 NBG 0 NAG\n"
              "[sum] \n"
              "</pre>\n");

    // the dump: every line, no title, no sum
    out = capture([&](FILE* f) { laPrintText(f, a, "NBG\0NGG\0NAG\0"); });
    EXPECT_EQ(out, "1 NBG 2 NGG 2 NAG\n1: [m] 1 undef\n1: [w] 0 0\n");
}

TEST_F(LaTest, HtmlHeadOfCohortTableWithSexPairs) {
    LA4 a("C.BR30", {1, 2, 2, 1}, 0.0);
    a[0][0][0][0] = 1;
    a[0][0][1][0] = 2;
    a[0][1][0][0] = 3;
    a[0][1][1][0] = 4;
    std::string out = capture([&](FILE* f) { laPrint4(a, f, "C.NTYB\0NBG\0NGG\0NAG\0", nullptr, LA_INTEGER); });
    EXPECT_EQ(out,
              "<br>[integer] C.BR30 &Sigma;: 10\n"
              "<table>\n"
              "<tr><th class=l>NTYB</th><th colspan=4 style=\"text-align: left\">[type] 1</th></tr>\n"
              "<tr><th class=l>NBG</th><th colspan=2 style=\"text-align: center\">1</th>"
              "<th colspan=2 style=\"text-align: center\">2</th></tr>\n"
              "<tr><th class=l>NAG</th><th>m 1</th><th>1 w</th><th>m 2</th><th>2 w</th></tr>\n"
              "<tr><th>0</th><td class=r>1</td><td class=r>2</td><td class=r>3</td><td class=r>4</td></tr>\n"
              "<tr><th>&Sigma;</th><th class=r>1</th><th class=r>2</th><th class=r>3</th><th class=r>4</th></tr>\n"
              "</table>\n");
}

TEST_F(LaTest, RegionKeysAndTooltip) {
    laRegionKey = [](size_t gz, long long& key) {
        key = 1001 + static_cast<long long>(gz);
        return true;
    };
    LA1 a("DG1IN", {2}, 0.0);
    a[1] = 5;
    std::string out = capture([&](FILE* f) { laPrint1(a, f, "C.NGZ\0", nullptr, LA_NUMBER); });
    EXPECT_EQ(out,
              "<br>[number] DG1IN &Sigma;: 5\n"
              "<table>\n"
              "<tr><th class=l>GKZ</th><th>DG1IN</th></tr>\n"
              "<tr><th>1002</th><td class=r>5</td></tr>\n"
              "<tr><th>&Sigma;</th><th class=r>5</th></tr>\n"
              "</table>\n");

    // a name the dictionary knows gets its text as tooltip; a diff table shows the mean of |values|
    DD::lookup("DG1IN", "Neubau je Gebiet");
    a[0] = -1;
    a[1] = 3;
    out = capture([&](FILE* f) { laPrint1(a, f, "C.NGZ\0", nullptr, LA_DIFF); });
    EXPECT_EQ(out.substr(0, out.find('\n')),
              "<br>[diff] <a title=\"Neubau je Gebiet\"><span class=tooltip>DG1IN</span></a> [meanabs]: 2");

    // only a line when single values are off
    ini::AUSGABE_EINZELWERTE = 0;
    out = capture([&](FILE* f) { laPrint1(a, f, "C.NGZ\0", nullptr, LA_RATE); });
    EXPECT_EQ(out, "[rate] <a title=\"Neubau je Gebiet\"><span class=tooltip>DG1IN</span></a>: <span class=longname>Neubau je Gebiet</span><br>\n");
}

TEST_F(LaTest, SideFilesNumberedByFormat) {
    openProtocol(true);
    ini::AUSGABE_EINZELWERTE = 1;
    std::string out = capture([](FILE* f) {
        laPrint2(matrix(), f, "NTYB\0NAG\0", nullptr, LA_NUMBER);
        ini::MATRIX_AUSGABEFORMAT = 1;
        laPrint2(matrix(), f, "NTYB\0NAG\0", nullptr, LA_NUMBER);
        ini::MATRIX_AUSGABEFORMAT = 5;   // taken modulo 3
        laPrint2(matrix(), f, "NTYB\0NAG\0", nullptr, LA_NUMBER);
    });
    EXPECT_EQ(out,
              "[number] <a href=\"000001.htm\" target=_blank>QX</a><br>\n"
              "[number] <a href=\"000002.csv\" target=_blank>QX</a><br>\n"
              "[number] <a href=\"000003.txt\" target=_blank>QX</a><br>\n");
    EXPECT_EQ(laTableCounter(), 3);
    fs::path prot = dir / "v" / "prot";
    std::string htm = slurp(prot / "000001.htm");
    EXPECT_EQ(htm.rfind("<!DOCTYPE html>\n<html>\n<head>\n<meta charset=utf-8>\n<title>QX</title>\n", 0), 0u);
    EXPECT_NE(htm.find(Prot::tableStyle()), std::string::npos);
    EXPECT_NE(htm.find("</head>\n<body>\n[number] QX &Sigma;: 10.5\n<table>\n"), std::string::npos);
    EXPECT_TRUE(htm.ends_with("</tr>\n</table>\n</body>\n</html>\n"));
    // text side files carry no <pre>
    EXPECT_EQ(slurp(prot / "000002.csv"),
              "[number] QX &Sigma;: 10.5\n2 NTYB 3 NAG\n1:;1;0;2.5\n2:;3;0;4\n[sum];4;0;6.5\n");
    EXPECT_EQ(slurp(prot / "000003.txt"), "[number] QX &Sigma;: 10.5\n2 NTYB 3 NAG\n1: 1 0 2.5\n2: 3 0 4\n[sum] 4 0 6.5\n");
}

TEST_F(LaTest, ErrorsGoToTheProtocol) {
    fs::path p = openProtocol(false);   // no prot/ directory: the side file cannot be opened
    ini::AUSGABE_EINZELWERTE = 1;
    EXPECT_THROW(laPrint2(matrix(), nullptr, "NTYB\0NAG\0", nullptr, LA_NUMBER), std::runtime_error);
    // a sex dimension of three groups violates the assertion of the module
    ini::AUSGABE_EINZELWERTE = 2;
    LA2 s("S", {3, 1}, 1.0);
    EXPECT_THROW(laPrint2(s, nullptr, "NGG\0NAG\0", nullptr, LA_NUMBER), std::runtime_error);
    // two columns of different size: the second is reported and left out
    LA1 x("X", {2}, 1.0), y("Y", {3}, 1.0);
    laPrintColumns(nullptr, "XY", {&x, &y}, "NTYB", LA_NUMBER);
    Prot::close();
    std::string text = slurp(p);
    std::string path = (dir / "v" / "prot" / "000001.htm").string();
    EXPECT_NE(text.find("open " + path + " w: "), std::string::npos) << text;
    EXPECT_NE(text.find(": inrange(1, ngg, 2)</span>"), std::string::npos);
    EXPECT_NE(text.find("la: "), std::string::npos);
    EXPECT_NE(text.find("Y size 3 != 2</span>"), std::string::npos);
    EXPECT_NE(text.find("<tr><th class=l>NTYB</th><th>X</th></tr>\n"), std::string::npos);
}

TEST_F(LaTest, CompactListingsOfSparseForms) {
    std::vector<LAListRow> rows = {{0, 0, 1, 0, 1.5}, {2, 1, 0, 7, 2}, {3, 0, 0, 0, 0}};
    std::string out = capture([&](FILE* f) { laPrintList(f, "C.BGEM", nullptr, LA_NUMBER, rows); });
    EXPECT_EQ(out, "<pre>[number] C.BGEM, &Sigma; = 3.5\nNGZ BG GG AG\n1 1 2 0 1.5\n3 2 1 7 2\n</pre>\n");

    ini::MATRIX_AUSGABEFORMAT = 2;
    std::vector<LAPairRow> flows = {{0, 1, 0, 1, 30, 0.25}};
    out = capture([&](FILE* f) { laPrintPairs(f, "DR4FBs", nullptr, LA_NUMBER, flows, false); });
    EXPECT_EQ(out, "<pre class=major>[number] DR4FBs &Sigma;: 0.25\nTYB TYB BG GG AG\n1 2 1 2 30 0.25\n</pre>\n");
    laRegionKey = [](size_t gz, long long& key) {
        key = 500 + static_cast<long long>(gz);
        return true;
    };
    out = capture([&](FILE* f) { laPrintPairs(f, "DG5FIs", nullptr, LA_NUMBER, flows, true); });
    EXPECT_EQ(out, "<pre class=major>[number] DG5FIs &Sigma;: 0.25\n1 GKZ GKZ BG GG AG\n500 501 1 2 30 0.25\n</pre>\n");
}

TEST(LaRoundCarry, KeepsTheTotal) {
    LA1 a("a", {2}, 0.5);
    laRoundCarry(a);
    EXPECT_EQ(a[0], 1);
    EXPECT_EQ(a[1], 0);

    LA1 b("b", {5}, 0.4);
    laRoundCarry(b);
    EXPECT_EQ(b, (std::vector<double>{0, 1, 0, 1, 0}));

    // a zero stays zero and leaves the remainder for the next value
    LA1 c("c", {3}, 0.5);
    c[1] = 0;
    laRoundCarry(c);
    EXPECT_EQ(c, (std::vector<double>{1, 0, 0}));

    // negative values round away from zero
    LA1 d("d", {2}, -0.5);
    laRoundCarry(d);
    EXPECT_EQ(d, (std::vector<double>{-1, 0}));

    // the walk runs through the rows, first index outermost
    LA2 e("e", {2, 2}, 0.3);
    e[1][1] = 0.7;
    laRoundCarry(e);
    EXPECT_EQ(e[0], (std::vector<double>{0, 1}));
    EXPECT_EQ(e[1], (std::vector<double>{0, 1}));
}

TEST(LaArray, MakeExtentsAndSum) {
    LA5 a("A5", {2, 1, 3, 1, 4}, 0.25);
    EXPECT_EQ(a.extents(), (LA5::Extents{2, 1, 3, 1, 4}));
    EXPECT_EQ(a.count(), 24u);
    EXPECT_DOUBLE_EQ(a.sum(), 6.0);
    a.release();
    EXPECT_FALSE(a.exists());
    EXPECT_EQ(a.name, "A5");
    EXPECT_EQ(LA3("e", {2, 0, 3}, 1.0).extents(), (LA3::Extents{0, 0, 0}));
}

TEST(LaPic, ThousandsSeparatorOfTheLocale) {
    std::string old = setlocale(LC_NUMERIC, nullptr);
    ASSERT_NE(setlocale(LC_NUMERIC, "de_DE.UTF-8"), nullptr);
    EXPECT_EQ(Pic::Get(1234567.5, 1), "1.234.567,5");
    EXPECT_EQ(Pic::Get(1000LL), "1.000");
    EXPECT_EQ(Pic::Get(999), "999");
    EXPECT_EQ(Pic::Get(-1234567.5, 1), "-1.234.567,5");
    // the sign counts as a digit position
    EXPECT_EQ(Pic::Get(-234567.0, 0), "-.234.567");
    EXPECT_EQ(Pic::Get(1e70, 0), "error in Pic::Get");
    setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(Pic::Get(1234567.5, 1), "1234567.5");
    setlocale(LC_NUMERIC, old.c_str());
}

}  // namespace
