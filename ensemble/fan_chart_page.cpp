#include "ensemble/fan_chart_page.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <vector>

#include "ensemble/quantiles.h"
#include "platform/dictionary.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "tables/gnuplot_bridge.h"

namespace {

// mean and the quantiles of one row of a quantile table
using Spread = std::array<double, 1 + quantileLevels.size()>;
enum { MEAN = 0, Q05 = 1, Q10, Q25, Q50, Q75, Q90, Q95 };

// the rows of a plain long table, without its header, one at a time: only the rows of the
// study area and the aggregates are split into cells
void plainRows(const std::string& path, const std::function<void(const std::vector<std::string>&)>& row)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    std::vector<std::string> cells;
    while (std::getline(in, line)) {
        size_t comma = line.find(',');
        if (comma == std::string::npos) continue;
        if (line.compare(comma + 1, 4, "all,") != 0 && line.compare(comma + 1, 3, "agg") != 0) continue;
        cells.clear();
        std::stringstream ss(line);
        std::string cell;
        while (std::getline(ss, cell, ',')) cells.push_back(cell);
        row(cells);
    }
}

double number(const std::string& s) { return std::strtod(s.c_str(), nullptr); }

struct Series {
    std::map<int, Spread> years;          // year -> spread
    std::map<int, double> deterministic;  // year -> value of the deterministic forecast
};

// a text of the dictionary in the language of the run
std::string text(const char* key) { return DD::lookup(key); }

// the area's text as the tables write it, and its title
std::string areaTitle(const std::string& area)
{
    if (area == "all") return text("ens_studyArea");
    if (area.rfind("agg", 0) == 0) return text("ens_aggregate") + " " + area.substr(3);
    return text("ens_region") + " " + area;
}

std::string fileSafe(const std::string& area) { return area; }

// a fan: the 90 % band, the 50 % band, the median and the deterministic line
void drawFan(FILE* p, const std::string& protocolDir, const std::string& name, const std::string& title,
             const std::string& ylabel, const Series& s)
{
    fprintf(p, "reset\n%s\n", plotTerminal());
    fprintf(p, "set output '%s%s.png'\n", protocolDir.c_str(), name.c_str());
    fprintf(p, "set title '%s'\nset ylabel '%s'\nset grid\nset key outside\nset xtics 1 rotate by 90\n", title.c_str(),
            ylabel.c_str());
    fprintf(p, "set style fill transparent solid 0.35 noborder\n");
    fprintf(p, "plot '-' using 1:2:3 with filledcurves lc rgb '#4a7fc1' title '90 %%', "
               "'-' using 1:2:3 with filledcurves lc rgb '#1f4e8c' title '50 %%', "
               "'-' using 1:2 with lines lw 2 lc rgb '#10305a' title '%s'", text("ens_median").c_str());
    if (!s.deterministic.empty())
        fprintf(p, ", '-' using 1:2 with lines lw 2 dt 2 lc rgb '#c0392b' title '%s'", text("ens_deterministic").c_str());
    fprintf(p, "\n");
    for (const auto& [y, q] : s.years) fprintf(p, "%d %.10g %.10g\n", y, q[Q05], q[Q95]);
    fprintf(p, "e\n");
    for (const auto& [y, q] : s.years) fprintf(p, "%d %.10g %.10g\n", y, q[Q25], q[Q75]);
    fprintf(p, "e\n");
    for (const auto& [y, q] : s.years) fprintf(p, "%d %.10g\n", y, q[Q50]);
    fprintf(p, "e\n");
    if (!s.deterministic.empty()) {
        for (const auto& [y, v] : s.deterministic) fprintf(p, "%d %.10g\n", y, v);
        fprintf(p, "e\n");
    }
}

