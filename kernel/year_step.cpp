// The year step: ageing, the movements of the year at type level and at region level, the
// cohort equation, the treatment of negative results and the year's output.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <stdexcept>
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

double Statistic::min() const
{
    if (!count) throw std::runtime_error("no data for min");
    return lo;
}
double Statistic::max() const
{
    if (!count) throw std::runtime_error("no data for max");
    return hi;
}
double Statistic::mean() const
{
    if (!count) throw std::runtime_error("no data for mean");
    return total / static_cast<double>(count);
}

void YearStep::release()
{
    for (GemTable* t : movements()) t->release();
    DG4OB.release();
    DG3G.release();
    PR2G.release();
    QR2G.release();
    PR4WBG.release();
    for (LA1* a : {&GG1ATTR, &DG1IBN_, &DG1OBR_}) a->release();
    regionsOfType.clear();
    std::vector<char>().swap(belowZero);
    DR4FBrates.release();
    DR4FBsRates.clear();
    for (LA1* a : {&DG1IN, &DG1OR}) a->release();
    for (LA4* a : {&QR3ZN, &DR3ZANQ_, &QR3ZAR}) a->release();
    for (LA2* a : {&QR1ZAN, &QR1ZAR}) a->release();
}

namespace {

// column of TYAGF in the reference table, counted from 1
constexpr int COLUMN_TYAGF = 11;

size_t Z(int i) { return static_cast<size_t>(i); }

// A loop over regions: a parallel loop when the run works in parallel and the body may write
// into the tables it touches without creating elements (always for dense storage).
template <class F> void regionLoop(const Orvane& c, bool createsElements, F&& body)
{
    if (createsElements && c.sparseGem) {
        for (int z = 0; z < c.NGZ; ++z) body(z);
        return;
    }
    os::parallelFor(0, c.NGZ, [&](int z) { body(z); });
}

long long keyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && Z(gz) < c.indexKeys.size()) return c.indexKeys[Z(gz)];
    return Z(gz) < c.regions.size() ? c.regions[Z(gz)].key : gz + 1;
}

// ---------------------------------------------------------------- ageing

// The age groups a cohort of the region advances in a year: the TYAGF of the reference table as
// written there (the region row holds it counted from the lowest value in use).
int ageStep(const Orvane& c, int z) { return c.region(z).tyagf + RK::refLowest(COLUMN_TYAGF); }

// One cohort's row moved on by step age groups in place, the last age group collecting: the same
// sums, in the same order, as adding each age that is not 0 into a cleared row (so a -0 becomes 0).
void ageRowInPlace(double* row, int last, int step)
{
    if (step == 1 && last >= 1) {
        // the row moves up by one within itself; adding 0 makes a -0 a 0
        double top = 0.0;
        if (row[last - 1] != 0) top += row[last - 1];
        if (row[last] != 0) top += row[last];
        std::memmove(row + 1, row, Z(last - 1) * sizeof(double));
        for (int a = 1; a < last; ++a) row[a] += 0.0;
        row[0] = 0.0;
        row[last] = top;
        return;
    }
    // the row is copied aside first (it stays in the cache)
    thread_local std::vector<double> from;
    from.assign(row, row + last + 1);
    std::fill(row, row + last + 1, 0.0);
    for (int a = 0; a <= last; ++a)
        if (from[Z(a)] != 0) row[std::min(last, a + step)] += from[Z(a)];
}

