// The results overview and the charts of a run of the demo study area: the account of every
// group and year closes (start + births - deaths + arrivals - departures + change of group =
// end), the totals are those of the yearly tables, the messages are counted and linked, and the
// population chart puts each sex on the side its label names.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace fs = std::filesystem;

namespace {

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\nSpaltentrennzeichen=;\n"
                             "[TRACE]\nlogfile=1\n[GNUPLOT]\nsaveCmd=1\nsaveLog=1\n";

// a whole number of the page ("+50", "-66", "37688")
double wholeNumber(const std::string& cell) { return cell.empty() ? 0 : std::stod(cell); }

struct AccountRow {
    int year;
    std::string who;
    std::vector<double> v;   // start, births, deaths, arrivals, departures, group change, difference, end, change
};

std::vector<AccountRow> accountRows(const std::string& page)
{
    std::vector<AccountRow> rows;
    static const std::regex row(R"re(<tr(?: class=total)?><th>(\d+)</th><th class=l>([^<]*)</th>((?:<td>[^<]*</td>){9})</tr>)re");
    static const std::regex cell(R"(<td>([^<]*)</td>)");
    for (auto it = std::sregex_iterator(page.begin(), page.end(), row); it != std::sregex_iterator(); ++it) {
        AccountRow r{std::stoi((*it)[1]), (*it)[2], {}};
        std::string cells = (*it)[3];
        for (auto c = std::sregex_iterator(cells.begin(), cells.end(), cell); c != std::sregex_iterator(); ++c)
            r.v.push_back(wholeNumber((*c)[1]));
        rows.push_back(r);
    }
    return rows;
}

// the persons of a yearly table: the last cell of each data line, with its decimal comma
double totalOf(const Sandbox& s, int year)
{
    double sum = 0;
    std::istringstream lines(s.read("demo/demo/gem" + std::to_string(year) + ".csv"));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#' || line.rfind("\xEF\xBB\xBF", 0) == 0) continue;
        std::string cell = line.substr(line.rfind(';') + 1);
        for (char& c : cell)
            if (c == ',') c = '.';
        sum += std::stod(cell);
    }
    return sum;
}

struct Demo : Sandbox {
    RunResult result;
    explicit Demo(const std::string& language)
    {
        write("Data/veldor.ini", SETTINGS);
        fs::copy(std::string(VELDOR_SOURCE_DIR) + "/examples", path("demo"), fs::copy_options::recursive);
        result = run({"orvane", "-d", "demo/", "-v", "demo", "-l", language});
    }
};

} // namespace

