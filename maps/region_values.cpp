#include "maps/region_values.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "platform/dictionary.h"
#include "platform/settings.h"
#include "tables/table_text.h"

namespace {

const double NO_VALUE = std::nan("");

std::string trim(const std::string& s)
{
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

std::vector<std::string> splitList(const std::string& text)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t comma = text.find(',', start);
        std::string p = trim(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (!p.empty()) parts.push_back(p);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return parts;
}

// a number written with "." or "," as decimal point, whatever the locale
bool parseValue(const std::string& text, double& value)
{
    std::string t = text;
    for (char& c : t)
        if (c == ',') c = '.';
    const char* b = t.data();
    if (*b == '+') ++b;
    auto [end, ec] = std::from_chars(b, t.data() + t.size(), value);
    return ec == std::errc() && end == t.data() + t.size();
}

bool isYear(const std::string& t)
{
    return t.size() == 4 && t.find_first_not_of("0123456789") == std::string::npos;
}

// a condition on one column: a number range "a..b", a number, or a text
struct Condition {
    int column = -1;
    bool numeric = false;
    double lo = 0, hi = 0;
    std::string text;

    bool holds(const std::vector<std::string>& cells) const
    {
        const std::string& cell = cells[size_t(column)];
        if (!numeric) return regionKey(cell) == text;
        double v;
        return parseValue(cell, v) && v >= lo && v <= hi;
    }
};

// one value choice (column, year, conditions) resolved against the columns of one table
struct Rule {
    int column = -1;
    std::vector<Condition> conditions;
    int yearColumn = -1;
    int yearFrom = 0, yearTo = 0;
};

// sums of one rule for one key: [0] the rows of yearFrom, [1] all other counted rows
struct Sum {
    double sum[2] = {0, 0};
    bool seen[2] = {false, false};
    double value(const Rule& r) const
    {
        if (!seen[1] || (r.yearFrom && !seen[0])) return NO_VALUE;
        return sum[1] - (r.yearFrom ? sum[0] : 0);
    }
};

std::string columnList(const std::vector<std::string>& names)
{
    std::string list;
    for (size_t i = 0; i < names.size(); ++i) list += (i ? ", " : "") + names[i];
    return list.empty() ? "keine Spaltennamen" : list;
}

class TableJoin {
public:
    TableJoin(const std::string& path, const std::string& keyWord, const std::vector<ValueChoice>& choices)
        : path(path), keyWord(keyWord), choices(choices) {}

    // column names of the table, from its column-name line
    std::vector<std::string> names;
    std::vector<Rule> rules;
    int keyColumn = -1;

    void resolve(size_t width)
    {
        auto fail = [&](const std::string& word, const std::string& role) {
            throw MapError(path + ": keine Spalte " + word + role + " (Spalten: " + columnList(names) + ")");
        };
        auto column = [&](const std::string& word) {
            if (names.empty() && !word.empty() && word.find_first_not_of("0123456789") == std::string::npos) {
                int n = std::atoi(word.c_str());
                return n >= 1 && size_t(n) <= width ? n - 1 : -1;
            }
            return findColumn(names, word);
        };
        keyColumn = column(keyWord);
        if (keyColumn < 0 && keyWord != "GKZ") keyColumn = column("GKZ");
        if (keyColumn < 0) fail(keyWord, " für den Gebietsschlüssel");
        int yearColumn = -1;
        for (const char* w : {"year", "Jahr"})
            if (yearColumn < 0) yearColumn = column(w);
        for (const ValueChoice& s : choices) {
            Rule r;
            r.column = s.column.empty() ? int(width) - 1 : column(s.column);
            if (r.column < 0) fail(s.column, "");
            for (const auto& [word, range] : s.filters) {
                Condition c;
                c.column = column(word);
                if (c.column < 0) fail(word, " für die Bedingung " + word + "=" + range);
                size_t dots = range.find("..");
                std::string a = dots == std::string::npos ? range : range.substr(0, dots);
                std::string b = dots == std::string::npos ? range : range.substr(dots + 2);
                c.numeric = parseValue(a, c.lo) && parseValue(b, c.hi);
                if (!c.numeric) {
                    if (dots != std::string::npos) throw MapError("Bedingung " + word + "=" + range + ": kein Zahlenbereich");
                    c.text = regionKey(range);
                }
                r.conditions.push_back(c);
            }
            r.yearFrom = s.yearFrom;
            r.yearTo = s.yearTo;
            if (r.yearTo) {
                if (yearColumn < 0) fail("Jahr", " für das Jahr " + std::to_string(s.yearTo));
                r.yearColumn = yearColumn;
            }
            rules.push_back(r);
        }
    }

    // the sums by key, keys in the order of their first row
    std::vector<std::string> keys;
    std::unordered_map<std::string, std::vector<Sum>> sums;

    void read()
    {
        std::unique_ptr<FILE, int (*)(FILE*)> f(fopen(path.c_str(), "rb"), fclose);
        if (!f) throw MapError(path + ": Datei fehlt oder nicht lesbar (" + std::strerror(errno) + ")");
        char sep[2] = {si::separator, 0};
        CsvReader reader(f.get(), sep);
        char buffer[1024];
        std::vector<std::string> cells, lastComment;
        bool comment = false;
        uint64_t line = 0;
        for (;;) {
            int c = reader.next(buffer, sizeof buffer);
            if (c == -1) break;
            if (c < 0)
                throw MapError(path + ", Zeile " + std::to_string(reader.lineNumber()) + ": " + CsvReader::errorText(c));
            if (reader.column == 0) {
                comment = reader.isComment;
                line = reader.lineNumber();
            }
            cells.push_back(buffer);
            if (c == reader.separator) continue;
            if (comment) {
                lastComment = cells;
                if (!lastComment.empty()) lastComment[0].erase(0, 1);
            } else {
                row(cells, lastComment, line);
            }
            cells.clear();
        }
        if (rules.empty()) {
            // no data line: the columns are checked all the same
            for (const std::string& n : lastComment) names.push_back(trim(n));
            resolve(names.size());
        }
    }

private:
    std::string path, keyWord;
    const std::vector<ValueChoice>& choices;
    size_t width = 0;

    void row(const std::vector<std::string>& cells, const std::vector<std::string>& header, uint64_t line)
    {
        if (rules.empty()) {
            width = cells.size();
            if (header.size() == width) names = header;
            for (std::string& n : names) n = trim(n);
            resolve(width);
        }
        if (cells.size() < width)
            throw MapError(path + ", Zeile " + std::to_string(line) + ": " + std::to_string(cells.size()) +
                           " Spalten statt " + std::to_string(width));
        std::string key = regionKey(cells[size_t(keyColumn)]);
        auto [it, fresh] = sums.try_emplace(key);
        if (fresh) {
            keys.push_back(key);
            it->second.resize(rules.size());
        }
        for (size_t i = 0; i < rules.size(); ++i) {
            const Rule& r = rules[i];
            int term = 1;
            if (r.yearTo) {
                double y;
                if (!parseValue(cells[size_t(r.yearColumn)], y)) continue;
                if (int(y) == r.yearTo)
                    term = 1;
                else if (r.yearFrom && int(y) == r.yearFrom)
                    term = 0;
                else
                    continue;
            }
            bool pass = true;
            for (const Condition& c : r.conditions) pass = pass && c.holds(cells);
            if (!pass) continue;
            const std::string& text = cells[size_t(r.column)];
            if (text.empty() || text == "undef") continue;
            double v;
            if (!parseValue(text, v)) {
                std::string name = size_t(r.column) < names.size() ? names[size_t(r.column)]
                                                                    : std::to_string(r.column + 1);
                throw MapError(path + ", Zeile " + std::to_string(line) + ": kein Zahlenwert '" + text +
                               "' in Spalte " + name);
            }
            it->second[i].sum[term] += v;
            it->second[i].seen[term] = true;
        }
    }
};

std::string conditionText(const ValueChoice& s)
{
    std::string text;
    for (const auto& [word, range] : s.filters) text += ", " + word + "=" + range;
    if (s.yearFrom)
        text += ", " + std::to_string(s.yearFrom) + " bis " + std::to_string(s.yearTo);
    else if (s.yearTo)
        text += ", " + std::to_string(s.yearTo);
    return text;
}

} // namespace

int findColumn(const std::vector<std::string>& names, const std::string& word)
{
    if (word.empty()) return -1;
    if (word.find_first_not_of("0123456789") == std::string::npos) {
        int n = std::atoi(word.c_str());
        return n >= 1 && size_t(n) <= names.size() ? n - 1 : -1;
    }
    std::string text = DD::has(word) ? DD::lookup(word) : std::string();
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == word || names[i] == "@" + word || (!text.empty() && names[i] == text)) return int(i);
    for (size_t i = 0; i < names.size(); ++i)
        if (strcasecmp(names[i].c_str(), word.c_str()) == 0) return int(i);
    return -1;
}

