// Age measures against the independent calculation of indicator_oracle.py.
#include <gtest/gtest.h>

#include <cmath>

#include "statistics/indicators.h"

namespace {
std::vector<long long> town()
{
    std::vector<long long> c;
    c.insert(c.end(), 15, 5);
    c.insert(c.end(), 35, 8);
    c.insert(c.end(), 30, 4);
    c.insert(c.end(), 20, 1);
    return c;
}
} // namespace

TEST(AgeMeasures, AgreeWithTheOracle)
{
    struct Case {
        std::vector<long long> counts;
        double average, mode, median, variance, billeter;
    };
    std::vector<long long> single(31, 0);
    single[30] = 7;
    const double nan = std::nan("");
    const Case cases[] = {
        {single, 30.5, 30, 30.5, 0, 0},
        {{1, 4, 2, 4, 0, 1}, 2.58333333333, 1.5, 2.5, 1.74305555556, nan},
        {{3, 0, 3, 1, 3}, 2.6, 1, 2.66666666667, 2.49, nan},
        {town(), 38.9141414141, 32, 36.5625, 523.232527293, -0.232142857143},
    };
    for (const Case& c : cases) {
        AgeMeasures m = ageMeasures(c.counts, 20, 64);
        EXPECT_NEAR(m.average, c.average, 1e-9);
        EXPECT_NEAR(m.mode, c.mode, 1e-9);
        EXPECT_NEAR(m.median, c.median, 1e-9);
        EXPECT_NEAR(m.variance, c.variance, 1e-8);
        if (std::isnan(c.billeter)) EXPECT_TRUE(std::isnan(m.billeter));
        else EXPECT_NEAR(m.billeter, c.billeter, 1e-9);
    }
}

TEST(AgeMeasures, EmptyAndDependencyBlock)
{
    AgeMeasures empty = ageMeasures({0, 0, 0}, 20, 64);
    EXPECT_EQ(empty.sum, 0);
    EXPECT_EQ(empty.minAge, -1);
    EXPECT_TRUE(std::isnan(empty.average) && std::isnan(empty.mode) && std::isnan(empty.median) &&
                std::isnan(empty.variance) && std::isnan(empty.youngQuotient));

    // 15 years of 5, 35 of 8, 30 of 4, 20 of 1: below 20 are 75 + 5*8, 20..64 are 30*8 + 15*4
    AgeMeasures m = ageMeasures(town(), 20, 64);
    EXPECT_EQ(m.young, 115);
    EXPECT_EQ(m.working, 300);
    EXPECT_EQ(m.old, 15 * 4 + 20);
    EXPECT_EQ(m.minAge, 0);
    EXPECT_EQ(m.maxAge, 99);
    EXPECT_NEAR(m.totalQuotient, (115.0 + 80.0) / 300.0, 1e-12);
}
