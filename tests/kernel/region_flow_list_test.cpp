// The list form of the flows between the regions of a type, held as origins times destinations,
// against the dense table on a random type of 40 regions: the same fit, the same flows, the same
// moves out of and into each region.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kernel/year_step.h"
#include "platform/variant_settings.h"

namespace {

const size_t N = 40, NGG = 2, NAG = 3;

// a type laid out as the region stage does it: moves of each origin by cohort (a fifth of them
// 0), spread by the destinations' shares (one of them 0), stayers, arrivals, feasible limits
TypeFit randomType(std::mt19937& rng, bool sparse)
{
    std::uniform_real_distribution<double> value(1, 50), move(0.6, 1.4), unit(0, 1);
    TypeFit f;
    for (size_t z = 0; z < N; ++z) {
        f.regions.push_back(static_cast<int>(z));
        f.keys.push_back(static_cast<long long>(z + 1));
    }
    f.nbg = 1, f.ngg = NGG, f.nag = NAG, f.sparse = sparse;
    LA4 moves("DG3OI", {N, 1, NGG, NAG}, 0.0);
    moves.forEach([&](double& v) { v = unit(rng) < 0.2 ? 0 : value(rng); });
    std::vector<double> shares(N);
    double all = 0;
    for (double& s : shares) all += s = value(rng);
    for (double& s : shares) s /= all;
    shares[7] = 0;
    if (sparse) {
        f.DG5FIs.make(moves, shares);
    } else {
        f.DG5FI.make("DG5FI", {N, N, 1, NGG, NAG}, 0.0);
        for (size_t zv = 0; zv < N; ++zv)
            for (size_t zn = 0; zn < N; ++zn)
                for (size_t g = 0; g < NGG; ++g)
                    for (size_t a = 0; a < NAG; ++a) f.DG5FI[zv][zn][0][g][a] = shares[zn] * moves[zv][0][g][a];
    }
    f.STAYER.make("STAYER", {N, 1, NGG, NAG}, 0.0);
    f.STAYER.forEach([&](double& v) { v = 5 * value(rng); });
    f.DG4ZB.make("DG4ZB", {N, 1, NGG, NAG}, 0.0);
    f.DG4ZB.forEach([&](double& v) { v = value(rng); });
    // limits around the demand moved about, so that some regions must give and others take
    std::vector<double> demand(N, 0.0);
    double total = 0, targets = 0;
    for (size_t zv = 0; zv < N; ++zv)
        for (size_t c = 0; c < NGG * NAG; ++c) {
            const size_t g = c / NAG, a = c % NAG;
            for (size_t zn = 0; zn < N; ++zn) demand[zn] += shares[zn] * moves[zv][0][g][a];
            demand[zv] += f.STAYER[zv][0][g][a] + f.DG4ZB[zv][0][g][a];
        }
    for (double& d : demand) total += d, targets += d *= move(rng);
    f.BG2A.make("BG2A", {2, N}, 0.0);
    for (size_t z = 0; z < N; ++z) {
        f.BG2A[0][z] = demand[z] * total / targets * 0.98;
        f.BG2A[1][z] = z % 5 == 0 ? INFINITY : demand[z] * total / targets * 1.02;
    }
    return f;
}

double relative(double a, double b) { return std::fabs(a - b) / std::max(1.0, std::fabs(b)); }

} // namespace

TEST(RegionFlowList, FitsAndBooksLikeTheDenseTable)
{
    ini::EPS = 1e-9;
    ini::NITER = 500;
    std::mt19937 denseRng(99), listRng(99);
    TypeFit dense = randomType(denseRng, false), list = randomType(listRng, true);

    // 39 destinations with a share, the non-zero moves of every origin
    size_t moving = 0;
    list.DG5FIs.origin.forEach([&](double v) { moving += v != 0; });
    EXPECT_EQ(list.DG5FIs.size(), moving * (N - 1));
    size_t walked = 0;
    list.DG5FIs.forEach([&](const FIElem& e) {
        ++walked;
        EXPECT_EQ(e.value, dense.DG5FI[e.zv][e.zn][e.bg][e.gg()][e.ag()]);
    });
    EXPECT_EQ(walked, list.DG5FIs.size());

    const int k = abgleichInnenwanderung(dense);
    EXPECT_GT(k, 3);
    EXPECT_LT(k, ini::NITER);
    EXPECT_EQ(abgleichInnenwanderung(list), k);

    // every flow, stayer and arrival as in the dense fit, to rounding
    double worst = 0;
    list.DG5FIs.forEach([&](const FIElem& e) {
        worst = std::max(worst, relative(e.value, dense.DG5FI[e.zv][e.zn][e.bg][e.gg()][e.ag()]));
    });
    for (size_t z = 0; z < N; ++z)
        for (size_t c = 0; c < NGG * NAG; ++c) {
            worst = std::max(worst, relative(list.STAYER[z][0][c / NAG][c % NAG], dense.STAYER[z][0][c / NAG][c % NAG]));
            worst = std::max(worst, relative(list.DG4ZB[z][0][c / NAG][c % NAG], dense.DG4ZB[z][0][c / NAG][c % NAG]));
        }
    EXPECT_LT(worst, 1e-12);

    // moves to and from the other regions, against the dense table summed pair by pair
    LA4 away, from;
    list.DG5FIs.betweenRegions(away, from);
    double out = 0, in = 0;
    for (size_t z = 0; z < N; ++z)
        for (size_t g = 0; g < NGG; ++g)
            for (size_t a = 0; a < NAG; ++a) {
                double awayDense = 0, fromDense = 0;
                for (size_t w = 0; w < N; ++w) {
                    if (w == z) continue;
                    awayDense += dense.DG5FI[z][w][0][g][a];
                    fromDense += dense.DG5FI[w][z][0][g][a];
                }
                EXPECT_NEAR(away[z][0][g][a], awayDense, 1e-11 * (1 + awayDense));
                EXPECT_NEAR(from[z][0][g][a], fromDense, 1e-11 * (1 + fromDense));
                out += away[z][0][g][a];
                in += from[z][0][g][a];
            }
    // region 8 has no share: nothing arrives there
    for (size_t g = 0; g < NGG; ++g) EXPECT_EQ(from[7][0][g][0], 0);
    EXPECT_NEAR(out, in, 1e-9 * out);
}
