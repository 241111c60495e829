#include "ensemble/scenario_comparison.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>

#include "ensemble/member_runs.h"
#include "ensemble/member_summary.h"
#include "ensemble/result_tables.h"
#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "tables/gnuplot_bridge.h"

namespace fs = std::filesystem;

namespace {

using Populations = std::map<AreaYear, double>;

// the population of the study area and of the aggregates that a variant's results give
bool populationOf(const std::string& dir, Populations& pop, std::string& error)
{
    std::vector<std::string> files;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(dir, ec)) {
        std::string name = e.path().filename().string();
        if (name.size() > 7 && name.rfind("gem", 0) == 0 && name.substr(name.size() - 4) == ".csv" &&
            std::all_of(name.begin() + 3, name.end() - 4, [](char c) { return c >= '0' && c <= '9'; }))
            files.push_back(name);
    }
    if (fs::exists(dir + "gem.csv")) files.push_back("gem.csv");
    if (files.empty()) {
        error = dir + "gem<year>.csv: " + std::strerror(ENOENT);
        return false;
    }
    std::sort(files.begin(), files.end());
    for (const std::string& f : files) {
        bool read = readResultRows(dir + f, [&](const std::vector<std::string>& r) {
            if (r.size() >= 6) pop[{"all", std::atoi(r[0].c_str())}] += si::parseNumber(r.back());
            return true;
        }, error);
        if (!read) return false;
    }
    if (fs::exists(dir + "agg.csv")) {
        std::vector<std::vector<std::string>> rows;
        if (!readResultTable(dir + "agg.csv", rows, error)) return false;
        for (const auto& r : rows)
            if (r.size() >= 3) pop[{"agg" + r[1], std::atoi(r[0].c_str())}] += si::parseNumber(r.back());
    }
    return true;
}

bool drawScenarios(const std::string& protocolDir, const std::string& name, const std::string& title,
                   const std::vector<std::string>& variants, const std::vector<std::map<int, double>>& series)
{
    FILE* p = plotOpen(nullptr, 0, si::appDir, name.c_str());
    if (!p) return false;
    fprintf(p, "%s\n", plotTerminal());
    fprintf(p, "set output '%s%s.png'\nset title '%s'\nset ylabel '%s'\nset grid\nset key outside\n"
               "set xtics 1 rotate by 90\nplot",
            protocolDir.c_str(), name.c_str(), title.c_str(), DD::lookup("inhabitant").c_str());
    for (size_t v = 0; v < variants.size(); ++v)
        fprintf(p, "%s '-' using 1:2 with linespoints lw 2 title '%s'", v ? "," : "", variants[v].c_str());
    fprintf(p, "\n");
    for (const auto& s : series) {
        for (const auto& [y, x] : s) fprintf(p, "%d %.10g\n", y, x);
        fprintf(p, "e\n");
    }
    return plotClose(nullptr, 0, p, si::appDir, name.c_str()) == 0;
}

} // namespace

