// Runs under hostile conditions: bad bytes in tables, a full disk (through the write limit of
// the outputs), results of earlier runs in the directory, repeated messages, a mistyped -o.
#include <gtest/gtest.h>
#include <cstring>
#include <filesystem>
#include <set>

#include "tests/sandbox.h"

namespace fs = std::filesystem;

namespace {

const char* const THREE_YEARS = "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2026\n";

std::string protocol(const Sandbox& s) { return s.read("var/v/prot/index.html"); }
bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// a table without its comment lines (which carry the time of writing)
std::string dataOf(const std::string& table)
{
    std::string out;
    size_t p = 0;
    while (p < table.size()) {
        size_t e = table.find('\n', p);
        std::string line = table.substr(p, e == std::string::npos ? std::string::npos : e - p + 1);
        if (line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
        if (line.empty() || line[0] != '#') out += line;
        if (e == std::string::npos) break;
        p = e + 1;
    }
    return out;
}

// the files of a directory whose names begin with ".~": unfinished outputs
int leftovers(const Sandbox& s, const std::string& rel)
{
    int n = 0;
    if (!fs::is_directory(s.path(rel))) return 0;
    for (const auto& e : fs::directory_iterator(s.path(rel)))
        if (e.path().filename().string().rfind(".~", 0) == 0) ++n;
    return n;
}

RunResult forecast(const Sandbox& s, const std::vector<std::string>& env = {}, std::vector<std::string> extra = {})
{
    std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
    args.insert(args.end(), extra.begin(), extra.end());
    return s.run(args, env);
}

} // namespace

TEST(BadInput, NulByteOrBrokenUtf8InACellEndsTheRunNamingTheLine)
{
    Sandbox s;
    s.write("var/v.ini", THREE_YEARS);
    // without the check the rate would be read as 0 and the person would live on
    s.write("var/strb2024.csv", std::string("1,1,1,0,0\0.5\n", 12));
    RunResult r = forecast(s);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(protocol(s), "NUL character in cell in Zeile<br>1:")) << protocol(s);
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));

    s.write("var/strb2024.csv", "1,1,1,0,0.5\xff\n");
    r = forecast(s);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(protocol(s), "ungültiges UTF-8 in <code>0.5\\xFF</code>")) << protocol(s);
}

TEST(BadInput, ReversedIntervalIsWarnedAndRepeatsAreCapped)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\n");
    std::string table;
    for (int i = 0; i < 50; ++i) table += "1,1,1,5..1,0.5\n";
    s.write("var/strb2024.csv", table);
    RunResult r = forecast(s);
    EXPECT_EQ(r.status, 0) << r.err;
    std::string prot = protocol(s);
    // the first twenty with their text, the other thirty in one line
    EXPECT_EQ(countOf(prot, "AG = [5..1]: leeres Intervall, die Zeile weist nichts zu"), 21) << prot;
    EXPECT_TRUE(has(prot, "30 weitere gleichartige Meldungen, nicht einzeln aufgeführt, wie:")) << prot;
}

