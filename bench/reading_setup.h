// What the reading benchmarks share: the seconds since a moment, and a run of many regions set
// up for the input file reader (its directory, variant, separator and year).
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"

inline double seconds(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// dir (ending in /) with its variant directory v/, the reader's settings for year, and run's
// regions keyed firstKey, firstKey + step, ...
inline void readingRun(Orvane& run, const std::string& dir, int year, int regions, long long firstKey, long long step)
{
    std::filesystem::create_directories(dir + "v");
    si::Directory = dir;
    si::Version = "v";
    si::separator = ';';
    ini::STARTJAHR = year;
    JAHR = year;
    Prot::setThrow(true);
    for (int z = 0; z < regions; ++z) {
        RegionRow r;
        r.key = firstKey + step * z;
        run.regions.push_back(r);
    }
    run.indexRegions();
    run.NGZ = regions;
}
