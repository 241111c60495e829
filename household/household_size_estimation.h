// The household sizes of each region and household type with several persons (HDO 2 to 5):
// the stock table of the region's type from hdo.csv is adjusted by the chi-square table
// adjustment so that every row of persons meets its forecast and the table as a whole gives
// the forecast number of households.
#pragma once
#include <vector>

#include "household/household_forecast_step.h"

// the base tables of hdo.csv: per type 59 rows of persons by household size 2, 3, 4, 5+
struct BaseTables {
    std::vector<std::vector<double>> rows;   // per type, 59 * 4 cells
};
// reads Quoten/hdo.csv and marks its types and their regions as seen
void readBaseTables(BaseTables& base);

// the sub-page of the persons and households of the year
void openPersonPage(int year);
void closePersonPage();
// the person table of a region (protocol and person.csv), the households by type into the
// cross-year arrays and the estimate of the sizes into haushalt.csv
void estimateSizes(int year, int region, const RegionYear& z, const BaseTables& base);
