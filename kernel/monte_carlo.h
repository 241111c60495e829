// The random state of a forecast run: draws of whole persons and the cancelling of
// negative persons ("zombies") at the end of a year.
#pragma once
#include <cstdint>
#include <random>

#include "tables/functions.h"

class GemTable;

class MonteCarlo {
public:
    static constexpr uint64_t defaultSeed = 5489;

    // mode: 0 deterministic (default seed), 1 a seed from the system's random source,
    // any other value the seed itself (0 keeps the default)
    MonteCarlo(int mode, int limit);

    double uniform();
    // a whole number of persons of n with probability p; above the limit the rounded
    // expected value
    double draw(double n, double p);
    double draw(double n, double a, double b);
    // cancels negative elements of the year's end population against positive ones of the
    // same cohort, first towards higher regions, then towards lower ones
    void comb(GemTable& population);

    int mode;
    int limit;
    uint64_t seed = defaultSeed;
};
