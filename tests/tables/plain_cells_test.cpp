// The plain cells read without the general reader: they take exactly the cells they are meant
// for and read them to the value the full reader gives (strtoll for indices, strtod for values,
// bit for bit over a sweep of random decimal numbers); every other cell is left to the full
// reader, whose messages a table of unusual cells still gets.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "tables/plain_cells.h"

TEST(PlainCells, IndexCellsTakenAndLeft)
{
    struct Case {
        const char* cell;
        bool taken;
        long long lo, hi;
    };
    const Case cases[] = {
        {"12", true, 12, 12},          {"0", true, 0, 0},          {"007", true, 7, 7},
        {"3..17", true, 3, 17},        {"5..1", true, 5, 1},       {"123456789012345678", true, 123456789012345678, 123456789012345678},
        {"1234567890123456789", false}, {"", false},               {"*", false},
        {"20777777777777777777777", false}, {"1..20777777777777777777777", false},
        {" 12", false},                {"12 ", false},             {"-1", false},
        {"3..", false},                {"..3", false},             {"3...4", false},
        {"3..4*10", false},            {"$NAG", false},            {"irand(1,5)", false},
        {"1e3", false},                {"12a", false},             {"3..4-1", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.cell);
        long long lo = -7, hi = -7;
        ASSERT_EQ(plainIndexCell(c.cell, lo, hi), c.taken);
        if (!c.taken) continue;
        EXPECT_EQ(lo, c.lo);
        EXPECT_EQ(hi, c.hi);
        EXPECT_EQ(lo, std::strtoll(c.cell, nullptr, 10));
    }
}

TEST(PlainCellsNumbers, TakenAsTheFullReaderReadsThemLeftOtherwise)
{
    const char* taken[] = {"0", "250", "0.001624", "1.5", "007.50", "123456789012345678901234567890.5",
                           "0.1000000000000000055511151231257827", "2.2250738585072014"};
    for (const char* cell : taken) {
        SCOPED_TRACE(cell);
        double v = -1;
        ASSERT_TRUE(plainNumberCell(cell, v));
        double w = std::strtod(cell, nullptr);
        EXPECT_EQ(std::memcmp(&v, &w, sizeof v), 0);
    }
    const char* left[] = {"", "-5", "+5", ".5", "5.", " 5", "5 ", "1e3", "0x10", "inf", "nan", "1,5",
                          "1.2.3", "ix(3)", "$NAG", "5;"};
    for (const char* cell : left) {
        SCOPED_TRACE(cell);
        double v = -1;
        EXPECT_FALSE(plainNumberCell(cell, v));
    }
    // a sweep of random decimal numbers: bit for bit what strtod reads
    std::mt19937_64 random(28);
    for (int i = 0; i < 200000; ++i) {
        std::string s = std::to_string(random() % 1000000000000ULL);
        // short numbers (up to 15 digits, the exact division) as often as long ones
        if (i % 2) s = std::to_string(random() % 100000);
        if (random() % 4) s += "." + std::to_string(random() % (i % 2 ? 10000000000ULL : 100000000000000000ULL));
        double v = 0;
        ASSERT_TRUE(plainNumberCell(s.c_str(), v)) << s;
        double w = std::strtod(s.c_str(), nullptr);
        ASSERT_EQ(std::memcmp(&v, &w, sizeof v), 0) << s;
    }
}
