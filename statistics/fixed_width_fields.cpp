#include "statistics/fixed_width_fields.h"

#include <charconv>
#include <limits>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "platform/safe_output.h"
#include "platform/settings.h"
#include "tables/table_text.h"

FixedLayout::FixedLayout(const char* name, std::vector<FixedField> fields) : layoutName(name), rows(std::move(fields))
{
    for (const auto& f : rows) lastColumn = std::max(lastColumn, f.column + f.width - 1);
}

const FixedField& FixedLayout::field(std::string_view fieldName) const
{
    for (const auto& f : rows)
        if (f.name[0] == fieldName[0] && fieldName == f.name) return f;
    throw std::logic_error(std::string("no field ") + std::string(fieldName) + " in layout " + layoutName);
}

const FixedLayout& stockLayout()
{
    static const FixedLayout layout("dstbest", {
        {"R01", 1, 8, 'I'}, {"R03U1", 9, 5, 'I'}, {"R03U2", 14, 4, 'I'}, {"R03U3", 18, 2, 'I'},
        {"RN1", 20, 4, 'I'}, {"R02", 24, 7, 'I'}, {"W01", 31, 1, 'S'}, {"W02", 32, 8, 'I'},
        {"W03", 40, 8, 'I'}, {"W11", 48, 8, 'I'}, {"W12", 56, 8, 'I'}, {"W13", 64, 1, 'S'},
        {"W14", 65, 1, 'S'}, {"W31", 66, 11, 'I'}, {"RQZ", 77, 7, 'I'}, {"W32", 84, 1, 'S'},
        {"W40", 85, 3, 'S'}, {"W41", 88, 8, 'I'}, {"W42", 96, 4, 'I'}, {"W43", 100, 1, 'S'},
        {"W44", 101, 8, 'I'}, {"P01", 109, 8, 'I'}, {"P02", 117, 1, 'S'}, {"P09", 118, 2, 'S'},
        {"P10", 120, 3, 'S'}, {"P03", 123, 1, 'S'}, {"P04", 124, 8, 'I'}, {"P05", 132, 3, 'S'},
        {"P06", 135, 8, 'I'}, {"P07", 143, 3, 'S'}, {"P08", 146, 2, 'S'}, {"KERNHH", 148, 4, 'I'},
        {"KERNG", 152, 1, 'S'}, {"KERNK", 153, 1, 'S'}, {"KERNE", 154, 1, 'S'}, {"FAMNA1", 155, 4, 'I'},
        {"FRFNA1", 159, 4, 'I'}, {"GEBNA1", 163, 4, 'I'}, {"AW17H", 167, 12, 'I'}, {"KERNS", 179, 1, 'S'},
        {"ANSTE", 180, 1, 'S'}, {"ANSTI", 181, 1, 'S'}, {"PKOR", 182, 1, 'I'}, {"HHNR", 183, 4, 'I'},
        {"HZUO", 187, 2, 'I'}, {"HPAAR", 189, 1, 'S'}, {"HELT", 190, 1, 'S'}, {"HVOR", 191, 1, 'S'},
        {"HNACH", 192, 1, 'S'}, {"HGESC", 193, 1, 'S'}, {"HGENZ", 194, 1, 'S'}, {"W04", 195, 1, 'S'},
        {"W05", 196, 1, 'S'}, {"W06", 197, 1, 'S'}, {"W45", 198, 8, 'I'}, {"PWAHL", 206, 1, 'I'},
        {"AW11", 207, 12, 'I'}, {"AW12", 219, 1, 'S'}, {"AW13", 220, 1, 'S'}, {"AW14", 221, 1, 'S'},
        {"AW15", 222, 1, 'S'}, {"AW16", 223, 4, 'I'}, {"Z02", 227, 8, 'I'}, {"AW17", 235, 12, 'I'},
        {"AW18", 247, 4, 'I'}, {"A01", 251, 3, 'I'}, {"A02", 254, 2, 'S'}, {"A03", 256, 1, 'S'},
        {"A04", 257, 2, 'S'}, {"A05", 259, 1, 'S'}, {"A06", 260, 2, 'I'}, {"A07", 262, 2, 'I'},
        {"NRZ", 264, 4, 'I'}, {"PDO", 268, 1, 'S'}, {"HDO", 269, 1, 'S'}, {"R02U2", 270, 1, 'I'},
        {"M1", 271, 1, 'S'}, {"M2", 272, 1, 'S'}, {"P11", 273, 8, 'I'}, {"P12", 281, 40, 'I'},
        {"RQZU2", 321, 1, 'I'}, {"M03", 322, 3, 'I'}, {"M04", 325, 1, 'S'}, {"M05", 326, 1, 'I'},
        {"A07X", 327, 2, 'I'}, {"A05M", 329, 1, 'S'}, {"P02MR", 330, 1, 'S'}, {"P03MR", 331, 2, 'S'},
        {"P08MR", 333, 4, 'S'}, {"FIL337", 337, 5, 'I'}, {"Z01BIS", 342, 8, 'I'}, {"DS350", 350, 1, 'I'},
    });
    return layout;
}

