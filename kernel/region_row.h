// One region of the reference table, as the kernel reads it.
#pragma once
#include <cstdint>
#include <string>

struct RegionRow {
    int64_t key = 0;        // GKZ as in the files
    std::string name;
    // type numbers, normalised to start at 0
    int tyg = 0, tys = 0, tyb = 0, tyzza = 0, tyqwa = 0, tynee = 0, tyrea = 0, tywbg = 0, tyagf = 0, tyhh = 0;
    int agg = 0;            // position of the aggregate in the sorted list of aggregate numbers
};
