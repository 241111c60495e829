// External migration: out-migration by source type and external area, in-migration by external
// area, their adjustment to the targets of the stock and of the external balance, the joint
// adjustment of both, and the spreading of the type-level out-migration to the regions.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/file_table.h"
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/run_values.h"
#include "kernel/year_step.h"
#include "kernel/kernel_helpers.h"
#include "tables/table_text.h"
#include "tables/input_reader.h"

namespace {

constexpr const char* SOURCE = "source\\c\\rkirw";

size_t Z(int i) { return static_cast<size_t>(i); }

// the total of one row (first index) of a cohort table
template <class T> double rowTotal(const T& a, size_t i)
{
    double s = 0;
    if (i >= a.size()) return 0;
    for (const auto& b : a[i])
        for (const auto& g : b)
            for (double v : g) s += v;
    return s;
}

// the sum over the first index of a cohort table at one cohort
double overTypes(const LA4& a, size_t b, size_t g, size_t x)
{
    double s = 0;
    for (size_t t = 0; t < a.size(); ++t) s += a[t][b][g][x];
    return s;
}

// DR3WA = DR4WA summed over the external areas
void sumOverAreas(Orvane& C)
{
    C.DR3WA.make("C.DR3WA", {Z(C.NTYQWA), Z(C.NBG), Z(C.NGG), Z(C.NAG)}, 0.0);
    for (size_t ta = 0; ta < C.DR4WA.size(); ++ta)
        for (size_t q = 0; q < C.DR4WA[ta].size(); ++q)
            for (size_t b = 0; b < Z(C.NBG); ++b)
                for (size_t g = 0; g < Z(C.NGG); ++g)
                    for (size_t a = 0; a < Z(C.NAG); ++a) C.DR3WA[q][b][g][a] += C.DR4WA[ta][q][b][g][a];
}

// the population of each out-migration source type; under demolition less those who leave
// abroad from demolished dwellings, so that nobody leaves twice
LA4 outMigrationStock(const Orvane& C, const char* first, const char* second, int level)
{
    LA4 base("BR4QWA", {Z(C.NTYQWA), Z(C.NBG), Z(C.NGG), Z(C.NAG)}, 0.0);
    C.BG40.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        base[Z(C.region(static_cast<int>(z)).tyqwa)][b][g][a] += v;
    });
    laPrint(level + 1, base, "C.NTYQWA\0NBG\0NGG\0NAG\0", first);
    if (!_(E_0) && C.DR3ZAR.exists()) {
        for (const auto& area : C.DR3ZAR)
            for (size_t q = 0; q < area.size() && q < base.size(); ++q)
                for (size_t b = 0; b < area[q].size(); ++b)
                    for (size_t g = 0; g < area[q][b].size(); ++g)
                        for (size_t a = 0; a < area[q][b][g].size(); ++a) base[q][b][g][a] += area[q][b][g][a];
        laPrint(level, base, "C.NTYQWA\0NBG\0NGG\0NAG\0", second);
    }
    return base;
}

// the quotas of in-migration by external area sum to 1 at the extent of module K
void scaleAreaQuotas(Orvane& C)
{
    const int k = K_();
    const size_t nta = Z(C.NTYA), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    // the cells that must sum to 1: all, per area, per area and group, per area, group and sex
    const size_t outerTa = k >= 2 ? nta : 1, outerB = k >= 3 ? nbg : 1, outerG = k >= 4 ? ngg : 1;
    int count = 0;
    for (size_t ot = 0; ot < outerTa; ++ot)
        for (size_t ob = 0; ob < outerB; ++ob)
            for (size_t og = 0; og < outerG; ++og) {
                auto each = [&](auto&& f) {
                    for (size_t ta = (k >= 2 ? ot : 0); ta < (k >= 2 ? ot + 1 : nta); ++ta)
                        for (size_t b = (k >= 3 ? ob : 0); b < (k >= 3 ? ob + 1 : nbg); ++b)
                            for (size_t g = (k >= 4 ? og : 0); g < (k >= 4 ? og + 1 : ngg); ++g)
                                for (size_t a = 0; a < nag; ++a) f(C.QR3ZA[ta][b][g][a]);
                };
                double s = 0, n = 0;
                each([&](double& v) { s += v, n += 1; });
                if (Compare(s, 1, C.SUMTOL) == 0) continue;
                ++count;
                each([&](double& v) { v = s == 0 ? 1 / n : v / s; });
            }
    if (count == 0) return;
    if (k <= 1)
        Prot::writeln(1, "QR3ZA wurde auf Summe 1 skaliert");
    else if (k == 2)
        Prot::writeln(1, "QR3ZA wurde bei %d Außentypen auf Summe 1 skaliert", count);
    else if (k == 3)
        Prot::writeln(1, "QR3ZA wurde bei %d Außentypen und Bevölkerungsgruppen auf Summe 1 skaliert", count);
    else
        Prot::writeln(1, "QR3ZA wurde bei %d Außentypen, Bevölkerungs-, Geschlehtsgruppen auf Summe 1 skaliert", count);
    LA1 agg("QR3ZA_agg_", {nta}, 0.0);
    for (size_t ta = 0; ta < nta; ++ta) agg[ta] = rowTotal(C.QR3ZA, ta);
    laPrint(1, agg, "C.NTYA\0", nullptr, LA_RATE);
}

// the sums of the type level that a stock target compares with: stock, deaths, and the
// in-migration to new building and out-migration from demolition
struct Rest {
    double stock = 0, deaths = 0, ian = 0, oar = 0;
    double sum() const { return stock + deaths + ian + oar; }
};
Rest typeTotals(const Orvane& C)
{
    Rest r;
    r.stock = C.BR30.sum();
    r.deaths = C.DR3S.sum();
    if (!_(D_0) && C.DR3IAN.exists()) r.ian = C.DR3IAN.sum();
    if (!_(E_0) && C.DR3OAR.exists()) r.oar = C.DR3OAR.sum();
    return r;
}
Rest cohortTotals(const Orvane& C, size_t b, size_t g, size_t a)
{
    Rest r;
    r.stock = overTypes(C.BR30, b, g, a);
    r.deaths = overTypes(C.DR3S, b, g, a);
    if (!_(D_0) && C.DR3IAN.exists()) r.ian = overTypes(C.DR3IAN, b, g, a);
    if (!_(E_0) && C.DR3OAR.exists()) r.oar = overTypes(C.DR3OAR, b, g, a);
    return r;
}

// the part of the external balance target left to out- and in-migration: first occupiers from
// abroad and those who leave demolished dwellings for abroad cross the border too
double balanceTarget(const Orvane& C)
{
    Rest r = typeTotals(C);
    return C.BR21WS.sum() - r.ian - r.oar;
}

// group change of the whole area at one cohort, in and out
double groupChange(const Orvane& C, size_t b, size_t g, size_t a)
{
    double s = 0;
    if (C.DR2WBGv.exists()) s += C.DR2WBGv[b][g][a];
    if (C.DR2WBGn.exists()) s += C.DR2WBGn[b][g][a];
    return s;
}