// Without special groups: each cohort moves on by the region's TYAGF, the last age group collects.
void ageWithoutSpecialGroups(Orvane& c)
{
    const int last = c.NAG - 1;
    if (c.sparseGem) {
        c.BGEM.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
            int step = ageStep(c, static_cast<int>(z));
            c.BG40.add(z, b, g, static_cast<size_t>(std::min(last, static_cast<int>(a) + step)), v);
        });
        return;
    }
    if (!c.BGEM.exists()) {
        // the start population was taken over by the year's table: each cohort ages in its row
        regionLoop(c, false, [&](int z) {
            const int step = ageStep(c, z);
            for (int b = 0; b < c.NBG; ++b)
                for (int g = 0; g < c.NGG; ++g) ageRowInPlace(c.BG40.row(Z(z), Z(b), Z(g)), last, step);
        });
        return;
    }
    regionLoop(c, false, [&](int z) {
        int step = ageStep(c, z);
        if (c.BGEM.sparse || c.BG40.sparse) {
            c.BGEM.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) {
                c.BG40.add(Z(z), b, g, static_cast<size_t>(std::min(last, static_cast<int>(a) + step)), v);
            });
            return;
        }
        // cohort by cohort: each age moves up by the region's step, the last age collects; the
        // row is cleared first, as the table may hold the values of an earlier one
        for (int b = 0; b < c.NBG; ++b)
            for (int g = 0; g < c.NGG; ++g) {
                const double* from = std::as_const(c.BGEM).row(Z(z), Z(b), Z(g));
                double* to = c.BG40.row(Z(z), Z(b), Z(g));
                std::fill(to, to + last + 1, 0.0);
                for (int a = 0; a <= last; ++a)
                    if (from[a] != 0) to[std::min(last, a + step)] += from[a];
            }
    });
}

struct NegativeRest {
    long long key;
    int gz, bg, gg, ag;
    double gem, dsg, result;
};

// With special groups: the start population less the special groups, then one step of ageing in
// regions whose TYAGF is exactly 1.
void ageWithSpecialGroups(Orvane& c)
{
    // copy and subtract, collecting what would fall below 0
    std::vector<std::vector<NegativeRest>> found(Z(c.NGZ));
    auto subtract = [&](int z) {
        c.BGEM.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) { c.BG40.set(Z(z), b, g, a, v); });
        if (!c.BG40DSG.exists()) return;
        c.BG40DSG.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double d) {
            double gem = c.BG40.get(Z(z), b, g, a);
            double r = gem - d;
            if (r < 0) {
                found[Z(z)].push_back({keyOf(c, z), z, static_cast<int>(b), static_cast<int>(g), static_cast<int>(a),
                                       gem, d, r});
                r = 0;
            }
            c.BG40.set(Z(z), b, g, a, r);
        });
    };
    regionLoop(c, true, subtract);
    Statistic stat;
    for (const auto& list : found)
        for (const NegativeRest& n : list) {
            Prot::writeln(1, "Index GZ %lld(#%d), BG %d, GG %d, AG %d: GEM(%g) - BG40DSG(%g) = %g", n.key, n.gz + 1,
                          n.bg + 1, n.gg + 1, n.ag, n.gem, n.dsg, n.result);
            stat.add(n.result);
        }
    if (!stat.empty())
        Prot::writeln(2, "@rk1gtu_fmt1000; (%d, %s %g, min %g)", static_cast<int>(stat.count), DD::lookup("sum").c_str(),
                      stat.total, stat.min());

    // one age group on, where the region's ageing type is 1
    const size_t nag = Z(c.NAG);
    auto age = [&](int z) {
        if (ageStep(c, z) != 1 || nag == 0) return;
        for (size_t b = 0; b < Z(c.NBG); ++b)
            for (size_t g = 0; g < Z(c.NGG); ++g) {
                if (!c.BG40.sparse) {
                    double* v = c.BG40.row(Z(z), b, g);
                    double lastValue = v[nag - 1];
                    for (size_t a = nag - 1; a > 0; --a) v[a] = v[a - 1];
                    v[0] = 0;
                    if (nag > 1) v[nag - 1] += lastValue;
                    continue;
                }
                double lastValue = c.BG40.get(Z(z), b, g, nag - 1);
                for (size_t a = nag - 1; a > 0; --a) c.BG40.set(Z(z), b, g, a, c.BG40.get(Z(z), b, g, a - 1));
                c.BG40.set(Z(z), b, g, 0, 0);
                if (nag > 1) c.BG40.add(Z(z), b, g, nag - 1, lastValue);
            }
    };
    regionLoop(c, true, age);
}