const FixedLayout& movementLayout()
{
    static const FixedLayout layout("dstbew", {
        {"R01", 1, 8, 'I'}, {"R03U1", 9, 5, 'I'}, {"R03U2", 14, 4, 'I'}, {"R03U3", 18, 2, 'I'},
        {"RN1", 20, 4, 'I'}, {"R02", 24, 7, 'I'}, {"W01", 31, 1, 'S'}, {"W02", 32, 8, 'I'},
        {"W03", 40, 8, 'I'}, {"W11", 48, 8, 'I'}, {"W12", 56, 8, 'I'}, {"W13", 64, 1, 'S'},
        {"W14", 65, 1, 'S'}, {"W31", 66, 11, 'I'}, {"RQZ", 77, 7, 'I'}, {"W32", 84, 1, 'S'},
        {"W40", 85, 3, 'S'}, {"W41", 88, 8, 'I'}, {"W42", 96, 4, 'I'}, {"W43", 100, 1, 'S'},
        {"W44", 101, 8, 'I'}, {"P01", 109, 8, 'I'}, {"P02", 117, 1, 'S'}, {"P09", 118, 2, 'S'},
        {"P10", 120, 3, 'S'}, {"P03", 123, 1, 'S'}, {"P04", 124, 8, 'I'}, {"P05", 132, 3, 'S'},
        {"P06", 135, 8, 'I'}, {"P07", 143, 3, 'S'}, {"P08", 146, 2, 'S'}, {"Z01", 148, 8, 'I'},
        {"Z02", 156, 8, 'I'}, {"B01", 164, 6, 'I'}, {"B03", 170, 1, 'S'}, {"B04", 171, 1, 'S'},
        {"B05", 172, 2, 'S'}, {"B06", 174, 1, 'S'}, {"B07", 175, 1, 'S'}, {"B08", 176, 6, 'I'},
        {"L02", 182, 1, 'S'}, {"G01", 183, 2, 'I'}, {"G02", 185, 3, 'S'}, {"G03", 188, 1, 'S'},
        {"EA", 189, 2, 'S'}, {"AW17", 191, 12, 'I'}, {"AW19", 203, 7, 'I'}, {"FIL210", 210, 1, 'I'},
        {"W05", 211, 1, 'S'}, {"W06", 212, 1, 'S'}, {"AW11", 213, 12, 'I'}, {"AW12", 225, 1, 'S'},
        {"A01", 226, 3, 'I'}, {"AW15", 229, 1, 'S'}, {"G04", 230, 2, 'I'}, {"G05", 232, 1, 'I'},
        {"G06", 233, 2, 'I'}, {"G07", 235, 3, 'S'}, {"AW18", 238, 4, 'I'}, {"P03QZ", 242, 1, 'S'},
        {"P05QZ", 243, 3, 'S'}, {"P08QZ", 246, 2, 'S'}, {"R02U2", 248, 1, 'I'}, {"RQZU2", 249, 1, 'I'},
        {"NEUB", 250, 1, 'I'}, {"AW20", 251, 4, 'I'}, {"P08MR", 255, 4, 'S'}, {"G01J", 259, 8, 'I'},
        {"ANST", 267, 1, 'S'}, {"M03", 268, 3, 'S'}, {"M01", 271, 1, 'S'}, {"FIL272", 272, 1, 'I'},
        {"P11", 273, 8, 'I'}, {"P12", 281, 40, 'I'}, {"FIL321", 321, 1, 'I'}, {"P02MR", 322, 1, 'S'},
        {"P03MR", 323, 2, 'S'}, {"W41UMR", 325, 1, 'S'}, {"Z01VON", 326, 8, 'I'}, {"Z01BIS", 334, 8, 'I'},
        {"Z02BIS", 342, 8, 'I'}, {"DSW", 350, 1, 'I'},
    });
    return layout;
}

