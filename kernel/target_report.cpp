// The end population of the year against the targets: the stock target of module M, in total
// or by cohort, and, with limits of the internal types, each region and type against its
// lower and upper limit.
#include <cmath>
#include <cstdio>
#include <vector>

#include "platform/protocol.h"
#include "kernel/kernel_helpers.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

namespace {

size_t Z(int i) { return i > 0 ? static_cast<size_t>(i) : 0; }

void stockTargets(const Orvane& c)
{
    if (!c.BR21.exists() || !c.BG40.exists()) return;
    if (_(M_1)) {
        double T = 0;
        for (int z = 0; z < c.NGZ; ++z) T += c.BG40.regionSum(Z(z));
        const double target = c.BR21.sum();
        if (Compare(T, target, c.SUMTOL) == 0)
            Prot::writeln(3, "Zielwert %.15g M1: BR21 (eckreg) erreicht", target);
        else
            Prot::message(SEV_WARNING, "@rk1pag_zielM1;", T, target, target - T);
        return;
    }
    if (!_(M_2)) return;
    const size_t nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG);
    LA3 sum("BG41_", {nbg, ngg, nag}, 0.0);
    c.BG40.forEach([&](size_t, size_t b, size_t g, size_t a, double v) { sum[b][g][a] += v; });
    laPrint(4, sum, "NBG\0NGG\0NAG\0", "Aggregat BG41 zum Vergleich mit Zielwert BR21");
    bool all = true;
    for (size_t b = 0; b < nbg; ++b)
        for (size_t g = 0; g < ngg; ++g)
            for (size_t a = 0; a < nag; ++a) {
                const double T = sum[b][g][a], target = c.BR21[b][g][a];
                if (Compare(T, target, c.SUMTOL) == 0) continue;
                all = false;
                Prot::message(SEV_WARNING, "@rk1pag_zielM2;", int(b) + 1, int(g) + 1, int(a), T, target, target - T);
            }
    if (all) Prot::writeln(3, "Zielwerte M2: BR21 (eckreg) erreicht");
}

// one region or type against its limits; the absolute gap
double againstLimits(const Orvane& c, const char* line, const char* below, const char* above, long long id,
                     double lower, double value, double upper)
{
    Prot::write(3, line, id, lower, value, upper);
    double gap = 0;
    if (value < lower) {
        gap = lower - value;
        double pct = safe(gap, lower, 0) * 100;
        Prot::write(3, "%g (%g%%) unter Untergrenze", gap, pct);
        if (safe(gap, lower, 0) > 2 * c.EPS) Prot::message(SEV_WARNING, below, id, value, pct, lower);
    } else if (!std::isinf(upper) && value > upper) {
        gap = value - upper;
        double pct = safe(gap, upper, 0) * 100;
        Prot::write(3, "%g (%g%%) über Obergrenze", gap, pct);
        if (safe(gap, upper, 0) > 2 * c.EPS) Prot::message(SEV_WARNING, above, id, value, pct, upper);
    }
    Prot::write(3, "<br>\n");
    return gap;
}

bool limited(double lower, double upper) { return lower != 0 || !std::isinf(upper); }

} // namespace

// the regions and types of the last year against their limits, once at the end of the run
void limitsReport(const Orvane& c)
{
    if (_(P_0) || !c.BG40.exists()) return;
    Prot::writeln(3, "Prüfe Abweichung vom Zielwert &lt; %g%% (2*100*%g(EPS)):", c.EPS * 200, c.EPS);
    double ABSDEV = 0;
    std::vector<double> ofType(Z(c.NTYB), 0.0);
    for (int z = 0; z < c.NGZ; ++z) {
        const double value = c.BG40.regionSum(Z(z));
        const int t = c.region(z).tyb;
        if (t >= 0 && Z(t) < ofType.size()) ofType[Z(t)] += value;
        if (!c.BG21E.exists()) continue;
        const double lower = c.BG21E[0][Z(z)], upper = c.BG21E[1][Z(z)];
        if (!limited(lower, upper)) continue;
        const long long key = c.keyScale != 1 && Z(z) < c.indexKeys.size() ? c.indexKeys[Z(z)] : c.region(z).key;
        ABSDEV += againstLimits(c, "%lld: %g &le; %g &le; %g ? ", "Gebiet %lld %g liegt %g%% unter Untergrenze %g",
                                "Gebiet %lld %g liegt %g%% über Obergrenze %g", key, lower, value, upper);
    }
    if (c.BR21E.exists())
        for (size_t t = 0; t < ofType.size(); ++t) {
            const double lower = c.BR21E[0][t], upper = c.BR21E[1][t];
            if (!limited(lower, upper)) continue;
            ABSDEV += againstLimits(c, "%lld: %g &le; %g &le; %g ? ", "Binnentyp %lld %g liegt %g%% unter Untergrenze %g",
                                    "Binnentyp %lld %g liegt %g%% über Obergrenze %g", static_cast<long long>(t) + 1,
                                    lower, ofType[t], upper);
        }
    Prot::writeln(3, "Gesamte absolute Abweichung von den Zielwerten %g", ABSDEV);
}

void targetReport(const Orvane& c) { stockTargets(c); }
