#include "kernel/monte_carlo.h"

#include <cmath>
#include <vector>

#include "platform/dictionary.h"
#include "platform/protocol.h"
#include "kernel/sparse_tables.h"

MonteCarlo::MonteCarlo(int mode_, int limit_) : mode(mode_), limit(limit_)
{
    if (mode == 1) seed = std::random_device()();
    else if (mode != 0) seed = static_cast<uint64_t>(mode);
    if (seed == 0) seed = defaultSeed;
    // the generator is not seeded anew between years
    runGenerator().seed(seed);
}

double MonteCarlo::uniform() { return runUniform(); }

double MonteCarlo::draw(double n, double p)
{
    if (p == 0) return 0;
    if (n > limit) return std::round(n * p);
    long m = long(std::fabs(n) + 0.5);
    long count = 0;
    double ap = std::fabs(p);
    for (long i = 0; i < m; ++i)
        if (ap > uniform()) ++count;
    int sp = p > 0 ? 1 : -1;
    int sn = n > 0 ? 1 : (n < 0 ? -1 : 0);
    return double(sp * sn * count);
}

double MonteCarlo::draw(double n, double a, double b)
{
    if (a == 0) return 0;
    return draw(n, a / b);
}

void MonteCarlo::comb(GemTable& bg41)
{
    const auto& ext = bg41.extents();
    size_t nbg = ext[1], ngg = ext[2], nag = ext[3];
    std::vector<double> nw(nbg * ngg * nag, 0.0);
    auto pass = [&](size_t z) {
        // the elements of the region are collected first: changing a sparse table while
        // walking it is not allowed
        struct Cell { size_t b, g, a; double x; };
        std::vector<Cell> cells;
        bg41.forRegion(z, [&](size_t, size_t b, size_t g, size_t a, double x) { cells.push_back({b, g, a, x}); });
        for (auto& c : cells) {
            double& w = nw[(c.b * ngg + c.g) * nag + c.a];
            double x = c.x;
            if (x < 0) {
                w += x;
                x = 0;
            } else if (x > 0 && w < 0) {
                double take = -w;
                if (!(x > take)) take = x;
                x -= take;
                w += take;
            }
            if (x != c.x) bg41.set(z, c.b, c.g, c.a, x);
        }
    };
    auto report = [&](const char* key) {
        double total = 0;
        for (double w : nw) total += w;
        Prot::writeln(2, "%s: %.15g restliche Zombies", DD::lookup(key).c_str(), total);
        return total;
    };
    for (size_t z = 0; z < ext[0]; ++z) pass(z);
    if (report("comb_forward") < 0) {
        for (size_t z = ext[0]; z-- > 0;) pass(z);
        report("comb_reverse");
    }
}