// the special groups of the whole area at one cohort
LA3 specialGroupsByCohort(const Orvane& C)
{
    LA3 d("DSGA2", {Z(C.NBG), Z(C.NGG), Z(C.NAG)}, 0.0);
    if (C.BG40DSG.exists()) C.BG40DSG.forEach([&](size_t, size_t b, size_t g, size_t a, double v) { d[b][g][a] += v; });
    return d;
}

// out-migration adjusted per cohort to the stock target of module M 2. With A 0, B 1 and C 3 the
// out-migration keeps the target of wegvol and there is no cohort target: the step then only
// keeps each source type's stock from going below zero.
void adjustOutMigrationByCohort(Orvane& C, YearStep& y)
{
    const bool toTarget = _(M_2);
    if (!(_(A_0) && _(B_1) && _(C_3))) VCHECK(_(C_0), SOURCE);
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), nq = Z(C.NTYQWA);
    LA4 before = C.DR3WA;
    // stock and deaths of the regions of each source type
    LA4 BWA30("BWA30", {nq, nbg, ngg, nag}, 0.0), DWA3S("DWA3S", {nq, nbg, ngg, nag}, 0.0);
    C.BG40.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        BWA30[Z(C.region(static_cast<int>(z)).tyqwa)][b][g][a] += v;
    });
    y.DG4S.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        DWA3S[Z(C.region(static_cast<int>(z)).tyqwa)][b][g][a] += v;
    });
    double unreached = 0, corrections = 0;
    for (size_t b = 0; b < nbg; ++b)
        for (size_t g = 0; g < ngg; ++g)
            for (size_t a = 0; a < nag; ++a) {
                double Zc = C.DR3ZAQ.exists() ? overTypes(C.DR3ZAQ, b, g, a) : 0.0;
                Rest r = cohortTotals(C, b, g, a);
                double rest = r.sum() + Zc + groupChange(C, b, g, a);
                double out = 0;
                for (size_t q = 0; q < nq; ++q) out += C.DR3WA[q][b][g][a];
                double target = toTarget ? C.BR21[Z(C.ENMBG(int(b)))][Z(C.ENMGG(int(g)))][Z(C.ENMAG(int(a)))]
                                         : rest - out;
                double need = target - rest;
                if (out == 0) {
                    if (need != 0) {
                        Prot::writeln(1,
                                      "BG %d GG %d AG %d: Bev %.15g kann wegen fehlendem Wegzug nicht an Zielwert "
                                      "%.15g angepasst werden",
                                      int(b) + 1, int(g) + 1, int(a), rest, target);
                        unreached += std::fabs(need);
                    }
                    continue;
                }
                // out-migration is an outflow: the factor makes rest - f * out equal to the target
                double f = -need / out;
                if (f < 0) {
                    Prot::writeln(1, "@rk2irw_fmt1500; (BG %d GG %d AG %d: %.15g - %.15g, %.15g)", int(b) + 1,
                                  int(g) + 1, int(a), target, rest, out);
                    f = 0;
                }
                for (size_t q = 0; q < nq; ++q) {
                    double& wa = C.DR3WA[q][b][g][a];
                    wa *= f;
                    double stock = BWA30[q][b][g][a] + DWA3S[q][b][g][a] - wa;
                    if (stock < 0) {
                        Prot::writeln(1, "@rk2irw_fmt2000; (TYQWA %d, BG %d GG %d AG %d)", int(q) + 1, int(b) + 1,
                                      int(g) + 1, int(a));
                        Prot::writeln(1, "@rk2irw_fmt2050; %.2f = BWA30 %.2f + DWA3S %.2f + DR3WA %.2f", stock,
                                      BWA30[q][b][g][a], DWA3S[q][b][g][a], -wa);
                        corrections += std::fabs(stock);
                        wa += stock;
                    }
                }
            }
    Prot::writeln(1, "@rk2irw_fmt2054; %.15g, %.15g, %.15g", before.sum(), C.DR3WA.sum(), unreached);
    if (corrections > 0)
        Prot::message(SEV_WARNING, "@rk2irw_fmt2052; (%.15g)", corrections);
    else
        Prot::writeln(1, "@rk2irw_fmt2055;");
    // the corrected totals go to the external areas by their former shares
    for (size_t ta = 0; ta < C.DR4WA.size(); ++ta)
        for (size_t q = 0; q < nq; ++q)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        double share = safe(C.DR4WA[ta][q][b][g][a], before[q][b][g][a], 1.0 / C.NTYA);
                        C.DR4WA[ta][q][b][g][a] = share * C.DR3WA[q][b][g][a];
                    }
}