// the pyramid: bars of the median by sex and age band, the 90 % band as error bars; the first
// sex to the left
void drawPyramid(FILE* p, const std::string& protocolDir, const std::string& name, const std::string& title,
                 const std::map<std::pair<int, int>, Spread>& bands, int sexes)
{
    fprintf(p, "reset\n%s\n", plotTerminal());
    fprintf(p, "set output '%s%s.png'\n", protocolDir.c_str(), name.c_str());
    fprintf(p, "set title '%s'\nset ylabel '%s'\nset xlabel '%s'\nset grid\nset key outside\n", title.c_str(),
            text("age").c_str(), text(sexes == 2 ? "ens_sexes" : "inhabitant").c_str());
    fprintf(p, "set style fill solid 0.5 border lt -1\nset yrange [-2.5:*]\n");
    fprintf(p, "plot '-' using 2:1:(0):2:($1-2):($1+2) with boxxyerror lc rgb '#4a7fc1' title '%s', "
               "'-' using 2:1:3:4 with xerrorbars pt 0 lw 1.5 lc rgb '#c0392b' title '90 %%'\n",
            text("ens_median").c_str());
    for (int pass = 0; pass < 2; ++pass) {
        for (const auto& [sb, q] : bands) {
            double f = sexes == 2 && sb.first == 1 ? -1 : 1;
            int age = sb.second * 5 + 2;
            if (pass == 0) fprintf(p, "%d %.10g\n", age, f * q[Q50]);
            else fprintf(p, "%d %.10g %.10g %.10g\n", age, f * q[Q50], f * q[Q05], f * q[Q95]);
        }
        fprintf(p, "e\n");
    }
}

} // namespace

