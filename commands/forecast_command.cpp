#include "commands/forecast_command.h"

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "platform/dictionary.h"
#include "platform/option_scanner.h"
#include "kernel/variant_file.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/run_lock.h"
#include "platform/settings.h"
#include "platform/exit_status.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "statistics/time_series.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/labelled_array.h"
#include "commands/run_failure.h"
#include "ensemble/cluster.h"
#include "ensemble/ensemble_driver.h"
#include "ensemble/scenario_comparison.h"
#include "tables/input_reader.h"

int callbackFlag = 0;
std::string language = "de";
int commandArgc = 0;
char** commandArgv = nullptr;

namespace {

const char* const USAGE = "usage: orvane -c -d directory -l language -p -v version -w working_dir";
constexpr int BUILD = 1924;

// runs a command line through the shell; a start that fails is shown with the current directory
void shell(const std::string& command)
{
    if (os::system(command) == -1)
        os::messageBox(std::strerror(errno), "%s\n%s", os::currentDirectory().c_str(), command.c_str());
}

// the UTF-8 bytes of a code point sequence given as its bytes in one integer
void putSequence(FILE* out, uint32_t seq)
{
    unsigned char bytes[4];
    int n = 0;
    for (int shift = 24; shift >= 0; shift -= 8) {
        unsigned char b = static_cast<unsigned char>(seq >> shift);
        if (b || n) bytes[n++] = b;
    }
    fwrite(bytes, 1, size_t(n), out);
}

} // namespace

void runCallback(const char* section)
{
    static int perlBytes = -2;
    if (perlBytes == -2) {
        perlBytes = -1;
        fflush(nullptr);
        if (FILE* p = popen("perl -v 2>/dev/null", "r")) {
            char buffer[2048];
            size_t n = fread(buffer, 1, sizeof buffer, p);
            fwrite(buffer, 1, n, stderr);
            perlBytes = int(n);
            pclose(p);
        }
    }
    std::string command;
    if (perlBytes == 0) {
        command = std::string("veldor64.exe -e ptest::run(q(") + section + "))";
        shell(command);
        return;
    }
    const std::string scripts = "source/scripts/";
    command = "perl -I" + scripts + " " + scripts + "ptest.pm " + section + " \"" + si::variantPath() + "\"";
    fprintf(stderr, "%s\n", command.c_str());
    shell(command);
}

void openProtFile()
{
    std::string dir = si::Directory + si::Version;
    for (const char* pattern : {"agg*.csv", "bewagg*.csv", "bewgemagg*.csv", "gstrom.csv", "gwegzug.csv", "gzuzug.csv", "le.csv",
                                "gstrom_weg.csv", "gstrom_zu.csv"})
        os::glob(dir, pattern, [](const std::string& d, const std::string& name) {
            std::remove((d + name).c_str());
            return 0;
        });
    std::string prot = dir + "/prot";
    if (!os::isDirectory(prot)) os::createDirectory(prot);
    // the pages of an earlier run go, and what a killed run left unfinished
    auto remove = [](const std::string& d, const std::string& name) {
        std::remove((d + name).c_str());
        return 0;
    };
    for (const char* pattern : {"[0-9][0-9][0-9][0-9][0-9][0-9].htm", "[0-9][0-9][0-9][0-9][0-9][0-9].csv",
                                "[0-9][0-9][0-9][0-9][0-9][0-9].txt", "inp.htm", "out.htm", "results.htm", ".~*"})
        os::glob(prot, pattern, remove);
    os::glob(dir, ".~*", remove);
    std::string index = prot + "/index.html";
    if (int err = Prot::open(index, si::appDir + "style.css")) {
        os::messageBox(index.c_str(), "open protocol file: %s", std::strerror(err));
        std::exit(1);
    }
    // first of all, the way to what the forecast says
    Prot::raw("<p class=results><a href=\"results.htm\">%s</a></p>\n", DD::lookup("resultsOverview").c_str());
}

void writeCharsetTest(FILE* out)
{
    fputs("        ", out);
    for (int i = 0; i < 16; ++i) fprintf(out, " %X", i);
    fputc('\n', out);
    auto rows = [&](uint32_t first, uint32_t last) {
        for (uint32_t row = first; row <= last; row += 16) {
            fprintf(out, "%08X", row);
            for (uint32_t s = row; s < row + 16 && s <= last; ++s) {
                fputc(' ', out);
                putSequence(out, s);
            }
            fputc('\n', out);
        }
    };
    rows(32, 127);
    rows(0xC2A0, 0xC2BF);
    rows(0xC380, 0xC3BF);
    for (uint32_t page = 0xE29880; page <= 0xE29B80; page += 0x100) rows(page, page + 0x3F);
    rows(0xF09F9880, 0xF09F98BF);
    rows(0xF09F9980, 0xF09F998F);
}