// ---------------------------------------------------------------- type level

// the regions of each internal migration type, in region order
void buildTypeLists(Orvane& c, YearStep& y)
{
    y.regionsOfType.assign(Z(std::max(c.NTYB, 0)), {});
    for (int z = 0; z < c.NGZ; ++z) {
        int t = c.region(z).tyb;
        if (t >= 0 && t < c.NTYB) y.regionsOfType[Z(t)].push_back(z);
    }
}

// sums a region table by internal migration type: one body per type, regions inside in order
void sumByType(const Orvane& c, const YearStep& y, const GemTable& from, LA4& into, const char* name)
{
    into.make(name, {Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
    if (!from.exists()) return;
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& r = into[Z(t)];
        for (int z : y.regionsOfType[Z(t)])
            from.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) { r[b][g][a] += v; });
    });
}

void printTypeList(const Orvane& c, const YearStep& y)
{
    if (!Prot::level(2)) return;
    Prot::raw("<table>\n<tr><th>%s</th><th>#</th><th>G#</th><th>%s</th><th>%s</th><th>mN</th></tr>\n", "TYB",
              DD::expKey("@GKZ;").c_str(), DD::expKey("@GNAME;").c_str());
    for (int t = 0; t < c.NTYB; ++t) {
        const auto& list = y.regionsOfType[Z(t)];
        int n = 0;
        for (int z : list)
            Prot::raw("<tr><td class=r>%d</td><td class=r>%d</td><td class=r>%d</td><td class=r>%lld</td><td>%s</td>"
                      "<td class=r>%zu</td></tr>\n",
                      t + 1, ++n, z + 1, keyOf(c, z), c.region(z).name.c_str(), list.size());
    }
    Prot::raw("</table>\n");
}

