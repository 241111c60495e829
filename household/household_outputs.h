// What the household tool writes: the table writers of every sum and quota array (the
// protocol tables and the sections of q.csv), the four result tables of the forecast in
// Prognose/ with their aggregates over all regions, and the time series with their plots.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

#include "household/quota_building.h"

// q.csv while the quota phase writes it, else nullptr
extern FILE* quotaFile;

// one dimension of an array: 't' type, 'r' region, 'g' sex, 'c' a class set, 'n' a plain count
struct Axis {
    char kind;
    const Altersklasse* set = nullptr;
};
Axis typeAxis();
Axis regionAxis();
Axis sexAxis();
Axis classAxis(const Altersklasse& set);
Axis countAxis();
// the number written into q.csv for index i of the axis, and back
int axisNumber(const Axis& axis, int i);
bool axisIndex(const Axis& axis, int number, int& i);

// Writes the q.csv section of a quota array (names beginning with Q, SPKV, SH2i) while
// q.csv is open, and with the protocol volume at least limit the array as an HTML table on
// a sub-page with its sum in the protocol line.
void writeArray(const char* name, const Grid<uint32_t>& array, const std::vector<Axis>& axes, int limit = 1);
void writeArray(const char* name, const Grid<double>& array, const std::vector<Axis>& axes, int limit = 1);

// the cross-year results of the forecast: region, year - first year, class
struct CrossYear {
    int firstYear = 0, years = 0;
    std::vector<bool> present;
    Grid<double> ZRHG, ZRHT, ZRHTa, ZRHK;
};
extern CrossYear ZR;

// the result streams of the forecast phase
struct ResultFiles {
    FILE* person = nullptr;
    FILE* household = nullptr;
    FILE* plot = nullptr;
    int typeWidth = 1;
};
extern ResultFiles results;

// opens person.csv, haushalt.csv and the plot stream, and sizes the cross-year arrays
void openResults(int firstYear, int lastYear);
// the type of a region written with leading zeros
std::string typeText(int region);
// one line of person.csv or haushalt.csv
void personRow(int year, int region, int pdo, int sex, int ageClass, int hdo, double value);
void householdRow(int year, int region, int hdo, int size, double value);
// the end of the forecast phase: time series and plots, hdo2.csv, kinder.csv, aggregates, links
void finishResults();
// closes what a run that ends by a failure left open, so that what was written stays
void closeResultFiles();
// sums every data line of each table Prognose/<name>.csv over the regions into <name>_agg.csv
void aggregateTables(const std::vector<std::string>& names);
