// The summary of a finished run: unused region keys, the charts of the aggregated population
// and of the aggregated movements drawn by gnuplot into the protocol, the link to the
// population pyramid, and the close of the gstrom output.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cerrno>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"
#include "tables/gnuplot_bridge.h"
#include "tables/input_reader.h"
#include "tables/table_text.h"

namespace {

const char* const FILL = "set style fill transparent solid 0.8 border lt -1";

std::string variantDirectory()
{
    std::string dir = si::Directory + si::Version;
    if (!dir.empty() && dir.back() != '/') dir += '/';
    return dir;
}

std::string decimalSignLine()
{
    return "set decimalsign locale '" + si::localeName + "'";
}

using Row = std::vector<std::string>;

// each data row of a table, as its cells, to f; false with the error reported
bool forEachRow(const std::string& path, const std::string& name, const std::function<void(const Row&)>& f)
{
    FILE* in = fopen(path.c_str(), "rb");
    if (!in) {
        Prot::message(SEV_ERROR, "%s: %s\n", name.c_str(), "cannot open");
        return false;
    }
    char sep[2] = {si::separator, 0};
    CsvReader reader(in, sep);
    Row row;
    char cell[512];
    for (;;) {
        int end = reader.next(cell, sizeof cell);
        if (end < 0 && end != -1) {
            Prot::message(SEV_ERROR, "%d: %s: %s", int(reader.lineNumber()), name.c_str(),
                          CsvReader::errorText(end).c_str());
            fclose(in);
            return false;
        }
        if (end == -1) {
            if (!row.empty() && !(row.size() == 1 && row[0].empty())) f(row);
            break;
        }
        if (reader.isComment) {
            row.clear();
            continue;
        }
        row.emplace_back(cell);
        if (end == '\n') {
            if (!(row.size() == 1 && row[0].empty())) f(row);
            row.clear();
        }
    }
    fclose(in);
    return true;
}

// the data rows of a table: the cells of each line; false with the error reported
bool readRows(const std::string& path, const std::string& name, std::vector<Row>& rows)
{
    return forEachRow(path, name, [&](const Row& r) { rows.push_back(r); });
}

// a text inside single quotes of a gnuplot script
std::string quoted(const std::string& text)
{
    std::string q;
    for (char ch : text) {
        q += ch;
        if (ch == '\'') q += '\'';
    }
    return q;
}

// the name of population group b (from 1) in legends: the dictionary may name each group
// ("BG_1"), else the word for a group and its number
std::string groupName(int b)
{
    const std::string key = "BG_" + std::to_string(b);
    return DD::has(key) ? DD::lookup(key) : DD::lookup("BG") + " " + std::to_string(b);
}

// the name of sex g (1 male, 2 female)
std::string sexName(int g)
{
    return g == 1 ? DD::lookup("male") : g == 2 ? DD::lookup("female") : DD::lookup("GG") + " " + std::to_string(g);
}

// a step of 1, 2 or 5 times a power of ten that cuts 0 .. top into about four parts
double tickStep(double top)
{
    double raw = top / 4;
    if (!(raw > 0)) return 1;
    double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double f : {1.0, 2.0, 5.0})
        if (f * power >= raw) return f * power;
    return 10 * power;
}

// tics of an axis that runs from -top to top, labelled with the persons on either side
// (no minus sign below the axis); ax is "x" or "y"
void mirroredTics(FILE* p, const char* ax, double top)
{
    const double step = tickStep(top);
    const double edge = std::ceil(top / step) * step;
    fprintf(p, "set %stics (", ax);
    bool first = true;
    for (double v = -edge; v <= edge + step / 2; v += step) {
        const double shown = std::fabs(v) < step / 2 ? 0 : std::fabs(v);
        fprintf(p, "%s\"%.15g\" %.15g", first ? "" : ", ", shown, std::fabs(v) < step / 2 ? 0 : v);
        first = false;
    }
    fprintf(p, ")\n");
}

