#include "statistics/region_map.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/settings.h"
#include "tables/table_text.h"

namespace r02map {

namespace {
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// the digit of a character of the record: blank is `blank`, anything else not a digit is -1
int digitOf(char c, int blank)
{
    if (c == ' ' || c == 0) return blank;
    return isDigit(c) ? c - '0' : -1;
}

char charAt(std::string_view text, size_t i) { return i < text.size() ? text[i] : ' '; }
} // namespace

bool valid(const std::string& map)
{
    if (map.empty()) return true;
    if (map[0] == '#') {
        if (map.size() > 9) return false;
        bool seen[9] = {};
        for (size_t k = 1; k < map.size(); ++k) {
            char c = map[k];
            if (c == 'e' || c == 'i') continue;
            if (c < '1' || c > '8' || seen[c - '0']) return false;
            seen[c - '0'] = true;
        }
        return true;
    }
    if (map.size() > 2 || map[0] < '0' || map[0] > '8') return false;
    return map.size() == 1 || map[1] == 'e' || map[1] == 'i';
}

int digits(const std::string& map)
{
    if (map.empty() || map == "0") return 1;
    if (map[0] == '#') return static_cast<int>(map.size()) - 1;
    return (map[0] - '0') + (map.size() == 2 ? 1 : 0);
}

long long key(const std::string& map, std::string_view r02, char u2, char e, char i)
{
    if (map.empty() || map == "0") return 1;
    long long value = 0;
    auto append = [&](int digit) {
        if (digit < 0) return false;
        value = value * 10 + digit;
        return true;
    };
    if (map[0] == '#') {
        for (size_t k = 1; k < map.size(); ++k) {
            char c = map[k];
            char source = c == 'e' ? e : c == 'i' ? i : c == '8' ? u2 : charAt(r02, static_cast<size_t>(c - '1'));
            if (!append(digitOf(source, 0))) return -1;
        }
        return value;
    }
    int n = map[0] - '0';
    for (int k = 0; k < std::min(n, 7); ++k)
        if (!append(digitOf(charAt(r02, static_cast<size_t>(k)), 0))) return -1;
    if (n == 8 && !append(digitOf(u2, 0))) return -1;
    if (map.size() == 2 && !append(digitOf(map[1] == 'e' ? e : i, 9))) return -1;
    return value;
}

} // namespace r02map

const char* G2T::errorText(int code)
{
    static const char* texts[] = {"",
                                  "Datei nicht gefunden",
                                  "fehlender ;",
                                  "Gebietsschlüssel nicht aufsteigend",
                                  "Gebiet oder Typ beginnt nicht mit Ziffer",
                                  "ungültige Abbildung R02/R02U2",
                                  "Syntaxfehler CSV-Datei"};
    return code >= 0 && code <= 6 ? texts[code] : "";
}

static bool beginsWithDigit(const std::string& text) { return !text.empty() && text[0] >= '0' && text[0] <= '9'; }

void G2T::build(const std::string& map, bool withFile, const std::string& path, int typeColumn)
{
    pairs.clear();
    maxType = 0;
    error = 0;
    line = 0;
    if (!r02map::valid(map)) {
        error = 5;
        return;
    }
    if (map.empty() || map == "0") {
        pairs.push_back({1, 1});
        maxType = 1;
        return;
    }
    if (!withFile) {
        long long count = 1;
        for (int k = 0; k < r02map::digits(map); ++k) count *= 10;
        for (long long key = 0; key < count; ++key) pairs.push_back({key, static_cast<int>(key + 1)});
        maxType = static_cast<int>(count);
        return;
    }
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        error = 1;
        return;
    }
    char sep[2] = {si::separator ? si::separator : ';', 0};
    CsvReader reader(file, sep);
    char cell[1024];
    std::vector<std::string> row;
    int rowLine = 0;
    // one finished row: key, type, order
    auto finish = [&]() {
        if (row.empty()) return true;
        if (!beginsWithDigit(row[0])) return error = 4, line = rowLine, false;
        long long key = std::atoll(row[0].c_str());
        int type;
        if (typeColumn == 0) {
            type = static_cast<int>(pairs.size()) + 1;
        } else {
            if (static_cast<int>(row.size()) <= typeColumn) return error = 2, line = rowLine, false;
            if (!beginsWithDigit(row[typeColumn])) return error = 4, line = rowLine, false;
            type = std::atoi(row[typeColumn].c_str());
        }
        if (!pairs.empty() && key <= pairs.back().first) return error = 3, line = rowLine, false;
        pairs.push_back({key, type});
        maxType = std::max(maxType, type);
        row.clear();
        return true;
    };
    for (;;) {
        int status = reader.next(cell, sizeof cell);
        if (status < 0) {
            if (status != -1) {
                error = 6;
                line = static_cast<int>(reader.lineNumber());
            } else {
                finish();
            }
            break;
        }
        if (reader.column == 0) rowLine = static_cast<int>(reader.lineNumber());
        if (!reader.isComment) row.push_back(cell);
        if (status == '\n' && !finish()) break;
    }
    fclose(file);
}

int G2T::region(long long key) const
{
    auto it = std::lower_bound(pairs.begin(), pairs.end(), std::make_pair(key, 0),
                               [](const auto& a, const auto& b) { return a.first < b.first; });
    if (it == pairs.end() || it->first != key) return -1;
    return static_cast<int>(it - pairs.begin());
}
