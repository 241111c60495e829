#include "ensemble/ensemble_driver.h"

#include <cerrno>
#include <chrono>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

#include "ensemble/cluster.h"
#include "ensemble/fan_chart_page.h"
#include "ensemble/member_runs.h"
#include "ensemble/member_summary.h"
#include "ensemble/quantiles.h"
#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
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

// The member's own variant file: a copy of the variant's without protocol, charts or matrices
// (the member writes its summary in place of the result tables).
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
        {"DEFAULTS", "AUSGABE_PROTOKOLL", "0"},     {"DEFAULTS", "PYRAMIDE", "0"},
        {"DEFAULTS", "PLOT_DATEN", "0"},            {"DEFAULTS", "AUSGABE_BINNEN_MATRIX", "0"},
        {"DEFAULTS", "AUSGABE_AUSSEN_MATRIX", "0"}, {"DEFAULTS", "RUNFORECAST", "1"},
        {"ZR", "RUNZR", "0"},
    };
    for (const auto& k : keys)
        if (!si::varWrite(k[0], k[1], k[2], work, name)) {
            error = work + name + ".ini: " + std::strerror(errno);
            return false;
        }
    return true;
}

// moves a summary a member wrote to where the ensemble keeps it
bool takeSummary(const std::string& from, const std::string& to, std::string& error)
{
    std::error_code ec;
    fs::rename(from, to, ec);
    if (!ec) return true;
    // another file system: copied, then removed with the member's directory
    ec.clear();
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
    if (ec) error = from + ": " + ec.message();
    return !ec;
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

namespace {

// where the members work: a directory of this process in the system's memory file system when
// there is one, else `fallback`
std::string scratchDirectory(const std::string& fallback)
{
    std::error_code ec;
    if (!fs::is_directory("/dev/shm", ec) || access("/dev/shm", W_OK) != 0) return fallback;
    return "/dev/shm/veldor-ensemble-" + std::to_string(getpid()) + "/";
}

// rank 0's end: the quantile tables and the page; 0, or 1 when a member failed or nothing
// could be gathered
int gatherQuantiles(const std::string& ens, const std::string& variantDir, const Dimensions& dims, uint64_t seed,
                    size_t count, int failed, bool deterministicOk, const std::function<bool(size_t)>& ok,
                    const std::function<std::string(size_t)>& name)
{
    std::vector<std::string> population, components;
    for (size_t i = 1; i <= count; ++i)
        if (ok(i)) {
            population.push_back(ens + name(i) + "_population.bin");
            components.push_back(ens + name(i) + "_components.bin");
        }
    std::string error;
    const auto tablesStart = std::chrono::steady_clock::now();
    // the deterministic forecast as plain tables, the line of the fan charts
    if (deterministicOk) {
        const std::string det = ens + name(0);
        if (!writeSummaryText(SummaryTable::Population, ens + SUMMARY_POPULATION_KEYS, det + "_population.bin",
                              det + "_population.csv", error) ||
            !writeSummaryText(SummaryTable::Components, ens + SUMMARY_COMPONENTS_KEYS, det + "_components.bin",
                              det + "_components.csv", error)) {
            fprintf(stderr, DD::literal("Ensemble: %s\n"), error.c_str());
            deterministicOk = false;
        }
        std::remove((det + "_population.bin").c_str());
        std::remove((det + "_components.bin").c_str());
    }
    if (population.empty()) {
        fprintf(stderr, "%s", DD::literal("Ensemble: kein Lauf hat Ergebnisse geliefert\n"));
        return 1;
    }
    if (!writeQuantiles(SummaryTable::Population, ens + SUMMARY_POPULATION_KEYS, population,
                        ens + "ensemble_quantiles.csv", error) ||
        !writeQuantiles(SummaryTable::Components, ens + SUMMARY_COMPONENTS_KEYS, components,
                        ens + "ensemble_components_quantiles.csv", error)) {
        fprintf(stderr, DD::literal("Ensemble: %s\n"), error.c_str());
        return 1;
    }
    // under $ODE the members have the population only: said on the console and the page
    KeyTable componentKeys;
    SummaryValues componentValues;
    const bool withComponents = componentKeys.read(SummaryTable::Components, ens + SUMMARY_COMPONENTS_KEYS, error) &&
                                componentValues.open(components.front(), componentKeys, error) &&
                                componentValues.years() > 0;
    if (!withComponents) printf(DD::literal("Ensemble: %s\n"), DD::lookup("ens_noComponents").c_str());
    const auto pageStart = std::chrono::steady_clock::now();
    FanChartPage page;
    page.ensembleDirectory = ens;
    page.protocolDirectory = variantDir + "prot/";
    page.dims = dims;
    page.members = int(population.size());
    page.failed = failed;
    page.seed = seed;
    page.withDeterministic = deterministicOk;
    page.withComponents = withComponents;
    std::string pagePath = writeFanChartPage(page, error);
    if (pagePath.empty()) {
        fprintf(stderr, DD::literal("Ensemble: %s\n"), error.c_str());
        return 1;
    }
    auto seconds = [](auto a, auto b) { return std::chrono::duration<double>(b - a).count(); };
    printf(DD::literal("Ensemble-Seite: %s (Tabellen %.3f s, Seite %.3f s)\n"), pagePath.c_str(), seconds(tablesStart, pageStart),
           seconds(pageStart, std::chrono::steady_clock::now()));
    return failed ? 1 : 0;
}

std::string readWhole(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// members at once on this machine: the cores, shared by the ranks that stand on it
int defaultJobs()
{
    int cores = os::systemInfo().cores;
    int local = 1;
    if (const char* l = std::getenv("OMPI_COMM_WORLD_LOCAL_SIZE")) local = std::max(1, std::atoi(l));
    return std::max(1, cores / local);
}

} // namespace

int runEnsemble(const EnsembleRequest& r)
{
    const Cluster cluster = clusterJoin();
    const bool root = cluster.rank == 0;
    const std::string variantDir = r.directory + r.version + "/";
    const std::string ens = variantDir + "ensemble/";
    // the members work in memory where the system offers it (their full results live only until
    // they are summarised); a failed member's directory is kept in ensemble/work/
    const std::string kept = ens + "work/";
    const std::string work = scratchDirectory(kept);
    // the summaries of this rank: rank 0 keeps them in ensemble/, the others send theirs there
    const std::string local = root ? ens : work + "rank" + std::to_string(cluster.rank) + "/";
    std::error_code ec;

    // rank 0 starts: the ensemble owns its directory, what an earlier one left goes
    std::vector<uint64_t> start = {0, 0};
    if (root && r.variantRunOk) {
        fs::remove_all(ens, ec);
        fs::create_directories(kept, ec);
        if (ec) fprintf(stderr, "%s: %s\n", kept.c_str(), ec.message().c_str());
        else start = {1, variantSeedOf(r.variantSeed)};
    }
    clusterBroadcast(start);
    if (start[0] == 0) return 1;
    const uint64_t seed = start[1];
    fs::create_directories(local, ec);
    fs::create_directories(work, ec);

    Dimensions dims;
    dims.startYear = si::varInt("DEFAULTS", "STARTJAHR", 0, r.directory, r.version);
    dims.endYear = si::varInt("DEFAULTS", "ENDJAHR", 0, r.directory, r.version);
    dims.groups = si::varInt("METHODE", "NBG", 1, r.directory, r.version);
    dims.sexes = si::varInt("METHODE", "NGG", 1, r.directory, r.version);
    dims.ages = si::varInt("METHODE", "NAG", 1, r.directory, r.version);
    const int jobs = r.jobs > 0 ? r.jobs : defaultJobs();
    if (root) {
        printf(DD::literal("Ensemble von %d Läufen ab Startwert %llu, %d Ränge, %d gleichzeitig: %s\n"), r.members, (unsigned long long)seed,
               cluster.size, jobs, ens.c_str());
        fflush(stdout);
    }

    // run 0 is the deterministic forecast, the line of the fan charts; 1.. are the members,
    // dealt out to the ranks in turn
    struct Member {
        std::string name;
        uint64_t seed = 0;
        std::string error;
        bool ok = false;
    };
    std::vector<Member> members(size_t(r.members) + 1);
    for (size_t i = 0; i < members.size(); ++i) {
        members[i].name = i == 0 ? "deterministic" : memberName(int(i));
        members[i].seed = i == 0 ? 0 : memberSeed(seed, int(i));
    }
    std::vector<size_t> mine;
    for (size_t i = 0; i < members.size(); ++i)
        if (i == 0 ? root : int((i - 1) % size_t(cluster.size)) == cluster.rank) mine.push_back(i);
    std::vector<MemberRun> runs(mine.size());
    for (size_t k = 0; k < mine.size(); ++k) {
        Member& m = members[mine[k]];
        MemberRun& run = runs[k];
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
        run.arguments.push_back("option($SUMMARY_ONLY 1)");
    }
    const auto started = std::chrono::steady_clock::now();
    runMembers(runs, jobs, [&](MemberRun& run) {
        Member& m = members[mine[size_t(&run - runs.data())]];
        if (run.status == 0) {
            std::string runDir = work + m.name + "/";
            // the key tables of the first run that ends well serve the whole ensemble
            std::error_code missing;
            const bool keys = fs::exists(local + SUMMARY_POPULATION_KEYS, missing) ||
                              (takeSummary(runDir + SUMMARY_POPULATION_KEYS, local + SUMMARY_POPULATION_KEYS, m.error) &&
                               takeSummary(runDir + SUMMARY_COMPONENTS_KEYS, local + SUMMARY_COMPONENTS_KEYS, m.error));
            if (keys && takeSummary(runDir + SUMMARY_POPULATION_FILE, local + m.name + "_population.bin", m.error) &&
                takeSummary(runDir + SUMMARY_COMPONENTS_FILE, local + m.name + "_components.bin", m.error)) {
                m.ok = true;
                fs::remove_all(runDir, ec);
                fs::remove(work + m.name + ".ini", ec);
                fs::remove(run.consoleFile, ec);
                return;
            }
        } else if (m.error.empty()) {
            m.error = !run.failure.empty() ? run.failure : firstError(work + m.name + "/");
            if (m.error.empty()) m.error = lastWords(run.consoleFile);
            if (m.error.empty()) m.error = DD::literal("Exit-Status ") + std::to_string(run.status);
        }
        fprintf(stderr, DD::literal("Ensemble-Lauf %s (Startwert %llu) fehlgeschlagen: %s\n"), m.name.c_str(), (unsigned long long)m.seed,
                m.error.c_str());
        if (work != kept) {
            fs::create_directories(kept, ec);
            fs::copy(work + m.name, kept + m.name, fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
            fs::copy(work + m.name + ".ini", kept + m.name + ".ini", fs::copy_options::overwrite_existing, ec);
            fs::copy(run.consoleFile, kept + m.name + ".log", fs::copy_options::overwrite_existing, ec);
            fs::remove_all(work + m.name, ec);
        }
    });

    const auto gatherStart = std::chrono::steady_clock::now();
    // the other ranks send how their members ended and their summaries to rank 0
    if (!root) {
        // the key tables (none when no member of this rank ended well), then the members
        for (const char* keys : {SUMMARY_POPULATION_KEYS, SUMMARY_COMPONENTS_KEYS}) {
            clusterSend(readWhole(local + keys));
            fs::remove(local + keys, ec);
        }
        clusterSend(std::to_string(mine.size()));
        for (size_t i : mine) {
            Member& m = members[i];
            clusterSend(std::to_string(i) + "," + (m.ok ? "1" : "0"));
            clusterSend(m.error);
            std::string p = local + m.name + "_population.bin", c = local + m.name + "_components.bin";
            clusterSend(m.ok ? readWhole(p) : std::string());
            clusterSend(m.ok ? readWhole(c) : std::string());
            fs::remove(p, ec);
            fs::remove(c, ec);
        }
        fs::remove(local, ec);
        if (work != kept) fs::remove_all(work, ec);
        std::vector<uint64_t> end = {0};
        clusterBroadcast(end);
        return int(end[0]);
    }
    int err = 0;
    for (int from = 1; from < cluster.size; ++from) {
        for (const char* keys : {SUMMARY_POPULATION_KEYS, SUMMARY_COMPONENTS_KEYS}) {
            std::string text = clusterReceive(from);
            if (!text.empty() && !fs::exists(ens + keys, ec) && (err = safeOutput::writeFile(ens + keys, text)) != 0)
                fprintf(stderr, DD::literal("Ensemble: %s%s: %s\n"), ens.c_str(), keys, std::strerror(err));
        }
        size_t count = std::stoull(clusterReceive(from));
        for (size_t k = 0; k < count; ++k) {
            std::string meta = clusterReceive(from);
            size_t i = std::stoull(meta.substr(0, meta.find(',')));
            Member& m = members[i];
            m.ok = meta.back() == '1';
            m.error = clusterReceive(from);
            std::string p = clusterReceive(from), c = clusterReceive(from);
            for (const auto& [tail, bytes] : {std::pair<const char*, const std::string*>{"_population.bin", &p},
                                              {"_components.bin", &c}})
                if (m.ok && (err = safeOutput::writeFile(ens + m.name + tail, *bytes)) != 0) {
                    m.ok = false;
                    m.error = ens + m.name + tail + ": " + std::strerror(err);
                }
        }
    }
    const auto received = std::chrono::steady_clock::now();
    int failed = 0;
    for (const Member& m : members) failed += m.ok ? 0 : 1;
    // the list of members with their seeds and how they ended
    std::string list = "member,seed,status,error\n";
    for (size_t i = 0; i < members.size(); ++i) {
        std::string error = members[i].error;
        for (char& c : error)
            if (c == ',' || c == '\n') c = ' ';
        list += (i == 0 ? std::string("deterministic") : std::to_string(i)) + "," + std::to_string(members[i].seed) +
                "," + (members[i].ok ? "ok" : "failed") + "," + error + "\n";
    }
    if (int err = safeOutput::writeFile(ens + "members.csv", list))
        fprintf(stderr, DD::literal("Ensemble: %s%s: %s\n"), ens.c_str(), "members.csv", std::strerror(err));
    int status = gatherQuantiles(ens, variantDir, dims, seed, members.size() - 1, failed, members[0].ok,
                                 [&](size_t i) { return members[i].ok; }, [&](size_t i) { return members[i].name; });
    if (work != kept) fs::remove_all(work, ec);
    if (!failed) fs::remove_all(kept, ec);
    auto seconds = [](auto a, auto b) { return std::chrono::duration<double>(b - a).count(); };
    printf(DD::literal("Ensemble: Läufe %.3f s, Zusammenführen %.3f s"), seconds(started, gatherStart),
           seconds(gatherStart, std::chrono::steady_clock::now()));
    if (cluster.size > 1) printf(DD::literal(" (Empfang von den anderen Rängen %.3f s)"), seconds(gatherStart, received));
    printf("\n");
    std::vector<uint64_t> end = {uint64_t(status)};
    clusterBroadcast(end);
    return status;
}
