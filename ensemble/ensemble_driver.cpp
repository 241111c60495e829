#include "ensemble/ensemble_driver.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "ensemble/fan_chart_page.h"
#include "ensemble/member_runs.h"
#include "ensemble/member_summary.h"
#include "ensemble/quantiles.h"
#include "platform/operating_system.h"
#include "platform/settings.h"

namespace fs = std::filesystem;

namespace {

constexpr uint64_t defaultSeed = 5489;   // the generator's own

uint64_t mix(uint64_t x)
{
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

std::string memberName(int i)
{
    char name[32];
    snprintf(name, sizeof name, "member%04d", i);
    return name;
}

// the first error of a failed run, from the console lines of its directory
std::string firstError(const std::string& runDirectory)
{
    std::ifstream in(runDirectory + "prot.tmp");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("!e", 0) == 0) return line.substr(2);
    return {};
}

// the last line the run wrote to its console that says something
std::string lastWords(const std::string& consoleFile)
{
    std::ifstream in(consoleFile);
    std::string line, last;
    while (std::getline(in, line))
        if (line.find_first_not_of(" \t\r") != std::string::npos) last = line;
    return last;
}

// The member's own variant file: a copy of the variant's, writing no more than the summary needs.
bool prepareVariantFile(const EnsembleRequest& r, const std::string& work, const std::string& name, std::string& error)
{
    std::error_code ec;
    fs::copy_file(si::variantPath(r.directory, r.version), work + name + ".ini", fs::copy_options::overwrite_existing,
                  ec);
    if (ec) {
        error = work + name + ".ini: " + ec.message();
        return false;
    }
    const char* keys[][3] = {
        {"DEFAULTS", "AUSGABE_PROTOKOLL", "0"}, {"DEFAULTS", "ABEW", "0"},        {"DEFAULTS", "ABEWGEM", "1"},
        {"DEFAULTS", "PYRAMIDE", "0"},          {"DEFAULTS", "PLOT_DATEN", "0"},  {"DEFAULTS", "AUSGABE_BINNEN_MATRIX", "0"},
        {"DEFAULTS", "AUSGABE_AUSSEN_MATRIX", "0"}, {"DEFAULTS", "DIFF_BG", "1"}, {"DEFAULTS", "DIFF_GG", "1"},
        {"DEFAULTS", "DIFF_AG", "5"},           {"DEFAULTS", "RUNFORECAST", "1"}, {"ZR", "RUNZR", "0"},
    };
    for (const auto& k : keys)
        if (!si::varWrite(k[0], k[1], k[2], work, name)) {
            error = work + name + ".ini: " + std::strerror(errno);
            return false;
        }
    return true;
}

} // namespace

uint64_t variantSeedOf(double monteCarlo)
{
    if (monteCarlo == 1) return std::random_device()();
    if (monteCarlo < 1) return defaultSeed;
    return static_cast<uint64_t>(monteCarlo);
}

uint64_t memberSeed(uint64_t variantSeed, int member)
{
    uint64_t s = mix(mix(variantSeed) ^ static_cast<uint64_t>(member)) >> 11;
    return s ? s : 1;
}