// the yearly flow rates between the types, and the stayer rates 1 minus all flows of a type
void loadFlowRates(Orvane& c, YearStep& y)
{
    const char* names = "C.NTYB\0NTYB\0NBG\0NGG\0NAG\0";
    if (c.sparseStrm) {
        c.DR4FBs.clear();
        long long sizes[5] = {c.NTYB, c.NTYB, c.NBG, c.NGG, c.NAG};
        readTableAdd(fileTable[FT_STRM], c.DR4FBs, sizes, names, VC_RATE);
        y.DR4FBsRates = c.DR4FBs;
    } else {
        c.DR4FB.make("C.DR4FB", {Z(c.NTYB), Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
        readTable(fileTable[FT_STRM], c.DR4FB, names, VC_RATE);
        y.DR4FBrates = c.DR4FB;
    }
    c.BR3R.make("C.BR3R", {Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 1.0);
    if (c.sparseStrm) {
        for (const FBElem& e : c.DR4FBs.elems) c.BR3R[e.tybv][e.bg][e.gg()][e.ag()] -= e.value;
        return;
    }
    os::parallelFor(0, c.NTYB, [&](int v) {
        auto& r = c.BR3R[Z(v)];
        for (const auto& n : c.DR4FB[Z(v)])
            for (size_t b = 0; b < n.size(); ++b)
                for (size_t g = 0; g < n[b].size(); ++g)
                    for (size_t a = 0; a < n[b][g].size(); ++a) r[b][g][a] -= n[b][g][a];
    });
}

// rates times the stock of the origin type
void ratesToNumbers(Orvane& c)
{
    if (c.sparseStrm) {
        for (FBElem& e : c.DR4FBs.elems) e.value *= c.BR30[e.tybv][e.bg][e.gg()][e.ag()];
    } else if (c.DR4FB.exists()) {
        os::parallelFor(0, c.NTYB, [&](int v) {
            const auto& s = c.BR30[Z(v)];
            for (auto& n : c.DR4FB[Z(v)])
                for (size_t b = 0; b < n.size(); ++b)
                    for (size_t g = 0; g < n[b].size(); ++g)
                        for (size_t a = 0; a < n[b][g].size(); ++a) n[b][g][a] *= s[b][g][a];
        });
    }
    if (!c.BR3R.exists()) return;
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& r = c.BR3R[Z(t)];
        const auto& s = c.BR30[Z(t)];
        for (size_t b = 0; b < r.size(); ++b)
            for (size_t g = 0; g < r[b].size(); ++g)
                for (size_t a = 0; a < r[b][g].size(); ++a) r[b][g][a] *= s[b][g][a];
    });
}

// the sum of stayers and flows of a type becomes 1 again
void numbersToRates(Orvane& c)
{
    if (!c.BR3R.exists()) return;
    LA4 ZSUM("ZSUM", {Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& s = ZSUM[Z(t)];
        s = c.BR3R[Z(t)];
        if (!c.sparseStrm && c.DR4FB.exists())
            for (const auto& n : c.DR4FB[Z(t)])
                for (size_t b = 0; b < n.size(); ++b)
                    for (size_t g = 0; g < n[b].size(); ++g)
                        for (size_t a = 0; a < n[b][g].size(); ++a) s[b][g][a] += n[b][g][a];
    });
    if (c.sparseStrm)
        for (const FBElem& e : c.DR4FBs.elems) ZSUM[e.tybv][e.bg][e.gg()][e.ag()] += e.value;
    laPrint(4, ZSUM, "C.NTYB\0NBG\0NGG\0NAG\0", "Zeilensumme BR3R + DR4FB");
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& r = c.BR3R[Z(t)];
        const auto& s = ZSUM[Z(t)];
        for (size_t b = 0; b < r.size(); ++b)
            for (size_t g = 0; g < r[b].size(); ++g)
                for (size_t a = 0; a < r[b][g].size(); ++a) r[b][g][a] = s[b][g][a] == 0 ? 1 : r[b][g][a] / s[b][g][a];
        if (c.sparseStrm || !c.DR4FB.exists()) return;
        for (auto& n : c.DR4FB[Z(t)])
            for (size_t b = 0; b < n.size(); ++b)
                for (size_t g = 0; g < n[b].size(); ++g)
                    for (size_t a = 0; a < n[b][g].size(); ++a)
                        if (s[b][g][a] != 0) n[b][g][a] /= s[b][g][a];
    });
    if (c.sparseStrm)
        for (FBElem& e : c.DR4FBs.elems) {
            double s = ZSUM[e.tybv][e.bg][e.gg()][e.ag()];
            if (s != 0) e.value /= s;
        }
    if (c.sparseStrm)
        c.DR4FBs.print(4, "@DR4FB; Raten rückgerechnet", LA_RATE);
    else
        laPrint(4, c.DR4FB, "C.NTYB\0NTYB\0NBG\0NGG\0NAG\0", "@DR4FB; Raten rückgerechnet", LA_RATE);
    laPrint(4, c.BR3R, "C.NTYB\0NBG\0NGG\0NAG\0", "@BR3R; Raten (default 1) rückgerechnet", LA_RATE);
}