// the distinct colours of the series of a chart, none of them grey
const char* const SERIES_COLOURS[] = {"#0072B2", "#E69F00", "#009E73", "#CC79A7", "#56B4E9", "#D55E00",
                                      "#B8A100", "#6A3D9A", "#1B9E77", "#E7298A", "#66A61E", "#A6761D",
                                      "#1F78B4", "#B15928", "#7570B3"};

const char* seriesColour(size_t i) { return SERIES_COLOURS[i % (sizeof SERIES_COLOURS / sizeof *SERIES_COLOURS)]; }

// keys of the reference table that no table of the run named
void unusedKeys()
{
    auto& use = regionKeyUse();
    std::string text;
    for (const auto& [key, count] : use)
        if (count == 0) text += " " + std::to_string(key);
    use.clear();
    if (text.empty()) return;
    Prot::raw("%s", text.c_str());
    Prot::raw(":\n");
    Prot::message(SEV_WARNING, "%s", DD::literal("Unbenutzte Gebietskennzeichen aus \"reftyp.csv\""));
}

// population by aggregate: series (group, sex) over the years
struct Aggregate {
    std::map<std::pair<int, int>, std::map<int, double>> series;
};

void populationCharts(const Orvane& c)
{
    Prot::heading(3, "", "@outputData;");
    const std::string dir = variantDirectory();
    std::vector<std::string> files = os::glob(dir, "agg*.csv");
    std::sort(files.begin(), files.end());
    std::map<long long, Aggregate> aggregates;
    std::map<int, bool> sexes;
    for (const std::string& f : files) {
        std::vector<std::vector<std::string>> rows;
        if (!readRows(dir + f, f, rows)) continue;
        for (const auto& r : rows) {
            if (r.size() < 6) continue;
            int year = std::atoi(r[0].c_str());
            long long agg = std::atoll(r[1].c_str());
            int bg = std::atoi(r[2].c_str()), gg = std::atoi(r[3].c_str());
            aggregates[agg].series[{bg, gg}][year] += si::parseNumber(r[5]);
            sexes[gg] = true;
        }
        Prot::writeln(1, "&lt; %s, %zu records", f.c_str(), rows.size());
    }
    const bool twoSexes = sexes.size() == 2;
    for (const auto& [agg, a] : aggregates) {
        std::string title = DD::lookup("zrplot") + " " + DD::lookup("rk1agg_AGG_G") + " " + std::to_string(agg);
        if (ini::DIFF_BG != 0 && c.NBG >= 2) title += ", " + DD::lookup("tkindi_fert_BG");
        if (ini::DIFF_GG != 0 && c.NGG >= 2) title += ", " + DD::lookup("tkindi_fert_GG");
        if (title.size() > 132) title.resize(132);
        char name[32];
        snprintf(name, sizeof name, "agg%03lld", agg);
        FILE* p = plotOpen(Prot::stream(), Prot::protocolLevel(), si::appDir, name);
        if (!p) {
            Prot::message(SEV_WARNING, "could not launch gnuplot");
            continue;
        }
        fprintf(p, "%s\n", plotTerminal());
        fprintf(p,
                "# aggregierte Bevölkerung\n%s\n%s\n%s\nset output '%s%s/prot/agg%03lld.png'\nset title '%s'\n"
                "set xrange [*:*]\nset yrange [*:*]\nset key outside\nset bmargin 2.4\n"
                "set xtics 1 rotate by 90 offset 0,-1.8,0 autofreq 1,1\n#set xlabel 'Jahr'\nset grid\n",
                plotSeparator(), decimalSignLine().c_str(), FILL, si::Directory.c_str(), si::Version.c_str(), agg,
                title.c_str());
        if (twoSexes)
            fprintf(p, "set ylabel '%s | %s'\n", DD::lookup("female").c_str(), DD::lookup("male").c_str());
        else
            fprintf(p, "set ylabel '%s'\n", DD::lookup("inhabitant").c_str());
        // the first sex is drawn below the axis: the label reads from the top, so that each
        // word stands on its own side, and the tics count persons on both sides
        std::map<std::pair<int, int>, double> height;
        double top = 0;
        for (const auto& [key, values] : a.series)
            for (const auto& [year, v] : values)
                top = std::max(top, std::fabs(height[{year, key.second}] += v));
        if (twoSexes) {
            fprintf(p, "set ylabel rotate by -90\n");
            mirroredTics(p, "y", top);
        }
        // room below the rotated years for the label of the axis
        fprintf(p, "set bmargin 4.5\nset xlabel '%s'\nset format y '%%.0f'\n", quoted(DD::lookup("year")).c_str());
        for (size_t i = 0; i < a.series.size(); ++i) fprintf(p, "set linetype %zu lc rgb '%s'\n", i + 1, seriesColour(i));
        fprintf(p, "plot");
        size_t line = 0;
        for (const auto& [key, values] : a.series) {
            // group 0 is the whole population when the groups are not told apart
            std::string group = key.first == 0 ? DD::lookup("inhabitant") : groupName(key.first);
            fprintf(p, "%c '-' title '%s", line == 0 ? ' ' : ',', quoted(group).c_str());
            if (sexes.size() > 1) fprintf(p, "%c%d", si::separator, key.second);
            fprintf(p, "' with filledcurves lt %zu fillstyle transparent solid 0.75", ++line);
        }
        if (twoSexes) fprintf(p, ", 0 notitle lt -1");
        // what the sex numbers behind the group names stand for
        if (sexes.size() > 1)
            for (const auto& [g, seen] : sexes)
                fprintf(p, ", keyentry with lines lc rgb '%s' title '%d = %s'", plot::background.c_str(), g,
                        quoted(sexName(g)).c_str());
        fprintf(p, "\n");
        // stacked: each series on top of the ones before it; the first sex downwards
        std::map<std::pair<int, int>, double> below;
        for (const auto& [key, values] : a.series) {
            const double sign = twoSexes && key.second == sexes.begin()->first ? -1 : 1;
            for (const auto& [year, v] : values) {
                double& base = below[{year, sign < 0 ? 0 : 1}];
                double top = base + sign * v;
                fprintf(p, "%d%c%.15g%c%.15g\n", year, si::separator, top, si::separator, base);
                base = top;
            }
            fprintf(p, "e\n");
        }
        plotClose(Prot::stream(), Prot::protocolLevel(), p, si::appDir, name);
        Prot::writeln(1, "@zrplot; %s%s/%s", si::Directory.c_str(), si::Version.c_str(), name);
        // the title begins with the word of the chart already
        Prot::raw("<img alt=\"%s\" src=\"agg%03lld.png\">\n", title.c_str(), agg);
    }
}