namespace {

void protocolHead(int cores, double ddMillis)
{
    Prot::heading(1, "@run;", "%s", DD::lookup("prot_prog").c_str());
    Prot::write(1, "<a href=\"https://veldor.example.org/\" target=_blank>VELDOR</a>");
    // the system the run is on, where the program's first home wrote its own
    Prot::write(1, " %s %s", si::release.c_str(), os::systemInfo().platform.c_str());
    Prot::write(1, " PPL");
    Prot::write(1, " %d", BUILD);
    Prot::write(1, ", %d cores, %s, %s", cores, os::parallel() ? "parallel" : DD::literal("seriell"),
                si::logfile ? "logfile" : "nologfile");
    Prot::write(1, ", @language; %s", language.c_str());
    Prot::write(3, ", %s", si::localeName.c_str());
    Prot::writeln(1, "%s", "");
    if (Prot::level(3)) {
        Prot::write(3, "<code>");
        for (int i = 0; i < commandArgc; ++i)
            Prot::write(3, i + 1 < commandArgc ? "%s " : "%s", commandArgv[i]);
        Prot::writeln(3, "</code>");
    }
    Prot::writeln(3, "@orvane_timeDD; %g ms", ddMillis);
}

void charsetTest()
{
    // this platform has no console code page to switch: the test writes its page only
    std::string dir = si::Directory + si::Version;
    if (!os::isDirectory(dir)) return;
    std::string path = dir + "/prot/tutf8.htm";
    printf("> %s\n", path.c_str());
    if (!os::isDirectory(dir + "/prot")) os::createDirectory(dir + "/prot");
    FILE* f = fopen(path.c_str(), "w");
    if (!f) return;
    fputs("<html><head><meta charset=\"utf-8\"><body><pre>", f);
    writeCharsetTest(f);
    fputs("</pre></body></html>", f);
    fclose(f);
}

} // namespace

