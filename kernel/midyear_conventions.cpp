// The conventions of the mean of the year, as national and cantonal statistical offices count:
// births on the mean of the women at the start and at the end of the year ($MIDYEAR_BIRTHS), and
// movers exposed to death for half the year ($MIDYEAR_EXPOSURE). Both act after every movement of
// the year is known and before the cohort equation; both are off unless their option is set.
//
// Births on the mean: the women's end of the year is what the cohort equation gives them, start
// plus all their movements. Their movements do not depend on the births, so the births of
// (start + end) / 2 are the fixed point of the year in one step: the births worked out on the
// start get the difference of half the women's movements times the rates, split by sex and child
// group as the births were, and the movements of age group 0 follow the corrected births at the
// rates of the year (outflows in proportion, group change by its rates, arrivals inside the study
// area in proportion to the outflows, arrivals from outside as they are).
//
// Exposure: deaths = r(a) * (aged population - h * leavers) + r(a+1) * h * arrivals, with h one
// half, two thirds in age group 0, where leavers are the outflows of the region's cohort and
// arrivals its inflows, and r(a+1) the rate of the age group they reach next.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/kernel_helpers.h"
#include "kernel/run_object.h"
#include "kernel/run_values.h"
#include "kernel/year_step.h"

namespace {

size_t Z(int i) { return static_cast<size_t>(i); }

// the share of the year movers are exposed to death: a half, two thirds for the new-born
double exposedShare(size_t a) { return a == 0 ? 2.0 / 3.0 : 0.5; }

// the components of the cohort equation by their place in it
enum Component { S, WA, OBN, WB, OI, OBR, OAR, IBR, ZA, IBN, IAN, ZB, II, WBGv, WBGn };
constexpr Component INTERNAL_OUT[] = {OBN, WB, OI, OBR};
constexpr Component INTERNAL_IN[] = {IBR, IBN, ZB, II};
constexpr Component OUTFLOWS[] = {WA, OBN, WB, OI, OBR, OAR, WBGv};
constexpr Component INFLOWS[] = {IBR, ZA, IBN, IAN, ZB, II, WBGn};

double cell(const GemTable& t, size_t z, size_t b, size_t g, size_t a) { return t.exists() ? t.get(z, b, g, a) : 0.0; }

// the change of the deaths (negative: more deaths) when leavers are exposed for part of the
// year at the rate of their age and arrivals at the rate of the age they reach next
GemTable exposureChange(const Orvane& c, YearStep& y)
{
    GemTable change("DG4S_EXPO");
    const size_t ngz = Z(c.NGZ), nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG);
    change.make("DG4S_EXPO", ngz, nbg, ngg, nag, false);
    if (!c.PR3S.exists() || nag == 0) return change;
    auto m = y.movements();
    os::parallelFor(0, c.NGZ, [&](int zi) {
        const size_t z = Z(zi), t = Z(c.region(zi).tys);
        if (t >= c.PR3S.size()) return;
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g) {
                const std::vector<double>& r = c.PR3S[t][b][g];
                double* d = change.row(z, b, g);
                for (size_t a = 0; a < nag; ++a) {
                    double leavers = 0, arrivals = 0;
                    for (Component k : OUTFLOWS) leavers -= cell(*m[k], z, b, g, a);
                    for (Component k : INFLOWS) arrivals += cell(*m[k], z, b, g, a);
                    if (leavers == 0 && arrivals == 0) continue;
                    const double h = exposedShare(a), next = r[std::min(a + 1, nag - 1)];
                    d[a] = r[a] * h * leavers - next * h * arrivals;
                }
            }
    });
    return change;
}