// the movements by aggregate: one histogram of each movement over the years
void movementCharts()
{
    const std::string dir = variantDirectory();
    std::vector<std::string> files = os::glob(dir, "bewgemagg*.csv");
    std::sort(files.begin(), files.end());
    if (files.empty()) return;
    // aggregate, movement column, year: value
    std::map<long long, std::map<unsigned, std::map<int, double>>> data;
    for (const std::string& f : files) {
        Prot::writeln(1, "@zrplot; %s%s/%s", si::Directory.c_str(), si::Version.c_str(), f.c_str());
        std::vector<std::vector<std::string>> rows;
        if (!readRows(dir + f, f, rows)) continue;
        for (const auto& r : rows) {
            if (r.size() < 3) continue;
            int year = std::atoi(r[0].c_str());
            long long agg = std::atoll(r[1].c_str());
            for (size_t k = 2; k < r.size(); ++k) {
                double v = si::parseNumber(r[k]);
                if (v != 0) data[agg][unsigned(k - 1)][year] += v;
            }
        }
    }
    if (data.empty()) return;
    FILE* p = plotOpen(Prot::stream(), Prot::protocolLevel(), si::appDir, "bewgemagg");
    if (!p) {
        Prot::message(SEV_WARNING, "could not launch gnuplot");
        return;
    }
    fprintf(p, "%s\n%s\n", plotTerminal(), FILL);
    fprintf(p,
            "# aggregierte Bewegungen\"\n%s\n%s\n%s\n%s\nset xrange [*:*]\nset yrange [0:*]\nset grid ytics\n"
            "set key invert outside\nset style data histogram\nset style histogram rowstacked\n"
            "set boxwidth 0.9 relative\nset bmargin 2.4\n"
            "set xtics 1 nomirror scale 0 rotate by 90 offset 0,-1.8,0 autofreq 1,1\n",
            plotTerminal(), plotSeparator(), decimalSignLine().c_str(), FILL);
    static const char* const movementKeys[] = {"DG4S",  "DG4WA", "DG4OBN", "DG4WB", "DG4OI",
                                               "DG4OBR", "DG4OAR", "DG4IBR", "DG4ZA", "DG4IBN",
                                               "DG4IAN", "DG4ZB", "DG4II", "DG4WBGv", "DG4WBGn",
                                               "DG3G"};
    // each chart counts persons of one movement in a year: said on the axes and in the key,
    // and each movement has a colour of its own
    fprintf(p, "set bmargin 4.5\nset xlabel '%s' offset 0,-1\n", quoted(DD::lookup("year")).c_str());
    for (const auto& [agg, kinds] : data)
        for (const auto& [kind, years] : kinds) {
            std::string what = kind >= 1 && kind <= std::size(movementKeys) ? DD::lookup(movementKeys[kind - 1])
                                                                            : std::to_string(kind);
            fprintf(p, "set output '%s%s/prot/bewgemagg%03lld%02u.png'\nset title '%s %s %s'\nset ylabel '%s'\n",
                    si::Directory.c_str(), si::Version.c_str(), agg, kind, quoted(DD::lookup("rk1agg_AGG_G")).c_str(),
                    std::to_string(agg).c_str(), quoted(what).c_str(), quoted(DD::lookup("personsPerYear")).c_str());
            fprintf(p, "set key title '%s'\nset linetype 1 lc rgb '%s'\n", quoted(what).c_str(), seriesColour(kind - 1));
            fprintf(p, "plot '-' using 2:xtic(1) title '%u'\n", kind);
            for (const auto& [year, v] : years) fprintf(p, "%u%c%.15g\n", unsigned(year), si::separator, v);
            fprintf(p, "e\n");
            Prot::raw("<img alt=\"%s\" src=\"bewgemagg%03lld%02u.png\">\n", DD::lookup("zrplot").c_str(), agg, kind);
        }
    plotClose(Prot::stream(), Prot::protocolLevel(), p, si::appDir, "bewgemagg");
}