ValueChoice parseValueChoice(const std::string& text)
{
    ValueChoice s;
    for (const std::string& part : splitList(text)) {
        size_t colon = part.find(':');
        size_t eq = part.find('=');
        if (isYear(part)) {
            s.yearTo = std::atoi(part.c_str());
        } else if (colon != std::string::npos && isYear(part.substr(0, colon)) && isYear(part.substr(colon + 1))) {
            s.yearFrom = std::atoi(part.c_str());
            s.yearTo = std::atoi(part.c_str() + colon + 1);
        } else if (eq != std::string::npos) {
            std::string word = trim(part.substr(0, eq)), range = trim(part.substr(eq + 1));
            if (word.empty() || range.empty()) throw MapError("-s " + text + ": Bedingung " + part + " unvollständig");
            s.filters.emplace_back(word, range);
        } else if (colon != std::string::npos) {
            throw MapError("-s " + text + ": " + part + " ist kein Jahresbereich wie 2024:2040");
        } else {
            if (!s.column.empty()) throw MapError("-s " + text + ": zwei Wertspalten " + s.column + " und " + part);
            s.column = part;
        }
    }
    return s;
}

std::vector<ValueChoice> parseGlyphParts(const ValueChoice& base, const std::string& text)
{
    std::vector<ValueChoice> parts;
    for (const std::string& part : splitList(text)) {
        ValueChoice s = base;
        size_t eq = part.find('=');
        if (eq != std::string::npos) {
            std::string word = trim(part.substr(0, eq)), range = trim(part.substr(eq + 1));
            if (word.empty() || range.empty()) throw MapError(text + ": Bedingung " + part + " unvollständig");
            s.filters.emplace_back(word, range);
        } else {
            s.column = part;
        }
        s.label = part;
        parts.push_back(s);
    }
    if (parts.size() < 2) throw MapError(text + ": ein Diagramm braucht mindestens zwei Teile");
    return parts;
}

