#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "platform/settings.h"
#include "statistics/fixed_width_fields.h"
#include "statistics/region_map.h"
#include "statistics/statistics_preparation.h"
#include "tables/table_text.h"

namespace {
char charOf(std::string_view record, const FixedField& field)
{
    std::string_view text = fieldText(record, field);
    return text.empty() ? ' ' : text[0];
}

// population group class of a nationality code: 1 for 0, else 2
long long groupClass(long long code) { return code == 0 ? 1 : 2; }

// reftya.csv: outside key in the first column, outside type in the second
void readReftya(Dstmak& tool)
{
    tool.reftyaRead = true;
    FILE* file = fopen(tool.path("reftya.csv").c_str(), "rb");
    if (!file) {
        tool.prot().text(tool.settings.w40dst > 0 ? "Übernahme Teilschlüssel W40/W41 als Außentyp\n"
                                                  : "setze alle Außentypen auf 1\n");
        return;
    }
    tool.reftyaFound = true;
    char sep[2] = {si::separator ? si::separator : ';', 0};
    CsvReader reader(file, sep);
    char cell[256];
    long long key = -1;
    int status;
    while ((status = reader.next(cell, sizeof cell)) >= 0 || status < -1) {
        if (status < -1) {
            tool.prot().message('w', "reftya.csv:%d: %s\n", static_cast<int>(reader.lineNumber()),
                                CsvReader::errorText(status).c_str());
            break;
        }
        if (reader.isComment) continue;
        char* end = nullptr;
        if (reader.column == 0) {
            key = std::strtoll(cell, &end, 10);
            if (end == cell) key = -1;
        } else if (reader.column == 1 && key >= 0) {
            int type = static_cast<int>(std::strtol(cell, &end, 10));
            if (end != cell) tool.reftya[key] = type;
            else tool.prot().message('w', "reftya.csv:%d: Typ '%s' ist keine Zahl\n", static_cast<int>(reader.lineNumber()), cell);
        }
    }
    fclose(file);
}
} // namespace