// ---------------------------------------------------------------- the smoothed targets

// one line of a chart: its legend text and the value of each year
struct Line {
    std::string title;
    std::map<int, double> values;
};

// one panel of lines over the years; the legend names the first lines only, so that it stays readable
void linePanel(FILE* p, const std::string& title, const std::string& ylabel, const std::vector<Line>& lines)
{
    const size_t named = 16;
    fprintf(p, "set title '%s'\nset ylabel '%s'\n", quoted(title).c_str(), quoted(ylabel).c_str());
    fprintf(p, "plot");
    for (size_t i = 0; i < lines.size(); ++i) {
        fprintf(p, "%s '-' using 1:2 with linespoints lw 1.5 pt 7 ps 0.6", i ? "," : "");
        if (i < named)
            fprintf(p, " title '%s'", quoted(lines[i].title).c_str());
        else
            fprintf(p, " notitle");
    }
    fprintf(p, "\n");
    for (const Line& l : lines) {
        for (const auto& [year, v] : l.values) fprintf(p, "%d%c%.15g\n", year, si::separator, v);
        fprintf(p, "e\n");
    }
}

// the target of each year against what the rates gave before the adjustment
std::vector<Line> targetLines(const std::map<int, Orvane::TargetYear>& targets)
{
    std::vector<Line> lines(2);
    lines[0].title = DD::lookup("tksmooth_target");
    lines[1].title = DD::lookup("tksmooth_rates");
    for (const auto& [year, t] : targets) {
        lines[0].values[year] = t.target;
        lines[1].values[year] = t.model;
    }
    return lines;
}

