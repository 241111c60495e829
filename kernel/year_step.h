// The arrays of one year step and the stages that RK::PAG calls in turn. The arrays live
// from the start of RK::PAG to its end; every stage receives them together.
#pragma once
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "kernel/stages.h"
#include "kernel/sparse_tables.h"
#include "tables/labelled_array.h"
#include "kernel/region_table_reading.h"

class MonteCarlo;
class Orvane;

// number of movement components in the cohort equation
inline constexpr int NMOVEMENTS = 15;
// number of columns of the yearly movement tables: the components, then the births
inline constexpr int NMOVEMENTCOLUMNS = NMOVEMENTS + 1;

struct YearStep {
    // the fifteen movement components of the year, region by cohort; an outflow is negative
    GemTable DG4S{"DG4S"}, DG4WA{"DG4WA"}, DG4OBN{"DG4OBN"}, DG4WB{"DG4WB"}, DG4OI{"DG4OI"}, DG4OBR{"DG4OBR"},
        DG4OAR{"DG4OAR"}, DG4IBR{"DG4IBR"}, DG4ZA{"DG4ZA"}, DG4IBN{"DG4IBN"}, DG4IAN{"DG4IAN"}, DG4ZB{"DG4ZB"},
        DG4II{"DG4II"}, DG4WBGv{"DG4WBGv"}, DG4WBGn{"DG4WBGn"};
    // the births of the year, region by cohort at age group 0; already in the population when the
    // other components are worked out, so outside the cohort equation
    GemTable DG3G{"DG3G"};
    // the fertility rates and the quotas of the child's group the births were worked out with
    LA3 PR2G{"PR2G"}, QR2G{"QR2G"};
    // the rates of group change the year worked with (module W)
    LA5 PR4WBG{"PR4WBG"};
    // moves out of the region's type (internal migration), apportioned from the type level
    GemTable DG4OB{"DG4OB"};
    // weights and sums per region
    LA1 GG1ATTR{"GG1ATTR"}, DG1IBN_{"DG1IBN_"}, DG1OBR_{"DG1OBR_"};
    // the regions of each internal migration type, in region order
    std::vector<std::vector<int>> regionsOfType;
    // the result of RK::IRW: non-zero when it has printed DG4WA
    int irwPrinted = 0;
    // a year of births and deaths alone, without draws, targets or conventions of the mean of the
    // year: the deaths may enter the population as they are worked out, region by region, and
    // deaths says so by leaving it true (the cohort equation then leaves DG4S out)
    bool deathsInPopulation = false;
    // with the deaths in the population: for each region, whether the deaths left any element of
    // it below 0 (or may have); the cohort equation looks for negative results there alone
    std::vector<char> belowZero;
    // the working copy of the flow rates: the stayer rates and flows as loaded (step 12 restores them)
    LA5 DR4FBrates{"DR4FB"};
    FBList DR4FBsRates;
    // new building: first occupiers per region, their cohorts by type, the shares from each
    // external area, and those from abroad by area (part of the in-migration)
    LA1 DG1IN{"DG1IN"};
    LA4 QR3ZN{"QR3ZN"}, DR3ZANQ_{"DR3ZANQ_"};
    LA2 QR1ZAN{"QR1ZAN"};
    // demolition: last movers per region (negative), their cohorts by type, the shares abroad
    LA1 DG1OR{"DG1OR"};
    LA4 QR3ZAR{"QR3ZAR"};
    LA2 QR1ZAR{"QR1ZAR"};

    // the components in the order of the cohort equation
    std::array<GemTable*, NMOVEMENTS> movements()
    {
        return {&DG4S, &DG4WA, &DG4OBN, &DG4WB, &DG4OI, &DG4OBR, &DG4OAR, &DG4IBR,
                &DG4ZA, &DG4IBN, &DG4IAN, &DG4ZB, &DG4II, &DG4WBGv, &DG4WBGn};
    }
    std::array<const GemTable*, NMOVEMENTS> movements() const
    {
        return {&DG4S, &DG4WA, &DG4OBN, &DG4WB, &DG4OI, &DG4OBR, &DG4OAR, &DG4IBR,
                &DG4ZA, &DG4IBN, &DG4IAN, &DG4ZB, &DG4II, &DG4WBGv, &DG4WBGn};
    }
    // the columns of the yearly movement tables: the components, then the births
    std::array<const GemTable*, NMOVEMENTCOLUMNS> movementColumns() const
    {
        return {&DG4S, &DG4WA, &DG4OBN, &DG4WB, &DG4OI, &DG4OBR, &DG4OAR, &DG4IBR,
                &DG4ZA, &DG4IBN, &DG4IAN, &DG4ZB, &DG4II, &DG4WBGv, &DG4WBGn, &DG3G};
    }
    // the sign with which the movement tables show a column as a positive in- or outflow
    static constexpr std::array<int, NMOVEMENTCOLUMNS> columnSign = {-1, -1, -1, -1, -1, -1, -1, +1,
                                                                     +1, +1, +1, +1, +1, -1, +1, +1};
    // frees every array
    void release();
};

