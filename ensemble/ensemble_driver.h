// Forecast ensembles: the variant's forecast run many times under Monte Carlo, each member a
// separate process of this executable in a directory of its own, gathered into the quantiles
// of the population and of the components of change, and a page of fan charts.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct EnsembleRequest {
    int members = 0;                       // $ENSEMBLE
    int jobs = 0;                          // members at once; 0: the cores
    std::string directory, version;        // the variant
    std::string language = "de";
    std::vector<std::string> optionTexts;  // the -o texts of the variant's own run
    double variantSeed = 0;                // $MONTE_CARLO of the variant's own run
    bool variantRunOk = true;              // the variant's own forecast (on rank 0) ended well
};

// the seed of the variant: $MONTE_CARLO when it is a seed, a draw of the system's random source
// for 1, the generator's default seed for 0
uint64_t variantSeedOf(double monteCarlo);
// the seed of member i (from 1) of an ensemble: a mix of the variant's seed and i alone,
// between 1 and 2^53 - 1 (so that it passes through a named option unchanged)
uint64_t memberSeed(uint64_t variantSeed, int member);

// Runs the ensemble after the variant's own forecast and writes <directory><version>/ensemble/.
// 0, or 1 when a member failed (the others' results are kept) or nothing could be gathered.
// Under mpirun or srun every rank calls it: rank 0 after the variant's own forecast, the others
// at once; the members are dealt out to the ranks, and rank 0 gathers their summaries and writes
// the quantiles and the page.
int runEnsemble(const EnsembleRequest& request);
