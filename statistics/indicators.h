// Demographic indicators of age distributions: size, age range, mean, mode, median,
// variance, the Billeter measure and the dependency quotients.
#pragma once
#include <string>
#include <vector>

struct AgeMeasures {
    long long sum = 0;
    int minAge = -1, maxAge = -1;
    double average, mode, median, variance, billeter;
    // counts below the lower limit, within the limits, above the upper limit
    long long young = 0, working = 0, old = 0;
    double youngQuotient, oldQuotient, totalQuotient;
};

// counts[a] is the count at age a
AgeMeasures ageMeasures(const std::vector<long long>& counts, int lowerLimit, int upperLimit);
