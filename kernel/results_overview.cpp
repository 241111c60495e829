// The results overview of a run, prot/results.htm, linked at the top of the protocol: what the
// forecast says on one screen. The total population by year as a chart, every aggregate at the
// start and at the end with its change, the components of change of each year by population
// group, the total fertility and life expectancy where the run computed them, the count of
// hints, warnings and errors with a link to the first of each, and links to the result files.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"
#include "tables/gnuplot_bridge.h"

namespace {

std::string text(const char* key) { return DD::expKey(std::string("@") + key + ";"); }


// a count of persons: whole, in the number format of the run
std::string persons(double v)
{
    char b[64];
    snprintf(b, sizeof b, "%.0f", std::round(v) == 0 ? 0.0 : std::round(v));
    return b;
}

std::string signedPersons(double v)
{
    std::string s = persons(v);
    return v >= 0.5 ? "+" + s : s;
}

std::string percent(double part, double whole)
{
    if (!(std::fabs(whole) > 0)) return "";
    char b[64];
    snprintf(b, sizeof b, "%+.1f %%", 100 * part / whole);
    return b;
}

std::string number(double v, const char* format)
{
    char b[64];
    snprintf(b, sizeof b, format, v);
    return b;
}

std::string groupLabel(int b)
{
    const std::string key = "BG_" + std::to_string(b);
    return DD::has(key) ? DD::lookup(key) : DD::lookup("BG") + " " + std::to_string(b);
}

double sum(const std::vector<double>& v)
{
    double s = 0;
    for (double x : v) s += x;
    return s;
}

double at(const std::vector<double>& v, size_t i) { return i < v.size() ? v[i] : 0.0; }

// the total by year: the stock before the first year, then at the end of each
std::vector<std::pair<int, double>> totals(const Orvane& c)
{
    std::vector<std::pair<int, double>> t;
    if (!c.startByGroup.empty()) t.emplace_back(periodLabel(ini::STARTJAHR - 1), sum(c.startByGroup));
    for (const auto& [year, a] : c.accountByYear)
        if (!a.end.empty()) t.emplace_back(year, sum(a.end));
    return t;
}

// the chart of the total population by year (and by group when there are several); false
// when gnuplot could not be started
bool populationChart(const Orvane& c)
{
    const auto t = totals(c);
    if (t.size() < 2) return false;
    FILE* p = plotOpen(Prot::stream(), Prot::protocolLevel(), si::appDir, "results");
    if (!p) return false;
    fprintf(p, "%s\nset output '%s'\n", plotTerminal(), Prot::filePath("results.png").c_str());
    fprintf(p, "set title '%s'\nset xlabel '%s'\nset ylabel '%s'\nset grid\nset key outside\n"
               "set xtics 1 rotate by 90 offset 0,-1.8,0 autofreq 1,1\nset bmargin 4.5\nset format y '%%.0f'\n",
            text("ov_populationByYear").c_str(), text("year").c_str(), text("inhabitant").c_str());
    const size_t groups = c.startByGroup.size();
    fprintf(p, "plot '-' using 1:2 with linespoints lw 2 pt 7 lc rgb '#0072B2' title '%s'", text("ov_total").c_str());
    const char* colours[] = {"#E69F00", "#009E73", "#CC79A7", "#D55E00", "#56B4E9", "#999999"};
    if (groups > 1)
        for (size_t b = 0; b < groups; ++b)
            fprintf(p, ", '-' using 1:2 with linespoints lw 1.5 pt 5 lc rgb '%s' title '%s'", colours[b % 6],
                    groupLabel(int(b) + 1).c_str());
    fprintf(p, "\n");
    for (const auto& [year, v] : t) fprintf(p, "%d %.15g\n", year, v);
    fprintf(p, "e\n");
    if (groups > 1)
        for (size_t b = 0; b < groups; ++b) {
            fprintf(p, "%d %.15g\n", periodLabel(ini::STARTJAHR - 1), at(c.startByGroup, b));
            for (const auto& [year, a] : c.accountByYear) fprintf(p, "%d %.15g\n", year, at(a.end, b));
            fprintf(p, "e\n");
        }
    fprintf(p, "set output\n");
    plotClose(Prot::stream(), Prot::protocolLevel(), p, si::appDir, "results");
    return true;
}

void messagesBlock(FILE* f)
{
    fprintf(f, "<h2>%s</h2>\n<table>\n", text("ov_messages").c_str());
    for (int severity : {SEV_ERROR, SEV_WARNING, SEV_HINT}) {
        const int n = Prot::count(severity), anchor = Prot::firstAnchor(severity);
        fprintf(f, "<tr><th class=\"l %s\">%s</th><td>%d</td><td class=l>", Prot::severityName(severity),
                DD::lookup(Prot::severityName(severity)).c_str(), n);
        if (n > 0 && anchor > 0)
            fprintf(f, "<a href=\"index.html#%d\">%s</a>", anchor, text("ov_first").c_str());
        fprintf(f, "</td></tr>\n");
    }
    fprintf(f, "</table>\n");
}

void aggregatesBlock(FILE* f, const Orvane& c)
{
    if (ini::DIFF_G <= 0 || c.aggregateStart.empty() || c.aggregateByYear.empty()) return;
    const auto& [endYear, end] = *c.aggregateByYear.rbegin();
    const int startYear = periodLabel(ini::STARTJAHR - 1);
    fprintf(f, "<h2>%s</h2>\n<table>\n<tr><th class=l>%s</th>", text("ov_aggregates").c_str(),
            text("aggregate").c_str());
    if (ini::DIFF_G == 2) fprintf(f, "<th class=l>%s</th>", text("ov_name").c_str());
    fprintf(f, "<th>%d</th><th>%d</th><th>%s</th><th>%s</th></tr>\n", startYear, endYear, text("ov_change").c_str(),
            text("ov_changePercent").c_str());
    double s0 = 0, s1 = 0;
    for (size_t row = 0; row < c.aggregateStart.size(); ++row) {
        const double a = c.aggregateStart[row], b = at(end, row);
        s0 += a;
        s1 += b;
        fprintf(f, "<tr><th class=l>%lld</th>", RK::refKey(ini::DIFF_G, int(row)));
        if (ini::DIFF_G == 2) fprintf(f, "<td class=l>%s</td>", htmlText(c.region(int(row)).name).c_str());
        fprintf(f, "<td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>\n", persons(a).c_str(), persons(b).c_str(),
                signedPersons(b - a).c_str(), percent(b - a, a).c_str());
    }
    if (c.aggregateStart.size() > 1) {
        fprintf(f, "<tr class=total><th class=l>%s</th>", text("ov_total").c_str());
        if (ini::DIFF_G == 2) fprintf(f, "<td></td>");
        fprintf(f, "<td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>\n", persons(s0).c_str(), persons(s1).c_str(),
                signedPersons(s1 - s0).c_str(), percent(s1 - s0, s0).c_str());
    }
    fprintf(f, "</table>\n");
}

// one row of the components table
void componentRow(FILE* f, int year, const std::string& who, double start, const Orvane::GroupAccount& a, size_t b,
                  bool whole, double end)
{
    auto value = [&](const std::vector<double>& v) { return whole ? sum(v) : at(v, b); };
    const double births = value(a.births), deaths = value(a.deaths), in = value(a.arrivals),
                 out = value(a.departures), groups = value(a.groupJoined) - value(a.groupLeft);
    fprintf(f, "<tr%s><th>%d</th><th class=l>%s</th><td>%s</td><td>%s</td><td>%s</td><td>%s</td><td>%s</td>",
            whole ? " class=total" : "", year, who.c_str(), persons(start).c_str(), persons(births).c_str(),
            persons(deaths).c_str(), persons(in).c_str(), persons(out).c_str());
    fprintf(f, "<td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>\n", signedPersons(groups).c_str(),
            signedPersons(end - start - (births - deaths + in - out + groups)).c_str(), persons(end).c_str(),
            signedPersons(end - start).c_str());
}

void componentsBlock(FILE* f, const Orvane& c)
{
    if (c.accountByYear.empty() || c.startByGroup.empty()) return;
    const size_t groups = c.startByGroup.size();
    fprintf(f, "<h2>%s</h2>\n<p>%s</p>\n<table>\n<tr><th>%s</th><th class=l>%s</th>", text("ov_components").c_str(),
            text("ov_componentsNote").c_str(), text("year").c_str(), text("BG").c_str());
    for (const char* key : {"ov_start", "ov_births", "ov_deaths", "ov_arrivals", "ov_departures", "ov_groupChange",
                            "ov_internal", "ov_end", "ov_change"})
        fprintf(f, "<th>%s</th>", text(key).c_str());
    fprintf(f, "</tr>\n");
    std::vector<double> start = c.startByGroup;
    for (const auto& [year, a] : c.accountByYear) {
        if (groups > 1)
            for (size_t b = 0; b < groups; ++b)
                componentRow(f, year, groupLabel(int(b) + 1), start[b], a, b, false, at(a.end, b));
        componentRow(f, year, text("ov_total"), sum(start), a, 0, true, sum(a.end));
        for (size_t b = 0; b < groups; ++b) start[b] = at(a.end, b);
    }
    fprintf(f, "</table>\n");
}

// total fertility by birth type and group, life expectancy at birth by death type, group and
// sex: in the first and the last year the run computed them
void indicatorsBlock(FILE* f, const Orvane& c)
{
    if (c.fertilityByYear.empty() && c.lifeExpectancyByYear.empty()) return;
    fprintf(f, "<h2>%s</h2>\n", text("ov_indicators").c_str());
    if (!c.fertilityByYear.empty()) {
        const auto& [y0, first] = *c.fertilityByYear.begin();
        const auto& [y1, last] = *c.fertilityByYear.rbegin();
        fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th class=l>TYG</th><th class=l>%s</th><th>%d</th><th>%d</th></tr>\n",
                text("ov_tfr").c_str(), text("BG").c_str(), y0, y1);
        for (size_t t = 0; t < first.size(); ++t)
            for (size_t b = 0; b < first[t].size(); ++b)
                fprintf(f, "<tr><th class=l>%zu</th><th class=l>%s</th><td>%s</td><td>%s</td></tr>\n", t + 1,
                        groupLabel(int(b) + 1).c_str(), number(first[t][b], "%.2f").c_str(),
                        number(t < last.size() && b < last[t].size() ? last[t][b] : NAN, "%.2f").c_str());
        fprintf(f, "</table>\n");
    }
    if (!c.lifeExpectancyByYear.empty()) {
        const auto& [y0, first] = *c.lifeExpectancyByYear.begin();
        const auto& [y1, last] = *c.lifeExpectancyByYear.rbegin();
        fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th class=l>TYS</th><th class=l>%s</th><th class=l>%s</th>"
                   "<th>%d</th><th>%d</th></tr>\n",
                text("ov_e0").c_str(), text("BG").c_str(), text("GG").c_str(), y0, y1);
        for (size_t t = 0; t < first.size(); ++t)
            for (size_t b = 0; b < first[t].size(); ++b)
                for (size_t g = 0; g < first[t][b].size(); ++g) {
                    const double end = t < last.size() && b < last[t].size() && g < last[t][b].size() ? last[t][b][g] : NAN;
                    const std::string sex = first[t][b].size() == 2 ? DD::lookup(g == 0 ? "male" : "female")
                                                                    : std::to_string(g + 1);
                    fprintf(f, "<tr><th class=l>%zu</th><th class=l>%s</th><th class=l>%s</th><td>%s</td><td>%s</td></tr>\n",
                            t + 1, groupLabel(int(b) + 1).c_str(), sex.c_str(), number(first[t][b][g], "%.1f").c_str(),
                            number(end, "%.1f").c_str());
                }
        fprintf(f, "</table>\n");
    }
}

