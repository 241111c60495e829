#include "ensemble/result_tables.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/settings.h"
#include "tables/table_text.h"

bool readResultRows(const std::string& path, const std::function<bool(const std::vector<std::string>&)>& row,
                    std::string& error)
{
    FILE* in = std::fopen(path.c_str(), "rb");
    if (!in) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    // the program's own table reader: byte order mark, comment lines and quoted cells as written
    const char separator[2] = {si::separator, 0};
    CsvReader reader(in, separator);
    std::vector<std::string> cells;
    char cell[1024];
    bool going = true;
    while (going) {
        int end = reader.next(cell, sizeof cell);
        if (end < -1) {
            error = path + ": " + std::to_string(reader.lineNumber()) + ": " + CsvReader::errorText(end);
            std::fclose(in);
            return false;
        }
        if (end != -1 && reader.isComment) {
            cells.clear();
            continue;
        }
        if (end != -1) cells.emplace_back(cell);
        if (end == '\n' || end == -1) {
            if (!cells.empty() && !(cells.size() == 1 && cells[0].empty())) going = row(cells);
            cells.clear();
        }
        if (end == -1) break;
    }
    std::fclose(in);
    return going;
}

bool readResultTable(const std::string& path, std::vector<std::vector<std::string>>& rows, std::string& error)
{
    return readResultRows(path, [&](const std::vector<std::string>& cells) {
        rows.push_back(cells);
        return true;
    }, error);
}
