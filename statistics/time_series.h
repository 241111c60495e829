// Time series aggregation of the yearly population tables.
#pragma once
#include <string>
#include <vector>

// gathers the yearly tables of a variant into the time series `name`; the columns are the
// column forms of the year, region key, population group, sex group and age group
int zrgem(const std::string& name, const std::vector<std::string>& columns, const std::string& directory,
          const std::string& version, int startYear, int flag, int endYear, int ausgabeNull, const std::string& fmt);
