// The arrays of one year step and the stages that RK::PAG calls in turn. The arrays live
// from the start of RK::PAG to its end; every stage receives them together.
#pragma once
#include <array>
#include <vector>

#include "kernel/stages.h"
#include "kernel/sparse_tables.h"
#include "tables/labelled_array.h"
#include "kernel/region_table_reading.h"

class MonteCarlo;
class Orvane;

// number of movement components in the cohort equation
inline constexpr int NMOVEMENTS = 15;

struct YearStep {
    // the fifteen movement components of the year, region by cohort; an outflow is negative
    GemTable DG4S{"DG4S"}, DG4WA{"DG4WA"}, DG4OBN{"DG4OBN"}, DG4WB{"DG4WB"}, DG4OI{"DG4OI"}, DG4OBR{"DG4OBR"},
        DG4OAR{"DG4OAR"}, DG4IBR{"DG4IBR"}, DG4ZA{"DG4ZA"}, DG4IBN{"DG4IBN"}, DG4IAN{"DG4IAN"}, DG4ZB{"DG4ZB"},
        DG4II{"DG4II"}, DG4WBGv{"DG4WBGv"}, DG4WBGn{"DG4WBGn"};
    // moves out of the region's type (internal migration), apportioned from the type level
    GemTable DG4OB{"DG4OB"};
    // weights and sums per region
    LA1 GG1ATTR{"GG1ATTR"}, DG1IBN_{"DG1IBN_"}, DG1OBR_{"DG1OBR_"};
    // the regions of each internal migration type, in region order
    std::vector<std::vector<int>> regionsOfType;
    // the result of RK::IRW: non-zero when it has printed DG4WA
    int irwPrinted = 0;
    // the working copy of the flow rates: the stayer rates and flows as loaded (step 12 restores them)
    LA5 DR4FBrates{"DR4FB"};
    FBList DR4FBsRates;

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
    // the sign with which the year's summary shows a component as a positive in- or outflow
    static constexpr std::array<int, NMOVEMENTS> displaySign = {-1, -1, -1, -1, -1, -1, -1, +1,
                                                                +1, +1, +1, +1, +1, -1, +1};
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

// shared by births and deaths (births): the rate tables by type, with the type column counted as
// the reference table counts it (column 3 TYG, 4 TYS); the targets per region of modules G and S,
// where a region the table does not name keeps +infinity; the yearly factor of a target
// adjustment into its output table (frucfak, strbfak)
ReadResult readByType(FileEntry& file, LA3& target, const char* names, int valueCheck, int column);
ReadResult readByType(FileEntry& file, LA4& target, const char* names, int valueCheck, int column);
ReadResult readRegionTargets(FileEntry& file, LA1& target, const char* names);
void writeTargetFactor(int entry, double factor);

// ---- the outputs of a year (results) ----

// number of rows of the aggregate outputs by DIFF_G, and the row of a region
int aggregateRows();
int aggregateRowOf(const Orvane& c, int gz);
// the year's population table (entry 38) from a region table, under the period label
void writePopulation(const Orvane& c, const GemTable& t, int label);
// the population by aggregate (entry 47) and the pyramid (entry 48)
void writeAggregates(const Orvane& c, const GemTable& t, int label);
void writePyramid(const Orvane& c, const GemTable& t, int label);
// all outputs of a year: population, age group sums and movement sums side by side
void writeYearOutputs(const Orvane& c, const YearStep& y, int label);
