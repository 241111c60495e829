// The compact summary of one forecast run as the ensemble reads it: the shape of the run, the
// key table of a summary and its values file (the layout `kernel/banded_summary` writes), and
// the plain long table they stand for. A member writes its summary itself (the option
// $SUMMARY_ONLY of the forecast).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "kernel/banded_summary.h"

// the run's shape, from its variant file
struct Dimensions {
    int startYear = 0, endYear = 0;
    int groups = 1, sexes = 1, ages = 1;
    // five-year bands of age; the last one is open
    int bands() const { return ages > 0 ? (ages - 1) / 5 + 1 : 0; }
};

// the keys of a year of a summary, in the order of its values
struct KeyTable {
    std::vector<std::string> cells;   // a key's cells without the year, each followed by ","
    std::vector<char> always;         // 1: its row stands in a plain table even when 0
    uint64_t hash = 0;                // of the file's bytes
    // reads a key table; false with the reason (file, line and text of a bad row)
    bool read(SummaryTable table, const std::string& path, std::string& error);
    size_t size() const { return cells.size(); }
};

// A values file: checked against its key table when opened, read a year's keys at a time.
class SummaryValues {
public:
    SummaryValues() = default;
    SummaryValues(const SummaryValues&) = delete;
    SummaryValues& operator=(const SummaryValues&) = delete;
    ~SummaryValues();
    // false with the reason when the file cannot be read or does not belong to the key table
    bool open(const std::string& path, const KeyTable& keys, std::string& error);
    size_t years() const { return yearCount; }
    // the year label of the block `year`
    bool label(size_t year, int64_t& out, std::string& error) const;
    // `count` values of keys `from`.. of the block `year`
    bool read(size_t year, size_t from, size_t count, double* out, std::string& error) const;

private:
    std::string path;
    int fd = -1;
    uint64_t keyCount = 0;
    size_t yearCount = 0;
};

// a number as plainNumber writes it, appended to `out`
void appendPlainNumber(std::string& out, double value);

// writes a summary as the plain long table it stands for (one header line, a row per key and
// year, rows that are 0 only where they always stand)
bool writeSummaryText(SummaryTable table, const std::string& keysPath, const std::string& valuesPath,
                      const std::string& output, std::string& error);
