// Reading the result tables a forecast wrote (gem<year>.csv, agg.csv, bewgem.csv, ...): their
// data rows as cells, in the column separator of the settings.
#pragma once
#include <functional>
#include <string>
#include <vector>

// the data rows of a result table: its cells, without the byte order mark and the comment
// lines; false with the path and the system's reason when it cannot be opened
bool readResultTable(const std::string& path, std::vector<std::vector<std::string>>& rows, std::string& error);
// the same row by row, for tables too big to hold: `row` gets the cells of each data row and
// returns false to stop the reading (the result is then false, with the error it set)
bool readResultRows(const std::string& path, const std::function<bool(const std::vector<std::string>&)>& row,
                    std::string& error);