// Count, sum, minimum, maximum and mean of added values; asking an empty one is a failure.
struct Statistic {
    long count = 0;
    double total = 0, lo = 0, hi = 0;
    void add(double v)
    {
        if (count == 0 || v < lo) lo = v;
        if (count == 0 || v > hi) hi = v;
        total += v;
        ++count;
    }
    void add(const Statistic& o)
    {
        if (o.count == 0) return;
        if (count == 0 || o.lo < lo) lo = o.lo;
        if (count == 0 || o.hi > hi) hi = o.hi;
        total += o.total;
        count += o.count;
    }
    bool empty() const { return count == 0; }
    double min() const;
    double max() const;
    double mean() const;
};

// ---- the stages of the year, in the order RK::PAG calls them ----

// births: the new-born enter C.BG40 at age group 0
void births(MonteCarlo& mc, Orvane& c, YearStep& y);
// deaths: fills y.DG4S
void deaths(MonteCarlo& mc, Orvane& c, YearStep& y);
// group change: fills y.DG4WBGv and y.DG4WBGn under module W
void groupChange(MonteCarlo& mc, Orvane& c, YearStep& y);
// births on the mean of the women at the start and the end of the year ($MIDYEAR_BIRTHS), movers
// exposed to death for half the year ($MIDYEAR_EXPOSURE): after all movements, before the cohort
// equation
void midyearConventions(Orvane& c, YearStep& y);
// the end population of the year against the stock target (M) and the limits (P)
void targetReport(const Orvane& c);
void limitsReport(const Orvane& c);

// shared by births and deaths (births): the rate tables by type, with the type column counted as
// the reference table counts it (column 3 TYG, 4 TYS); the targets per region of modules G and S,
// where a region the table does not name keeps +infinity; the yearly factor of a target
// adjustment into its output table (frucfak, strbfak)
ReadResult readByType(FileEntry& file, LA3& target, const char* names, int valueCheck, int column);
ReadResult readByType(FileEntry& file, LA4& target, const char* names, int valueCheck, int column);
ReadResult readRegionTargets(FileEntry& file, LA1& target, const char* names);
void writeTargetFactor(int entry, double factor);

// new building in the year step: the moves out of the types into new building (DG4OBN), after
// the balance of rates; the first occupiers of each region (DG4IAN, DG4IBN, DG1IBN_)
void newBuildingOrigins(MonteCarlo& mc, Orvane& c, YearStep& y);
void newBuildingRegions(Orvane& c, YearStep& y);
// demolition in the year step: the arrivals of those who stay, by type (C.DR3IBR); the last
// movers of each region (DG4OAR, DG4OBR, DG1OBR_); the arrivals placed on the regions of one
// internal type by their free capacity FWKG (sum F); the weights of the regions on DG4IBR
void demolitionArrivals(Orvane& c, YearStep& y);
void demolitionRegions(Orvane& c, YearStep& y);
void placeDisplaced(Orvane& c, YearStep& y, int type, const std::vector<int>& regions, const std::vector<double>& FWKG,
                    double F);
void weighDisplaced(Orvane& c, YearStep& y);
// shared by new building and demolition: the cohort quotas of each type scaled to sum 1 (the
// number of types scaled), and a table weighted by regions brought back to its type totals
int scaleCohortQuotas(LA4& q, double tol, const char* aggregateName, const char* typesName);
void rescaleToTypes(Orvane& c, GemTable& t, const LA4& types, double T, const char* before, const char* after);
// external migration in the year step: the out-migration of the types spread to the regions
void outMigrationBase(MonteCarlo& mc, Orvane& c, YearStep& y);
// the external tables of the year at type level (AUSGABE_AUSSEN_MATRIX 1: in-migration and
// new building) and by region (2: all four, split over the external areas)
void externalTypeOutputs(Orvane& c);
void externalRegionOutputs(const Orvane& c, const YearStep& y);

