// Time series aggregation: the yearly population tables gem<year>.csv of a variant gathered
// into one table, each of the five key columns (year, region key, population group, sex
// group, age group) re-keyed by its column form, and what falls together summed.
#pragma once
#include <string>
#include <vector>

// Gathers the tables of <directory><version>/ from startYear (startYear - 1 with
// includeYearBefore) to endYear into <directory><version>/<name>.csv. columns: the five
// column forms "$i", "/n", "^n", a whole number, or "file keyColumn valueColumn" (the
// reference file <directory>file.csv). writeZeros 0 leaves out sums of 0; floatFormat is the
// number format of the values. 0 when the table was written, 1 when it could not be opened.
int zrgem(const std::string& name, const std::vector<std::string>& columns, const std::string& directory,
          const std::string& version, int startYear, int includeYearBefore, int endYear, int writeZeros,
          const std::string& floatFormat);

// the tool zrgem: -o name -a "form,form,form,form,form" -l language -r; the exit status it
// leaves: 1 once the aggregation has run, 0 after the usage text
int zrgemTool(int argc, char** argv);