int orvane(int argc, char** argv)
{
    Orvane run;
    si::processDefaults();

    Getopt scan;
    scan.opterr = 0;
    scan.optind = 0;
    int errors = 0;
    VariantRequest request;
    bool optionFailed = false;
    std::vector<std::string> optionTexts;
    int jobs = 0;
    // -e seed:directory: this run is a member of the ensemble of the variant in that directory
    std::string memberOf;
    double memberSeed = 0;
    int c;
    while ((c = scan(argc, argv, "cd:e:j:l:o:pv:w:")) != -1) {
        switch (c) {
        case 'c': callbackFlag = 1; break;
        case 'd':
            si::Directory = scan.optarg;
            request.directoryGiven = true;
            break;
        case 'e': {
            std::string text = scan.optarg;
            size_t colon = text.find(':');
            char* end = nullptr;
            memberSeed = std::strtod(text.c_str(), &end);
            if (colon == std::string::npos || end != text.c_str() + colon || memberSeed < 0) ++errors;
            else memberOf = text.substr(colon + 1);
            break;
        }
        case 'j': {
            char* end = nullptr;
            long n = std::strtol(scan.optarg, &end, 10);
            if (*scan.optarg == 0 || *end != 0 || n < 1) ++errors;
            else jobs = int(n);
            break;
        }
        case 'l': language = scan.optarg; break;
        case 'o':
            optionTexts.push_back(scan.optarg);
            // a forecast under a mistyped option is not the one asked for
            if (!runOptionText(scan.optarg)) optionFailed = true;
            // -o includes the effect of -p
            os::setParallel(true);
            break;
        case 'p': os::setParallel(true); break;
        case 'v':
            si::Version = scan.optarg;
            request.versionGiven = true;
            break;
        case 'w': os::setCurrentDirectory(scan.optarg); break;
        default: ++errors; break;
        }
    }
    if (errors) {
        std::string text = "orvane";
        for (int i = 0; i < argc; ++i) text += std::string(" ") + argv[i];
        os::messageBox(USAGE, "%s", text.c_str());
        return 1;
    }
    if (optionFailed) return 1;
    const bool member = !memberOf.empty();
    if (member) {
        // a member is one of many processes on the machine: its loops run on one core; it draws
        // from its own seed, or is the deterministic forecast (seed 0), and starts no ensemble
        os::setParallel(false);
        setMemberOf(memberOf);
        opt::set("$ENSEMBLE", 0);
        if (memberSeed >= 1) {
            opt::set("$SEED", memberSeed);
            if (opt::get("$MONTE_CARLO", 0) == 0) opt::set("$MONTE_CARLO", 1);
        } else {
            opt::set("$MONTE_CARLO", 0);
        }
    }
    const int ensembleMembers = static_cast<int>(opt::get("$ENSEMBLE", 0));
    EnsembleRequest ensemble;
    ensemble.members = ensembleMembers;
    ensemble.jobs = jobs;
    ensemble.language = language;
    ensemble.optionTexts = optionTexts;
    ensemble.variantSeed = opt::get("$MONTE_CARLO", 0);
    bool ensembleRan = false;
    if (ensembleMembers > 0 && clusterJoin().rank != 0) {
        // a further rank of a cluster: only members, the variant's own forecast is rank 0's
        ensemble.directory = si::Directory;
        ensemble.version = si::Version;
        int status = runEnsemble(ensemble);
        clusterLeave();
        return status;
    }
    int cores = os::systemInfo().cores;
    ini::RUNFORECAST = si::varInt("DEFAULTS", "RUNFORECAST", 1, si::Directory, si::Version);
    ini::AUSGABE_PROTOKOLL = si::varInt("DEFAULTS", "AUSGABE_PROTOKOLL", 1, si::Directory, si::Version);

    // the texts of the dictionary that depend on the modules in use
    std::vector<std::string> variants;
    for (const char* key : {"NEUBAU", "RUECKBAU", "ANSTALTSBEVOELKERUNG"}) {
        std::string v = si::varString("METHODE", key, "_0", si::Directory, si::Version).substr(0, 19);
        if (v.size() > 1 && std::atoi(v.c_str() + 1) != 0) variants.push_back(key);
    }
    variants.push_back("");
    auto t0 = std::chrono::steady_clock::now();
    DD::load(language, variants);
    double ddMillis = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    DD::echo(Prot::stream(), false);
    Prot::setLanguage(language);

    if (opt::get("$TUTF8", 0) != 0) charsetTest();

    // a run that cannot find its variant file leaves no directory behind
    bool variantFound = os::isFile(si::variantPath());
    if (variantFound) {
        // the run owns its result directory until it ends: a second run of the variant stops here
        std::string dir = si::Directory + si::Version;
        if (!os::isDirectory(dir)) os::createDirectory(dir);
        std::string holder, errorText;
        if (!runLock::acquire(dir, holder, errorText)) {
            tellBusyDirectory(dir, holder, errorText);
            DD::clear();
            return 1;
        }
    }
    Prot::setup(si::Directory, si::Version, ini::AUSGABE_PROTOKOLL, si::logfile, variantFound);
    if (ini::RUNFORECAST != 0 && variantFound) {
        if (callbackFlag) runCallback("CALLBACK0");
        openProtFile();
        laSetStream(Prot::stream());
        Prot::openFilePages();
    }
    Prot::reset();

    int status = 0;
    int maintenance;
    try {
        maintenance = mkvers();
    } catch (const std::exception& e) {
        os::messageBox("Error", "read %s%s: %s", si::appDir.c_str(), "constant.csv", e.what());
        maintenance = 1;
    }
    if (maintenance != 0) {
        Prot::message(SEV_WARNING, "%s%s.ini not found", si::Directory.c_str(), si::Version.c_str());
        status = maintenance;
        // no forecast follows: the protocol is put in place now, so that the console can name it
        if (variantFound) Prot::close();
        if (variantFound) tellInvalidVariant();
        else tellMissingVariant(request);
    } else {
        if (ini::RUNFORECAST == 0) {
            Prot::console(SEV_NONE, true, "%s", DD::expKey("@noforecast;").c_str());
        } else {
            protocolHead(cores, ddMillis);
            // the run object takes the dimensions and modules of the repaired variant file
            run.loadSettings();
            // the pages of the ensemble and the scenarios come after the protocol is closed:
            // the results overview links them now
            if (ensembleMembers > 0) announceLaterPage("ensemble.html", "ov_ensemblePage");
            if (!member && !scenariosOf(si::Directory, si::Version).empty())
                announceLaterPage("scenarios.html", "ov_scenariosPage");
            status = RK::PRO(&run);
            if (ensembleMembers > 0) {
                ensemble.directory = si::Directory;
                ensemble.version = si::Version;
                ensemble.variantRunOk = status == 0;
                ensembleRan = true;
                int ensembleStatus = runEnsemble(ensemble);
                if (status == 0) status = ensembleStatus;
            }
            // scenarios side by side: the further variants of [SZENARIEN], each as if run alone
            if (status == 0 && !member) {
                ScenarioRequest scenarios;
                scenarios.directory = si::Directory;
                scenarios.variants = scenariosOf(si::Directory, si::Version);
                if (!scenarios.variants.empty()) {
                    scenarios.variants.insert(scenarios.variants.begin(), si::Version);
                    scenarios.jobs = jobs;
                    scenarios.language = language;
                    scenarios.optionTexts = optionTexts;
                    status = runScenarios(scenarios);
                }
            }
            // the front end's closing step, after the protocol is closed
            if (callbackFlag && ini::RUNFORECAST == 1) runCallback("CALLBACK2");
        }
        if (ini::RUNZR != 0) {
            std::vector<std::string> columns = {"$i", ini::GKZ, ini::BG, ini::GG, ini::AG};
            zrgem(ini::ZRGEM, columns, si::Directory, si::Version, ini::STARTJAHR, ini::RUNZR >= 2, ini::ENDJAHR,
                  ini::AusgabeNull, si::floatFormat);
        }
    }
    if (status != 0 && variantFound) tellFailedRun(status);
    // hints and warnings that were only counted get their line (a run without protocol too)
    Prot::summariseAlike();
    Trace::clear();
    DD::clear();
    // the further ranks of a cluster wait for rank 0: a forecast that did not run releases them
    if (ensembleMembers > 0 && !ensembleRan) {
        ensemble.variantRunOk = false;
        runEnsemble(ensemble);
        if (status == 0) status = 1;
    }
    clusterLeave();
    return status;
}