// in-migration adjusted per cohort to the stock target of module M 2
void adjustInMigrationByCohort(Orvane& C, const LA3& DR2W)
{
    if (C.BR21WS.exists() && DR2W.exists()) {
        VCHECK(C.DR2ZA.size() == C.BR21WS.size() && C.BR21WS.size() == DR2W.size() &&
                   C.DR2ZA[0].size() == C.BR21WS[0].size() && C.BR21WS[0].size() == DR2W[0].size() &&
                   C.DR2ZA[0][0].size() == C.BR21WS[0][0].size() && C.BR21WS[0][0].size() == DR2W[0][0].size(),
               SOURCE);
        Prot::writeln(1, "@rk2irw_fmt2200; zuvol %.15g, saldvol %.15g, wegvol %.15g", C.DR2ZA.sum(), C.BR21WS.sum(),
                      DR2W.sum());
        for (size_t t = 0; t < C.DR2ZA.size(); ++t)
            for (size_t b = 0; b < C.DR2ZA[t].size(); ++b)
                for (size_t g = 0; g < C.DR2ZA[t][b].size(); ++g)
                    if (Compare(C.DR2ZA[t][b][g] - DR2W[t][b][g], C.BR21WS[t][b][g], C.SUMTOL) != 0)
                        Prot::message(SEV_WARNING, "@rk2irz_fmt1100; (TYA %d, BG %d, GG %d)", int(t) + 1, int(b) + 1,
                                      int(g) + 1);
    }
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), nta = Z(C.NTYA);
    LA3 dsg = specialGroupsByCohort(C);
    int missed = 0;
    for (size_t b = 0; b < nbg; ++b)
        for (size_t g = 0; g < ngg; ++g)
            for (size_t a = 0; a < nag; ++a) {
                Rest r = cohortTotals(C, b, g, a);
                double wa = 0;
                for (size_t q = 0; q < C.DR3WA.size(); ++q) wa -= C.DR3WA[q][b][g][a];
                double bgw = groupChange(C, b, g, a);
                double br21 = C.BR21[Z(C.ENMBG(int(b)))][Z(C.ENMGG(int(g)))][Z(C.ENMAG(int(a)))];
                double ziel = br21 - (r.stock + r.deaths + wa + r.oar + r.ian + bgw);
                double zuzug = overTypes(C.DR3ZAQ, b, g, a);
                // in-migration can't take people away: a target below the rest is out of its reach
                if (zuzug != 0 || ziel < 0) {
                    double fak = zuzug != 0 ? ziel / zuzug : 0.0;
                    if (fak < 0 || zuzug == 0) {
                        Prot::message(SEV_WARNING,
                                      "BG %d GG %d AG %d eckreg %g = BR21E %g + BG40DSG %g, FAK %g = (ZIEL %g / ZUZUG "
                                      "%g), ZIEL = BR21 %g - (BR30 %g + S %g + WA %g + OAR %g + IAN %g + BGW %g) führt "
                                      "zu Warnung:",
                                      int(b) + 1, int(g) + 1, int(a), br21 + dsg[b][g][a], br21, dsg[b][g][a], fak, ziel,
                                      zuzug, br21, r.stock, r.deaths, wa, r.oar, r.ian, bgw);
                        Prot::writeln(2,
                                      "Zielwert aus eckreg.csv BG %d GG %d AG %d = %g um mindestens %g auf %g erhöhen, "
                                      "um Zielwert mit Zuzug anpassen zu können",
                                      int(b) + 1, int(g) + 1, int(a), br21 + dsg[b][g][a], -ziel,
                                      br21 + dsg[b][g][a] - ziel);
                        fak = 0;
                    }
                    for (size_t ta = 0; ta < nta; ++ta) C.DR3ZAQ[ta][b][g][a] *= fak;
                } else {
                    double w = 0;
                    for (size_t ta = 0; ta < nta; ++ta)
                        w += C.DR2ZA[Z(C.ENKTYA(int(ta)))][Z(C.ENKBG(int(b)))][Z(C.ENKGG(int(g)))];
                    for (size_t ta = 0; ta < nta; ++ta)
                        C.DR3ZAQ[ta][b][g][a] =
                            ziel * safe(C.DR2ZA[Z(C.ENKTYA(int(ta)))][Z(C.ENKBG(int(b)))][Z(C.ENKGG(int(g)))], w, 0);
                    if (ziel != 0) Prot::writeln(1, "@rk2irw_fmt2060; (BG %d GG %d AG %d)", int(b) + 1, int(g) + 1, int(a));
                }
                double reached = overTypes(C.DR3ZAQ, b, g, a);
                if (Compare(reached, ziel, C.SUMTOL) != 0) {
                    Prot::writeln(1, "@rk2irz_fmt1220; (BG %d GG %d AG %d: %.15g)", int(b) + 1, int(g) + 1, int(a),
                                  ziel - reached);
                    ++missed;
                }
            }
    if (missed) Prot::message(SEV_WARNING, "@rk2irz_fmt1200;", missed);
}

// K 6: the first occupiers from abroad taken off the in-migration that the regions receive, so
// that the regions' DG4ZA, DR4ZA and DR3ZAQ stay one flow. Each area and in-migration type gives
// up the share that its first occupiers have of it, every region of the type alike; where the
// first occupiers outnumber the in-migration, the in-migration of that cell is all theirs.
void firstOccupiersOffRegions(Orvane& C, YearStep& y, const LA5& DG5ZA)
{
    if (!C.DR3ZAN.exists() || !C.DR4ZA.exists()) return;
    const size_t nta = Z(C.NTYA), nzza = Z(C.NTYZZA), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    LA5 share("share", {nta, nzza, nbg, ngg, nag}, 0.0);
    double over = 0;
    for (size_t ta = 0; ta < nta; ++ta)
        for (size_t t = 0; t < nzza; ++t)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        double& in = C.DR4ZA[ta][t][b][g][a];
                        const double nb = C.DR3ZAN[ta][t][b][g][a];
                        double q = safe(nb, in, 0);
                        if (q > 1) over += nb - in, q = 1;
                        share[ta][t][b][g][a] = q;
                        C.DR3ZAQ[ta][b][g][a] -= in * q;
                        in -= in * q;
                    }
    for (size_t ta = 0; ta < nta; ++ta)
        for (size_t z = 0; z < DG5ZA[ta].size(); ++z) {
            const size_t t = Z(C.region(int(z)).tyzza);
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        const double v = DG5ZA[ta][z][b][g][a] * share[ta][t][b][g][a];
                        if (v != 0) y.DG4ZA.add(z, b, g, a, -v);
                    }
        }
    if (over > 0)
        Prot::message(SEV_WARNING,
                      "Neubauerstbezug aus dem Ausland übersteigt den Außenzuzug aus zuvg um %.15g Personen",
                      over);
}

// K 6: the regions' in-migration follows what the targets made of DR3ZAQ, cohort by cohort
// with the factor of the whole area; a cohort that had none takes the regions' stock shares
void followAdjustedInMigration(Orvane& C, YearStep& y, const LA4& before)
{
    const size_t nta = Z(C.NTYA), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    LA3 fak("fak", {nbg, ngg, nag}, 1.0);
    bool changed = false;
    for (size_t b = 0; b < nbg; ++b)
        for (size_t g = 0; g < ngg; ++g)
            for (size_t a = 0; a < nag; ++a) {
                const double was = overTypes(before, b, g, a), now = overTypes(C.DR3ZAQ, b, g, a);
                if (was == now) continue;
                changed = true;
                fak[b][g][a] = safe(now, was, 0);
                for (size_t ta = 0; ta < nta; ++ta)
                    for (size_t t = 0; t < C.DR4ZA[ta].size(); ++t) {
                        double& v = C.DR4ZA[ta][t][b][g][a];
                        v = was != 0 ? safe(v * C.DR3ZAQ[ta][b][g][a], before[ta][b][g][a], v * fak[b][g][a])
                                     : 0.0;
                    }
            }
    if (!changed) return;
    // a cohort that had no in-migration: spread by the regions' stock in the in-migration types
    LA4 stock("stock", {Z(C.NTYZZA), nbg, ngg, nag}, 0.0);
    C.BG40.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
        stock[Z(C.region(int(z)).tyzza)][b][g][a] += v;
    });
    for (int z = 0; z < C.NGZ; ++z) {
        const size_t t = Z(C.region(z).tyzza);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    const double was = overTypes(before, b, g, a);
                    if (was != 0) {
                        const double v = y.DG4ZA.get(Z(z), b, g, a);
                        if (v != 0) y.DG4ZA.set(Z(z), b, g, a, v * fak[b][g][a]);
                        continue;
                    }
                    const double now = overTypes(C.DR3ZAQ, b, g, a);
                    if (now == 0) continue;
                    double all = 0;
                    for (size_t k = 0; k < stock.size(); ++k) all += stock[k][b][g][a];
                    const double v = now * safe(C.BG40.get(Z(z), b, g, a), all, 1.0 / C.NGZ);
                    if (v != 0) y.DG4ZA.add(Z(z), b, g, a, v);
                    for (size_t ta = 0; ta < nta; ++ta)
                        C.DR4ZA[ta][t][b][g][a] += C.DR3ZAQ[ta][b][g][a] * safe(C.BG40.get(Z(z), b, g, a), all, 1.0 / C.NGZ);
                }
    }
}