std::string writeFanChartPage(const FanChartPage& page, std::string& error)
{
    const std::string& ens = page.ensembleDirectory;
    // population of the study area and the aggregates, all groups, sexes and ages together
    std::map<std::string, Series> population, births, net;
    std::map<std::pair<int, int>, Spread> pyramid;
    plainRows(ens + "ensemble_quantiles.csv", [&](const std::vector<std::string>& c) {
        if (c.size() != 5 + 8) return;
        Spread q;
        for (size_t i = 0; i < q.size(); ++i) q[i] = number(c[5 + i]);
        const std::string& area = c[1];
        int year = std::atoi(c[0].c_str());
        if (area == "all" || area.rfind("agg", 0) == 0) {
            if (c[2] == "all" && c[3] == "all" && c[4] == "all") population[area].years[year] = q;
        }
        if (area == "all" && year == page.dims.endYear && c[2] == "all" && c[3] != "all" && c[4] != "all")
            pyramid[{std::atoi(c[3].c_str()), std::atoi(c[4].c_str()) / 5}] = q;
    });
    plainRows(ens + "ensemble_components_quantiles.csv", [&](const std::vector<std::string>& c) {
        if (c.size() != 3 + 8) return;
        const std::string& area = c[1];
        Spread q;
        for (size_t i = 0; i < q.size(); ++i) q[i] = number(c[3 + i]);
        int year = std::atoi(c[0].c_str());
        if (c[2] == "births") births[area].years[year] = q;
        if (c[2] == "net_migration") net[area].years[year] = q;
    });
    if (page.withDeterministic) {
        plainRows(ens + "deterministic_population.csv", [&](const std::vector<std::string>& c) {
            if (c.size() == 6 && population.count(c[1]) && c[2] == "all" && c[3] == "all" && c[4] == "all")
                population[c[1]].deterministic[std::atoi(c[0].c_str())] = number(c[5]);
        });
        plainRows(ens + "deterministic_components.csv", [&](const std::vector<std::string>& c) {
            if (c.size() != 4) return;
            if (c[2] == "births" && births.count(c[1])) births[c[1]].deterministic[std::atoi(c[0].c_str())] = number(c[3]);
            if (c[2] == "net_migration" && net.count(c[1]))
                net[c[1]].deterministic[std::atoi(c[0].c_str())] = number(c[3]);
        });
    }
    if (population.empty()) {
        error = ens + "ensemble_quantiles.csv: no rows of the study area";
        return {};
    }

    const std::string path = page.protocolDirectory + "ensemble.html";
    FILE* f = safeOutput::open(path);
    if (!f) {
        error = path + ": " + std::strerror(errno);
        return {};
    }
    const std::string heading = text("ens_title");
    fprintf(f, "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=utf-8>\n<title>%s</title>\n", heading.c_str());
    fprintf(f, "<style>\nbody { background: #FFFFFF; font-family: sans-serif; }\nimg { max-width: 100%%; }\n"
               "h2 { color: #B82619; background-color: #EAE2BB; }\n</style>\n</head>\n<body>\n");
    fprintf(f, "<a href=\"index.html\">%s</a><br>\n<hr>\n<h1>%s</h1>\n", text("protocol").c_str(), heading.c_str());
    fprintf(f, "<p>%s: %d, %s %llu", text("ens_members").c_str(), page.members, text("ens_seed").c_str(),
            (unsigned long long)page.seed);
    if (page.failed)
        fprintf(f, ", <b>%s: %d</b> (<a href=\"../ensemble/members.csv\">members.csv</a>)", text("ens_failed").c_str(),
                page.failed);
    fprintf(f, ". %s %s: ", text("ens_bands").c_str(), text("ens_tables").c_str());
    fprintf(f, "<a href=\"../ensemble/ensemble_quantiles.csv\">ensemble_quantiles.csv</a>, "
               "<a href=\"../ensemble/ensemble_components_quantiles.csv\">ensemble_components_quantiles.csv</a>, "
               "<a href=\"../ensemble/members.csv\">members.csv</a>.</p>\n");
    if (!page.withComponents) fprintf(f, "<p><b>%s</b></p>\n", text("ens_noComponents").c_str());
    // every chart through one gnuplot, then the page: a picture that gnuplot did not finish
    // is named as such
    struct Item {
        std::string heading, picture, alt;
    };
    std::vector<Item> items;
    FILE* p = plotOpen(nullptr, 0, si::appDir, "ensemble");
    auto chart = [&](const std::string& name, const std::string& alt, const std::function<void()>& draw) {
        std::remove((page.protocolDirectory + name + ".png").c_str());
        if (p) draw();
        items.push_back({"", name, alt});
    };
    // the study area first, then the aggregates
    std::vector<std::string> areas;
    if (population.count("all")) areas.push_back("all");
    for (const auto& [area, s] : population)
        if (area != "all") areas.push_back(area);
    const std::string& dir = page.protocolDirectory;
    for (const std::string& area : areas) {
        const Series& s = population[area];
        std::string title = areaTitle(area);
        items.push_back({title, "", ""});
        std::string base = "ensemble_" + fileSafe(area);
        const std::string populationTitle = text("ens_population") + ", " + title,
                          birthsTitle = text("ens_births") + ", " + title, netTitle = text("ens_netMigration") + ", " + title;
        chart(base + "_population", populationTitle,
              [&] { drawFan(p, dir, base + "_population", populationTitle, text("inhabitant"), s); });
        if (births.count(area))
            chart(base + "_births", birthsTitle,
                  [&] { drawFan(p, dir, base + "_births", birthsTitle, text("ens_births"), births[area]); });
        if (net.count(area))
            chart(base + "_net_migration", netTitle,
                  [&] { drawFan(p, dir, base + "_net_migration", netTitle, text("ens_movesNet"), net[area]); });
    }
    if (!pyramid.empty()) {
        std::string title = text("ens_population") + " " + std::to_string(page.dims.endYear) + ", " + text("ens_studyArea");
        items.push_back({title, "", ""});
        chart("ensemble_pyramid", title, [&] { drawPyramid(p, dir, "ensemble_pyramid", title, pyramid, page.dims.sexes); });
    }
    if (p) {
        fprintf(p, "unset output\n");
        plotClose(nullptr, 0, p, si::appDir, "ensemble");
    }
    for (const Item& item : items)
        if (!item.heading.empty()) fprintf(f, "<h2>%s</h2>\n", item.heading.c_str());
        else if (plotPictureComplete(dir + item.picture + ".png"))
            fprintf(f, "<img alt=\"%s\" src=\"%s.png\"><br>\n", item.alt.c_str(), item.picture.c_str());
        else fprintf(f, "<p>%s: %s</p>\n", item.alt.c_str(), text("ens_noGnuplot").c_str());
    fprintf(f, "</body>\n</html>\n");
    if (!safeOutput::finish(f, true, path, error)) return {};
    return path;
}