// total fertility of each birth type and group over the years
std::vector<Line> fertilityLines(const Orvane& c)
{
    std::vector<Line> lines;
    for (const auto& [year, BR1G] : c.fertilityByYear) {
        const size_t types = BR1G.size(), groups = types ? BR1G[0].size() : 0;
        if (lines.size() < types * groups) lines.resize(types * groups);
        for (size_t t = 0; t < types; ++t)
            for (size_t b = 0; b < groups; ++b) {
                Line& l = lines[t * groups + b];
                l.title = "TYG " + std::to_string(t + 1);
                if (groups > 1) l.title += ", " + groupName(int(b) + 1);
                l.values[year] = BR1G[t][b];
            }
    }
    return lines;
}

// life expectancy at birth of each death type, group and sex over the years
std::vector<Line> expectancyLines(const Orvane& c)
{
    std::vector<Line> lines;
    for (const auto& [year, e0] : c.lifeExpectancyByYear) {
        const size_t types = e0.size(), groups = types ? e0[0].size() : 0, sexes = groups ? e0[0][0].size() : 0;
        if (lines.size() < types * groups * sexes) lines.resize(types * groups * sexes);
        for (size_t t = 0; t < types; ++t)
            for (size_t b = 0; b < groups; ++b)
                for (size_t g = 0; g < sexes; ++g) {
                    Line& l = lines[(t * groups + b) * sexes + g];
                    l.title = "TYS " + std::to_string(t + 1);
                    if (groups > 1) l.title += ", " + groupName(int(b) + 1);
                    if (sexes == 2) l.title += ", " + sexName(int(g) + 1);
                    l.values[year] = e0[t][b][g];
                }
    }
    return lines;
}

// the birth and the death targets of the years with the rates behind them: one script for
// both modules when both adjust to targets, else one for the module that does
void targetCharts(const Orvane& c)
{
    const bool births = c.module('G') != 0, deaths = c.module('S') != 0;
    if (!births && !deaths) return;
    const char* birthText = DD::literal("Geburteneckwert");
    const char* deathText = DD::literal("Sterbefalleckwert");
    const char* name = births && deaths ? "eckgebstrb" : births ? "eckgeb" : "eckstrb";
    FILE* p = plotOpen(Prot::stream(), Prot::protocolLevel(), si::appDir, name);
    if (!p) {
        Prot::message(SEV_WARNING, "could not launch gnuplot");
        return;
    }
    fprintf(p, "%s\n", plotTerminal());
    if (births && deaths) fprintf(p, "# Eckwerte Geburten-/Sterberaten\n");
    fprintf(p, "%s\n%s\n%s\nset output '%s%s/prot/%s.png'\n", plotSeparator(), decimalSignLine().c_str(), FILL,
            si::Directory.c_str(), si::Version.c_str(), name);
    std::set<int> years;
    for (const auto& [year, t] : c.birthTargets) years.insert(year);
    for (const auto& [year, t] : c.deathTargets) years.insert(year);
    fprintf(p, "set xtics %d nomirror rotate by 90 right\nset format x '%%.0f'\nset xrange [*:*]\nset yrange [*:*]\n"
               "set grid\nset key outside bottom center horizontal\nset multiplot layout %d,2\n",
            years.size() > 20 ? 5 : 1, births && deaths ? 2 : 1);
    if (births) {
        linePanel(p, birthText, DD::lookup("DG3G"), targetLines(c.birthTargets));
        linePanel(p, DD::lookup("BR1G"), "", fertilityLines(c));
    }
    if (deaths) {
        linePanel(p, deathText, DD::lookup("DG4S"), targetLines(c.deathTargets));
        linePanel(p, DD::lookup("BR3L_"), "", expectancyLines(c));
    }
    fprintf(p, "unset multiplot\nset output\n");
    plotClose(Prot::stream(), Prot::protocolLevel(), p, si::appDir, name);
    if (births && deaths)
        Prot::raw("<img alt=\"%s+%s\" src=\"eckgebstrb.png\">\n", birthText, deathText);
    else
        Prot::raw("<img alt=\"%s\" src=\"%s.png\">\n", births ? birthText : deathText, name);
}

// ---------------------------------------------------------------- the pyramid animation