// a table by external area and type, in the type-level form of the external outputs
void writeByArea(int entry, const LA5& a)
{
    FILE* f = nullptr;
    char name[64];
    if (!a.exists() || openTable(&f, entry, name, sizeof name) != 0 || !f) return;
    const double label = periodLabel(JAHR);
    for (size_t ta = 0; ta < a.size(); ++ta)
        for (size_t t = 0; t < a[ta].size(); ++t)
            for (size_t b = 0; b < a[ta][t].size(); ++b)
                for (size_t g = 0; g < a[ta][t][b].size(); ++g)
                    for (size_t x = 0; x < a[ta][t][b][g].size(); ++x) {
                        double v = a[ta][t][b][g][x];
                        if (v == 0) continue;
                        csvWriteCell(f, "%.0f", label, 0);
                        csvWriteCell(f, "%.0f", double(ta + 1), 0);
                        csvWriteCell(f, "%.0f", double(t + 1), 0);
                        csvWriteCell(f, "%.0f", double(b + 1), 0);
                        csvWriteCell(f, "%.0f", double(g + 1), 0);
                        csvWriteCell(f, "%.0f", double(x), 0);
                        csvWriteCell(f, "%.15g", v, 1);
                    }
    closeTable(f);
}


// In-migration by region (K6) takes its numbers from zuvg; the target table of in-migration is
// read all the same and serves as the weights of the external areas when in-migration is fitted
// to cohort targets. When it is missing, a hint says so before the reader's error.
void sayWhyTargetIsRead()
{
    FileEntry probe = fileTable[FT_ZUVOL];
    FILE* f = nullptr;
    std::string path, note;
    const std::string dir = si::Directory.empty() || si::Directory.back() == '/' ? si::Directory : si::Directory + "/";
    if (openInput(&f, probe, {dir + si::Version + "/", si::Directory}, si::Version, probe.name + ".csv", &path, &note) == 0) {
        if (f) fclose(f);
        return;
    }
    const char* why = "Baustein K6: die Zuzüge je Gebiet kommen aus zuvg; zuvol.csv wird trotzdem gelesen, als Zielwert "
                      "Außenzuzug je Außentyp, der bei B1 mit M2 die Außentypen gewichtet und sonst ohne Wirkung bleibt";
    Prot::message(SEV_HINT, "%s", why);
    // on the console too, beside the reader's error that follows
    Prot::console(SEV_HINT, false, "%s", why);
}
} // namespace

// ---------------------------------------------------------------- RK::IRW

