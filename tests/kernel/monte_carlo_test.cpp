// Draws of whole persons and the cancelling of negative persons.
#include <gtest/gtest.h>

#include "kernel/monte_carlo.h"
#include "kernel/sparse_tables.h"

namespace {

TEST(MonteCarlo, GeneratorIsTheStandard64BitTwister)
{
    MonteCarlo mc(0, 100);
    EXPECT_EQ(mc.seed, 5489u);
    // the published check value: the 10000th output of the default seed
    runGenerator().discard(9999);
    EXPECT_EQ(runGenerator()(), 9981545732273789042ULL);
    MonteCarlo other(7, 100);
    EXPECT_EQ(other.seed, 7u);
    MonteCarlo zero(0, 100);
    double u = zero.uniform();
    EXPECT_GE(u, 0.0);
    EXPECT_LT(u, 1.0);
}

TEST(MonteCarlo, DrawsAtAndAroundTheLimit)
{
    MonteCarlo mc(42, 100);
    std::mt19937_64 before = runGenerator();
    EXPECT_EQ(mc.draw(0, 0.5), 0);
    EXPECT_EQ(mc.draw(50, 0), 0);
    EXPECT_EQ(mc.draw(50, 0, 3), 0);
    EXPECT_TRUE(before == runGenerator()) << "no draw may use the generator";
    // above the limit the expected value, rounded half away from zero
    EXPECT_EQ(mc.draw(101, 0.5), 51);
    EXPECT_EQ(mc.draw(101, -0.5), -51);
    EXPECT_TRUE(before == runGenerator());
    // at the limit: a count between 0 and n
    double d = mc.draw(100, 0.3);
    EXPECT_EQ(d, std::floor(d));
    EXPECT_GE(d, 0);
    EXPECT_LE(d, 100);
    EXPECT_FALSE(before == runGenerator());
    // a certain event is drawn for every person; a negative n turns the sign
    EXPECT_EQ(mc.draw(10, 1.0), 10);
    EXPECT_EQ(mc.draw(-10, 1.0), -10);
    EXPECT_EQ(mc.draw(10, -1.0), -10);
    EXPECT_EQ(mc.draw(9.6, 2.0, 2.0), 10);
}

TEST(MonteCarlo, FixedSeedGivesTheSameDraws)
{
    auto series = [] {
        MonteCarlo mc(12345, 1000);
        std::vector<double> v;
        for (int i = 0; i < 20; ++i) v.push_back(mc.draw(37, 0.27));
        return v;
    };
    std::vector<double> a = series(), b = series();
    EXPECT_EQ(a, b);
    double total = 0;
    for (double x : a) total += x;
    // 20 draws of 37 persons at 0.27: about 200 expected
    EXPECT_GT(total, 150);
    EXPECT_LT(total, 250);
}

GemTable population(bool sparse, const std::vector<double>& values)
{
    GemTable t;
    t.make("BG41", values.size(), 1, 1, 2, sparse);
    for (size_t z = 0; z < values.size(); ++z) t.set(z, 0, 0, 1, values[z]);
    t.set(0, 0, 0, 0, 5);   // another cohort, untouched
    return t;
}

TEST(MonteCarlo, ZombiesCancelForwardThenBackward)
{
    for (bool sparse : {false, true}) {
        MonteCarlo mc(0, 100);
        GemTable t = population(sparse, {-2, 1, 3});
        mc.comb(t);
        EXPECT_EQ(t.get(0, 0, 0, 1), 0);
        EXPECT_EQ(t.get(1, 0, 0, 1), 0);
        EXPECT_EQ(t.get(2, 0, 0, 1), 2);
        EXPECT_EQ(t.get(0, 0, 0, 0), 5);

        // nothing above the negative ones: the reverse pass takes from the first region
        GemTable u = population(sparse, {4, -1, -2});
        mc.comb(u);
        EXPECT_EQ(u.get(0, 0, 0, 1), 1);
        EXPECT_EQ(u.get(1, 0, 0, 1), 0);
        EXPECT_EQ(u.get(2, 0, 0, 1), 0);
        EXPECT_EQ(u.sum(), 6);
    }
}

} // namespace