// the rates of the loaded flow table, after the working copy of the type level
void restoreRates(Orvane& c, const YearStep& y)
{
    c.BR3R.make("C.BR3R", {Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 1.0);
    if (c.sparseStrm) {
        c.DR4FBs = y.DR4FBsRates;
        for (const FBElem& e : c.DR4FBs.elems) c.BR3R[e.tybv][e.bg][e.gg()][e.ag()] -= e.value;
    } else {
        c.DR4FB = y.DR4FBrates;
        c.DR4FB.name = "C.DR4FB";
        for (size_t v = 0; v < c.DR4FB.size(); ++v)
            for (const auto& n : c.DR4FB[v])
                for (size_t b = 0; b < n.size(); ++b)
                    for (size_t g = 0; g < n[b].size(); ++g)
                        for (size_t a = 0; a < n[b][g].size(); ++a) c.BR3R[v][b][g][a] -= n[b][g][a];
    }
    Prot::writeln(4, "@DR4FB; Ursprungsraten strm");
    Prot::writeln(4, "@BR3R; Ursprungsraten (default 1)");
}

double regionTotal(const GemTable& t, int z) { return t.exists() ? t.regionSum(Z(z)) : 0.0; }

// in-migration from abroad spread over the regions of each in-migration type by their losses
// through deaths and out-migration, when no internal migration does it
void spreadInMigration(Orvane& c, YearStep& y)
{
    if (!c.DR4ZA.exists() || !y.DG4ZA.exists() || K_() >= 6) return;
    std::vector<double> FWKG(Z(c.NGZ), 0.0), FWKZZA(Z(std::max(c.NTYZZA, 0)), 0.0), NGZZA(FWKZZA.size(), 0.0);
    for (int z = 0; z < c.NGZ; ++z) {
        FWKG[Z(z)] = -(regionTotal(y.DG4S, z) + regionTotal(y.DG4WA, z));
        int t = c.region(z).tyzza;
        if (t >= 0 && Z(t) < FWKZZA.size()) {
            FWKZZA[Z(t)] += FWKG[Z(z)];
            NGZZA[Z(t)] += 1;
        }
    }
    regionLoop(c, true, [&](int z) {
        int t = c.region(z).tyzza;
        if (t < 0 || Z(t) >= FWKZZA.size()) return;
        double share = safe(FWKG[Z(z)], FWKZZA[Z(t)], NGZZA[Z(t)] > 0 ? 1 / NGZZA[Z(t)] : 0);
        for (size_t b = 0; b < Z(c.NBG); ++b)
            for (size_t g = 0; g < Z(c.NGG); ++g)
                for (size_t a = 0; a < Z(c.NAG); ++a) {
                    double s = 0;
                    for (size_t ta = 0; ta < c.DR4ZA.size(); ++ta) s += c.DR4ZA[ta][Z(t)][b][g][a];
                    if (s != 0) y.DG4ZA.set(Z(z), b, g, a, share * s);
                }
    });
}

// ---------------------------------------------------------------- cohort equation and after

struct Negative {
    int z, b, g, a;
    double x, limit;
};
using NegativesByRegion = std::vector<std::vector<Negative>>;

// the elements of region z below their limit (0, or minus the special group)
void scanNegatives(const Orvane& c, int z, NegativesByRegion& found)
{
    const bool special = !_(R_0) && c.BG40DSG.exists();
    if (!special && !c.BG40.sparse) {
        // the limit is 0: only elements below 0, row by row
        for (int b = 0; b < c.NBG; ++b)
            for (int g = 0; g < c.NGG; ++g) {
                const double* r = c.BG40.row(Z(z), Z(b), Z(g));
                for (int a = 0; a < c.NAG; ++a)
                    if (r[a] < 0) found[Z(z)].push_back({z, b, g, a, r[a], 0.0});
            }
        return;
    }
    c.BG40.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double x) {
        double L = special ? -c.BG40DSG.get(Z(z), b, g, a) : 0.0;
        if (L > x) found[Z(z)].push_back({z, static_cast<int>(b), static_cast<int>(g), static_cast<int>(a), x, L});
    });
}

// the movements of the year added to the population; the elements below their limit are looked
// for in the same pass over a region (found)
void cohortEquation(Orvane& c, YearStep& y, NegativesByRegion& found)
{
    auto m = y.movements();
    std::vector<GemTable*> present;
    for (GemTable* t : m)
        if (t->exists() && !(t == &y.DG4S && y.deathsInPopulation)) present.push_back(t);
    found.assign(Z(c.NGZ), {});
    if (c.sparseGem) {
        for (GemTable* t : present)
            t->forEach([&](size_t z, size_t b, size_t g, size_t a, double v) { c.BG40.add(z, b, g, a, v); });
        os::parallelFor(0, c.NGZ, [&](int z) { scanNegatives(c, z, found); });
    } else {
        const size_t nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG);
        // with only the deaths added, and those already in the population, negative results can
        // stand only in the regions the deaths marked
        const bool marked = present.empty() && y.deathsInPopulation && y.belowZero.size() == Z(c.NGZ) &&
                            !c.BG40.sparse && (_(R_0) || !c.BG40DSG.exists());
        regionLoop(c, false, [&](int z) {
            if (marked && !y.belowZero[Z(z)]) return;
            for (GemTable* t : present) {
                if (t->sparse) {
                    t->forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) {
                        c.BG40.row(Z(z), b, g)[a] += v;
                    });
                    continue;
                }
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g) {
                        double* r = c.BG40.row(Z(z), b, g);
                        const double* s = std::as_const(*t).row(Z(z), b, g);
                        for (size_t a = 0; a < nag; ++a) r[a] += s[a];
                    }
            }
            scanNegatives(c, z, found);
        });
    }
    c.BG40.name = "BG41";
    if (c.BG40DSG.exists()) c.BG40.print(3, "BG41");
}