int RK::IRW(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    Trace::enter("RKIRW");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    Prot::heading(4, "@DG4WA;", "@DG4WA;, @DG4ZA;");
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), nta = Z(C.NTYA), nq = Z(C.NTYQWA);
    int newTable = 0;
    LA3 DR2W("DR2W");
    LA5 DG5ZA("DG5ZA");

    // 1. out-migration by rates
    if (C_() != 6) {
        LA4 BR4QWA = outMigrationStock(C, "Ausgangsbevölkerung", "Ausgangsbevölkerung für Außenwegzug (ohne DR3ZAR)", 3);
        const int before = fileTable[FT_WEGZ].fileNumber;
        if (!C.PR4WA.exists()) C.PR4WA.make("C.PR4WA", {nq, nta, nbg, ngg, nag}, 0.0);
        readTable(fileTable[FT_WEGZ], C.PR4WA, "C.NTYQWA\0NTYA\0NBG\0NGG\0NAG\0", VC_RATE);
        newTable = fileTable[FT_WEGZ].fileNumber != before || JAHR == ini::STARTJAHR;
        if (!_(B_0) && inrange(2, N_(), 4)) {
            VCHECK((K_() > K_1) && _(A_0) && _(C_0), SOURCE);
            LA3 agg("PR4WA*BR4QWA", {Z(C.NNTYA()), Z(C.NNBG()), Z(C.NNGG())}, 0.0);
            for (size_t q = 0; q < nq; ++q)
                for (size_t ta = 0; ta < nta; ++ta)
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g)
                            for (size_t a = 0; a < nag; ++a)
                                agg[Z(C.ENNTYA(int(ta)))][Z(C.ENNBG(int(b)))][Z(C.ENNGG(int(g)))] +=
                                    C.PR4WA[q][ta][b][g][a] * BR4QWA[q][b][g][a];
            laPrint(2, agg, "NNTYA\0NNBG\0NNGG\0");
        }
        C.DR4WA.make("C.DR4WA", {nta, nq, nbg, ngg, nag}, 0.0);
        os::parallelFor(0, C.NTYQWA, [&](int q) {
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a)
                            C.DR4WA[ta][Z(q)][b][g][a] = C.PR4WA[Z(q)][ta][b][g][a] * BR4QWA[Z(q)][b][g][a];
        });
        sumOverAreas(C);
        if (!_(C_0)) {
            VCHECK(N_() < N_2, SOURCE);
            DR2W.make("DR2W", {Z(C.NCTYA()), Z(C.NCBG()), Z(C.NCGG())}, 0.0);
            readTable(fileTable[FT_WEGVOL], DR2W, "NCTYA\0NCBG\0NCGG\0");
            LA3 DIFSUM("DIFSUM", DR2W.extents(), 0.0), FAKTOR("FAKTOR", DR2W.extents(), 0.0);
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t q = 0; q < nq; ++q)
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g)
                            for (size_t a = 0; a < nag; ++a)
                                DIFSUM[Z(C.ENCTYA(int(ta)))][Z(C.ENCBG(int(b)))][Z(C.ENCGG(int(g)))] +=
                                    C.DR4WA[ta][q][b][g][a];
            for (size_t t = 0; t < DR2W.size(); ++t)
                for (size_t b = 0; b < DR2W[t].size(); ++b)
                    for (size_t g = 0; g < DR2W[t][b].size(); ++g) {
                        double target = DR2W[t][b][g];
                        if (target < 0)
                            Prot::message(SEV_WARNING, "@rk3prf_fmt800; (TYA %d, BG %d, GG %d: %g)", int(t) + 1,
                                          int(b) + 1, int(g) + 1, target);
                        if (DIFSUM[t][b][g] == 0) {
                            if (target != 0)
                                Prot::message(SEV_WARNING, "@rk2irw_fmt2100;", int(t) + 1, int(b) + 1, int(g) + 1);
                            continue;
                        }
                        FAKTOR[t][b][g] = target / DIFSUM[t][b][g];
                    }
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t q = 0; q < nq; ++q)
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g) {
                            double f = FAKTOR[Z(C.ENCTYA(int(ta)))][Z(C.ENCBG(int(b)))][Z(C.ENCGG(int(g)))];
                            for (double& v : C.DR4WA[ta][q][b][g]) v *= f;
                        }
            sumOverAreas(C);
            laPrint(3, C.DR3WA, "C.NTYQWA\0NBG\0NGG\0NAG\0", "@DR4WA;");
        }
    } else {
        // 2. out-migration as numbers by region
        LA5 DG5WA("DG5WA", {Z(C.NGZ), nta, nbg, ngg, nag}, 0.0);
        readTable(fileTable[FT_WEGV], DG5WA, "C.NGZ\0NTYA\0NBG\0NGG\0NAG\0");
        C.DR4WA.make("C.DR4WA", {nta, nq, nbg, ngg, nag}, 0.0);
        for (size_t z = 0; z < DG5WA.size(); ++z) {
            size_t q = Z(C.region(int(z)).tyqwa);
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a) {
                            double v = DG5WA[z][ta][b][g][a];
                            if (v == 0) continue;
                            y.DG4WA.add(z, b, g, a, -v);
                            C.DR4WA[ta][q][b][g][a] += v;
                        }
        }
        sumOverAreas(C);
    }

    // 3. out-migration as an outflow
    double W = C_() == 6 ? y.DG4WA.sum() : -C.DR4WA.sum();

    // 4. in-migration
    C.DR2ZA.make("C.DR2ZA", {Z(C.NKTYA()), Z(C.NKBG()), Z(C.NKGG())}, 1.0);
    const bool cohortInMigration = _(B_1) && _(M_2);
    // whether DR3ZAQ holds persons (read from zuvol, zudq or zuvg) rather than quotas that a
    // target turns into persons later
    bool inPersons = K_() >= 5;
    if (!_(K_0) || cohortInMigration) {
        C.DR3ZAQ.make("C.DR3ZAQ", {nta, nbg, ngg, nag}, 0.0);
        if (!_(N_0) && _(B_1))
            Prot::writeln(1, "Zielwert Außenzuzug wird vom Zielwert Außenwanderungssaldo BR21WS aus saldvol.csv "
                             "abgeleitet, zuvol.csv wird nicht benötigt");
        else if (_(B_1) && _(K_1) && !_(M_0))
            Prot::writeln(1, "Zielwert Außenzuzug wird von Zielbevölkerung Region BR21 aus eckreg.csv abgeleitet, "
                             "zuvol.csv wird nicht benötigt");
        else if (!_(K_0)) {
            if (_(K_6)) sayWhyTargetIsRead();
            readTable(fileTable[FT_ZUVOL], C.DR2ZA, "NKTYA\0NKBG\0NKGG\0");
            inPersons = true;
        }
        if (K_() < 5 && !_(K_0)) {
            C.QR3ZA.make("C.QR3ZA", {nta, nbg, ngg, nag}, 0.0);
            readTable(fileTable[FT_ZUAQ], C.QR3ZA, "C.NTYA\0NBG\0NGG\0NAG\0");
            scaleAreaQuotas(C);
            os::parallelFor(0, C.NTYA, [&](int ta) {
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g) {
                        double n = C.DR2ZA[Z(C.ENKTYA(ta))][Z(C.ENKBG(int(b)))][Z(C.ENKGG(int(g)))];
                        for (size_t a = 0; a < nag; ++a) C.DR3ZAQ[Z(ta)][b][g][a] = C.QR3ZA[Z(ta)][b][g][a] * n;
                    }
            });
        } else if (_(K_5)) {
            C.DR4ZA.make("C.DR4ZA", {nta, Z(C.NTYZZA), nbg, ngg, nag}, 0.0);
            readTable(fileTable[FT_ZUDQ], C.DR4ZA, "C.NTYA\0NTYZZA\0NBG\0NGG\0NAG\0");
            C.QR4ZA.make("C.QR4ZA", {nta, Z(C.NTYZZA), nbg, ngg, nag}, 0.0);
            C.QR3ZA.make("C.QR3ZA", {nta, nbg, ngg, nag}, 0.0);
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t t = 0; t < Z(C.NTYZZA); ++t)
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g)
                            for (size_t a = 0; a < nag; ++a) C.DR3ZAQ[ta][b][g][a] += C.DR4ZA[ta][t][b][g][a];
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t t = 0; t < Z(C.NTYZZA); ++t)
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g)
                            for (size_t a = 0; a < nag; ++a)
                                C.QR4ZA[ta][t][b][g][a] = safe(C.DR4ZA[ta][t][b][g][a], C.DR3ZAQ[ta][b][g][a], 0);
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a)
                            C.QR3ZA[ta][b][g][a] = safe(C.DR3ZAQ[ta][b][g][a], overTypes(C.DR3ZAQ, b, g, a), 0);
        } else if (_(K_6)) {
            DG5ZA.make("DG5ZA", {nta, Z(C.NGZ), nbg, ngg, nag}, 0.0);
            readTable(fileTable[FT_ZUVG], DG5ZA, "C.NTYA\0NGZ\0NBG\0NGG\0NAG\0");
            C.DR4ZA.make("C.DR4ZA", {nta, Z(C.NTYZZA), nbg, ngg, nag}, 0.0);
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t z = 0; z < DG5ZA[ta].size(); ++z) {
                    size_t t = Z(C.region(int(z)).tyzza);
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g)
                            for (size_t a = 0; a < nag; ++a) {
                                double v = DG5ZA[ta][z][b][g][a];
                                if (v == 0) continue;
                                C.DR4ZA[ta][t][b][g][a] += v;
                                C.DR3ZAQ[ta][b][g][a] += v;
                                y.DG4ZA.add(z, b, g, a, v);
                            }
                }
        }
        // first occupiers of new building from abroad are part of the in-migration, not added to
        // it: taken off the persons read; a target that sets the in-migration (B 1) counts them
        // beside DR3ZAQ itself
        if (y.DR3ZANQ_.exists() && inPersons && _(B_0)) {
            if (_(K_6))
                firstOccupiersOffRegions(C, y, DG5ZA);
            else
                for (size_t ta = 0; ta < nta; ++ta)
                    for (size_t b = 0; b < nbg; ++b)
                        for (size_t g = 0; g < ngg; ++g)
                            for (size_t a = 0; a < nag; ++a) C.DR3ZAQ[ta][b][g][a] -= y.DR3ZANQ_[ta][b][g][a];
        }
    }

    // 5. the target of the external balance
    if (!_(N_0)) {
        C.BR21WS.make("C.BR21WS", {Z(C.NNTYA()), Z(C.NNBG()), Z(C.NNGG())}, 0.0);
        readTable(fileTable[FT_SALDVOL], C.BR21WS, "NNTYA\0NNBG\0NNGG\0");
    }
    const double Zin = C.DR3ZAQ.exists() ? C.DR3ZAQ.sum() : 0.0;
    LA4 zaqBefore("zaqBefore");
    if (_(K_6) && C.DR3ZAQ.exists()) zaqBefore = C.DR3ZAQ;

    // 6. out-migration adjusted in total
    if (_(A_1) && _(B_0) && !_(M_2)) {
        VCHECK(_(C_0), SOURCE);
        double f = 1;
        bool adjust = false;
        if (_(N_1)) {
            VCHECK(_(M_0), SOURCE);
            if (W == 0) {
                Prot::message(SEV_WARNING, "@rk2irw_fmt1310;");
            } else {
                f = (balanceTarget(C) - Zin) / W;
                adjust = true;
                if (f < 0) {
                    Prot::message(SEV_WARNING, "@rk2irw_fmt1400;", C.BR21WS.sum(), Zin);
                    f = 0;
                }
            }
        }
        if (_(M_1)) {
            VCHECK(_(N_0), SOURCE);
            if (W == 0) {
                Prot::message(SEV_WARNING, "@rk2irw_fmt1310;");
            } else {
                Rest r = typeTotals(C);
                f = (C.BR21.sum() - (r.sum() + Zin)) / W;
                adjust = true;
                if (f < 0) {
                    Prot::message(SEV_WARNING, "@rk2irw_fmt1300; (%.15g)",
                                  C.BR21.sum() + (C.BG40DSG.exists() ? C.BG40DSG.sum() : 0.0));
                    f = 0;
                }
            }
        }
        if (adjust) {
            double before = C.DR4WA.sum();
            C.DR4WA.forEach([f](f64& v) { v *= f; });
            sumOverAreas(C);
            Prot::writeln(1, "@rk2irw_fmt1200;", before, C.DR4WA.sum());
        }
    }

    // 7. out-migration adjusted by cohort
    if ((_(A_1) && _(B_0) && _(M_2)) || (_(A_0) && _(B_0) && _(C_0) && _(M_2)) ||
        (_(A_0) && _(B_1) && _(C_3) && (_(M_0) || _(M_1))))
        adjustOutMigrationByCohort(C, y);
    W = -C.DR4WA.sum();

    // 8. in-migration adjusted in total
    if (_(B_1) && !_(K_0) && !_(M_2)) {
        double f = 1;
        bool adjust = false;
        if (_(N_1)) {
            f = safe(balanceTarget(C) - W, Zin, 0);
            adjust = true;
            if (f < 0) {
                Prot::message(SEV_WARNING, "@rk2irz_fmt0900;");
                f = 0;
            }
        } else if (_(M_1)) {
            Rest r = typeTotals(C);
            f = safe(C.BR21.sum() - (r.stock + r.deaths + W + r.ian + r.oar), Zin, 0);
            adjust = true;
            if (f < 0) {
                Prot::message(SEV_WARNING, "@rk2irz_fmt0800;");
                f = 0;
            }
        }
        if (adjust) {
            laPrint(2, C.DR3ZAQ, "C.NTYA\0NBG\0NGG\0NAG\0", "@DR3ZAQ;");
            C.DR3ZAQ.forEach([f](f64& v) { v *= f; });
            Prot::writeln(1, "@rk2irz_fmt0940;", Zin, C.DR3ZAQ.sum(), f);
            if (Zin == 0) Prot::writeln(1, "@rk2irz_fmt0950;");
        }
    }

    // 9. in-migration adjusted by cohort
    if (cohortInMigration) adjustInMigrationByCohort(C, DR2W);

    // 10.
    if ((!_(K_0) && !_(K_6)) || _(M_2)) {
        if (C.DR3ZAQ.exists()) {
            const char* title = _(D_0) ? "@DR3ZAQ;" : (_(B_1) ? "@DR3ZAQ; @without; @DR0IN_; (@adjusted;)" : "@DR3ZAQ; @without; @DR0IN_;");
            laPrint(2, C.DR3ZAQ, "C.NTYA\0NBG\0NGG\0NAG\0", title);
        }
    }

    // 11. out- and in-migration together
    if ((_(A_1) && _(B_1) && (_(M_1) || _(M_2))) || _(N_1)) RK::SZW(c, y);

    if (_(K_6) && zaqBefore.exists()) followAdjustedInMigration(C, y, zaqBefore);

    // 12.
    if (_(K_0) && ((_(A_0) && _(B_1) && _(M_1)) || (_(B_1) && !_(N_0))))
        Prot::message(SEV_WARNING, "zur Anpassung Zuzug Zielwert Zuzug (K1) notwendig");

    // 13. to the in-migration types
    if ((!_(K_0) && !_(K_6)) || cohortInMigration) RK::ALL(c);

    // 14.
    if (C_() != 6) {
        if (newTable) {
            laPrint(4, C.DR4WA, "C.NTYA\0NTYQWA\0NBG\0NGG\0NAG\0");
            if (Prot::level(2)) {
                LA2 agg("DR4WA_", {nta, nq}, 0.0);
                for (size_t ta = 0; ta < nta; ++ta)
                    for (size_t q = 0; q < nq; ++q) agg[ta][q] = rowTotal(C.DR4WA[ta], q);
                laPrint(2, agg, "C.NTYA\0NTYQWA\0", "@DR4WA; @aggDG;");
            }
        }
        if (ini::AUSGABE_AUSSEN_MATRIX == 1) {
            writeByArea(FT_OUT_WEGZUG, C.DR4WA);
            if (!_(E_0)) writeByArea(FT_OUT_REAA, C.DR3ZAR);
        }
    }
    (void)mc;
    return newTable;
}

