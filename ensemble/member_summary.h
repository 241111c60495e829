// The compact summary of one forecast run as the ensemble reads it: the shape of the run and
// the rows of a summary file in key order. A member writes its summary itself (the option
// $SUMMARY_ONLY of the forecast).
#pragma once
#include <cstdio>
#include <string>

#include "kernel/banded_summary.h"

// the run's shape, from its variant file
struct Dimensions {
    int startYear = 0, endYear = 0;
    int groups = 1, sexes = 1, ages = 1;
    // five-year bands of age; the last one is open
    int bands() const { return ages > 0 ? (ages - 1) / 5 + 1 : 0; }
};

// Reads a summary file row by row in key order.
class SummaryReader {
public:
    SummaryReader(SummaryTable table, const std::string& path);
    ~SummaryReader();
    bool ok() const { return file != nullptr && error.empty(); }
    // the next row; false at the end or on a bad row (error says which)
    bool next(SummaryKey& key, double& value);
    std::string error;

private:
    SummaryTable table;
    std::string path;
    FILE* file = nullptr;
    long line = 0;
};