TEST(BadInput, ErrorInOptionExpressionEndsBeforeTheForecast)
{
    Sandbox s;
    s.write("var/v.ini", THREE_YEARS);
    RunResult r = forecast(s, {}, {"-o", "option($A sqrt())"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(s.exists("var/v/gem2024.csv"));
    EXPECT_FALSE(s.exists("var/v/prot/index.html"));
}

TEST(SafeOutputs, FullDiskNeverLeavesAShortTableOrStatusZero)
{
    Sandbox s;
    s.write("var/v.ini", THREE_YEARS);
    // the second run: the first one also repairs the variant file and says so
    ASSERT_EQ(forecast(s).status, 0);
    RunResult clean = forecast(s);
    ASSERT_EQ(clean.status, 0) << clean.err;
    std::map<std::string, std::string> complete;
    uint64_t total = 0;
    for (const auto& e : fs::directory_iterator(s.path("var/v")))
        if (e.is_regular_file() && e.path().extension() == ".csv") {
            std::string text = s.read("var/v/" + e.path().filename().string());
            if (has(text, " expanded from ")) continue;     // the reader's copies are no results
            complete[e.path().filename().string()] = text;
            total += e.file_size();
        }
    for (const auto& e : fs::recursive_directory_iterator(s.path("var/v/prot")))
        if (e.is_regular_file()) total += e.file_size();
    ASSERT_TRUE(complete.count("gem2026.csv"));
    std::string ini = s.read("var/v.ini");
    // the disk fills at ever later points of the run
    for (uint64_t limit : {uint64_t(0), total / 8, total / 4, total / 2, total * 3 / 4, total * 7 / 8}) {
        SCOPED_TRACE(limit);
        RunResult r = forecast(s, {"VELDOR_WRITE_LIMIT=" + std::to_string(limit)});
        EXPECT_EQ(r.status, 1) << r.err;
        EXPECT_TRUE(has(r.err, "No space left on device")) << r.err;
        for (const auto& [name, text] : complete) {
            if (s.exists("var/v/" + name) && name.rfind("gem2", 0) == 0) {
                EXPECT_EQ(dataOf(s.read("var/v/" + name)), dataOf(text)) << name;
            }
        }
        EXPECT_EQ(leftovers(s, "var/v"), 0);
        EXPECT_EQ(leftovers(s, "var/v/prot"), 0);
        EXPECT_EQ(s.read("var/v.ini"), ini);
    }
    // a table that cannot be put into place names its path and the cause
    RunResult r = forecast(s, {"VELDOR_WRITE_LIMIT=" + std::to_string(total / 2)});
    EXPECT_TRUE(has(r.err, "No space left on device")) << r.err;
}

TEST(SafeOutputs, RepairOnAFullDiskLeavesTheVariantFileWhole)
{
    Sandbox s;
    const std::string ini = "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2024\nRUNFORECAST=0\n[METHODE]\nXYZ=$i\nOLD=1\n";
    s.write("var/v.ini", ini);
    RunResult r = forecast(s, {"VELDOR_WRITE_LIMIT=20"});
    EXPECT_EQ(s.read("var/v.ini"), ini);
    EXPECT_TRUE(has(r.out, "update ")) << r.out;
    EXPECT_TRUE(has(r.out, "No space left on device")) << r.out;
}

TEST(SafeOutputs, UnwritableResultDirectoryEndsWithStatusOneNamingIt)
{
    if (geteuid() == 0) GTEST_SKIP() << "root writes into read-only directories";
    Sandbox s;
    s.write("var/v.ini", THREE_YEARS);
    fs::create_directories(s.path("var/v"));
    fs::permissions(s.path("var/v"), fs::perms::owner_read | fs::perms::owner_exec);
    RunResult r = forecast(s);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "var/v/prot")) << r.err;
    EXPECT_TRUE(has(r.err, "Permission denied")) << r.err;
}

TEST(ResultDirectory, EarlierResultsGoAndAFailedYearLeavesNothingOfItself)
{
    Sandbox s;
    s.write("var/v.ini", THREE_YEARS);
    ASSERT_EQ(forecast(s).status, 0);
    ASSERT_TRUE(s.exists("var/v/gem2026.csv"));
    // remnants of older runs: a later year, a protocol page, a temporary of a killed run
    s.write("var/v/gem2030.csv", "2030,1,1,1,0,5\n");
    s.write("var/v/prot/000777.htm", "old");
    s.write("var/v/.~gem2025.csv.1.1", "half");
    s.write("var/v/gem2023.csv", "2023,1,1,1,0,1\n");      // a start population beside the results

    // the death rates of 2025 cannot be read: the run fails in 2025
    s.write("var/strb2025.csv", std::string("1,1,1,0,\0", 9) + "\n");
    RunResult r = forecast(s);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(s.exists("var/v/gem2024.csv"));
    EXPECT_FALSE(s.exists("var/v/gem2025.csv"));
    EXPECT_FALSE(s.exists("var/v/gem2026.csv"));
    EXPECT_FALSE(s.exists("var/v/gem2030.csv"));
    EXPECT_FALSE(s.exists("var/v/prot/000777.htm"));
    EXPECT_TRUE(s.exists("var/v/gem2023.csv"));
    EXPECT_EQ(leftovers(s, "var/v"), 0);
    EXPECT_TRUE(has(r.out, "Ergebnisse vollständig für die Jahre 2024..2024")) << r.out;
    std::string prot = protocol(s);
    EXPECT_TRUE(has(prot, "Ergebnisse vollständig für die Jahre 2024..2024")) << prot;
    EXPECT_TRUE(has(prot, "Ergebnisse eines früheren Laufs entfernt:")) << prot;
    EXPECT_TRUE(has(prot, "gem2030.csv")) << prot;
    // the tables of all years keep the rows of 2024 only, each line whole
    for (const char* table : {"var/v/bew.csv", "var/v/bewgem.csv"}) {
        ASSERT_TRUE(s.exists(table)) << table;
        std::string rows = dataOf(s.read(table));
        if (!rows.empty()) EXPECT_EQ(rows.back(), '\n') << table;
        for (size_t p = 0; p < rows.size(); p = rows.find('\n', p) + 1)
            EXPECT_EQ(rows.compare(p, 5, "2024,"), 0) << table << ": " << rows.substr(p, 40);
    }
}

