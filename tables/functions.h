// The built-in functions of the expression language, the settings they give the table reader,
// the arrays of side tables, and the link to the forecast state.
#pragma once
#include <cstdio>
#include <functional>
#include <map>
#include <random>

// arrays made by read: an ordered map per level from an integer key to the next level
using Arr1 = std::map<long, double>;
using Arr2 = std::map<long, Arr1>;
using Arr3 = std::map<long, Arr2>;
using Arr4 = std::map<long, Arr3>;
using Arr5 = std::map<long, Arr4>;

// settings of the language that act on the table reader
extern int traceLevel;              // 0 none, 1 echo lines, 2 also the evaluated blocks
extern int checkUndef;              // report unassigned and doubly assigned cells
extern int checkTrailingDelimiter;  // report cells beyond the value
extern int expandRequested;         // 0 stops the expanded copy
extern int expandNeeded;            // a line used an expression
extern long long keyScale;          // scale of region keys, 1 = plain keys

// What the forecast publishes to the built-ins that reach into it (gem, checksum). The kernel
// calls setForecastLink when its state exists and setForecastLink(nullptr) when it ends.
struct ForecastLink {
    // NGZ
    std::function<int()> regionCount;
    // population of the region at a 0-based position, summed over all groups
    std::function<double(int position)> regionTotal;
    // 0-based position of a region key: in the reference table while keyScale < 2, else in the
    // sorted list of coarse keys; -1 when unknown
    std::function<int(long long key)> regionPosition;
    // SUMTOL of the run
    std::function<double()> sumTol;
    // told when cut changes keyScale, for a copy of the scale in the forecast state
    std::function<void(long long keyScale)> keyScaleChanged;
};
void setForecastLink(const ForecastLink* link);
const ForecastLink* forecastLink();

// the run's random generator, a 64-bit Mersenne twister (default seed 5489), which the Monte
// Carlo stage seeds; a test may hand in its own
std::mt19937_64& runGenerator();
void setRunGenerator(std::mt19937_64* generator);   // nullptr: back to the run's own one
// a number in [0, 1) from the run's generator
double runUniform();

// print writes here when set, else into the protocol
extern FILE* printStream;

// fills the table of functions (called once by the name tables)
void registerBuiltins();
// frees the arrays made by read (end of a table)
void freeArrays();
// a new array of the given rank 1 .. 5, owned until freeArrays
void* newArray(int rank);