// internal migration: supply and demand of the types (BR0A, BR0N, MR0Z) on the working numbers of
// the year step, or, final, on the numbers of RK::ASM with new building and demolition in full
void typeSupplyAndDemand(Orvane& c, YearStep& y, bool final);
// every origin type's flow rates sum to at most 1 (its stayer rate is not negative)
void checkFlowRates(const Orvane& c);
// RK::ASM and, under P, RK::ABG; the flows between types as output strom
void balanceInternalMigration(Orvane& c, YearStep& y);
// the region level: moves out of each type (DG4OB), then for each type its moves inside (DG3OI,
// DG5FI), the arrivals (DG4ZB, DG4ZA, DG4IBR), the fit to the regions' limits and the booking
// into DG4WB, DG4OI, DG4II
void internalMigrationRegions(MonteCarlo& mc, Orvane& c, YearStep& y);
// without internal migration those displaced by demolition still arrive by free capacity
void placeDisplacedWithoutFlows(Orvane& c, YearStep& y);

// The tables of one internal type handed to the fit: regions zt = 0 .. NGZt-1 of the type.
struct TypeFit {
    int type = 0, year = 0;
    std::vector<int> regions;           // region indices
    std::vector<long long> keys;        // their keys
    std::vector<size_t> group;          // in-migration type of each region, index into the DG4ZA totals
    size_t groups = 1;                  // number of in-migration types
    size_t nbg = 0, ngg = 0, nag = 0;
    bool sparse = false;                // DG5FIs instead of DG5FI
    LA5 DG5FI{"DG5FI"};                 // zv, zn, BG, GG, AG
    FIList DG5FIs;                      // the same as the product of origins and destinations
    LA4 STAYER{"STAYER"}, DG4ZB{"DG4ZB"}, DG4IBR{"DG4IBR"}, DG4ZA{"DG4ZA"};  // zt, BG, GG, AG; IBR, ZA may be absent
    LA2 BG2A{"BG2A"};                   // lower and upper limit of each region
};
// fits the flows of one type in place; the number of iterations used
int abgleichInnenwanderung(TypeFit& f);

// ---- the outputs of a year (results) ----

// number of rows of the aggregate outputs by DIFF_G, and the row of a region
int aggregateRows();
// the run's account for its results overview: the stock before the first year, then each year
void accountStart(Orvane& c);
void accountYear(Orvane& c, const YearStep& y, int label);
int aggregateRowOf(const Orvane& c, int gz);
// the key of region gz as the result tables show it
int64_t regionKeyOf(const Orvane& c, int gz);
// the year's population table (entry 38) from a region table, under the period label
void writePopulation(const Orvane& c, const GemTable& t, int label);
// the population by aggregate (entry 47) and the pyramid (entry 48)
void writeAggregates(const Orvane& c, const GemTable& t, int label);
void writePyramid(const Orvane& c, const GemTable& t, int label);
// all outputs of a year: population, age group sums and movement sums side by side
void writeYearOutputs(const Orvane& c, const YearStep& y, int label);
// the long tables of all years (population_long.csv, movements_long.csv), asked for by
// LangeTabellen in section CSV of veldor.ini: opened for the year's lines on the main thread
// (null when not asked for, or without movements), put into place when destroyed
struct LongTableFiles {
    FILE* population = nullptr;
    FILE* movements = nullptr;
    explicit LongTableFiles(const YearStep& y);
    ~LongTableFiles();
    LongTableFiles(const LongTableFiles&) = delete;
    LongTableFiles& operator=(const LongTableFiles&) = delete;
};
// the long tables an earlier run left; the names removed
std::vector<std::string> removeLongTables();
// the name of movement k (in the order of the cohort equation) in movements_long.csv
std::string longMovementName(const GemTable& t, size_t k);
// the text of a number as the other tables wrote it, in the long tables' form (blanks cut off,
// the decimal point of the locale turned into ".", "undef" into "NA"), written at out, which has
// room for length bytes; returns the end of what it wrote
char* putPlainNumber(char* out, const char* text, size_t length);
