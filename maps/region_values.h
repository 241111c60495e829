// Values per region from the result tables of a forecast, joined to the regions of a map by
// the region key, summed over the other key columns.
#pragma once
#include <string>
#include <utility>
#include <vector>

#include "maps/shapefile_reader.h"

// what makes up one value, as the user wrote it, before the columns of a table are known
struct ValueChoice {
    std::string column;       // the value column (name, key or number); empty: the last column
    // conditions on other columns: (column, "v" or "a..b")
    std::vector<std::pair<std::string, std::string>> filters;
    int yearFrom = 0;         // with yearTo: the value of yearTo minus the value of yearFrom
    int yearTo = 0;           // alone: only the rows of this year
    std::string label;        // the legend text of a glyph part
};

// "-s" text: comma-separated parts, each a year "2040", a change "2024:2040", a condition
// "AG=65..100" or "BG=1", or the value column; throws MapError for a malformed part
ValueChoice parseValueChoice(const std::string& text);
// "-p"/"-x" text: comma-separated parts, each a column or a condition, on top of base
std::vector<ValueChoice> parseGlyphParts(const ValueChoice& base, const std::string& text);

struct JoinResult {
    std::string valueName;                  // the value column with its conditions, for the title
    std::string conditions;                 // the conditions and year alone: ", AG=65..100, 2040"
    std::vector<double> value;              // per map region; NaN: no row of the region
    std::vector<std::vector<double>> parts; // per map region, per glyph part; NaN: no row
    std::vector<std::string> partNames;
    std::vector<std::string> regionsWithoutData;  // map keys with no row in the tables
    std::vector<std::string> keysWithoutShape;    // table keys with no region in the map
};

// reads the tables and sums by region key; keyColumn names the key column of the tables (with
// "GKZ", the region key of the system, as fall-back). Throws MapError naming table, line and column.
JoinResult joinTables(const ShapeMap& map, const std::vector<std::string>& tables, const std::string& keyColumn,
                      const ValueChoice& value, const std::vector<ValueChoice>& parts);

// the index of the column that `word` names: its number from 1, its name, its dictionary key
// or "@key"; -1 when none does
int findColumn(const std::vector<std::string>& names, const std::string& word);