void Dstmak::movementFile(const std::string& name)
{
    Dstmak& tool = *this;
    auto start = std::chrono::steady_clock::now();
    const DstSettings& s = tool.settings;
    if (!r02map::valid(s.r02map)) {
        tool.prot().text("%s: ungültige Abbildung in kleinräumige Gliederung\n", s.r02map.c_str());
        return;
    }
    if (!tool.reftyaRead) readReftya(tool);
    const FixedLayout& layout = movementLayout();
    const FixedField &b03 = layout.field("B03"), &b04 = layout.field("B04"), &b07 = layout.field("B07");
    const FixedField &r02 = layout.field("R02"), &r02u2 = layout.field("R02U2");
    const FixedField &rqz = layout.field("RQZ"), &rqzu2 = layout.field("RQZU2");
    const FixedField &p01 = layout.field("P01"), &anst = layout.field("ANST");
    const FixedField& eventDate = layout.field(s.abm == 2 ? "Z02" : "Z01");
    RecordFilter filter(tool, name, layout, "Z01");
    auto mapped = [&](std::string_view record, const FixedField& key, const FixedField& u2, long long& value) {
        value = r02map::key(s.r02map, fieldText(record, key), charOf(record, u2));
        if (value >= 0) return true;
        if (++filter.badField <= 100) {
            std::string text(fieldText(record, key));
            tool.prot().message('w', "Record %zu: keine Abbildung von %s '%s' %s '%c' auf ein Gebiet\n", filter.records,
                                key.name, text.c_str(), u2.name, charOf(record, u2));
        }
        return false;
    };
    bool opened = readRecords(tool, name, [&](std::string_view record) {
        if (!filter.accept(record)) return;
        long long b05, sex, p05, p05qz, neub, region;
        if (!filter.number(record, "B05", b05) || !filter.number(record, "P02", sex) ||
            !filter.number(record, "P05", p05) || !filter.number(record, "P05QZ", p05qz) ||
            !filter.number(record, "NEUB", neub) || !mapped(record, r02, r02u2, region))
            return;
        char B03 = charOf(record, b03), B04 = charOf(record, b04), B07 = charOf(record, b07);
        if (fieldBlank(record, eventDate) || fieldBlank(record, p01)) {
            std::string birth(fieldText(record, p01)), event(fieldText(record, eventDate));
            if (++filter.badField <= 100)
                tool.prot().message('w', "Warnung: Satz %zu:%s: P01(%s) oder %s(%s) nicht versorgt\n", filter.records,
                                    name.c_str(), birth.c_str(), eventDate.name, event.c_str());
            return;
        }
        int eventYear = fieldYear(record, eventDate), birthYear = fieldYear(record, p01);
        if (eventYear < 0 || birthYear < 0) {
            std::string birth(fieldText(record, p01)), event(fieldText(record, eventDate));
            if (++filter.badField <= 100)
                tool.prot().message('w', "Record %zu: P01 '%s' oder %s '%s' ist kein Datum\n", filter.records, birth.c_str(),
                                    eventDate.name, event.c_str());
            return;
        }
        int age = eventYear - birthYear;
        if (age < 0) {
            ++tool.plausibility;
            std::string birth(fieldText(record, p01)), event(fieldText(record, eventDate));
            if (++filter.badField <= 100)
                tool.prot().message('w', "Warnung: Satz %zu:%s: Alter %d aus P01(%s) u %s(%s) negativ\n", filter.records,
                                    name.c_str(), age, birth.c_str(), eventDate.name, event.c_str());
            return;
        }
        if (s.nettobew && charOf(record, anst) == '2') {
            ++filter.institution;
            return;
        }
        tool.highestMovementAge = std::max(tool.highestMovementAge, age);
        ++tool.movementYears[filter.fileYear];
        ++tool.regionKeys[region];
        long long year = filter.fileYear;
        long long group = s.aggBG ? 1 : groupClass(p05);
        long long gg = s.aggGG ? 1 : sex;
        bool b07in12 = B07 == '1' || B07 == '2';
        if (B03 == '2' && B04 == '2' && B07 == '1') {
            ++tool.sterb[{year, region, group, gg, age, 0}];
        } else if (B03 == '1' && B04 == '1' && B07 == '1') {
            long long motherAge, motherCode;
            if (!filter.number(record, "G01", motherAge) || !filter.number(record, "G02", motherCode)) return;
            ++tool.geburt[{year, region, s.aggBG ? 1 : groupClass(motherCode), motherAge, 0, 0}];
            ++tool.baby[{year, region, group, gg, age, 0}];
            if (sex == 1) ++tool.boys;
            else if (sex == 2) ++tool.girls;
        } else if (s.neub == 1 && (B04 == '3' || B04 == '4') && b07in12 && neub != 0) {
            // moves into new buildings are counted apart and nowhere else
            if (B03 == '1') ++tool.neubaubezug[{year, region, group, gg, age, 0}];
        } else if (B03 == '2' && B04 == '3' && b07in12) {
            long long w41, key;
            long long w40value;
            if (!filter.number(record, "W40", w40value) || !filter.number(record, "W41", w41)) return;
            key = w40value * 100000000LL + w41;
            ++tool.outsideKeys[key];
            ++tool.aussenwegzug[{year, region, tool.outsideType(key), group, gg, age}];
        } else if (B03 == '2' && B04 == '4' && B07 == '1') {
            long long origin;
            if (!mapped(record, rqz, rqzu2, origin)) return;
            ++tool.regionKeys[origin];
            ++tool.binnenwegzug[{year, origin, region, group, gg, age}];
        } else if (B03 == '2' && b05 == 4) {
            if ((p05 == 0) != (p05qz == 0))
                ++tool.bgw[{year, region, groupClass(p05qz), groupClass(p05), gg, age}];
        } else if (B03 == '1' && B04 == '3' && b07in12) {
            long long w40value, w41;
            if (!filter.number(record, "W40", w40value) || !filter.number(record, "W41", w41)) return;
            long long key = w40value * 100000000LL + w41;
            ++tool.outsideKeys[key];
            ++tool.aussenzuzug[{year, tool.outsideType(key), region, group, gg, age}];
        }
    });
    if (!opened) return;
    if (filter.fileYear && std::find(tool.years.begin(), tool.years.end(), filter.fileYear) == tool.years.end())
        tool.years.push_back(filter.fileYear);
    filter.finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

void Dstmak::writeMovementTables()
{
    Dstmak& tool = *this;
    std::string years;
    for (const auto& [year, records] : tool.movementYears) years += (years.empty() ? "" : " ") + std::to_string(year);
    DstProtocol& prot = tool.prot();
    std::set<long long> read;
    for (const auto& entry : tool.movementYears) read.insert(entry.first);
    prot.text("%s, oberste Altersgruppe %d\n", years.c_str(), tool.highestMovementAge);
    prot.setting("tkrate_r01filter", tool.settings.r01filter);
    prot.setting("tkrate_szr02", tool.settings.r02map);
    prot.setting("tkrate_szw40", std::to_string(tool.settings.w40dst));
    prot.setting("tkrate_abm", std::to_string(tool.settings.abm));
    prot.setting("tkrate_neub", std::to_string(tool.settings.neub));
    prot.setting("tkrate_nettobew", std::to_string(tool.settings.nettobew));
    tool.writeTree("aussenwegzug", "Außenwegzug", {"year", "GKZq", "TYA", "BG", "GG", "AG", "DR4WA"}, tool.aussenwegzug,
                   false, true, read);
    tool.writeTree("aussenzuzug", "Außenzuzug", {"year", "TYA", "GKZz", "BG", "GG", "AG", "DR4ZA"}, tool.aussenzuzug,
                   false, true, read);
    tool.writeTree("baby", "Baby", {"year", "region", "BG", "GG", "AG", "number"}, tool.baby, false, true, read);
    tool.writeTree("bgw", "Bevölkerungsgruppenwechsel", {"year", "region", "BGq", "BGz", "GG", "AG", "number"}, tool.bgw,
                   false, true, read);
    tool.writeTree("binnenwegzug", "Binnenwegzug", {"year", "GKZq", "GKZz", "BG", "GG", "AG", "binnenwegzug"},
                   tool.binnenwegzug, false, true, read);
    tool.writeTree("geburt", "Geburt", {"year", "region", "BG", "AG", "birth"}, tool.geburt, false, true, read);
    prot.text("  Geborene m %d, w %d, Proportion m/w %g\n", static_cast<int>(tool.boys), static_cast<int>(tool.girls),
              tool.girls ? static_cast<double>(tool.boys) / static_cast<double>(tool.girls) : 0.0);
    tool.writeTree("neubaubezug", "Neubaubezug", {"year", "NEUB", "BG", "GG", "AG", "newBPall"}, tool.neubaubezug, false,
                   true, read);
    tool.writeTree("sterb", "Sterbefälle", {"year", "region", "BG", "GG", "AG", "death"}, tool.sterb, false, true, read);
    for (const auto& [year, records] : tool.movementYears) prot.text("%d: %d records\n", year, static_cast<int>(records));
}