int runEnsemble(const EnsembleRequest& r)
{
    const std::string variantDir = r.directory + r.version + "/";
    const std::string ens = variantDir + "ensemble/";
    const std::string work = ens + "work/";
    Dimensions dims;
    dims.startYear = si::varInt("DEFAULTS", "STARTJAHR", 0, r.directory, r.version);
    dims.endYear = si::varInt("DEFAULTS", "ENDJAHR", 0, r.directory, r.version);
    dims.groups = si::varInt("METHODE", "NBG", 1, r.directory, r.version);
    dims.sexes = si::varInt("METHODE", "NGG", 1, r.directory, r.version);
    dims.ages = si::varInt("METHODE", "NAG", 1, r.directory, r.version);

    // an ensemble owns its directory: what an earlier one left goes
    std::error_code ec;
    fs::remove_all(ens, ec);
    fs::create_directories(work, ec);
    if (ec) {
        fprintf(stderr, "%s: %s\n", work.c_str(), ec.message().c_str());
        return 1;
    }
    const uint64_t seed = variantSeedOf(r.variantSeed);
    int jobs = r.jobs > 0 ? r.jobs : os::systemInfo().cores;
    printf("ensemble of %d members from seed %llu, %d at once: %s\n", r.members, (unsigned long long)seed, jobs,
           ens.c_str());
    fflush(stdout);

    // run 0 is the deterministic forecast, the line of the fan charts; 1.. are the members
    struct Member {
        std::string name;
        uint64_t seed = 0;
        std::string error;
        bool ok = false;
    };
    std::vector<Member> members(size_t(r.members) + 1);
    std::vector<MemberRun> runs(members.size());
    for (size_t i = 0; i < members.size(); ++i) {
        Member& m = members[i];
        m.name = i == 0 ? "deterministic" : memberName(int(i));
        m.seed = i == 0 ? 0 : memberSeed(seed, int(i));
        MemberRun& run = runs[i];
        run.consoleFile = work + m.name + ".log";
        if (!prepareVariantFile(r, work, m.name, m.error)) {
            run.failure = m.error;
            continue;
        }
        run.arguments = {"orvane", "-d", work, "-v", m.name, "-l", r.language, "-e",
                         std::to_string(m.seed) + ":" + variantDir};
        for (const std::string& o : r.optionTexts) {
            run.arguments.push_back("-o");
            run.arguments.push_back(o);
        }
        run.arguments.push_back("-o");
        run.arguments.push_back("option($GEMALL 2)");
    }
    int failed = 0;
    runMembers(runs, jobs, [&](MemberRun& run) {
        Member& m = members[size_t(&run - runs.data())];
        if (run.status == 0) {
            std::string runDir = work + m.name + "/";
            if (summariseRun(runDir, dims, ens + m.name + "_population.csv", ens + m.name + "_components.csv",
                             m.error)) {
                m.ok = true;
                fs::remove_all(runDir, ec);
                fs::remove(work + m.name + ".ini", ec);
                fs::remove(run.consoleFile, ec);
                return;
            }
        } else if (m.error.empty()) {
            m.error = !run.failure.empty() ? run.failure : firstError(work + m.name + "/");
            if (m.error.empty()) m.error = lastWords(run.consoleFile);
            if (m.error.empty()) m.error = "exit status " + std::to_string(run.status);
        }
        ++failed;
        fprintf(stderr, "ensemble %s (seed %llu) failed: %s\n", m.name.c_str(), (unsigned long long)m.seed,
                m.error.c_str());
    });

    // the list of members with their seeds and how they ended
    if (FILE* f = fopen((ens + "members.csv").c_str(), "w")) {
        fprintf(f, "member,seed,status,error\n");
        for (size_t i = 0; i < members.size(); ++i) {
            std::string error = members[i].error;
            for (char& c : error)
                if (c == ',' || c == '\n') c = ' ';
            fprintf(f, "%s,%llu,%s,%s\n", i == 0 ? "deterministic" : std::to_string(i).c_str(),
                    (unsigned long long)members[i].seed, members[i].ok ? "ok" : "failed", error.c_str());
        }
        fclose(f);
    }

    std::vector<std::string> population, components;
    for (size_t i = 1; i < members.size(); ++i)
        if (members[i].ok) {
            population.push_back(ens + members[i].name + "_population.csv");
            components.push_back(ens + members[i].name + "_components.csv");
        }
    int status = failed ? 1 : 0;
    if (population.empty()) {
        fprintf(stderr, "ensemble: no member gave results\n");
        return 1;
    }
    std::string error;
    if (!writeQuantiles(SummaryTable::Population, population, ens + "ensemble_quantiles.csv", error) ||
        !writeQuantiles(SummaryTable::Components, components, ens + "ensemble_components_quantiles.csv", error)) {
        fprintf(stderr, "ensemble: %s\n", error.c_str());
        return 1;
    }
    FanChartPage page;
    page.ensembleDirectory = ens;
    page.protocolDirectory = variantDir + "prot/";
    page.dims = dims;
    page.members = int(population.size());
    page.failed = failed;
    page.seed = seed;
    page.withDeterministic = members[0].ok;
    std::string pagePath = writeFanChartPage(page, error);
    if (pagePath.empty()) {
        fprintf(stderr, "ensemble: %s\n", error.c_str());
        status = 1;
    } else {
        printf("ensemble page: %s\n", pagePath.c_str());
    }
    if (!failed) fs::remove_all(work, ec);
    return status;
}