JoinResult joinTables(const ShapeMap& map, const std::vector<std::string>& tables, const std::string& keyColumn,
                      const ValueChoice& value, const std::vector<ValueChoice>& parts)
{
    std::vector<ValueChoice> choices = {value};
    choices.insert(choices.end(), parts.begin(), parts.end());
    size_t n = map.regions.size();
    std::vector<std::vector<Sum>> total(n, std::vector<Sum>(choices.size()));
    std::unordered_map<std::string, size_t> regionOf;
    for (size_t i = 0; i < n; ++i) regionOf.emplace(map.regions[i].key, i);

    JoinResult result;
    std::unordered_map<std::string, bool> listed;
    std::vector<Rule> firstRules;
    std::vector<std::string> firstNames;
    for (const std::string& path : tables) {
        TableJoin t(path, keyColumn, choices);
        t.read();
        if (firstRules.empty()) {
            firstRules = t.rules;
            firstNames = t.names;
        }
        for (const std::string& key : t.keys) {
            auto r = regionOf.find(key);
            if (r == regionOf.end()) {
                if (listed.emplace(key, true).second) result.keysWithoutShape.push_back(key);
                continue;
            }
            const std::vector<Sum>& s = t.sums[key];
            for (size_t k = 0; k < choices.size(); ++k)
                for (int term = 0; term < 2; ++term) {
                    total[r->second][k].sum[term] += s[k].sum[term];
                    total[r->second][k].seen[term] = total[r->second][k].seen[term] || s[k].seen[term];
                }
        }
    }
    int column = firstRules[0].column;
    result.conditions = conditionText(value);
    result.valueName = (size_t(column) < firstNames.size() ? firstNames[size_t(column)] : "Spalte " + std::to_string(column + 1)) +
                       result.conditions;
    for (size_t k = 1; k < choices.size(); ++k) {
        const Rule& r = firstRules[k];
        bool byColumn = choices[k].filters.size() == value.filters.size();
        result.partNames.push_back(byColumn && size_t(r.column) < firstNames.size() ? firstNames[size_t(r.column)]
                                                                                     : choices[k].label);
    }
    result.value.resize(n);
    result.parts.assign(n, std::vector<double>(parts.size()));
    for (size_t i = 0; i < n; ++i) {
        bool any = false;
        for (size_t k = 0; k < choices.size(); ++k) {
            double v = total[i][k].value(firstRules[k]);
            any = any || !std::isnan(v);
            if (k == 0)
                result.value[i] = v;
            else
                result.parts[i][k - 1] = v;
        }
        if (!any) result.regionsWithoutData.push_back(map.regions[i].key);
    }
    return result;
}