TEST(ResultsOverview, DemoAccountClosesAndMatchesTheTables)
{
    Demo s("de");
    ASSERT_EQ(s.result.status, 0) << s.result.out << s.result.err;
    const std::string page = s.read("demo/demo/prot/results.htm");
    const std::string index = s.read("demo/demo/prot/index.html");

    // what gnuplot says goes into the protocol, not among the German lines of the console
    EXPECT_EQ(s.result.out.find("decimal_sign"), std::string::npos) << s.result.out;
    EXPECT_EQ(s.result.err.find("decimal_sign"), std::string::npos) << s.result.err;
    EXPECT_EQ(s.result.err.find("frames in animation"), std::string::npos) << s.result.err;
    // the protocol opens with the way to the overview
    EXPECT_NE(index.find("<div id=doc>\n<p class=results><a href=\"results.htm\">Ergebnisübersicht</a></p>\n<h1"),
              std::string::npos);

    std::vector<AccountRow> rows = accountRows(page);
    ASSERT_EQ(rows.size(), 17u * 3);   // 2024 to 2040, two groups and the total
    std::map<std::string, double> carried;   // each group's end is its start of the next year
    for (const AccountRow& r : rows) {
        ASSERT_EQ(r.v.size(), 9u);
        const double start = r.v[0], births = r.v[1], deaths = r.v[2], in = r.v[3], out = r.v[4], groups = r.v[5],
                     end = r.v[7];
        SCOPED_TRACE(std::to_string(r.year) + " " + r.who);
        EXPECT_EQ(r.v[6], 0);   // nothing left over
        // the rounded components add up to the rounded change within the rounding of six numbers
        EXPECT_NEAR(start + births - deaths + in - out + groups, end, 3);
        EXPECT_NEAR(r.v[8], end - start, 1);   // the change rounded, not the difference of two rounded
        if (carried.count(r.who)) {
            EXPECT_EQ(carried[r.who], start);
        }
        carried[r.who] = end;
        if (r.who == "Insgesamt") {
            EXPECT_EQ(in, 1500);   // the arrivals of zuvol.csv
            EXPECT_EQ(groups, 0);  // a change of group stays inside the area
            EXPECT_NEAR(end, totalOf(s, r.year), 0.5);
        }
    }
    // the town meets its target: 50 more each year
    EXPECT_EQ(rows[2].v[0], 37688);
    EXPECT_EQ(rows.back().v[7], 38538);
    // the aggregate (the whole town) from the end of 2023 to 2040
    EXPECT_NE(page.find("<tr><th class=l>1</th><td>37688</td><td>38538</td><td>+850</td><td>+2,3 %</td></tr>"),
              std::string::npos);
    // the messages with the first of each kind, whose anchor stands in the protocol
    std::smatch m;
    ASSERT_TRUE(std::regex_search(page, m, std::regex(R"re(Warnung</th><td>(\d+)</td><td class=l><a href="index.html#(\d+)">)re")));
    EXPECT_NE(index.find("<span id=" + m[2].str() + " class=warning>Warnung 1: "), std::string::npos);
    EXPECT_NE(s.result.out.find(m[1].str() + " Warnungen"), std::string::npos) << s.result.out;
    EXPECT_NE(page.find("<td>0</td><td class=l></td>"), std::string::npos);   // no error, no link
    // fertility and life expectancy of the first and the last year, the chart, the files
    EXPECT_NE(page.find("Zusammengefasste Geburtenziffer"), std::string::npos);
    EXPECT_NE(page.find("Lebenserwartung bei Geburt"), std::string::npos);
    EXPECT_TRUE(s.exists("demo/demo/prot/results.png"));
    EXPECT_NE(page.find("<a href=\"../gem2040.csv\">gem2040.csv</a>"), std::string::npos);

    // the population chart: men (sex 1) below the axis, the label read from the top so that
    // "weiblich" stands above, the legend with the names of the groups and the sexes
    const std::string chart = s.read("demo/demo/prot/pltagg001.txt");
    EXPECT_NE(chart.find("set ylabel 'weiblich | männlich'\nset ylabel rotate by -90\n"), std::string::npos);
    EXPECT_NE(chart.find("title 'Bevölkerungsgruppe 1;1'"), std::string::npos);
    EXPECT_NE(chart.find("title '1 = männlich'"), std::string::npos);
    EXPECT_NE(chart.find("title '2 = weiblich'"), std::string::npos);
    EXPECT_NE(chart.find("\n2040;-"), std::string::npos);   // the first series is drawn downwards
    // the movement charts: what they count on the axis, in the key, each in its own colour
    const std::string moves = s.read("demo/demo/prot/pltbewgemagg.txt");
    EXPECT_NE(moves.find("set title 'Aggregat 1 Sterbefälle'\nset ylabel 'Personen je Jahr'\n"
                         "set key title 'Sterbefälle'\nset linetype 1 lc rgb '#0072B2'"),
              std::string::npos);
    EXPECT_NE(moves.find("set key title 'Außenzuzug'\nset linetype 1 lc rgb '#1B9E77'"), std::string::npos);
    // inp.htm: one row per table, then every read by year, each in the specified form
    const std::string inputs = s.read("demo/demo/prot/inp.htm");
    EXPECT_EQ(countOf(inputs, "target=_top>fruc2024.csv</a></td><td>Fruchtbarkeitsraten</td><td>17</td><td>2024 &ndash; 2040</td>"), 1);
    EXPECT_EQ(countOf(inputs, "<details><summary>2031 ("), 1);
    EXPECT_EQ(countOf(inputs, "<a href=\"../../fruc2024.csv\" target=_top>fruc2024.csv</a><br>\n"), 17);
}

TEST(ResultsOverview, EnglishRunSpeaksEnglish)
{
    Demo s("en");
    ASSERT_EQ(s.result.status, 0) << s.result.out << s.result.err;
    const std::string page = s.read("demo/demo/prot/results.htm");
    EXPECT_NE(page.find("<html lang=en>"), std::string::npos);
    EXPECT_NE(page.find("Components of change"), std::string::npos);
    EXPECT_NE(page.find("<tr class=total><th>2040</th><th class=l>Total</th>"), std::string::npos);
    const std::string index = s.read("demo/demo/prot/index.html");
    // the literal messages in their English form, the system's name, a date the English way
    EXPECT_NE(index.find("28 regions without a lower and without an upper bound"), std::string::npos);
    EXPECT_NE(index.find("QR3ZA scaled to a sum of 1"), std::string::npos);
    EXPECT_EQ(index.find("Win64"), std::string::npos);
    EXPECT_NE(index.find(", serial, logfile, Language en"), std::string::npos);
    EXPECT_TRUE(std::regex_search(index, std::regex("\n(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z][a-z] ")));
    const std::string targets = s.read("demo/demo/prot/plteckgebstrb.txt");
    EXPECT_NE(targets.find("set title 'Births target'"), std::string::npos);
    EXPECT_NE(index.find("<img alt=\"Births target+Deaths target\" src=\"eckgebstrb.png\">"), std::string::npos);
}