const FixedLayout& complementLayout()
{
    static const FixedLayout layout("dstbestc", {
        {"HHW", 1, 1, 'I'}, {"PDOM", 2, 2, 'I'}, {"HK", 4, 2, 'I'}, {"HP", 6, 2, 'I'},
        {"HN", 8, 2, 'I'}, {"HV", 10, 2, 'I'}, {"HPWA", 12, 3, 'I'}, {"HPMA", 15, 3, 'I'},
        {"HE1A", 18, 3, 'I'}, {"HE3A", 21, 3, 'I'}, {"DSNB", 24, 1, 'I'},
    });
    return layout;
}

namespace {
// the stock fields that end before column `end`, then the complement from column `end`
std::vector<FixedField> withComplement(int end)
{
    std::vector<FixedField> fields;
    for (const FixedField& f : stockLayout().fields())
        if (f.column + f.width - 1 < end) fields.push_back(f);
    for (FixedField f : complementLayout().fields()) {
        f.column += end - 1;
        fields.push_back(f);
    }
    return fields;
}
} // namespace

const FixedLayout& addressWithComplementLayout()
{
    static const FixedLayout layout("dstbesta", withComplement(kAddressColumns + 1));
    return layout;
}

const FixedLayout& recordWithComplementLayout()
{
    static const FixedLayout layout("dstbestc", withComplement(stockLayout().length()));
    return layout;
}

std::string_view fieldText(std::string_view record, const FixedField& field)
{
    size_t first = static_cast<size_t>(field.column - 1);
    if (first >= record.size()) return {};
    return record.substr(first, static_cast<size_t>(field.width));
}

bool fieldBlank(std::string_view record, const FixedField& field)
{
    for (char c : fieldText(record, field))
        if (c != ' ') return false;
    return true;
}

bool fieldNumber(std::string_view record, const FixedField& field, long long& value)
{
    std::string_view text = fieldText(record, field);
    size_t i = 0, n = text.size();
    while (i < n && text[i] == ' ') ++i;
    while (n > i && text[n - 1] == ' ') --n;
    value = 0;
    if (i == n) return true;
    bool negative = false;
    if (text[i] == '-' || text[i] == '+') {
        negative = text[i] == '-';
        if (++i == n) return false;
    }
    for (size_t k = i; k < n; ++k)
        if (text[k] < '0' || text[k] > '9') return false;
    // a field of more digits than a number holds (P12 has forty) is no number either
    unsigned long long magnitude = 0;
    auto [end, error] = std::from_chars(text.data() + i, text.data() + n, magnitude);
    if (error != std::errc() || end != text.data() + n ||
        magnitude > static_cast<unsigned long long>(std::numeric_limits<long long>::max()))
        return false;
    value = negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
    return true;
}

int fieldYear(std::string_view record, const FixedField& field)
{
    std::string_view text = fieldText(record, field);
    if (text.size() < 4) return -1;
    int year = 0;
    for (int i = 0; i < 4; ++i) {
        if (text[i] < '0' || text[i] > '9') return -1;
        year = year * 10 + (text[i] - '0');
    }
    return year;
}

bool writeLayoutDescription(const FixedLayout& layout, const std::string& path)
{
    FILE* file = safeOutput::open(path);
    if (!file) return false;
    const char* columns[] = {"column", "width", "name", "type", nullptr};
    csvWriteHead(file, layout.name(), columns, nullptr);
    char sep[2] = {si::separator, 0};
    for (const auto& f : layout.fields()) {
        char line[128];
        int n = snprintf(line, sizeof line, "%3u%s%2u%s%s%s%c\n", static_cast<unsigned>(f.column), sep,
                         static_cast<unsigned>(f.width), sep, f.name, sep, f.type);
        csvWrite(file, line, static_cast<size_t>(n));
    }
    safeOutput::close(file);
    return true;
}
