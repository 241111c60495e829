// The long tables of a run, for R and pandas: population_long.csv and movements_long.csv hold
// every year, one line per cell, with a plain one-line header, "," between cells and a decimal
// point, without a byte order mark or comment lines, whatever the settings of the other tables.
// Written beside the other tables of the year when LangeTabellen=1 stands in section CSV of
// veldor.ini: the files, the names of the movements and the plain form of a number are here;
// the lines are made by the writers of the year's tables (results), from the same text of each
// number, so that a value is formatted once for both.
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <cstdio>
#include <string>
#include <vector>

#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "platform/write_behind.h"
#include "tables/block_writer.h"

namespace {

constexpr const char* POPULATION = "population_long.csv";
constexpr const char* MOVEMENTS = "movements_long.csv";

// the name of each movement in the long table, in the order of the movement tables' columns; a
// column without a name here is named after its array
const std::array<const char*, NMOVEMENTCOLUMNS> MOVEMENT_NAMES = {
    "deaths",
    "external_out_migration",
    "out_to_new_dwellings",
    "internal_out_migration",
    "internal_out_within_type",
    "demolition_out_within_area",
    "demolition_out_abroad",
    "demolition_in",
    "external_in_migration",
    "new_dwellings_in_from_area",
    "new_dwellings_in_from_abroad",
    "internal_in_migration",
    "internal_in_within_type",
    "group_change_out",
    "group_change_in",
    "births",
};

// one of the two files, opened for this year's lines: new with its header in the first year,
// appended to afterwards (a failed write cuts it back to the years before)
FILE* openLong(const char* name, const char* header)
{
    std::string path = variantDirectory() + name;
    bool fresh = JAHR == ini::STARTJAHR || os::fileSize(path) == 0;
    FILE* f = safeOutput::open(path, !fresh);
    if (!f) safeOutput::fatalPath(path, errno);
    writeBehind::fromStart(fileno(f));
    if (fresh) {
        BlockWriter w(f);
        w.write(header);
    }
    return f;
}

bool anyMovement(const YearStep& y)
{
    for (const GemTable* t : y.movements())
        if (t->exists()) return true;
    return false;
}

} // namespace

LongTableFiles::LongTableFiles(const YearStep& y)
{
    if (si::getInt("CSV", "LangeTabellen", 0) == 0) return;
    population = openLong(POPULATION, "year,region,group,sex,age,persons\n");
    // the movements as bew.csv holds them, when it is written
    if (ini::ABEW && anyMovement(y)) movements = openLong(MOVEMENTS, "year,region,group,sex,age,movement,persons\n");
}

LongTableFiles::~LongTableFiles()
{
    if (population) safeOutput::close(population);
    if (movements) safeOutput::close(movements);
}

std::string longMovementName(const GemTable& t, size_t k)
{
    if (k < MOVEMENT_NAMES.size() && MOVEMENT_NAMES[k]) return MOVEMENT_NAMES[k];
    std::string name = t.name;
    for (char& ch : name) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return name;
}

std::vector<std::string> removeLongTables()
{
    std::vector<std::string> removed;
    for (const char* name : {POPULATION, MOVEMENTS})
        if (std::remove((variantDirectory() + name).c_str()) == 0) removed.push_back(name);
    return removed;
}

char* putPlainNumber(char* out, const char* text, size_t length)
{
    while (length > 0 && text[0] == ' ') ++text, --length;
    while (length > 0 && text[length - 1] == ' ') --length;
    if (length == 5 && std::memcmp(text, "undef", 5) == 0) {
        std::memcpy(out, "NA", 2);
        return out + 2;
    }
    std::memcpy(out, text, length);
    char* end = out + length;
    // a number holds one decimal point at most, mostly among its first digits
    const char point = si::decimalPoint;
    if (point != '.')
        for (char* p = out; p != end; ++p)
            if (*p == point) {
                *p = '.';
                break;
            }
    return end;
}
