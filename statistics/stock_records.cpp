#include <algorithm>
#include <chrono>

#include "statistics/fixed_width_fields.h"
#include "statistics/region_map.h"
#include "statistics/statistics_preparation.h"

namespace {
char charOf(std::string_view record, const FixedField& field)
{
    std::string_view text = fieldText(record, field);
    return text.empty() ? ' ' : text[0];
}

// a person in an institution carries a code other than blank or 0 in ANSTE or ANSTI
bool inInstitution(char e, char i) { return (e != ' ' && e != '0') || (i != ' ' && i != '0'); }

std::string yearList(const std::vector<int>& years)
{
    std::string list;
    for (int y : years) list += (list.empty() ? "" : " ") + std::to_string(y);
    return list;
}
} // namespace

void Dstmak::stockFile(const std::string& name)
{
    Dstmak& tool = *this;
    auto start = std::chrono::steady_clock::now();
    const FixedLayout& layout = stockLayout();
    const FixedField& r02 = layout.field("R02");
    const FixedField& r02u2 = layout.field("R02U2");
    const FixedField& anste = layout.field("ANSTE");
    const FixedField& ansti = layout.field("ANSTI");
    const FixedField& a01 = layout.field("A01");
    const DstSettings& s = tool.settings;
    RecordFilter filter(tool, name, layout, "Z02");
    bool opened = readRecords(tool, name, [&](std::string_view record) {
        if (!filter.accept(record)) return;
        long long sex = 1, group = 1, age = 0, p05 = 0;
        if (!s.aggGG && !filter.number(record, "P02", sex)) return;
        if (!s.aggBG) {
            if (!filter.number(record, "P05", p05)) return;
            group = p05 == 0 ? 1 : 2;
        }
        char e = charOf(record, anste), i = charOf(record, ansti);
        long long key = r02map::key(s.r02map, fieldText(record, r02), charOf(record, r02u2), e, i);
        if (key < 0) {
            if (++filter.badField <= 100) {
                std::string text(fieldText(record, r02));
                tool.prot().message('w', "Record %zu: keine Abbildung von R02 '%s' R02U2 '%c' auf ein Gebiet\n",
                                    filter.records, text.c_str(), charOf(record, r02u2));
            }
            return;
        }
        if (fieldBlank(record, a01)) {
            ++filter.ageMissing;
            return;
        }
        if (!filter.number(record, "A01", age)) return;
        CountKey cell = {filter.fileYear, key, group, sex, age, 0};
        // persons of institutions are counted apart; with ANST=1 they leave the stock
        if (inInstitution(e, i)) {
            ++filter.institution;
            ++tool.dsg[cell];
            if (s.anst == 1) return;
        }
        ++tool.bestand[cell];
        ++tool.regionKeys[key];
        tool.highestStockAge = std::max(tool.highestStockAge, static_cast<int>(age));
    });
    if (!opened) return;
    if (filter.fileYear && std::find(tool.years.begin(), tool.years.end(), filter.fileYear) == tool.years.end())
        tool.years.push_back(filter.fileYear);
    if (filter.fileYear) tool.stockYears.insert(filter.fileYear);
    filter.finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

void Dstmak::writeStockTables()
{
    Dstmak& tool = *this;
    std::vector<int> years(tool.stockYears.begin(), tool.stockYears.end());
    tool.prot().text("%s, oberste Altersgruppe %d\n", yearList(years).c_str(), tool.highestStockAge);
    tool.prot().setting("tkrate_r01filter", tool.settings.r01filter);
    tool.prot().setting("tkrate_szr02", tool.settings.r02map);
    tool.prot().setting("tkrate_anst", std::to_string(tool.settings.anst));
    const std::vector<const char*> columns = {"year", "region", "BG", "GG", "AG", "number"};
    tool.writeTree("bestand", "Bestand", columns, tool.bestand, true, true, tool.stockYears);
    tool.writeTree("dsg", "Anstaltsbevölkerung", columns, tool.dsg, true, true, tool.stockYears);
    // the descriptions of the record layouts, for the user: the stock records, and the two
    // micro files of the household tool with its complement
    writeLayoutDescription(stockLayout(), tool.path("dstbest.csv"));
    writeLayoutDescription(addressWithComplementLayout(), tool.path("dstbesta.csv"));
    writeLayoutDescription(recordWithComplementLayout(), tool.path("dstbestc.csv"));
}