std::vector<std::string> scenariosOf(const std::string& directory, const std::string& version)
{
    std::vector<std::string> names;
    std::string path = si::variantPath(directory, version);
    for (int k = 1; k <= 99; ++k) {
        std::string name = si::profileString(path, "SZENARIEN", std::to_string(k).c_str(), "");
        if (name.empty()) continue;
        if (name != version && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    return names;
}

int runScenarios(const ScenarioRequest& r)
{
    const std::string first = r.variants.front();
    const std::string firstDir = r.directory + first + "/";
    std::vector<MemberRun> runs;
    for (size_t i = 1; i < r.variants.size(); ++i) {
        MemberRun run;
        run.arguments = {"orvane", "-d", r.directory, "-v", r.variants[i], "-l", r.language};
        for (const std::string& o : r.optionTexts) {
            run.arguments.push_back("-o");
            run.arguments.push_back(o);
        }
        run.consoleFile = firstDir + "scenario_" + r.variants[i] + ".log";
        runs.push_back(run);
    }
    printf("%s", DD::literal("Szenarien:"));
    for (const std::string& v : r.variants) printf(" %s", v.c_str());
    printf("\n");
    fflush(stdout);
    std::vector<bool> ok(r.variants.size(), true);
    runMembers(runs, r.jobs > 0 ? r.jobs : os::systemInfo().cores, [&](MemberRun& run) {
        size_t i = size_t(&run - runs.data()) + 1;
        if (run.status == 0) {
            std::remove(run.consoleFile.c_str());
            return;
        }
        ok[i] = false;
        std::string why = run.failure.empty() ? DD::literal("Exit-Status ") + std::to_string(run.status) : run.failure;
        fprintf(stderr, DD::literal("Szenario %s fehlgeschlagen: %s (Konsole: %s)\n"), r.variants[i].c_str(), why.c_str(),
                run.consoleFile.c_str());
    });

    // the comparison: per area and year each variant's population and its difference from the first
    std::vector<std::string> names;
    std::vector<Populations> pops;
    int status = 0;
    for (size_t i = 0; i < r.variants.size(); ++i) {
        if (!ok[i]) {
            status = 1;
            continue;
        }
        Populations p;
        std::string error;
        if (!populationOf(r.directory + r.variants[i] + "/", p, error)) {
            fprintf(stderr, DD::literal("Szenario %s: %s\n"), r.variants[i].c_str(), error.c_str());
            status = 1;
            if (i == 0) return 1;
            continue;
        }
        names.push_back(r.variants[i]);
        pops.push_back(std::move(p));
    }
    std::string path = firstDir + "scenarios.csv";
    FILE* f = safeOutput::open(path);
    if (!f) {
        fprintf(stderr, "%s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    fprintf(f, "year,area,variant,population,difference\n");
    std::map<std::string, std::vector<std::map<int, double>>> charts;
    for (const auto& [key, base] : pops.front()) {
        auto& chart = charts[key.area];
        chart.resize(names.size());
        for (size_t v = 0; v < names.size(); ++v) {
            auto it = pops[v].find(key);
            if (it == pops[v].end()) continue;
            chart[v][key.year] = it->second;
            fprintf(f, "%d,%s,%s,%s,%s\n", key.year, key.area.c_str(), names[v].c_str(), plainNumber(it->second).c_str(),
                    plainNumber(it->second - base).c_str());
        }
    }
    if (int err = safeOutput::commit(f)) {
        fprintf(stderr, "%s: %s\n", path.c_str(), std::strerror(err));
        return 1;
    }

    std::string protocolDir = firstDir + "prot/";
    std::string pagePath = protocolDir + "scenarios.html";
    FILE* page = safeOutput::open(pagePath);
    if (!page) {
        fprintf(stderr, "%s: %s\n", pagePath.c_str(), std::strerror(errno));
        return 1;
    }
    auto text = [](const char* key) { return DD::lookup(key); };
    const std::string heading = text("scn_title");
    fprintf(page, "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=utf-8>\n<title>%s</title>\n<style>\n"
                  "body { background: #FFFFFF; font-family: sans-serif; }\nimg { max-width: 100%%; }\n"
                  "h2 { color: #B82619; background-color: #EAE2BB; }\ntd, th { padding: 1px 7px; text-align: right; }\n"
                  "</style>\n</head>\n<body>\n<a href=\"index.html\">%s</a><br>\n<hr>\n<h1>%s</h1>\n",
            heading.c_str(), text("protocol").c_str(), heading.c_str());
    fprintf(page, "<p>%s: <a href=\"../scenarios.csv\">scenarios.csv</a> (%s %s).</p>\n", text("scn_table").c_str(),
            text("scn_tableNote").c_str(), first.c_str());
    std::vector<std::string> areas;
    if (charts.count("all")) areas.push_back("all");
    for (const auto& [area, c] : charts)
        if (area != "all") areas.push_back(area);
    for (const std::string& area : areas) {
        std::string title = area == "all" ? text("ens_studyArea") : text("ens_aggregate") + " " + area.substr(3);
        fprintf(page, "<h2>%s</h2>\n", title.c_str());
        std::string name = "scenarios_" + area;
        if (drawScenarios(protocolDir, name, text("ens_population") + ", " + title, names, charts[area]))
            fprintf(page, "<img alt=\"%s\" src=\"%s.png\"><br>\n", title.c_str(), name.c_str());
        else
            fprintf(page, "<p>%s</p>\n", text("ens_noGnuplot").c_str());
        // the last year in figures
        const auto& c = charts[area];
        int last = c.front().empty() ? 0 : c.front().rbegin()->first;
        fprintf(page, "<table><tr><th>%d</th><th>%s</th><th>%s</th></tr>\n", last, text("scn_population").c_str(),
                text("scn_difference").c_str());
        for (size_t v = 0; v < names.size(); ++v) {
            auto it = c[v].find(last);
            if (it == c[v].end()) continue;
            fprintf(page, "<tr><td>%s</td><td>%.0f</td><td>%+.0f</td></tr>\n", names[v].c_str(), it->second,
                    it->second - c.front().at(last));
        }
        fprintf(page, "</table>\n");
    }
    fprintf(page, "</body>\n</html>\n");
    if (int err = safeOutput::commit(page)) {
        fprintf(stderr, "%s: %s\n", pagePath.c_str(), std::strerror(err));
        return 1;
    }
    printf(DD::literal("Szenarien-Seite: %s\n"), pagePath.c_str());
    return status;
}
