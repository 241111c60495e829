#include "ensemble/result_tables.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "platform/settings.h"

bool readResultRows(const std::string& path, const std::function<bool(const std::vector<std::string>&)>& row,
                    std::string& error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    std::string line;
    std::vector<std::string> cells;
    while (std::getline(in, line)) {
        if (line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        cells.clear();
        size_t start = 0;
        for (;;) {
            size_t end = line.find(si::separator, start);
            cells.push_back(line.substr(start, end - start));
            if (end == std::string::npos) break;
            start = end + 1;
        }
        if (!row(cells)) return false;
    }
    return true;
}

bool readResultTable(const std::string& path, std::vector<std::vector<std::string>>& rows, std::string& error)
{
    return readResultRows(path, [&](const std::vector<std::string>& cells) {
        rows.push_back(cells);
        return true;
    }, error);
}