// elements below their limit are corrected, or reported only
void negativeResults(MonteCarlo& mc, Orvane& c, const NegativesByRegion& found)
{
    const bool keep = MONTE_CARLO != 0 || opt::get("$KEEP_NEG_GEM", 0) != 0;
    Statistic stat;
    for (const auto& list : found)
        for (const Negative& n : list) {
            stat.add(n.x - n.limit);
            if (keep) continue;
            if (Prot::level(2))
                Prot::message(SEV_HINT, "GEM %lld %d %d %d = %g negativ", keyOf(c, n.z), n.b + 1, n.g + 1, n.a, n.x);
            c.BG40.set(Z(n.z), Z(n.b), Z(n.g), Z(n.a), n.limit);
        }
    // a correction breaks the accounting of the cohorts by its sum: a warning, so that the
    // protocol's list of warnings says it at every protocol level
    if (!stat.empty()) {
        std::string word = DD::lookup(keep ? "rk0jhr_negative" : "rk0jhr_fix_negative");
        Prot::message(keep ? SEV_HINT : SEV_WARNING, "%d %s GEM%d.CSV (sum %g, min %g)", static_cast<int>(stat.count),
                      word.c_str(), periodLabel(JAHR), stat.total, stat.min());
    }
    if (MONTE_CARLO && ZOMBIE) mc.comb(c.BG40);
}

// the special groups, kept apart through the year, join the population of the year's end
void addSpecialGroups(Orvane& c)
{
    if (!c.BG40DSG.exists()) return;
    if (c.sparseGem) {
        c.BG40DSG.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) { c.BG40.add(z, b, g, a, v); });
        return;
    }
    regionLoop(c, false, [&](int z) {
        c.BG40DSG.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) { c.BG40.add(Z(z), b, g, a, v); });
    });
}

void roundMovements(YearStep& y)
{
    for (GemTable* t : y.movements()) t->roundWithCarry();
}

} // namespace