// the births of the year on the mean of the women at the start and at the end of the year
void birthsOnMeanOfYear(Orvane& c, YearStep& y, const GemTable* deathsChange)
{
    const size_t ngz = Z(c.NGZ), nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG);
    if (!y.DG3G.exists() || !y.PR2G.exists() || !y.QR2G.exists() || nag == 0) return;
    const size_t mothers = c.NGG != 1 ? 1 : 0;
    auto m = y.movements();

    // the correction of the births by region, child group and sex
    std::vector<double> more(ngz * nbg * ngg, 0.0);
    auto at = [&](size_t z, size_t b, size_t g) -> double& { return more[(z * nbg + b) * ngg + g]; };
    double women = 0;
    for (size_t z = 0; z < ngz; ++z) {
        const size_t tyg = Z(c.region(static_cast<int>(z)).tyg);
        if (tyg >= y.PR2G.size()) continue;
        for (size_t b = 0; b < nbg; ++b) {
            const std::vector<double>& rates = y.PR2G[tyg][b];
            for (size_t a = 0; a < nag; ++a) {
                const double f = rates[a];
                if (f == 0) continue;
                // half the women's movements of the year: the mean of start and end less the start
                double moved = 0;
                for (const GemTable* t : m) moved += cell(*t, z, b, mothers, a);
                if (deathsChange) moved += deathsChange->get(z, b, mothers, a);
                const double w = moved / 2;
                women += w;
                double born[2] = {0, 0};
                if (c.NGG == 1) {
                    born[0] = w * (f * 0.5);
                } else {
                    born[0] = f * w * c.GP;
                    born[1] = f * w * (1 - c.GP);
                }
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t ch = 0; ch < nbg; ++ch) at(z, ch, g) += born[g] * y.QR2G[tyg][b][ch];
            }
        }
    }

    // the movements of age group 0 follow the births; internal arrivals follow the internal
    // outflows of the whole area, so that moves inside the study area stay balanced
    std::vector<double> internalOut(nbg * ngg, 0.0), internalIn(nbg * ngg, 0.0);
    double added = 0;
    for (size_t z = 0; z < ngz; ++z)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g) {
                const double extra = at(z, b, g);
                for (Component k : INTERNAL_IN) internalIn[b * ngg + g] += cell(*m[k], z, b, g, 0);
                if (extra == 0) continue;
                added += extra;
                const double base = c.BG40.get(z, b, g, 0);
                if (base != 0) {
                    const double s = extra / base;
                    for (Component k : {S, WA, OBN, WB, OI, OBR, OAR}) {
                        GemTable& t = *m[k];
                        if (!t.exists()) continue;
                        const double v = t.get(z, b, g, 0);
                        if (v == 0) continue;
                        t.add(z, b, g, 0, v * s);
                        if (k == OBN || k == WB || k == OI || k == OBR) internalOut[b * ngg + g] += v * s;
                    }
                }
                // group change by its rates
                const int tw = c.region(static_cast<int>(z)).tywbg;
                if (y.PR4WBG.exists() && tw >= 0 && Z(tw) < y.PR4WBG.size() && m[WBGv]->exists())
                    for (size_t n = 0; n < nbg; ++n) {
                        const double x = y.PR4WBG[Z(tw)][b][n][g][0] * extra;
                        if (x == 0) continue;
                        m[WBGv]->add(z, b, g, 0, -x);
                        m[WBGn]->add(z, n, g, 0, x);
                    }
                y.DG3G.add(z, b, g, 0, extra);
                c.BG40.add(z, b, g, 0, extra);
            }
    for (size_t i = 0; i < internalOut.size(); ++i) {
        if (internalOut[i] == 0 || internalIn[i] == 0) continue;
        const double s = -internalOut[i] / internalIn[i];
        const size_t b = i / ngg, g = i % ngg;
        for (size_t z = 0; z < ngz; ++z)
            for (Component k : INTERNAL_IN) {
                GemTable& t = *m[k];
                if (!t.exists()) continue;
                const double v = t.get(z, b, g, 0);
                if (v != 0) t.add(z, b, g, 0, v * s);
            }
    }
    Prot::writeln(1, "Geburten auf die mittlere Zahl der Frauen im Jahr: %.15g Frauen, %.15g Geburten mehr", women, added);
}

} // namespace

void midyearConventions(Orvane& c, YearStep& y)
{
    const bool onMean = opt::get("$MIDYEAR_BIRTHS", 0) != 0;
    const bool exposure = opt::get("$MIDYEAR_EXPOSURE", 0) != 0;
    if (!onMean && !exposure) return;
    Trace::enter("RKMID");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    // whole persons and targets fix their numbers themselves
    if (MONTE_CARLO != 0) {
        Prot::message(SEV_HINT, "$MIDYEAR_BIRTHS, $MIDYEAR_EXPOSURE: ohne Wirkung bei Monte-Carlo-Simulation");
        return;
    }
    if (onMean && !_(G_0))
        Prot::message(SEV_HINT, "$MIDYEAR_BIRTHS: ohne Wirkung, die Geburten folgen dem Geburteneckwert (G%d)", G_());
    if (exposure && !_(S_0))
        Prot::message(SEV_HINT, "$MIDYEAR_EXPOSURE: ohne Wirkung, die Sterbefälle folgen dem Sterbeeckwert (S%d)", S_());
    const bool withExposure = exposure && _(S_0);
    if (onMean && _(G_0)) {
        if (withExposure) {
            GemTable before = exposureChange(c, y);
            birthsOnMeanOfYear(c, y, &before);
        } else {
            birthsOnMeanOfYear(c, y, nullptr);
        }
    }
    if (!withExposure) return;
    GemTable change = exposureChange(c, y);
    double total = 0;
    change.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        y.DG4S.add(z, b, g, a, v);
        total += v;
    });
    Prot::writeln(1, "Sterbefälle mit Exposition der Zu- und Fortziehenden für das halbe Jahr: %.15g mehr", -total);
}