// the pages written after the forecast, by their file: title key
std::vector<std::pair<std::string, std::string>>& laterPages()
{
    static std::vector<std::pair<std::string, std::string>> pages;
    return pages;
}

void laterPagesBlock(FILE* f)
{
    if (laterPages().empty()) return;
    fprintf(f, "<h2>%s</h2>\n<p>", text("ov_laterPages").c_str());
    bool first = true;
    for (const auto& [file, key] : laterPages()) {
        fprintf(f, "%s<a href=\"%s\">%s</a>", first ? "" : " &middot; ", htmlText(file).c_str(), text(key.c_str()).c_str());
        first = false;
    }
    fprintf(f, "</p>\n<p>%s</p>\n", text("ov_laterPagesNote").c_str());
}

void filesBlock(FILE* f)
{
    fprintf(f, "<h2>%s</h2>\n<p>", text("ov_files").c_str());
    bool first = true;
    for (const std::string& name : Prot::outputFiles()) {
        fprintf(f, "%s<a href=\"../%s\">%s</a>", first ? "" : " &middot; ", htmlText(name).c_str(), htmlText(name).c_str());
        first = false;
    }
    fprintf(f, "</p>\n<p><a href=\"index.html\">%s</a> &middot; <a href=\"inp.htm\">%s</a> &middot; "
               "<a href=\"out.htm\">%s</a></p>\n",
            DD::lookup("protocol").c_str(), DD::lookup("inputFiles").c_str(), DD::lookup("outputFiles").c_str());
}