// one frame per year of pyramid.csv: women to the left, men to the right by age, the
// population groups stacked in their colours; the scale is the same for every frame
void pyramidAnimation()
{
    const std::string dir = variantDirectory();
    if (!os::isFile(dir + "pyramid.csv")) return;
    // year, (group, sex), age: persons of all aggregates together
    std::map<int, std::map<std::pair<int, int>, std::map<int, double>>> years;
    std::set<int> sexes, groups;
    int oldest = 0;
    bool read = forEachRow(dir + "pyramid.csv", "pyramid.csv", [&](const Row& r) {
        if (r.size() < 6) return;
        const int year = std::atoi(r[0].c_str()), bg = std::atoi(r[2].c_str()), gg = std::atoi(r[3].c_str());
        const int ag = std::atoi(r[4].c_str());
        years[year][{bg, gg}][ag] += si::parseNumber(r[5]);
        sexes.insert(gg);
        groups.insert(bg);
        oldest = std::max(oldest, ag);
    });
    if (!read || years.empty()) return;
    // with two sexes the second (women) goes to the left
    const bool twoSexes = sexes.size() == 2;
    const int left = twoSexes ? *sexes.rbegin() : -1;
    double widest = 0;
    for (const auto& [year, series] : years) {
        std::map<std::pair<int, int>, double> width;   // (sex, age)
        for (const auto& [key, ages] : series)
            for (const auto& [ag, v] : ages) widest = std::max(widest, width[{key.second, ag}] += std::fabs(v));
    }
    if (!(widest > 0)) widest = 1;
    FILE* p = plotOpen(Prot::stream(), Prot::protocolLevel(), si::appDir, "pyramid");
    if (!p) {
        Prot::message(SEV_WARNING, "could not launch gnuplot");
        return;
    }
    // the delay of the settings is in milliseconds, the picture counts hundredths of a second
    fprintf(p, "set term gif animate delay %d loop 0 size 640,480 font 'Arial,9' background rgb '%s'\n",
            std::max(1, ini::DELAY / 10), plot::background.c_str());
    fprintf(p, "set output '%s%s/prot/pyramid.gif'\nset style fill solid 0.8 border lt -1\nset grid\n",
            si::Directory.c_str(), si::Version.c_str());
    const double step = tickStep(widest), top = std::ceil(widest / step) * step;
    fprintf(p, "set xrange [%.15g:%.15g]\nset yrange [-0.5:%d.5]\nset ytics 10\nset ylabel '%s'\n",
            twoSexes ? -top : 0.0, top, oldest, quoted(DD::lookup("age")).c_str());
    // the persons to both sides are counted upwards from the middle
    fprintf(p, "set xtics (");
    for (double x = twoSexes ? -top : 0; x <= top + step / 2; x += step)
        fprintf(p, "%s\"%.15g\" %.15g", x == (twoSexes ? -top : 0) ? "" : ", ", std::fabs(x) < step / 2 ? 0 : std::fabs(x), x);
    fprintf(p, ")\n");
    if (twoSexes)
        fprintf(p, "set xlabel '%s | %s'\n", quoted(DD::lookup("female")).c_str(), quoted(DD::lookup("male")).c_str());
    else
        fprintf(p, "set xlabel '%s'\n", quoted(DD::lookup("inhabitant")).c_str());
    // one group needs no legend
    fprintf(p, groups.size() > 1 ? "set key outside right top\n" : "unset key\n");
    const std::string title = DD::lookup("pyramid");
    for (const auto& [year, series] : years) {
        fprintf(p, "set title '%s %d'\nplot", quoted(title).c_str(), year);
        std::set<int> named;
        bool first = true;
        for (const auto& [key, ages] : series) {
            const int colour = key.first + 1;
            fprintf(p, "%s '-' using 1:2:3:4:5:6 with boxxyerror lc %d", first ? "" : ",", colour);
            if (named.insert(key.first).second)
                fprintf(p, " title '%s'", quoted(groupName(key.first)).c_str());
            else
                fprintf(p, " notitle");
            first = false;
        }
        fprintf(p, "\n");
        std::map<std::pair<int, int>, double> base;   // (sex, age): persons drawn so far
        for (const auto& [key, ages] : series) {
            const double sign = key.second == left ? -1 : 1;
            for (const auto& [ag, v] : ages) {
                double& from = base[{key.second, ag}];
                const double to = from + std::fabs(v);
                const double lo = sign < 0 ? -to : from, hi = sign < 0 ? -from : to;
                fprintf(p, "%.15g %d %.15g %.15g %.15g %.15g\n", (lo + hi) / 2, ag, lo, hi, ag - 0.45, ag + 0.45);
                from = to;
            }
            fprintf(p, "e\n");
        }
    }
    fprintf(p, "set output\n");
    plotClose(Prot::stream(), Prot::protocolLevel(), p, si::appDir, "pyramid");
}

