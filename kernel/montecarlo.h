// The random state of a forecast run.
#pragma once
#include <cstdint>
#include <random>

class MonteCarlo {
public:
    static constexpr uint32_t defaultSeed = 4711;
    MonteCarlo(int monteCarlo, int randomLimit) : on(monteCarlo), limit(randomLimit), gen(defaultSeed) {}
    int on;
    int limit;
    uint32_t seed = defaultSeed;
    std::mt19937 gen;
};
