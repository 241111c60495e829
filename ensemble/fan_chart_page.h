// The ensemble page of the protocol: fan charts of the population, the births and the net
// migration of the study area and of every aggregate (the 50 % and 90 % bands around the
// median, the deterministic forecast as a line), and the population pyramid of the end year
// with its 90 % band.
#pragma once
#include <cstdint>
#include <string>

#include "ensemble/member_summary.h"

struct FanChartPage {
    std::string ensembleDirectory;   // with ensemble_quantiles.csv, ensemble_components_quantiles.csv
    std::string protocolDirectory;   // prot/ of the variant: the page and its pictures
    Dimensions dims;
    int members = 0, failed = 0;
    uint64_t seed = 0;
    bool withDeterministic = false;  // deterministic_population.csv and _components.csv are there
    bool withComponents = true;      // false: the members had no components of change (under $ODE)
};

// writes prot/ensemble.html and its pictures; the page's path, or empty with the reason
std::string writeFanChartPage(const FanChartPage& page, std::string& error);
