// The distribution of an ensemble: for every row of the members' summaries the mean and the
// 5, 10, 25, 50, 75, 90 and 95 % quantiles.
//
// The quantile rule: with the n values sorted, x[0] <= ... <= x[n-1], the quantile of p is
// x[j] + (h - j) * (x[j+1] - x[j]) with h = (n - 1) * p and j = floor(h), linear interpolation
// between order statistics (the rule that R calls type 7 and NumPy "linear").
#pragma once
#include <array>
#include <string>
#include <vector>

#include "ensemble/member_summary.h"

constexpr std::array<double, 7> quantileLevels = {0.05, 0.10, 0.25, 0.50, 0.75, 0.90, 0.95};

// the quantile of p of the values (sorted in place); 0 for none
double quantile(std::vector<double>& values, double p);

// Reads the values files of the members (the same table of each, all of the key table
// `keysPath`) together, a year and a stretch of keys at a time, and writes one row per key and
// year: the key, the mean and the quantiles. A key that only stands where it is not 0 gets its
// row when one member's value is not 0. False with the reason when a summary or the output fails.
bool writeQuantiles(SummaryTable table, const std::string& keysPath, const std::vector<std::string>& summaries,
                    const std::string& output, std::string& error);
