// The compact summary of a forecast run: population by year, area, group, sex and five-year age
// band, and births, deaths, moves in and out by year and area. Areas are the study area, the
// aggregates of DIFF_G and the regions. Two plain long tables (one header line, "," between
// cells, a decimal point), their rows in the order of their keys. Under the option
// `$SUMMARY_ONLY` a run writes them into its directory in place of the yearly result tables.
#pragma once
#include <string>
#include <tuple>

class Orvane;
class GemTable;
struct YearStep;

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

// the files of the summary in the run's directory
inline constexpr const char* SUMMARY_POPULATION_FILE = "summary_population.csv";
inline constexpr const char* SUMMARY_COMPONENTS_FILE = "summary_components.csv";

// $SUMMARY_ONLY of the run: the summary instead of the yearly result tables
bool summaryOnly();
// The population before the first year: starts both files with their header lines.
void startSummary(const Orvane& c, const GemTable& population, int label);
// A year: its population rows and, when the year has its movements, its components (births
// from the births of the year, deaths, moves in and out from the movement columns).
void summariseYear(const Orvane& c, const GemTable& population, const YearStep* y, int label);