void RK::PAG(MonteCarlo& mc, Orvane* orvane)
{
    Trace::enter("RKPAG");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& c = *orvane;
    Prot::heading(3, "@rk1pag_G;", "@rk1pag_Gebiet;");
    YearStep y;

    // 1. the population of the year, aged; the end of the year before is this year's start
    if (JAHR != ini::STARTJAHR && c.BG40.exists()) {
        std::swap(c.BGEM, c.BG40);
        c.BGEM.name = "C.BGEM";
    }
    // nothing reads the start population after ageing: without special groups a dense table of
    // the year's shape becomes the year's table and ages in place
    const bool inPlace = c.BGEM.exists() && _(R_0) && !c.sparseGem && !c.BGEM.sparse &&
                         c.BGEM.extents() == std::array<size_t, 4>{Z(c.NGZ), Z(c.NBG), Z(c.NGG), Z(c.NAG)};
    if (inPlace) {
        c.BG40 = std::move(c.BGEM);
        c.BGEM.release();
        c.BG40.rename("C.BG40");
    } else {
        c.makeGem(c.BG40, "C.BG40");
    }
    if (c.BGEM.exists() || inPlace) {
        if (_(R_0))
            ageWithoutSpecialGroups(c);
        else
            ageWithSpecialGroups(c);
    }
    // nothing reads the start population after ageing: its storage serves the next table made,
    // whether or not the run keeps it for the movement outputs
    c.BGEM.release();
    c.BG40.print(4, "Anfangsbevölkerung ohne Sondergruppen, gealtert");

    // 3. births, deaths, group change; deaths without draws write every element of their table
    if (!MONTE_CARLO && !c.sparseGem)
        c.makeGemForOverwrite(y.DG4S, "DG4S");
    else
        c.makeGem(y.DG4S, "DG4S");
    if (!_(W_0)) {
        c.makeGem(y.DG4WBGv, "DG4WBGv");
        c.makeGem(y.DG4WBGn, "DG4WBGn");
    }
    y.deathsInPopulation = _(T_0) && _(W_0) && _(S_0) && !MONTE_CARLO && !c.sparseGem &&
                           opt::get("$MIDYEAR_BIRTHS", 0) == 0 && opt::get("$MIDYEAR_EXPOSURE", 0) == 0;
    births(mc, c, y);
    deaths(mc, c, y);
    groupChange(mc, c, y);

    // 4. without movements the year ends here
    if (!_(T_0)) {
        // 5. the movement tables of the modules in use
        if (!_(V_0)) {
            y.GG1ATTR.make("GG1ATTR", {Z(c.NGZ)}, 1.0);
            readTable(fileTable[FT_ATTR], y.GG1ATTR, "C.NGZ\0");
        }
        c.makeGem(y.DG4WA, "DG4WA");
        if (!_(D_0)) {
            c.makeGem(y.DG4OBN, "DG4OBN");
            c.makeGem(y.DG4IBN, "DG4IBN");
            y.DG1IBN_.make("DG1IBN_", {Z(c.NGZ)}, 0.0);
            c.makeGem(y.DG4IAN, "DG4IAN");
        }
        if (!_(E_0)) {
            c.makeGem(y.DG4IBR, "DG4IBR");
            c.makeGem(y.DG4OBR, "DG4OBR");
            y.DG1OBR_.make("DG1OBR_", {Z(c.NGZ)}, 0.0);
            c.makeGem(y.DG4OAR, "DG4OAR");
        }
        if (!_(K_0) || _(M_2)) c.makeGem(y.DG4ZA, "DG4ZA");

        // 6. the type level
        buildTypeLists(c, y);
        sumByType(c, y, c.BG40, c.BR30, "C.BR30");
        laPrint(3, c.BR30, "C.NTYB\0NBG\0NGG\0NAG\0", "BR30");
        sumByType(c, y, y.DG4S, c.DR3S, "C.DR3S");
        // the base copies for the apportionment of type totals to regions; only internal
        // migration apportions by regions, so only it needs the regions' copy
        if (!_(I_0)) {
            c.BG40B = c.BG40;
            c.BG40B.name = "C.BG40B";
        }
        c.BR30B = c.BR30;
        c.BR30B.name = "C.BR30B";

        // 7. flow rates between the types
        if (!_(I_0)) {
            printTypeList(c, y);
            loadFlowRates(c, y);
        }

        // 8. new building, demolition, external migration
        if (!_(D_0)) RK::EBB(c, y);
        if (!_(E_0)) {
            RK::REA(c, y);
            // the regions' last movers: external migration counts those gone abroad already
            demolitionRegions(c, y);
        }
        y.irwPrinted = RK::IRW(mc, c, y);
        externalTypeOutputs(c);

        // 9. to 12. the working numbers of the types
        const bool building = !_(D_0) || !_(E_0);
        if (building) {
            Prot::writeln(1, "@run; @calculate; @DG4OBN;, @DG4IBR;");
            if (c.sparseStrm)
                c.DR4FBs.print(4, "@DR4FB; Raten", LA_RATE);
            else if (c.DR4FB.exists())
                laPrint(4, c.DR4FB, "C.NTYB\0NTYB\0NBG\0NGG\0NAG\0", "@DR4FB; Raten", LA_RATE);
            if (c.BR3R.exists()) laPrint(4, c.BR3R, "C.NTYB\0NBG\0NGG\0NAG\0", "@BR3R; Raten (default 1)", LA_RATE);
            ratesToNumbers(c);
        }
        if (!_(P_0)) {
            // the limits need the out-migration of the regions now
            outMigrationBase(mc, c, y);
            // the working balance serves the moves into new building and out of demolition
            if (building && !_(I_0)) {
                typeSupplyAndDemand(c, y, false);
                RK::ABG(c, c.BR30);
            }
        }
        if (building) {
            numbersToRates(c);
            if (!_(D_0)) newBuildingOrigins(mc, c, y);
            if (!_(E_0)) demolitionArrivals(c, y);
            if (!_(I_0)) restoreRates(c, y);
            Prot::writeln(1, "@end; @calculate; @DG4OBN;, @DG4IBR;");
        }

        // 14. region level
        if (!_(I_0))
            for (GemTable* t : {&y.DG4OB, &y.DG4WB, &y.DG4OI, &y.DG4II, &y.DG4ZB}) c.makeGem(*t, t->name);
        if (!_(D_0)) newBuildingRegions(c, y);
        if (_(P_0)) outMigrationBase(mc, c, y);
        if (!_(I_0)) {
            checkFlowRates(c);
            balanceInternalMigration(c, y);
        }
        if (_(I_0)) spreadInMigration(c, y);
        if (y.irwPrinted == 0 && y.DG4WA.exists()) y.DG4WA.print(2, "DG4WA");
        if (!_(D_0)) {
            y.DG4IBN.print(2, "@DG4IBN;");
            laPrint(2, y.DG1IBN_, "C.NGZ\0", "@DG4IBN;");
            y.DG4IAN.print(2, "@DG4IAN;");
        }
        if (!_(E_0)) {
            y.DG4OBR.print(2, "@DG4OBR;");
            laPrint(2, y.DG1OBR_, "C.NGZ\0", "@DG4OBR;");
            y.DG4OAR.print(2, "@DG4OAR;");
        }

        // 15. internal migration by type, region to region; those displaced by demolition arrive
        // in the regions of each type by free capacity
        if (!_(I_0))
            internalMigrationRegions(mc, c, y);
        else if (!_(E_0))
            placeDisplacedWithoutFlows(c, y);
        if (!_(E_0)) weighDisplaced(c, y);
        // the regions' base copy has served; its storage serves the tables still to come
        c.BG40B.release();

        // 16. messages on the external tables
        if (K_() == 6 && ini::AUSGABE_AUSSEN_MATRIX)
            Prot::writeln(1, "Bei Baustein K6 keine Ausgabe von zuzug.csv, da identisch mit Eingabedatei zuvg");
        if (C_() == 6) Prot::writeln(1, "keine Ausgabe wegzug.csv, da mit Eingabedatei wegv identisch");
        if (ini::AUSGABE_AUSSEN_MATRIX == 2) externalRegionOutputs(c, y);
        if (MONTE_CARLO && _(P_1))
            for (GemTable* t : {&y.DG4ZA, &y.DG4ZB, &y.DG4OI, &y.DG4II}) {
                if (!t->exists()) continue;
                if (!t->sparse) {
                    t->roundWithCarry();
                    continue;
                }
                // the elements rounded to 0 stay in the table here
                RoundCarry r;
                for (auto& kv : t->cells) kv.second = r(kv.second);
            }
    }

    // 16. the conventions of the mean of the year, then the cohort equation
    midyearConventions(c, y);
    NegativesByRegion negatives;
    cohortEquation(c, y, negatives);
    targetReport(c);

    // 17. negative results
    negativeResults(mc, c, negatives);
    addSpecialGroups(c);

    // 18. the year's output
    if (ini::STRunden) roundMovements(y);
    Trace::enter("RKOUT");
    writeYearOutputs(c, y, periodLabel(JAHR));
    accountYear(c, y, periodLabel(JAHR));
    Trace::leave();
    c.BG40.name = "C.BG40";
    y.release();
}
