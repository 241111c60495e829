// The summary of a finished run: unused region keys, the charts of the aggregated population
// and of the aggregated movements drawn by gnuplot into the protocol, the link to the
// population pyramid, and the close of the gstrom output.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "tables/gnuplot_bridge.h"
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

// the data rows of a table: the cells of each line; false with the error reported
bool readRows(const std::string& path, const std::string& name, std::vector<std::vector<std::string>>& rows)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) {
        Prot::message(SEV_ERROR, "%s: %s\n", name.c_str(), "cannot open");
        return false;
    }
    char sep[2] = {si::separator, 0};
    CsvReader reader(f, sep);
    std::vector<std::string> row;
    char cell[512];
    for (;;) {
        int end = reader.next(cell, sizeof cell);
        if (end < 0 && end != -1) {
            Prot::message(SEV_ERROR, "%d: %s: %s", int(reader.lineNumber()), name.c_str(),
                          CsvReader::errorText(end).c_str());
            fclose(f);
            return false;
        }
        if (end == -1) {
            if (!row.empty() && !(row.size() == 1 && row[0].empty())) rows.push_back(row);
            break;
        }
        if (reader.isComment) {
            row.clear();
            continue;
        }
        row.emplace_back(cell);
        if (end == '\n') {
            if (!(row.size() == 1 && row[0].empty())) rows.push_back(row);
            row.clear();
        }
    }
    fclose(f);
    return true;
}

// regions of the reference table without population at the end of the run
void unusedKeys(const Orvane& c)
{
    std::map<int64_t, bool> use;
    for (size_t i = 0; i < c.regions.size(); ++i) {
        bool used = c.BG40.exists() && i < static_cast<size_t>(c.NGZ) && c.BG40.regionSum(i) != 0;
        use[c.regions[i].key] = used;
    }
    std::string text;
    for (const auto& [key, used] : use)
        if (!used) text += " " + std::to_string(key);
    if (text.empty()) return;
    Prot::raw("%s", text.c_str());
    Prot::raw(":\n");
    Prot::message(SEV_WARNING, "Unbenutzte Gebietskennzeichen aus \"reftyp.csv\"");
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
            aggregates[agg].series[{bg, gg}][year] += std::strtod(r[5].c_str(), nullptr);
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
        fprintf(p, "plot");
        size_t line = 0;
        for (const auto& [key, values] : a.series) {
            // group 0 is the whole population when the groups are not told apart
            std::string group = key.first == 0 ? DD::lookup("inhabitant") : "BG " + std::to_string(key.first);
            fprintf(p, "%c '-' title '%s", line == 0 ? ' ' : ',', group.c_str());
            if (sexes.size() > 1) fprintf(p, "%c%d", si::separator, key.second);
            fprintf(p, "' with filledcurves lt %zu fillstyle transparent solid 0.75", ++line);
        }
        if (twoSexes) fprintf(p, ", 0 notitle lt -1");
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
        char alt[512];
        DD::expKey(alt, sizeof alt, "@zrplot;");
        Prot::raw("<img alt=\"%s %s\" src=\"agg%03lld.png\">\n", alt, title.c_str(), agg);
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
                double v = std::strtod(r[k].c_str(), nullptr);
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
                                               "DG4IAN", "DG4ZB", "DG4II", "DG4WBGv", "DG4WBGn"};
    for (const auto& [agg, kinds] : data)
        for (const auto& [kind, years] : kinds) {
            std::string what = kind >= 1 && kind <= 15 ? DD::lookup(movementKeys[kind - 1]) : std::to_string(kind);
            fprintf(p, "set output '%s%s/prot/bewgemagg%03lld%02u.png'\nset title '%s %s %s'\nset ylabel '%s'\n",
                    si::Directory.c_str(), si::Version.c_str(), agg, kind, DD::lookup("rk1agg_AGG_G").c_str(),
                    std::to_string(agg).c_str(), what.c_str(), DD::lookup("inhabitant").c_str());
            fprintf(p, "plot '-' using 2:xtic(1) title '%u'\n", kind);
            for (const auto& [year, v] : years) fprintf(p, "%u%c%.15g\n", unsigned(year), si::separator, v);
            fprintf(p, "e\n");
            Prot::raw("<img alt=\"%s\" src=\"bewgemagg%03lld%02u.png\">\n", DD::lookup("zrplot").c_str(), agg, kind);
        }
    plotClose(Prot::stream(), Prot::protocolLevel(), p, si::appDir, "bewgemagg");
}

} // namespace

void cleanUpPrognose(Orvane* orvane)
{
    Orvane& c = *orvane;
    // 1. region keys no table has used
    unusedKeys(c);
    // 2. the summary
    if (ini::PLOT_DATEN != 0 || ini::PYRAMIDE != 0) Prot::heading(2, "@summary;", "@summary;");
    // 3. to 6. the charts
    if (ini::PLOT_DATEN != 0 && ini::DIFF_G >= 1) {
        populationCharts(c);
        movementCharts();
    }
    // 7. the pyramid and the end of the run's state
    if (ini::ABEWGEM != 0) c.BGEM.release();
    if (ini::PYRAMIDE != 0) {
        std::string anim = DD::lookup("pyramidAnim");
        Prot::raw("%s <a href=\"../pyramid.csv\">pyramid.csv</a><br>\n", anim.c_str());
        Prot::raw("<img alt=\"%s\" src=\"pyramid.gif\" width=\"640\" height=\"480\"><br>\n", anim.c_str());
    }
    // 9. the gstrom output
    if (ini::AUSGABE_BINNEN_MATRIX >= 2 && c.gstrom) {
        if (fclose(c.gstrom) != 0) os::messageBox("gclose", "gclose gstrom");
        c.gstrom = nullptr;
    }
}
