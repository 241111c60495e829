// Fixed-width record layouts of the statistics data sets: one row per field with its
// name, first column (counted from 1), width and type, and the reading of a field.
#pragma once
#include <string>
#include <string_view>
#include <vector>

struct FixedField {
    const char* name;
    int column;    // first column, counted from 1
    int width;
    char type;     // 'I' integer text, 'S' string
};

class FixedLayout {
public:
    FixedLayout(const char* name, std::vector<FixedField> fields);
    const char* name() const { return layoutName; }
    const std::vector<FixedField>& fields() const { return rows; }
    // the field of that name; an unknown name is a fault of the program
    const FixedField& field(std::string_view fieldName) const;
    // the last column any field reaches: a record must be at least this long
    int length() const { return lastColumn; }

private:
    const char* layoutName;
    std::vector<FixedField> rows;
    int lastColumn = 0;
};

// person records at a reference date, 350 columns
const FixedLayout& stockLayout();
// event records of a year, 350 columns
const FixedLayout& movementLayout();
// the complement the household tool writes beside the stock records, 24 columns
const FixedLayout& complementLayout();
// the address key that leads a stock record: its first 23 columns
constexpr int kAddressColumns = 23;
// The two micro files of the household tool with the complement: the address key, the
// complement and a "*" in its last column (dstbesta.txt); the record without its last column,
// the complement, and the record's last character in the complement's last column
// (dstbestc.txt).
const FixedLayout& addressWithComplementLayout();
const FixedLayout& recordWithComplementLayout();

// The text of the field in the record; the part beyond the end of a short record is missing.
std::string_view fieldText(std::string_view record, const FixedField& field);
// true when the field holds only blanks (or lies beyond the end of the record)
bool fieldBlank(std::string_view record, const FixedField& field);
// The field as a number: leading and trailing blanks allowed, an optional sign, then digits
// only. An all-blank field is 0 and valid. False when anything else stands in it.
bool fieldNumber(std::string_view record, const FixedField& field, long long& value);
// the leading four digits of a date field YYYYMMDD as a year, or -1 when they are not digits
int fieldYear(std::string_view record, const FixedField& field);

// Writes the description of a layout as a table "%3u;%2u;name;type" per field, for the
// user; false when the file cannot be written.
bool writeLayoutDescription(const FixedLayout& layout, const std::string& path);