// ---------------------------------------------------------------- RK::SZW

namespace {

// The factors of in-migration Z and out-migration B (an outflow, below 0) that bring the balance
// Z + B to S. Both take S / (Z + B) as long as that is not negative. A balance of the other sign
// than its target would turn both flows round: then the flow on the target's side changes
// alone (in-migration for a target above the balance, out-migration for one below), and where
// that flow is 0 the other one goes to 0, the nearest a balance of that sign can come.
struct Factors {
    double in = 1, out = 1;
};
Factors jointFactors(double S, double Z, double B, bool report)
{
    const double f = S / (Z + B);
    if (f >= 0) return {f, f};
    Factors r;
    bool reachable = true;
    if (S > Z + B) {
        if (Z > 0) r.in = (S - B) / Z;
        else r.out = 0, reachable = false;
    } else {
        if (B < 0) r.out = (S - Z) / B;
        else r.in = 0, reachable = false;
    }
    if (!report) return r;
    Prot::writeln(1, "Saldo %.15g und Zielwert %.15g haben verschiedene Vorzeichen: Faktor Zuzug %.15g, "
                     "Faktor Wegzug %.15g", Z + B, S, r.in, r.out);
    if (!reachable)
        Prot::message(SEV_WARNING, "Zielwert %.15g mit Außenzuzug %.15g und Außenwegzug %.15g nicht erreichbar", S, Z,
                      -B);
    return r;
}

} // namespace

