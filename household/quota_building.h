// The quota phase of the household tool: person and household records of the stock file
// are classified by their dominant family relation (PDO) and household type (HDO), counted
// per region type and divided into the quotas that the forecast phase applies. The quotas
// go to Quoten/q.csv (and are read back from it), the base tables of the household sizes
// to hdo.csv, main and secondary residents to hnws.csv, the assumption template to zqa.csv.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "statistics/age_classes.h"

// a dense array of any rank, zero initialised, indexed with 0-based indices
template <class T>
class Grid {
public:
    std::vector<int> dims;
    std::vector<T> v;
    void size(std::vector<int> d)
    {
        dims = std::move(d);
        size_t n = 1;
        for (int x : dims) n *= static_cast<size_t>(x);
        v.assign(n, T());
    }
    template <class... I>
    T& operator()(I... i)
    {
        return v[flat({static_cast<int>(i)...})];
    }
    template <class... I>
    const T& operator()(I... i) const
    {
        return v[flat({static_cast<int>(i)...})];
    }
    size_t flat(std::initializer_list<int> idx) const
    {
        size_t k = 0, j = 0;
        for (int i : idx) k = k * static_cast<size_t>(dims[j++]) + static_cast<size_t>(i);
        return k;
    }
    int rank() const { return static_cast<int>(dims.size()); }
    void clear() { std::fill(v.begin(), v.end(), T()); }
};

using Sum = Grid<uint32_t>;
using Quota = Grid<double>;

// the sum arrays of the stock (t type, r region, g sex 0 male 1 female, classes as named)
struct StockSums {
    Sum SP, SPK, SPKV, SPKH2, SPKZi_Ew, SPKZi_Ewj, SPEZw, SPEA, SPEAB, SPEAZw, SPEPZm, SH2, SH2i, SPEH2, SPES, SGw,
        SPPwg, SPPw, SPPH3, SPPm, SPP2w, SPP2H2, SPPgg, SPA, SPNg, SPN, SPN2, SPN3, SPN4, SPN2H2, SPN3H3, SPN4H4, SPVg,
        SPV, SPV2, SPV3, SPV4, SPV2H2, SPV3H3, SPV4H4, SH4, SPV4S, SP1, SPOB, SPM, SPM2, SPM3, SPM4, SPM5, SPM2H2,
        SPM3H3, SPM4H4, SPM5H5, SH5, SP50, SH50;
    // derived after the last record
    Sum SPKZ_Ew, SPEPZw, SFK, SH2is, SPP3H3;
    // main and secondary residents by region, group, sex, age 0..99
    Sum hws, nws;
};

// the quotas per type (and the two region arrays SPKV and SH2i of the stock above)
struct Quotas {
    Quota Q10, Q11, QK, Q1, Q2, Q12, Q13, Q14, Q15, Q16, Q17, Q18, Q19, Q20, Q21, Q3w, Q22m, Q25, Q26, Q4, Q32, QN2,
        QN3, QN4, Q5, Q34, QV2, QV3, QV4, Q35, Q6, QM2, QM3, QM4, QM5, Q8, Q50;
};

extern StockSums S;
extern Quotas QQ;
extern std::vector<bool> typeSeen, regionSeen;
extern int stockYear;

// sizes all sum and quota arrays for the types and regions of G2T, zero filled
void allocateHouseholdArrays();

// Division that never aborts: b != 0 gives a/b; 0/0 gives the replacement and x/0 gives x,
// both reported by the rules of the phase. The text names the quotient in the protocol.
double safeDivision(double a, double b, double replacement, const char* text);
// clears the counters and sets the mode: false in the quota phase, true in the forecast phase
void safeDivisionMode(bool forecast);
// the warning of replaced values of a block, then the counters are cleared
void safeDivisionSummary(const char* label);

struct Axis;
// the quota arrays (and SPKV, SH2i) in the order of the sections of q.csv
void forEachQuota(const std::function<void(const char*, Quota*, Sum*, std::vector<Axis>)>& f);

// The quota phase over the stock file of the input directory.
void quotaPhase();

// The head of Quoten/q.csv: the map, G2T, Z02 and the age limits replace the settings.
// Throws when the file cannot be opened.
void readQuotaHead();
// The sections of Quoten/q.csv: into the arrays, or with check compared with them.
void readQuotaFile(bool check);
