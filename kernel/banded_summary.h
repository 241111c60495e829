// The compact summary of a forecast run: population by year, area, group, sex and five-year age
// band, and births, deaths, moves in and out by year and area. Areas are the study area, the
// aggregates of DIFF_G and the regions. Under the option `$SUMMARY_ONLY` a run writes, in place
// of the yearly result tables, for each of the two tables a key table (plain text, one row per
// key of a year, in key order) and the values (binary: a header, then per year the year and one
// float64 per key in the order of the key table).
#pragma once
#include <cstdint>
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
// the same without the year: the cells of a row of the key table
std::string areaCells(SummaryTable table, const SummaryKey& key);
// a number as the shortest text that reads back as the same double
std::string plainNumber(double value);

// The files of the summary in the run's directory. A key table has the header line
// `keyTableHeader` and a row per key: its cells as `areaCells` writes them, then 1 when its row
// stands in a plain table always, 0 when only where it is not 0. A values file is
//   bytes 0-7    "VELDSUM1"
//   bytes 8-15   the number K of keys (uint64)
//   bytes 16-23  the FNV-1a hash (64 bits) of the bytes of its key table
//   then per year (the population from the year before the first): the year (int64) and K
//   values (float64), all little-endian.
inline constexpr const char* SUMMARY_POPULATION_FILE = "summary_population.bin";
inline constexpr const char* SUMMARY_COMPONENTS_FILE = "summary_components.bin";
inline constexpr const char* SUMMARY_POPULATION_KEYS = "summary_population_keys.csv";
inline constexpr const char* SUMMARY_COMPONENTS_KEYS = "summary_components_keys.csv";
inline constexpr char SUMMARY_MAGIC[9] = "VELDSUM1";
constexpr uint64_t SUMMARY_HEADER_BYTES = 24;
std::string keyTableHeader(SummaryTable table);

// $SUMMARY_ONLY of the run: the summary instead of the yearly result tables
bool summaryOnly();
// The population before the first year: the key tables, and both values files with their
// headers and the population's block.
void startSummary(const Orvane& c, const GemTable& population, int label);
// A year: its population rows and, when the year has its movements, its components (births
// from the births of the year, deaths, moves in and out from the movement columns).
void summariseYear(const Orvane& c, const GemTable& population, const YearStep* y, int label);