void RK::SZW(Orvane& c, YearStep& y)
{
    Trace::enter("RKSZW");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    const auto started = std::chrono::steady_clock::now();
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ntyb = Z(C.NTYB), nq = Z(C.NTYQWA);
    if (!C.DR3ZAQ.exists()) C.DR3ZAQ.make("C.DR3ZAQ", {Z(C.NTYA), nbg, ngg, nag}, 0.0);

    // 1. out-migration spread to the internal types through the regions, as outflows
    std::vector<double> NG1QWA(nq, 0.0);
    for (int z = 0; z < C.NGZ; ++z) NG1QWA[Z(C.region(z).tyqwa)] += 1;
    LA4 base = outMigrationStock(C, "Ausgangsbevölkerung", "Ausgangsbevölkerung für Außenwegzug (ohne DR3ZAR)", 4);
    LA4 DR3R("DR3R", {ntyb, nbg, ngg, nag}, 0.0);
    LA4 DG4WA0("DG4WA0", {Z(C.NGZ), nbg, ngg, nag}, 0.0);
    // the base leaves out those gone abroad from demolished dwellings; so does each region's share
    const bool demolition = !_(E_0) && y.DG4OAR.exists();
    // under C 6 the regions' out-migration is given: the work table starts from it
    const bool byRegion = C_() == 6;
    if (byRegion)
        y.DG4WA.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
            DG4WA0[z][b][g][a] = v;
            DR3R[Z(C.region(int(z)).tyb)][b][g][a] += v;
        });
    for (int z = 0; z < C.NGZ && !byRegion; ++z) {
        const RegionRow& r = C.region(z);
        const size_t q = Z(r.tyqwa), t = Z(r.tyb);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double wa = C.DR3WA[q][b][g][a];
                    if (wa == 0) continue;
                    double stock = C.BG40.get(Z(z), b, g, a);
                    if (demolition) stock += y.DG4OAR.get(Z(z), b, g, a);
                    double v = -safe(stock, base[q][b][g][a], 1 / NG1QWA[q]) * wa;
                    DG4WA0[Z(z)][b][g][a] = v;
                    DR3R[t][b][g][a] += v;
                }
    }
    const double WA = DR3R.sum(), ZA = C.DR3ZAQ.sum();
    double S = 0;
    if (_(M_2)) {
        bool negative = false;
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    Rest r = cohortTotals(C, b, g, a);
                    double target = C.BR21[b][g][a];
                    double gap = target - r.sum();
                    if (r.stock + r.deaths > target && target >= 0 && gap < 0) {
                        if (!negative) Prot::writeln(1, "@rk2szw_fmt2300;");
                        negative = true;
                        Prot::writeln(1, "%4d%4d%4d %.15g %.15g", int(b) + 1, int(g) + 1, int(a), r.sum(), target);
                    }
                    S += gap;
                }
        if (negative) Prot::message(SEV_WARNING, "@rk2szw_fmt1060;", S);
    } else if (_(M_1)) {
        S = C.BR21.sum() - typeTotals(C).sum();
        Prot::writeln(1, "@rk2szw_fmt1000;", C.BR21.sum());
    } else if (_(N_1)) {
        S = balanceTarget(C);
    }
    Prot::writeln(1, "@rk2szw_fmt1100;", WA + ZA, S);
    Prot::writeln(1, "@rk2szw_fmt1110; (%.15g)", S);

    // 2. the loop
    const bool table = Prot::level(2);
    if (table) Prot::raw("<table>\n<caption>%s</caption>\n<tr><th>#</th><th>NORM</th></tr>\n", DD::expKey("@iterProt;").c_str());
    std::vector<int> typeOfRegion(Z(C.NGZ));
    for (int z = 0; z < C.NGZ; ++z) typeOfRegion[Z(z)] = C.region(z).tyb;
    double NORM = 0, total = 1;
    int k = 0;
    for (;; ++k) {
        double B = DR3R.sum(), Zs = C.DR3ZAQ.sum();
        if (std::fabs(B + Zs) >= 1e-30) {
            const Factors f = jointFactors(S, Zs, B, k == 0);
            total *= f.in;
            C.DR3ZAQ.forEach([&f](f64& v) { v *= f.in; });
            for (size_t t = 0; t < ntyb; ++t)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a)
                            if (C.BR30[t][b][g][a] != 0) DR3R[t][b][g][a] *= f.out;
            for (int z = 0; z < C.NGZ; ++z) {
                size_t t = Z(typeOfRegion[Z(z)]);
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a)
                            if (C.BR30[t][b][g][a] != 0) DG4WA0[Z(z)][b][g][a] *= f.out;
            }
        }
        // the stock of each type against the sum of its regions
        std::vector<double> F(ntyb, 0.0), count(ntyb, 0.0);
        LA4 x("x", {ntyb, nbg, ngg, nag}, 0.0);
        C.BG40.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) { x[Z(typeOfRegion[z])][b][g][a] += v; });
        for (size_t t = 0; t < ntyb; ++t)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        if (C.BR30[t][b][g][a] == 0) continue;
                        count[t] += 1;
                        double q = dampedRatio(C.BR30[t][b][g][a], x[t][b][g][a], C.SCE);
                        F[t] += q;
                        DR3R[t][b][g][a] *= q;
                    }
        NORM = 0;
        for (size_t t = 0; t < ntyb; ++t) {
            if (count[t] != 0) F[t] /= count[t];
            else F[t] = 1;
            NORM = std::max(NORM, std::fabs(F[t] - 1));
        }
        if (table) Prot::raw("<tr><td>%d</td><td>%g</td></tr>\n", k + 1, NORM);
        if (C.EPS > NORM) break;
        if (k >= C.NITER) {
            Prot::message(SEV_WARNING, "@rk2abg_fmt1300;", C.NITER, NORM);
            break;
        }
    }
    if (table) Prot::raw("</table>\n");
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    Prot::writeln(1, "@rk2abg_fmt1200;", k + 1, NORM, seconds);

    // 4. out-migration rebuilt from the work table, by the same factors in every area
    LA4 old = C.DR3WA;
    C.DR3WA.fill(0);
    for (int z = 0; z < C.NGZ; ++z) {
        size_t q = Z(C.region(z).tyqwa);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) C.DR3WA[q][b][g][a] -= DG4WA0[Z(z)][b][g][a];
    }
    for (size_t ta = 0; ta < C.DR4WA.size(); ++ta)
        for (size_t q = 0; q < nq; ++q)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a)
                        C.DR4WA[ta][q][b][g][a] *= safe(C.DR3WA[q][b][g][a], old[q][b][g][a], 0);
    // the given out-migration of the regions takes the adjustment itself
    if (byRegion)
        for (int z = 0; z < C.NGZ; ++z)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        const double v = DG4WA0[Z(z)][b][g][a];
                        if (v != 0 || y.DG4WA.get(Z(z), b, g, a) != 0) y.DG4WA.set(Z(z), b, g, a, v);
                    }
    laPrint(2, C.DR4WA, "C.NTYA\0NTYQWA\0NBG\0NGG\0NAG\0", "@DR4WA; @adjusted;");
    laPrint(2, C.DR3ZAQ, "C.NTYA\0NBG\0NGG\0NAG\0", "@DR3ZAQ; @adjusted;");
    laPrint(2, DR3R, "C.NTYB\0NBG\0NGG\0NAG\0", "@DR3R; @adjusted;");
    if (_(B_1) && _(M_2)) Prot::writeln(1, "@rk2szw_fmt2400;", total);
    Prot::writeln(1, "@rk2szw_fmt2500;", DR3R.sum(), C.DR3ZAQ.sum(), C.DR4WA.sum());
}