// ---------------------------------------------------------------- gstrom

// one summary of the flows: year, region key, persons
void writeFlowSummary(const std::string& name, const char* keyColumn, const std::map<std::pair<long long, long long>, double>& sums)
{
    const std::string path = variantDirectory() + name + ".csv";
    FILE* f = safeOutput::open(path);
    if (!f) {
        Prot::message(SEV_ERROR, "open %s %s", path.c_str(), os::errorText(errno).c_str());
        return;
    }
    const char* columns[] = {"@year;", keyColumn, "@number;", nullptr};
    csvWriteHead(f, name.c_str(), columns, "forecast");
    for (const auto& [yearKey, v] : sums) {
        csvWriteCell(f, "%.0f", double(yearKey.first), 0);
        csvWriteCell(f, "%.0f", double(yearKey.second), 0);
        csvWriteCell(f, "%.15g", v, 1);
    }
    safeOutput::close(f);
    Prot::addOutputFile(name + ".csv");
}

// the flows between regions summed per source region and per target region, each by year;
// then the stream is closed
void closeGstrom(Orvane& c)
{
    const std::string path = variantDirectory() + "gstrom.csv";
    fflush(c.gstrom);
    std::map<std::pair<long long, long long>, double> out, in;   // (year, region key)
    bool read = forEachRow(path, "gstrom.csv", [&](const Row& r) {
        if (r.size() < 7) return;
        const long long year = std::atoll(r[0].c_str());
        const double v = si::parseNumber(r[6]);
        out[{year, std::atoll(r[1].c_str())}] += v;
        in[{year, std::atoll(r[2].c_str())}] += v;
    });
    if (read) {
        writeFlowSummary("gstrom_weg", "@GKZq;", out);
        writeFlowSummary("gstrom_zu", "@GKZz;", in);
    }
    if (fclose(c.gstrom) != 0) os::messageBox("gstrom", "gclose %s", path.c_str());
    c.gstrom = nullptr;
}

} // namespace

void cleanUpPrognose(Orvane* orvane)
{
    Orvane& c = *orvane;
    // the last year's population against the limits of the regions and types
    limitsReport(c);
    // 1. region keys no table has used
    unusedKeys();
    // 2. the summary
    if (ini::PLOT_DATEN != 0 || ini::PYRAMIDE != 0) Prot::heading(2, "@summary;", "@summary;");
    // 3. the smoothed targets of the input
    if (ini::PLOT_DATEN > 1) {
        Prot::heading(3, "", "@tksmooth_input;");
        targetCharts(c);
    }
    // 4. to 6. the charts of the results
    if (ini::PLOT_DATEN != 0 && ini::DIFF_G >= 1) {
        populationCharts(c);
        movementCharts();
    }
    // 7. the pyramid and the end of the run's state
    if (ini::ABEWGEM != 0) c.BGEM.release();
    if (ini::PYRAMIDE != 0) {
        pyramidAnimation();
        std::string anim = DD::lookup("pyramidAnim");
        Prot::raw("%s <a href=\"../pyramid.csv\">pyramid.csv</a><br>\n", anim.c_str());
        Prot::raw("<img alt=\"%s\" src=\"pyramid.gif\" width=\"640\" height=\"480\"><br>\n", anim.c_str());
    }
    // 9. the gstrom output
    if (ini::AUSGABE_BINNEN_MATRIX >= 2 && c.gstrom) closeGstrom(c);
}
