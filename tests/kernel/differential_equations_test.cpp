// The differential equation method: its steps against the analytic solution of a linear
// equation, the forecast end to end with constant and with interpolated rates, its agreement
// with the year step on deaths only, and an unknown method.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "kernel/differential_equations.h"
#include "tests/sandbox.h"

namespace {

// y' = -d y
Derivative decay(double d)
{
    return [d](double, const std::vector<double>& y, std::vector<double>& dy) {
        dy.resize(y.size());
        for (size_t i = 0; i < y.size(); ++i) dy[i] = -d * y[i];
    };
}

double integrate(int method, double d, int steps)
{
    std::vector<double> y{100};
    for (int k = 0; k < steps; ++k) odeStep(method, decay(d), y, k / double(steps), 1.0 / steps);
    return y[0];
}

const char* const SETTINGS = "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n";

struct Area : Sandbox {
    Area() { write("Data/veldor.ini", SETTINGS); }
};

// one region without ageing, 100 men and 200 women at age group 1, no births
void oneRegion(const Sandbox& s, int end, const std::string& strb)
{
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=" + std::to_string(end) +
                             "\nAUSGABE_PROTOKOLL=3\n[METHODE]\nNAG=2\nNGG=2\nNBG=1\nNTYA=1\nGRND=1\nGP=0.5\n");
    s.write("var/reftyp.csv", "# GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG\n"
                              "1;A;1;1;1;1;1;1;1;1;0;1;1\n");
    s.write("var/v/gem2023.csv", "2023;1;1;1;1;100\n2023;1;1;2;1;200\n");
    s.write("var/fruc2024.csv", "1;1;0..1;0\n");
    s.write("var/strb2024.csv", strb);
}

RunResult run(const Sandbox& s, const std::string& options)
{
    std::vector<std::string> args = {"orvane", "-d", "var/", "-v", "v"};
    if (!options.empty()) {
        args.push_back("-o");
        args.push_back(options);
    }
    return s.run(args);
}

double at(const Table& t, int gg, int ag)
{
    auto it = t.find({1, 1, gg, ag});
    return it == t.end() ? 0.0 : it->second;
}

} // namespace

TEST(DifferentialEquations, StepsAgainstTheAnalyticSolution)
{
    const double exact = 100 * std::exp(-0.05);
    EXPECT_NEAR(integrate(4, 0.05, 1) / exact, 1, 1e-8);
    EXPECT_DOUBLE_EQ(integrate(1, 0.05, 1), 95);
    // Euler: the error halves with the step
    double e1 = std::fabs(integrate(1, 0.5, 8) - 100 * std::exp(-0.5));
    double e2 = std::fabs(integrate(1, 0.5, 16) - 100 * std::exp(-0.5));
    double e3 = std::fabs(integrate(1, 0.5, 32) - 100 * std::exp(-0.5));
    EXPECT_NEAR(e1 / e2, 2, 0.1);
    EXPECT_NEAR(e2 / e3, 2, 0.05);
    // a state that does not change is the same under both
    EXPECT_DOUBLE_EQ(integrate(1, 0, 3), integrate(4, 0, 3));
}

TEST(DifferentialEquations, ForecastWithConstantRatesFollowsTheExponential)
{
    Area s;
    oneRegion(s, 2025, "1;1;1..2;0..1;0.05\n");
    RunResult r = run(s, "option($ODE 4)");
    ASSERT_EQ(r.status, 0) << r.out;
    Table t = gemOf(s, 2025);
    EXPECT_NEAR(at(t, 1, 1) / (100 * std::exp(-0.1)), 1, 1e-8);
    EXPECT_NEAR(at(t, 2, 1) / (200 * std::exp(-0.1)), 1, 1e-8);
    EXPECT_TRUE(s.read("var/v/prot/index.html").find("Prognose mit System partieller Differentialgleichungen") !=
                std::string::npos);

    // Euler with a step of one year is the year step on deaths only
    Area e, y;
    oneRegion(e, 2025, "1;1;1..2;0..1;0.05\n");
    oneRegion(y, 2025, "1;1;1..2;0..1;0.05\n");
    ASSERT_EQ(run(e, "option($ODE 1)").status, 0);
    ASSERT_EQ(run(y, "").status, 0);
    Table te = gemOf(e, 2025), ty = gemOf(y, 2025);
    EXPECT_NEAR(at(te, 1, 1), 90.25, 1e-9);
    EXPECT_NEAR(at(te, 1, 1), at(ty, 1, 1), 1e-9);
    EXPECT_NEAR(at(te, 2, 1), at(ty, 2, 1), 1e-9);
}

TEST(DifferentialEquations, RatesBetweenTwoTablesAreInterpolatedAndAnUnknownMethodStops)
{
    Area s;
    oneRegion(s, 2025, "1;1;1..2;0..1;0.05\n");
    s.write("var/strb2026.csv", "1;1;1..2;0..1;0.15\n");
    ASSERT_EQ(run(s, "option($ODE 1)").status, 0);
    // 2025 lies halfway: the rate is 0.1
    EXPECT_NEAR(at(gemOf(s, 2025), 1, 1), 100 * 0.95 * 0.9, 1e-9);

    Area u;
    oneRegion(u, 2025, "1;1;1..2;0..1;0.05\n");
    RunResult r = run(u, "option($ODE 3)");
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(u.read("var/v/prot/index.html").find("isoneof(method, { 1, 4 })") != std::string::npos);
    EXPECT_FALSE(u.exists("var/v/gem2024.csv"));
}
