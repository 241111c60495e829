// Group change: persons move from one population group to another by the rates of their
// region's group-change type, right after deaths; region, sex and age stay as they are.
#include <cstdio>
#include <string>

#include "platform/dictionary.h"
#include "platform/protocol.h"
#include "kernel/file_table.h"
#include "kernel/kernel_helpers.h"
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/run_values.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

namespace {

size_t Z(int i) { return i > 0 ? static_cast<size_t>(i) : 0; }

// the rate of leaving a group: the sum over the target groups
void leavingRates(Orvane& C, const LA5& PR4WBG)
{
    const size_t nt = Z(C.NTYWBG), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    C.PR4WBGzs.make("C.PR4WBGzs", {nt, nbg, ngg, nag}, 0.0);
    for (size_t t = 0; t < nt; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t n = 0; n < nbg; ++n)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) C.PR4WBGzs[t][b][g][a] += PR4WBG[t][b][n][g][a];
}

// rates that lead back into the same group, and groups left by more than all their members
void checkRates(const Orvane& C, const LA5& PR4WBG)
{
    const size_t nt = Z(C.NTYWBG), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    int diagonal = 0;
    size_t lt = 0, lb = 0, lg = 0, la = 0;
    double last = 0;
    for (size_t t = 0; t < nt; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double r = PR4WBG[t][b][b][g][a];
                    if (r == 0) continue;
                    ++diagonal;
                    lt = t, lb = b, lg = g, la = a, last = r;
                }
    if (diagonal > 0) {
        char head[256];
        snprintf(head, sizeof head, DD::expKey("@rk3prf_fmt850;").c_str(), diagonal);
        Prot::message(SEV_WARNING, "%s (TYWBG %d, BG %d, BG %d, GG %d, AG %d: %g)", head, int(lt) + 1, int(lb) + 1,
                      int(lb) + 1, int(lg) + 1, int(la), last);
    }
    for (size_t t = 0; t < nt; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double s = C.PR4WBGzs[t][b][g][a];
                    if (s > 1)
                        Prot::message(SEV_WARNING, "@rk3prf_fmt860;", s, int(t) + 1, int(b) + 1, int(g) + 1,
                                      int(a));
                }
}

} // namespace

void groupChange(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    if (_(W_0)) return;
    Trace::enter("RKWBG");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    const size_t nt = Z(C.NTYWBG), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);

    // the tables of the year and the rates
    if (!y.DG4WBGv.exists()) c.makeGem(y.DG4WBGv, "DG4WBGv");
    if (!y.DG4WBGn.exists()) c.makeGem(y.DG4WBGn, "DG4WBGn");
    LA4 DR3WBGvW("DR3WBGvW", {nt, nbg, ngg, nag}, 0.0), DR3WBGnW("DR3WBGnW", {nt, nbg, ngg, nag}, 0.0);
    LA5 PR4WBG("PR4WBG", {nt, nbg, nbg, ngg, nag}, 0.0);
    readTable(fileTable[FT_BGWR], PR4WBG, "C.NTYWBG\0NBG\0NBG\0NGG\0NAG\0", VC_RATE);
    leavingRates(C, PR4WBG);
    checkRates(C, PR4WBG);

    // the movements of each region, in region order so that draws come in a fixed sequence
    const bool montecarlo = MONTE_CARLO != 0;
    for (int z = 0; z < C.NGZ; ++z) {
        const int t = C.region(z).tywbg;
        if (t < 0 || Z(t) >= nt) continue;
        const auto& rate = PR4WBG[Z(t)];
        for (size_t b = 0; b < nbg; ++b)
            for (size_t n = 0; n < nbg; ++n)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        double r = rate[b][n][g][a];
                        if (r == 0) continue;
                        double w = C.BG40.get(Z(z), b, g, a);
                        double x = montecarlo ? mc.draw(w, r) : r * w;
                        if (x == 0) continue;
                        y.DG4WBGv.add(Z(z), b, g, a, -x);
                        y.DG4WBGn.add(Z(z), n, g, a, x);
                    }
    }

    // sums by type, in region order
    y.DG4WBGv.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        DR3WBGvW[Z(C.region(static_cast<int>(z)).tywbg)][b][g][a] += v;
    });
    y.DG4WBGn.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        DR3WBGnW[Z(C.region(static_cast<int>(z)).tywbg)][b][g][a] += v;
    });

    // the whole area by cohort, for the cohort targets of external migration
    if (_(M_2)) {
        C.DR2WBGv.make("C.DR2WBGv", {nbg, ngg, nag}, 0.0);
        C.DR2WBGn.make("C.DR2WBGn", {nbg, ngg, nag}, 0.0);
        for (size_t t = 0; t < nt; ++t)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        C.DR2WBGv[b][g][a] += DR3WBGvW[t][b][g][a];
                        C.DR2WBGn[b][g][a] += DR3WBGnW[t][b][g][a];
                    }
        laPrint(3, C.DR2WBGv, "NBG\0NGG\0NAG\0", "C.DR2WBGv");
        laPrint(3, C.DR2WBGn, "NBG\0NGG\0NAG\0", "C.DR2WBGn");
    }

    // the protocol: per type and group, and per group
    if (Prot::level(2)) {
        LA2 DR1WBGvW_("DR1WBGvW_", {nt, nbg}, 0.0), DR1WBGnW_("DR1WBGnW_", {nt, nbg}, 0.0);
        LA1 DR0WBGv_("DR0WBGv_", {nbg}, 0.0), DR0WBGn_("DR0WBGn_", {nbg}, 0.0);
        for (size_t t = 0; t < nt; ++t)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        DR1WBGvW_[t][b] += DR3WBGvW[t][b][g][a];
                        DR1WBGnW_[t][b] += DR3WBGnW[t][b][g][a];
                        DR0WBGv_[b] += DR3WBGvW[t][b][g][a];
                        DR0WBGn_[b] += DR3WBGnW[t][b][g][a];
                    }
        Prot::writeln(2, "@rk3wbg_fmt100;");
        laPrint(2, DR1WBGvW_, "C.NTYWBG\0NBG\0", "DR1WBGvW_");
        laPrint(2, DR1WBGnW_, "C.NTYWBG\0NBG\0", "DR1WBGnW_");
        laPrint(2, DR0WBGv_, "NBG\0", "DR0WBGv_");
        laPrint(2, DR0WBGn_, "NBG\0", "DR0WBGn_");
    }
    y.DG4WBGv.print(2);
    y.DG4WBGn.print(2);
    // the rates stay for the births on the mean of the year
    y.PR4WBG = std::move(PR4WBG);
}