const char* const STYLE =
    "body { font-family: \"DejaVu Sans\", Arial, sans-serif; font-size: 10pt; color: #202020; margin: 12px; }\n"
    "h1, h2 { color: #B82619; background-color: #EAE2BB; padding: 2px 6px; }\n"
    "table { border-collapse: collapse; margin: 6px 0; }\n"
    "caption { background: #E0E0F0; text-align: left; padding: 5px 7px; font-weight: bold; }\n"
    "td { background: #E7E7F7; padding: 1px 7px; text-align: right; }\n"
    "th { font-weight: normal; background: #D7E7F7; padding: 1px 7px; text-align: right; }\n"
    "th.l { white-space: nowrap; }\n.l { text-align: left; }\n.total td, .total th { font-weight: bold; }\n"
    ".hint { background: #99FF99; }\n.warning { background: yellow; }\n.error { background: #FF5555; }\n"
    ".status { font-size: 12pt; }\n";

} // namespace

void announceLaterPage(const std::string& file, const std::string& titleKey)
{
    for (const auto& page : laterPages())
        if (page.first == file) return;
    laterPages().push_back({file, titleKey});
}

void writeResultsOverview(const Orvane& c, bool finished)
{
    if (!Prot::stream()) return;
    // the chart only where the run asks for charts: a run without them starts no gnuplot
    const bool chart = finished && ini::PLOT_DATEN != 0 && populationChart(c);
    const std::string path = Prot::filePath("results.htm");
    FILE* f = safeOutput::open(path);
    if (!f) {
        Prot::message(SEV_WARNING, "%s: %s", path.c_str(), "cannot open");
        return;
    }
    const std::string title = text("resultsOverview");
    fprintf(f, "<!DOCTYPE html>\n<html lang=%s>\n<head>\n<meta charset=utf-8>\n<title>%s</title>\n<style>\n%s</style>\n"
               "</head>\n<body>\n",
            DD::language().empty() ? "de" : DD::language().c_str(), htmlText(title).c_str(), STYLE);
    fprintf(f, "<h1>%s: %s%s</h1>\n", htmlText(title).c_str(), htmlText(si::Directory).c_str(), htmlText(si::Version).c_str());
    fprintf(f, "<p class=status>%s %d &ndash; %d: %s</p>\n", text("ov_years").c_str(), ini::STARTJAHR, ini::ENDJAHR,
            text(finished ? "ov_finished" : "ov_stopped").c_str());
    const auto t = totals(c);
    if (t.size() >= 2)
        fprintf(f, "<p class=status>%s %d: %s &rarr; %d: %s (%s, %s)</p>\n", text("inhabitant").c_str(), t.front().first,
                persons(t.front().second).c_str(), t.back().first, persons(t.back().second).c_str(),
                signedPersons(t.back().second - t.front().second).c_str(),
                percent(t.back().second - t.front().second, t.front().second).c_str());
    messagesBlock(f);
    if (chart) fprintf(f, "<p><img alt=\"%s\" src=\"results.png\"></p>\n", text("ov_populationByYear").c_str());
    aggregatesBlock(f, c);
    componentsBlock(f, c);
    indicatorsBlock(f, c);
    laterPagesBlock(f);
    filesBlock(f);
    fprintf(f, "</body>\n</html>\n");
    safeOutput::close(f);
}
