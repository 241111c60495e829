// The long tables population_long.csv and movements_long.csv: the same numbers as the yearly
// population tables and bew.csv of a run under German number settings, cell by cell, in a plain
// form that any CSV reader takes without arguments; gone again when a later run does not ask.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/sandbox.h"

namespace {

using LongKey = std::tuple<int, long long, int, int, int, std::string>;   // year, region, BG, GG, AG, movement

std::vector<std::string> cellsOf(const std::string& line, char sep)
{
    std::vector<std::string> cells;
    std::stringstream ls(line);
    std::string cell;
    while (std::getline(ls, cell, sep)) cells.push_back(cell);
    if (!line.empty() && line.back() == sep) cells.push_back("");
    return cells;
}

double germanNumber(std::string text)
{
    for (char& c : text)
        if (c == ',') c = '.';
    return std::stod(text);
}

// the data lines of a table as the other tables are written: BOM, "#" lines, ";" and ","
std::vector<std::vector<std::string>> specifiedRows(const std::string& text, std::vector<std::string>* header)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("\xEF\xBB\xBF", 0) == 0) line = line.substr(3);
        if (line.rfind("#@", 0) == 0 && header) *header = cellsOf(line.substr(1), ';');
        if (line.empty() || line[0] == '#') continue;
        rows.push_back(cellsOf(line, ';'));
    }
    return rows;
}

// a long table: its header and its lines by key, every line checked for the plain form
std::map<LongKey, double> longRows(const std::string& text, const std::string& header, bool withMovement)
{
    std::map<LongKey, double> rows;
    std::istringstream in(text);
    std::string line;
    EXPECT_TRUE(std::getline(in, line));
    EXPECT_EQ(line, header);
    while (std::getline(in, line)) {
        EXPECT_EQ(line.find_first_of(";#\"\r"), std::string::npos) << line;
        std::vector<std::string> f = cellsOf(line, ',');
        EXPECT_EQ(f.size(), withMovement ? 7u : 6u) << line;
        if (f.size() != (withMovement ? 7u : 6u)) continue;
        LongKey key{std::stoi(f[0]), std::stoll(f[1]), std::stoi(f[2]), std::stoi(f[3]), std::stoi(f[4]),
                    withMovement ? f[5] : ""};
        EXPECT_EQ(rows.count(key), 0u) << "twice: " << line;
        rows[key] = std::stod(f.back());
    }
    return rows;
}

void studyArea(const Sandbox& s, bool longTables)
{
    // German numbers and column names kept as keys in the specified tables
    s.write("Data/veldor.ini", std::string("[DEFAULTS]\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\n"
                                           "Spaltentrennzeichen=;\nSpaltenname=3\n") +
                                   (longTables ? "LangeTabellen=1\n" : "") + "[TRACE]\nlogfile=0\n");
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2026\nAUSGABE_PROTOKOLL=1\nABEW=1\nABEWGEM=0\n"
                         "PLOT_DATEN=0\n[METHODE]\nNAG=21\nNGG=2\nNBG=2\nGRND=1\nNTYA=2\n"
                         "BEVOELKERUNGSBEWEGUNGEN=T1\nAUSSENWANDERUNGSDATEN=K1\n[LA]\nAUSGABE_EINZELWERTE=0\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "11..15;Gebiet $;1..2;1..2;1..5;1..5;1;1;1;1;1;1;1\n");
    s.write("var/v/gem2023.csv", "2023;11..15;1..2;1..2;0..20;(30 - ix(5)) * (1 + 0.1 * ix(2)) / ix(3)\n");
    s.write("var/strb2023.csv", "*;*;*;0..20;0.001 * exp(0.3 * ix(4))\n");
    s.write("var/fruc2023.csv", "*;*;3..9;0.1\n");
    s.write("var/wegz2023.csv", "*;1..2;*;*;0..20;0.02\n");
    s.write("var/zuvol.csv", "2024..2027;1;1;1;200\n");
    s.write("var/zuaq2023.csv", "1..2;*;*;0..20;1\n");
    s.write("var/zudq2023.csv", "1..2;*;*;*;0..20;1\n");
}