TEST(ResultDirectory, AFullDiskInAYearCutsItsRowsOffTheTablesOfAllYears)
{
    // the disk fills up at a sweep of sizes; whichever year fails, the tables that grow by a
    // year hold the rows of the complete years only, each line whole
    Sandbox s;
    s.write("var/v.ini", THREE_YEARS);
    ASSERT_EQ(forecast(s).status, 0);
    uintmax_t total = 0;
    for (const auto& e : fs::recursive_directory_iterator(s.path("var/v")))
        if (e.is_regular_file()) total += e.file_size();
    int failedInLaterYear = 0;   // runs whose failed year had begun a table of all years
    for (int k = 1; k <= 48; ++k) {
        RunResult r = forecast(s, {"VELDOR_WRITE_LIMIT=" + std::to_string(total * k / 48)});
        if (r.status == 0) continue;
        // a failure after the last year leaves all years complete
        int last = has(r.out, "Kein Jahr der Prognose ist vollständig") ? 0 : 2026;
        size_t at = r.out.find("Ergebnisse vollständig für die Jahre 2024..");
        if (at != std::string::npos) last = std::atoi(r.out.c_str() + at + std::strlen("Ergebnisse vollständig für die Jahre 2024.."));
        if (has(r.out, "Ergebnisse des abgebrochenen Jahres: bew")) ++failedInLaterYear;
        for (const char* table : {"var/v/bew.csv", "var/v/bewgem.csv"}) {
            if (!s.exists(table)) continue;
            std::string rows = dataOf(s.read(table));
            if (!rows.empty()) EXPECT_EQ(rows.back(), '\n') << table << " at " << k;
            for (size_t p = 0; p < rows.size(); p = rows.find('\n', p) + 1)
                EXPECT_LE(std::atoi(rows.c_str() + p), last) << table << " at " << k << ": " << rows.substr(p, 40);
        }
    }
    EXPECT_GT(failedInLaterYear, 0);   // the sweep reached the writing of those tables
}

TEST(Cost, RepairOfTenThousandKeysWritesTheFileOnce)
{
    Sandbox s;
    std::string ini = "[DEFAULTS]\nRUNFORECAST=0\nSTARTJAHR=2024\nENDJAHR=2024\n[ALT]\n";
    for (int i = 0; i < 10000; ++i) ini += "K" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    s.write("var/v.ini", ini);
    // each key written on its own would need thousands of times the file's size
    RunResult r = forecast(s, {"VELDOR_WRITE_LIMIT=" + std::to_string(4 * ini.size())});
    EXPECT_EQ(r.status, 0) << r.err;
    std::string repaired = s.read("var/v.ini");
    // the keys are gone, their lines stay as comments
    EXPECT_FALSE(has(repaired, "\nK5="));
    EXPECT_TRUE(has(repaired, "\n;K5=5\n"));
    EXPECT_TRUE(has(repaired, "\n;K9999=9999\n"));
    EXPECT_TRUE(has(repaired, "NAG=100"));
    // twenty hints with their text and one line for the rest
    EXPECT_EQ(countOf(r.out, "obsolete entry removed"), 21) << r.out.substr(0, 3000);
    EXPECT_TRUE(has(r.out, "9980 weitere gleichartige Meldungen")) << r.out.substr(r.out.size() > 2000 ? r.out.size() - 2000 : 0);
}
