// The table of files: declaration of every input and output table of a forecast, opening by
// kind with the heads of the outputs, removal of outputs, the loaders of all years of a rate
// table, and the $ variables of the state.
#include "kernel/file_table.h"

#include "platform/safe_output.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/input_reader.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/run_values.h"
#include "tables/table_text.h"
#include "tables/expression.h"
#include "tables/functions.h"

std::array<FileEntry, FT_COUNT> fileTable;
int GEMALL = 0;

namespace {

FileEntry input(const char* name, int kind, int zero, int mode, int reg, int yearOffset)
{
    FileEntry e;
    e.name = name;
    e.kind = kind;
    e.lastIndexFromZero = zero;
    e.checkMode = mode;
    e.regionColumn = reg;
    e.yearOffset = yearOffset;
    return e;
}

FileEntry output(const char* name, int kind, std::vector<std::string> columns, int yearOffset = 0)
{
    FileEntry e;
    e.name = name;
    e.kind = kind;
    e.lastIndexFromZero = 1;
    e.checkMode = -1;
    e.yearOffset = yearOffset;
    e.columnNames = std::move(columns);
    return e;
}

// the movement components of a region in the order of the cohort equation, then the births
const std::vector<std::string>& movementColumns()
{
    static const std::vector<std::string> columns = {
        "@DG4S;", "@DG4WA;", "@DG4OBN;", "@DG4WB;", "@DG4OI;", "@DG4OBR;", "@DG4OAR;", "@DG4IBR;",
        "@DG4ZA;", "@DG4IBN;", "@DG4IAN;", "@DG4ZB;", "@DG4II;", "@DG4WBGv;", "@DG4WBGn;", "@DG3G;"};
    return columns;
}

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

std::string variantDirectory()
{
    std::string dir = si::Directory + si::Version;
    if (!dir.empty() && dir.back() != '/') dir += '/';
    return dir;
}

void fillFileTable()
{
    GEMALL = opt::getIntTrace("$GEMALL", 0);
    MONATE = opt::getIntTrace("$MONATE", 12);

    auto& t = fileTable;
    t[0] = input("bgwr%d", 1, 1, 0, 0, 0);
    t[1] = input("gem%d", 0, 1, 2, 2, 1);
    t[2] = input("wegz%d", 1, 1, 0, 0, 0);
    t[3] = input("strm%d", 1, 1, 0, 0, 0);
    t[4] = input("zudq%d", 1, 1, 0, 0, 0);
    t[5] = input("zuaq%d", 1, 1, 0, 0, 0);
    t[6] = input("eckgem", 1, 0, 3, 3, 0);
    t[7] = input("eckreg", 1, 1, 3, 0, 0);
    t[8] = input("saldvol", 1, 0, 3, 0, 0);
    t[9] = input("nebb", 1, 0, 3, 2, 0);
    t[10] = input("nebq%d", 1, 1, 0, 0, 0);
    t[11] = input("nebqqa", 1, 0, 3, 0, 0);
    t[12] = input("nebgqt", 1, 0, 3, 0, 0);
    t[13] = input("nebgqr", 1, 0, 3, 2, 0);
    t[14] = input("reab", 1, 0, 3, 2, 0);
    t[15] = input("reagzt", 1, 0, 3, 0, 0);
    t[16] = input("reagzr", 1, 0, 3, 2, 0);
    t[17] = input("reaq%d", 1, 1, 0, 0, 0);
    t[18] = input("rear", 1, 0, 3, 2, 0);
    t[19] = input("reaqza", 1, 0, 3, 0, 0);
    t[20] = input("dsga%d", 1, 1, 1, 2, 1);
    t[21] = input("dsgr%d", 1, 1, 1, 2, 1);
    t[22] = input("attr%d", 1, 0, 0, 2, 0);
    t[23] = input("reft%d", 1, 0, 0, 0, 1);
    t[24] = input("fruc%d", 1, 1, 0, 0, 0);
    t[25] = input("bgwqg", 1, 0, 3, 0, 0);
    t[26] = input("strb%d", 1, 1, 0, 0, 0);
    t[27] = input("zuvol", 1, 0, 3, 0, 0);
    t[28] = input("zuvl%d", 1, 1, 0, 0, 0);
    t[29] = input("zuvg%d", 1, 1, 1, 3, 0);
    t[30] = input("mept%d", 1, 0, 0, 0, 0);
    t[31] = input("eckgeb", 1, 0, 3, 0, 0);
    t[32] = input("eckgebg", 1, 0, 3, 2, 0);
    t[33] = input("wegvol", 1, 0, 3, 0, 0);
    t[34] = input("wegv%d", 1, 1, 1, 2, 0);
    t[35] = input("ecktyp", 1, 0, 3, 0, 0);
    t[36] = input("eckstrb", 1, 0, 3, 0, 0);
    t[37] = input("eckstrbg", 1, 0, 3, 2, 0);

    // what the values of a table are: counts are never negative, shares and quotas lie in [0, 1]
    for (int k : {1, 6, 7, 9, 14, 18, 20, 27, 31, 32, 33, 35, 36, 37}) t[k].valueDomain = 1;
    for (int k : {4, 5, 10, 11, 17, 19, 21}) t[k].valueDomain = 2;

    const std::vector<std::string> cohortNumber = {"@year;", "@GKZ;", "@BG;", "@GG;", "@AG;", "@number;"};
    char aggKey[32];
    snprintf(aggKey, sizeof aggKey, "@rk1agg_fmt1%03d;", std::clamp(ini::DIFF_G, 0, 13));
    const bool regional = ini::AUSGABE_AUSSEN_MATRIX == 2;
    auto external = [regional](const char* component) {
        return std::vector<std::string>{"@year;", "@TYA;", regional ? "@GKZ;" : "@TYZZA;", "@BG;", "@GG;", "@AG;",
                                        component};
    };

    t[38] = GEMALL ? output("gem", 6, cohortNumber) : output("gem%d", 4, cohortNumber);
    t[39] = GEMALL ? output("gebam", 6, cohortNumber) : output("gebam%d", 4, cohortNumber);
    t[40] = output("bewgem", 6, concat({"@year;", "@GKZ;"}, movementColumns()));
    t[41] = output("bewgemagg%d", 5, concat({"@year;", aggKey}, movementColumns()));
    t[42] = output(regional ? "gzuzug" : "zuzug", 6, external("@DG4ZA;"));
    t[43] = output(regional ? "gneba" : "neba", 6, external("@DG4IAN;"));
    t[44] = output(regional ? "gwegzug" : "wegzug", 6, external("@DG4WA;"));
    t[45] = output(regional ? "greaa" : "reaa", 6, external("@DG4OAR;"));
    t[46] = output("strom", 6, {"@year;", "@TYBq;", "@TYBz;", "@BG;", "@GG;", "@AG;", "@value;"});
    t[47] = output("agg%d", 5, {"@year;", aggKey, "@BG;", "@GG;", "@AG;", "@value;"});
    t[48] = output("pyramid", 6, {"@year;", "@aggregate;", "@BG;", "@GG;", "@AG;", "@value;"}, 1);
    t[49] = output("bew", 6, concat({"@year;", "@GKZ;", "@BG;", "@GG;", "@age;"}, movementColumns()));
    t[50] = output("bewagg%d", 5, concat({"@year;", "@aggregateNumber;", "@BG;", "@GG;", "@age;"}, movementColumns()));
    t[51] = output("zuvolo", 6, {"@year;", "@TYA;", "@BG;", "@GG;", "@value;"});
    t[52] = output("bgwg", 6, {"@year;", "@regionTYG;", "BG @mother;", "BG @child;", "@GG;", "@value;"});
    t[53] = output("frucfak", 6, {"@year;", "@rk1pag_fruf;"}, 1);
    t[54] = output("strbfak", 6, {"@year;", "@rk1pag_strf;"}, 1);
}

int openTable(FILE** stream, int file, char* resultName, size_t size)
{
    *stream = nullptr;
    if (resultName && size) resultName[0] = 0;
    if (file < 0 || file >= FT_COUNT) return 1;
    FileEntry& e = fileTable[static_cast<size_t>(file)];

    if (e.kind == 0 || e.kind == 1) {
        std::string path, note;
        int err = openReadTable(e, stream, path, note);
        if (resultName && size) snprintf(resultName, size, "%s", tableFileName(e, e.fileNumber).c_str());
        return err == 0 && *stream ? 0 : 1;
    }
    if (e.kind != 4 && e.kind != 5 && e.kind != 6) return 1;

    // the name: a kind 4 table is numbered by its year, a kind 5 table by the reference table in force
    char name[64];
    std::string stem = e.name;
    int number = 0;
    if (e.kind == 4) {
        // The file of a forecast year carries that year: gem2025.csv holds the population at the
        // end of 2025, and the start population gem2024.csv of a run beginning in 2025 is the
        // one before it. So the tables of the years follow one another as the time series and
        // the household forecast read them.
        number = JAHR - e.yearOffset;
        snprintf(name, sizeof name, stem.c_str(), number);
    } else if (e.kind == 5) {
        number = fileTable[FT_REFT].fileNumber;
        snprintf(name, sizeof name, stem.c_str(), number);
        // the first reference table leaves the bare stem: agg, not agg1
        if (number == 1 && name[0]) name[std::strlen(name) - 1] = 0;
    } else {
        snprintf(name, sizeof name, "%s", stem.c_str());
    }
    std::string fileName = std::string(name) + ".csv";
    if (resultName && size) snprintf(resultName, size, "%s", fileName.c_str());
    if ((e.kind == 4 || e.kind == 5) && number != 1) e.fileNumber = JAHR - e.yearOffset;

    if (e.kind < 5) e.linesWritten = 0;
    traceLevel = 0;
    expandNeeded = 0;
    expandRequested = 1;

    std::string path = variantDirectory() + fileName;
    const char* mode = "a+";
    bool headDue = false;
    if (e.kind == 4) {
        mode = "w";
        headDue = true;
    } else if (e.kind == 5) {
        headDue = os::fileSize(path) == 0;
    } else if (JAHR == ini::STARTJAHR && e.linesWritten < 0) {
        // the first output of the run starts the file afresh
        mode = "w";
        headDue = true;
    } else {
        headDue = os::fileSize(path) == 0;
    }
    // the table is written beside its place and put there whole when it is closed
    FILE* f = safeOutput::open(path, mode[0] == 'a');
    if (!f) {
        int err = errno;
        Prot::message(SEV_ERROR, "@fn_open; %s (mode %s): %s", path.c_str(), mode, os::errorText(err).c_str());
        return 1;
    }
    *stream = f;
    if (headDue) {
        std::vector<const char*> columns;
        for (const std::string& c : e.columnNames) columns.push_back(c.c_str());
        columns.push_back(nullptr);
        int lines = csvWriteHead(f, name, columns.data(), nullptr);
        if (e.linesWritten < 0) e.linesWritten = 0;
        e.linesWritten += lines;
        Prot::addOutputFile(fileName);
    } else if (e.linesWritten < 0) {
        e.linesWritten = 0;
    }
    return 0;
}

void closeTable(FILE* stream) { safeOutput::close(stream); }

namespace {

// the number behind the stem in a file name stem<digits>.csv; -1 for any other name
long long numberAfterStem(const std::string& fileName, const std::string& stem)
{
    if (fileName.size() <= stem.size() + 4 || fileName.compare(0, stem.size(), stem) != 0 ||
        fileName.compare(fileName.size() - 4, 4, ".csv") != 0)
        return -1;
    std::string digits = fileName.substr(stem.size(), fileName.size() - stem.size() - 4);
    if (digits.empty() || digits.size() > 9 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
        return -1;
    return std::stoll(digits);
}

// calls each with the file name of every existing output of entry e whose number passes keep
template <class F> void forOutputFiles(const FileEntry& e, F&& each)
{
    std::string stem = e.name;
    size_t p = stem.find('%');
    if (p == std::string::npos) {
        if (os::isFile(variantDirectory() + stem + ".csv")) each(stem + ".csv", -1LL);
        return;
    }
    stem.erase(p);
    for (const std::string& name : os::glob(variantDirectory(), stem + "*.csv")) {
        long long number = numberAfterStem(name, stem);
        if (number >= 0 || name == stem + ".csv") each(name, number);
    }
}

} // namespace

std::vector<std::string> removeEarlierOutputs()
{
    std::vector<std::string> removed;
    std::string dir = variantDirectory();
    for (int i = FT_OUT_GEM; i < FT_COUNT; ++i) {
        const FileEntry& e = fileTable[static_cast<size_t>(i)];
        forOutputFiles(e, [&](const std::string& name, long long number) {
            // a yearly table before the first year of this run is the start population of a
            // later run, read from here: it stays
            if (e.kind == 4 && number >= 0 && number < ini::STARTJAHR - e.yearOffset) return;
            if (e.kind == 4 && number < 0) return;
            if (std::remove((dir + name).c_str()) == 0) removed.push_back(name);
        });
    }
    return removed;
}

std::vector<std::string> removeYearOutputs(int year)
{
    std::vector<std::string> removed;
    std::string dir = variantDirectory();
    for (int i = FT_OUT_GEM; i < FT_COUNT; ++i) {
        const FileEntry& e = fileTable[static_cast<size_t>(i)];
        if (e.kind != 4) continue;
        forOutputFiles(e, [&](const std::string& name, long long number) {
            if (number == year - e.yearOffset && std::remove((dir + name).c_str()) == 0) removed.push_back(name);
        });
    }
    return removed;
}

namespace {
// the tables of the variant directory and their lengths when the year in work began
std::map<std::string, long long> g_yearStart;
bool g_yearMarked = false;

// the tables of the variant directory that are not the year's own (those go whole)
std::map<std::string, long long> growingTables()
{
    std::map<std::string, long long> sizes;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(variantDirectory(), ec)) {
        std::string name = entry.path().filename().string();
        if (name.size() < 5 || name.compare(name.size() - 4, 4, ".csv") != 0 || name[0] == '.') continue;
        if (!entry.is_regular_file(ec)) continue;
        sizes[name] = static_cast<long long>(entry.file_size(ec));
    }
    return sizes;
}
} // namespace

void markYearStart()
{
    g_yearStart = growingTables();
    g_yearMarked = true;
}

std::vector<std::string> cutBackYear()
{
    std::vector<std::string> cut;
    if (!g_yearMarked) return cut;
    g_yearMarked = false;
    std::string dir = variantDirectory();
    for (const auto& [name, size] : growingTables()) {
        auto before = g_yearStart.find(name);
        if (before == g_yearStart.end()) {
            // begun in the failed year: nothing of it is whole
            if (std::remove((dir + name).c_str()) == 0) cut.push_back(name);
        } else if (size > before->second) {
            if (::truncate((dir + name).c_str(), static_cast<off_t>(before->second)) == 0) cut.push_back(name);
        }
    }
    return cut;
}

void removeTable(int file)
{
    if (file < 0 || file >= FT_COUNT) return;
    const FileEntry& e = fileTable[static_cast<size_t>(file)];
    std::string stem = e.name;
    if (size_t p = stem.find('%'); p != std::string::npos) stem.erase(p);
    std::string path = variantDirectory() + stem + ".csv";
    std::remove(path.c_str());
}

// ---------------------------------------------------------------- rate loaders

bool rateFileYear(const std::string& fileName, int& year)
{
    if (fileName.size() <= 4) return false;
    std::string rest = fileName.substr(4);
    if (rest.empty() || !(std::isdigit(static_cast<unsigned char>(rest[0])) ||
                          ((rest[0] == '-' || rest[0] == '+') && rest.size() > 1 &&
                           std::isdigit(static_cast<unsigned char>(rest[1])))))
        return false;
    try {
        year = std::stoi(rest);
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

namespace {

template <int R>
std::map<int, LA<R>> loadRates(int entry, const char* arrayName, const typename LA<R>::Extents& extents,
                               const char* names, int valueCheck)
{
    std::map<int, LA<R>> tables;
    const FileEntry& e = fileTable[static_cast<size_t>(entry)];
    std::string stem = e.name.substr(0, 4);
    std::vector<std::string> files = os::glob(variantFileDirectory(), stem + "*.csv");
    for (const std::string& f : files) {
        int year = 0;
        if (!rateFileYear(f, year)) continue;
        FileEntry one = e;
        one.name = f.substr(0, f.size() - 4);
        one.kind = 1;
        char title[64];
        snprintf(title, sizeof title, "%s%d", arrayName, year);
        LA<R> table(title, extents, 0);
        readTable(one, table, names, valueCheck);
        tables.emplace(year, std::move(table));
    }
    if (tables.empty()) {
        Prot::message(SEV_ERROR, "fehlende oder leere Datei %s", e.name.c_str());
    } else if (tables.begin()->first > ini::STARTJAHR) {
        Prot::message(SEV_ERROR, "%s: Jahresbezug %d nach Startjahr %d", stem.c_str(), tables.begin()->first,
                      ini::STARTJAHR);
    }
    return tables;
}

size_t dim(int n) { return n > 0 ? static_cast<size_t>(n) : 0; }
Orvane& run()
{
    if (!Orvane::current) throw std::logic_error("no forecast state");
    return *Orvane::current;
}

} // namespace

std::map<int, LA5> ratesByYearBgwr()
{
    Orvane& c = run();
    return loadRates<5>(FT_BGWR, "PR4WBG", {dim(c.NTYWBG), dim(c.NBG), dim(c.NBG), dim(c.NGG), dim(c.NAG)},
                        "C.NTYWBG\0NBG\0NBG\0NGG\0NAG\0", VC_RATE);
}

std::map<int, LA3> ratesByYearFruc()
{
    Orvane& c = run();
    return loadRates<3>(FT_FRUC, "PR2G", {dim(c.NTYG), dim(c.NBG), dim(c.NAG)}, "C.NTYG\0NBG\0NAG\0", VC_RATE);
}

std::map<int, LA4> ratesByYearStrb()
{
    Orvane& c = run();
    return loadRates<4>(FT_STRB, "PR3S", {dim(c.NTYS), dim(c.NBG), dim(c.NGG), dim(c.NAG)},
                        "C.NTYS\0NBG\0NGG\0NAG\0", VC_RATE);
}

std::map<int, LA5> ratesByYearStrm()
{
    Orvane& c = run();
    return loadRates<5>(FT_STRM, "DR4FB", {dim(c.NTYB), dim(c.NTYB), dim(c.NBG), dim(c.NGG), dim(c.NAG)},
                        "C.NTYB\0NTYB\0NBG\0NGG\0NAG\0", VC_RATE);
}

std::map<int, LA5> ratesByYearWegz()
{
    Orvane& c = run();
    return loadRates<5>(FT_WEGZ, "PR4WA", {dim(c.NTYQWA), dim(c.NTYA), dim(c.NBG), dim(c.NGG), dim(c.NAG)},
                        "C.NTYQWA\0NTYA\0NBG\0NGG\0NAG\0", VC_RATE);
}

std::map<int, LA5> ratesByYearZuvg()
{
    Orvane& c = run();
    // numbers of persons: no rate limit
    return loadRates<5>(FT_ZUVG, "DG5ZA", {dim(c.NTYA), dim(c.NGZ), dim(c.NBG), dim(c.NGG), dim(c.NAG)},
                        "C.NTYA\0NGZ\0NBG\0NGG\0NAG\0", VC_PLAIN);
}

// ---------------------------------------------------------------- $ variables of the state

namespace {

struct StateVariable {
    const char* name;
    double (*value)(const Orvane& c);
};

const StateVariable stateVariables[] = {
    {"$NGZ", [](const Orvane& c) -> double { return c.NGZ; }},
    {"$NRA", [](const Orvane& c) -> double { return c.NRA; }},
    {"$NAG", [](const Orvane& c) -> double { return c.NAG; }},
    {"$NGG", [](const Orvane& c) -> double { return c.NGG; }},
    {"$NBG", [](const Orvane& c) -> double { return c.NBG; }},
    {"$NTYG", [](const Orvane& c) -> double { return c.NTYG; }},
    {"$NTYS", [](const Orvane& c) -> double { return c.NTYS; }},
    {"$NTYB", [](const Orvane& c) -> double { return c.NTYB; }},
    {"$NTYZZA", [](const Orvane& c) -> double { return c.NTYZZA; }},
    {"$NTYQWA", [](const Orvane& c) -> double { return c.NTYQWA; }},
    {"$NTYNEE", [](const Orvane& c) -> double { return c.NTYNEE; }},
    {"$NTYREA", [](const Orvane& c) -> double { return c.NTYREA; }},
    {"$NTYWBG", [](const Orvane& c) -> double { return c.NTYWBG; }},
    {"$NTYA", [](const Orvane& c) -> double { return c.NTYA; }},
    {"$G", [](const Orvane& c) -> double { return c.G; }},
    {"$GRND", [](const Orvane& c) -> double { return c.GRND; }},
    {"$GNGZ", [](const Orvane& c) -> double { return c.GNGZ; }},
    {"$GNTYG", [](const Orvane& c) -> double { return c.GNTYG; }},
    {"$GNTYS", [](const Orvane& c) -> double { return c.GNTYS; }},
    {"$GNTYB", [](const Orvane& c) -> double { return c.GNTYB; }},
    {"$GNTYZZA", [](const Orvane& c) -> double { return c.GNTYZZA; }},
    {"$GNTYQWA", [](const Orvane& c) -> double { return c.GNTYQWA; }},
    {"$GNTYNEE", [](const Orvane& c) -> double { return c.GNTYNEE; }},
    {"$GNTYREA", [](const Orvane& c) -> double { return c.GNTYREA; }},
    {"$GNTYWBG", [](const Orvane& c) -> double { return c.GNTYWBG; }},
    {"$GNRA", [](const Orvane& c) -> double { return c.GNRA; }},
    {"$GPAR", [](const Orvane& c) -> double { return c.GPAR; }},
    {"$NMAG", [](const Orvane& c) -> double { return c.NMAG(); }},
    {"$NMGG", [](const Orvane& c) -> double { return c.NMGG(); }},
    {"$NMBG", [](const Orvane& c) -> double { return c.NMBG(); }},
    {"$NNGG", [](const Orvane& c) -> double { return c.NNGG(); }},
    {"$NNBG", [](const Orvane& c) -> double { return c.NNBG(); }},
    {"$NNTYA", [](const Orvane& c) -> double { return c.NNTYA(); }},
    {"$NCGG", [](const Orvane& c) -> double { return c.NCGG(); }},
    {"$NCBG", [](const Orvane& c) -> double { return c.NCBG(); }},
    {"$NCTYA", [](const Orvane& c) -> double { return c.NCTYA(); }},
    {"$NKGG", [](const Orvane& c) -> double { return c.NKGG(); }},
    {"$NKBG", [](const Orvane& c) -> double { return c.NKBG(); }},
    {"$NKTYA", [](const Orvane& c) -> double { return c.NKTYA(); }},
};

// read when a cell's text is parsed; the state may be gone by then, which reads as 0
double readState(const void* arg)
{
    const StateVariable* v = static_cast<const StateVariable*>(arg);
    return Orvane::current ? v->value(*Orvane::current) : 0;
}

} // namespace

void publishStateVariables()
{
    // the years are plain integers of the process and are read when a cell is evaluated
    publishVariable("$STARTJAHR", &ini::STARTJAHR);
    publishVariable("$ENDJAHR", &ini::ENDJAHR);
    publishVariable("$JAHR", &JAHR);
    for (const StateVariable& v : stateVariables) publishVariable(v.name, readState, &v);
}

void withdrawStateVariables()
{
    withdrawVariable("$STARTJAHR");
    withdrawVariable("$ENDJAHR");
    withdrawVariable("$JAHR");
    for (const StateVariable& v : stateVariables) withdrawVariable(v.name);
}
