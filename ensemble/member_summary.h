// The compact summary of one forecast run: population by year, area, group, sex and five-year
// age band, and births, deaths, moves in and out by year and area. Areas are the study area,
// the aggregates of the reference table and the regions. The summary is a plain long table
// (one header line, "," between cells, a decimal point), its rows in the order of their keys.
#pragma once
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

// the run's shape, from its variant file
struct Dimensions {
    int startYear = 0, endYear = 0;
    int groups = 1, sexes = 1, ages = 1;
    // five-year bands of age; the last one is open
    int bands() const { return ages > 0 ? (ages - 1) / 5 + 1 : 0; }
};

enum AreaKind { AREA_ALL = 0, AREA_AGGREGATE = 1, AREA_REGION = 2 };
constexpr int ALL = -1;   // group, sex or band: all together
enum Component { BIRTHS, DEATHS, MOVES_IN, MOVES_OUT, NET_MIGRATION, COMPONENTS };
extern const char* const componentNames[COMPONENTS];

// one row of a summary: population (a group, b sex, c band) or a component (a the component)
struct SummaryKey {
    int year = 0;
    int kind = AREA_ALL;
    long long area = 0;
    int a = ALL, b = ALL, c = ALL;
    auto tie() const { return std::tie(year, kind, area, a, b, c); }
    bool operator<(const SummaryKey& o) const { return tie() < o.tie(); }
    bool operator==(const SummaryKey& o) const { return tie() == o.tie(); }
};

enum class SummaryTable { Population, Components };

// the header line of a summary (key columns, then `valueColumns`)
std::string summaryHeader(SummaryTable table, const std::string& valueColumns);
// the key cells of a row, each followed by ","
std::string keyCells(SummaryTable table, const SummaryKey& key);
// a number as the shortest text that reads back as the same double
std::string plainNumber(double value);

// Reads the results a run wrote into its directory (gem.csv of all years with the year before
// the start, bewgem.csv, and agg.csv, bewgemagg.csv when it has aggregates) and writes the two
// summary files. Births are the change of the population less the net of all movements. False,
// with the reason, when a table is missing or unreadable.
bool summariseRun(const std::string& runDirectory, const Dimensions& dims, const std::string& populationFile,
                  const std::string& componentsFile, std::string& error);

// Reads a summary file row by row in key order.
class SummaryReader {
public:
    SummaryReader(SummaryTable table, const std::string& path);
    ~SummaryReader();
    bool ok() const { return file != nullptr && error.empty(); }
    // the next row; false at the end or on a bad row (error says which)
    bool next(SummaryKey& key, double& value);
    std::string error;

private:
    SummaryTable table;
    std::string path;
    FILE* file = nullptr;
    long line = 0;
};