// the name of each movement column of bew.csv in the long table
std::string longName(const std::string& column)
{
    static const std::map<std::string, std::string> names = {
        {"@DG4S", "deaths"}, {"@DG4WA", "external_out_migration"}, {"@DG4OBN", "out_to_new_dwellings"},
        {"@DG4WB", "internal_out_migration"}, {"@DG4OI", "internal_out_within_type"},
        {"@DG4OBR", "demolition_out_within_area"}, {"@DG4OAR", "demolition_out_abroad"},
        {"@DG4IBR", "demolition_in"}, {"@DG4ZA", "external_in_migration"},
        {"@DG4IBN", "new_dwellings_in_from_area"}, {"@DG4IAN", "new_dwellings_in_from_abroad"},
        {"@DG4ZB", "internal_in_migration"}, {"@DG4II", "internal_in_within_type"},
        {"@DG4WBGv", "group_change_out"}, {"@DG4WBGn", "group_change_in"}, {"@DG3G", "births"}};
    auto it = names.find(column);
    if (it != names.end()) return it->second;
    std::string name = column.substr(1);   // a movement without its own name: its array, lower case
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

} // namespace

TEST(LongTables, HoldTheNumbersOfThePopulationAndMovementTablesInPlainForm)
{
    Sandbox s;
    studyArea(s, true);
    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;

    auto population = longRows(s.read("var/v/population_long.csv"), "year,region,group,sex,age,persons", false);
    std::map<LongKey, double> expected;
    for (int year = 2024; year <= 2026; ++year)
        for (const auto& f : specifiedRows(s.read("var/v/gem" + std::to_string(year) + ".csv"), nullptr))
            expected[{std::stoi(f[0]), std::stoll(f[1]), std::stoi(f[2]), std::stoi(f[3]), std::stoi(f[4]), ""}] =
                germanNumber(f[5]);
    EXPECT_EQ(population.size(), expected.size());
    // 3 years of 5 regions, 2 groups, 2 sexes, 21 ages
    EXPECT_EQ(expected.size(), 3u * 5 * 2 * 2 * 21);
    for (const auto& [key, value] : expected) {
        ASSERT_EQ(population.count(key), 1u) << std::get<0>(key) << " " << std::get<1>(key);
        EXPECT_NEAR(population[key], value, 1e-9 * std::max(1.0, std::fabs(value)));
    }

    auto movements =
        longRows(s.read("var/v/movements_long.csv"), "year,region,group,sex,age,movement,persons", true);
    std::vector<std::string> header;
    std::map<LongKey, double> moved;
    std::map<std::string, int> kinds;
    for (const auto& f : specifiedRows(s.read("var/v/bew.csv"), &header)) {
        ASSERT_EQ(f.size(), header.size());
        for (size_t k = 5; k < f.size(); ++k) {
            if (f[k].empty() || germanNumber(f[k]) == 0) continue;
            moved[{std::stoi(f[0]), std::stoll(f[1]), std::stoi(f[2]), std::stoi(f[3]), std::stoi(f[4]),
                   longName(header[k])}] = germanNumber(f[k]);
            ++kinds[longName(header[k])];
        }
    }
    EXPECT_EQ(movements.size(), moved.size());
    for (const auto& [key, value] : moved) {
        ASSERT_EQ(movements.count(key), 1u) << std::get<5>(key);
        EXPECT_NEAR(movements[key], value, 1e-9 * std::max(1.0, std::fabs(value)));
    }
    // deaths and both directions of external migration in every year
    EXPECT_GT(kinds["deaths"], 0);
    EXPECT_GT(kinds["external_out_migration"], 0);
    EXPECT_GT(kinds["external_in_migration"], 0);
    EXPECT_GT(kinds["births"], 0);

    // a later run that does not ask for them leaves none of them behind
    studyArea(s, false);
    r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_FALSE(s.exists("var/v/population_long.csv"));
    EXPECT_FALSE(s.exists("var/v/movements_long.csv"));
}
