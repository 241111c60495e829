#include "tables/constants_table.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <stdexcept>

#include "platform/settings.h"
#include "tables/table_text.h"

namespace konst {

std::map<std::string, std::string>& all()
{
    static std::map<std::string, std::string> table;
    return table;
}

int read()
{
    std::string path = si::appDir + "constant.csv";
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return errno ? errno : ENOENT;
    CsvReader reader(f, ";");
    char cell[1024];
    std::string key;
    int status;
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) continue;
        if (reader.column == 0) key = cell;
        else if (reader.column == 1 && !key.empty()) all()[key] = cell;
    }
    fclose(f);
    return status == -1 ? 0 : EINVAL;
}

bool has(const std::string& key) { return all().count(key) != 0; }

std::string text(const std::string& key)
{
    auto it = all().find(key);
    return it == all().end() ? "" : it->second;
}

double number(const std::string& key)
{
    // a text that is no number ends the run through the conversion's own failure
    std::string t = text(key);
    for (char& c : t)
        if (c == ',') c = '.';
    static locale_t cloc = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    char* end = nullptr;
    double v = strtod_l(t.c_str(), &end, cloc);
    if (end == t.c_str()) throw std::invalid_argument("stod: constant " + key + "=" + text(key));
    return v;
}

int integer(const std::string& key) { return int(number(key)); }

void set(const std::string& key, const std::string& value) { all()[key] = value; }

void set(const std::string& key, double value)
{
    char buffer[256];
    curried_gcvt(si::floatFormat)(buffer, sizeof buffer, value);
    all()[key] = buffer;
}

} // namespace konst