// ---------------------------------------------------------------- the out-migration base

void outMigrationBase(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    if (C_() == 6 || !c.DR3WA.exists() || !y.DG4WA.exists()) return;
    Orvane& C = c;
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), nq = Z(C.NTYQWA);
    std::vector<double> NG1QWA(nq, 0.0);
    for (int z = 0; z < C.NGZ; ++z) NG1QWA[Z(C.region(z).tyqwa)] += 1;
    LA4 base = outMigrationStock(C, "Ausgangsbevölkerung gegliedert nach nach TYQWA",
                                 "Ausgangsbevölkerung ohne Rückbauendauszug für Außenwegzug", 3);
    laPrint(3, C.DR3WA, "C.NTYQWA\0NBG\0NGG\0NAG\0", "@DG4WA;");
    const bool demolition = !_(E_0) && y.DG4OAR.exists();
    const bool draws = MONTE_CARLO != 0;
    auto body = [&](int z) {
        const size_t q = Z(C.region(z).tyqwa);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double wa = C.DR3WA[q][b][g][a];
                    if (wa == 0) continue;
                    double stock = C.BG40.get(Z(z), b, g, a);
                    if (demolition) stock += y.DG4OAR.get(Z(z), b, g, a);
                    double share = safe(stock, base[q][b][g][a], 1 / NG1QWA[q]);
                    double v = draws ? -mc.draw(wa, share) : -share * wa;
                    if (v != 0) y.DG4WA.set(Z(z), b, g, a, v);
                }
    };
    // draws and new keys of a sparse table keep to one thread
    if (draws || y.DG4WA.sparse)
        for (int z = 0; z < C.NGZ; ++z) body(z);
    else
        os::parallelFor(0, C.NGZ, body);
    y.DG4WA.print(3, "@DG4WA;");
}

// ---------------------------------------------------------------- the external tables

void externalTypeOutputs(Orvane& c)
{
    Orvane& C = c;
    if (K_() == 6 || !(!_(K_0) || _(B_1) || _(M_2)) || !C.DR4ZA.exists()) return;
    const size_t nta = Z(C.NTYA), nzza = Z(C.NTYZZA);
    LA2 agg("DR4ZA_", {nta, nzza}, 0.0);
    for (size_t ta = 0; ta < nta; ++ta)
        for (size_t t = 0; t < nzza; ++t) agg[ta][t] = rowTotal(C.DR4ZA[ta], t);
    laPrint(Prot::protocolLevel() < 3 ? 2 : 3, agg, "C.NTYA\0NTYZZA\0", "@DR4ZA; DR4ZA @aggDG;");
    if (Prot::level(4)) {
        LA4 DR3ZA_("DR3ZA_", {nzza, Z(C.NBG), Z(C.NGG), Z(C.NAG)}, 0.0);
        for (size_t ta = 0; ta < nta; ++ta)
            for (size_t t = 0; t < nzza; ++t)
                for (size_t b = 0; b < Z(C.NBG); ++b)
                    for (size_t g = 0; g < Z(C.NGG); ++g)
                        for (size_t a = 0; a < Z(C.NAG); ++a) DR3ZA_[t][b][g][a] += C.DR4ZA[ta][t][b][g][a];
        laPrint(4, DR3ZA_, "C.NTYZZA\0NBG\0NGG\0NAG\0", "Aggregat DR4ZA über TYA");
        LA1 NGZZA("NGZZA", {nzza}, 0.0);
        for (int z = 0; z < C.NGZ; ++z) NGZZA[Z(C.region(z).tyzza)] += 1;
        laPrint(4, NGZZA, "C.NTYZZA\0", "Anzahl Gebiete pro Typ Außenzuzug", LA_INTEGER);
    }
    if (ini::AUSGABE_AUSSEN_MATRIX == 1) {
        if (!_(K_0)) writeByArea(FT_OUT_ZUZUG, C.DR4ZA);
        if (!_(D_0)) writeByArea(FT_OUT_NEBA, C.DR3ZAN);
    }
}

namespace {

// a region table split over the external areas by the shares of a table by area and type:
// the region's flow times area[ta][type of the region] over the sum over the areas
void writeRegionsByArea(const Orvane& C, int entry, const GemTable& flows, const LA5& byArea, bool ofInMigration,
                        double sign)
{
    FILE* f = nullptr;
    char name[64];
    if (!flows.exists() || !byArea.exists() || openTable(&f, entry, name, sizeof name) != 0 || !f) return;
    const double label = periodLabel(JAHR);
    const size_t nta = byArea.size();
    for (size_t ta = 0; ta < nta; ++ta)
        flows.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
            const RegionRow& r = C.region(int(z));
            const size_t t = Z(ofInMigration ? r.tyzza : r.tyqwa);
            double all = 0;
            for (size_t k = 0; k < nta; ++k) all += byArea[k][t][b][g][a];
            double x = sign * v * safe(byArea[ta][t][b][g][a], all, 1.0 / double(nta));
            if (x == 0) return;
            csvWriteCell(f, "%.0f", label, 0);
            csvWriteCell(f, "%.0f", double(ta + 1), 0);
            csvWriteCell(f, "%.0f", double(Z(z) < C.regions.size() ? C.regions[z].key : z + 1), 0);
            csvWriteCell(f, "%.0f", double(b + 1), 0);
            csvWriteCell(f, "%.0f", double(g + 1), 0);
            csvWriteCell(f, "%.0f", double(a), 0);
            csvWriteCell(f, "%.15g", x, 1);
        });
    closeTable(f);
}

} // namespace

void externalRegionOutputs(const Orvane& c, const YearStep& y)
{
    if (C_() != 6) writeRegionsByArea(c, FT_OUT_WEGZUG, y.DG4WA, c.DR4WA, false, -1);
    if (!_(E_0)) writeRegionsByArea(c, FT_OUT_REAA, y.DG4OAR, c.DR3ZAR, false, -1);
    if (!_(K_0) && !_(K_6)) writeRegionsByArea(c, FT_OUT_ZUZUG, y.DG4ZA, c.DR4ZA, true, 1);
    if (!_(D_0)) writeRegionsByArea(c, FT_OUT_NEBA, y.DG4IAN, c.DR3ZAN, true, 1);
}
