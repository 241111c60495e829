// Internal migration at region level: the balanced flows of the types spread to their regions,
// moves inside each type laid out region to region by free housing capacity, fitted to the
// regions' limits, and booked as moves out of and into the regions.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/file_table.h"
#include "kernel/kernel_helpers.h"
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/run_values.h"
#include "kernel/year_step.h"
#include "tables/table_text.h"

namespace {

const char* const TYPE_NAMES = "C.NTYB\0NBG\0NGG\0NAG\0";

size_t Z(int i) { return static_cast<size_t>(i); }

long long keyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && Z(gz) < c.indexKeys.size()) return c.indexKeys[Z(gz)];
    return Z(gz) < c.regions.size() ? c.regions[Z(gz)].key : gz + 1;
}

template <class T, class F> void cohorts(T& r, F&& f)
{
    for (size_t b = 0; b < r.size(); ++b)
        for (size_t g = 0; g < r[b].size(); ++g)
            for (size_t a = 0; a < r[b][g].size(); ++a) f(b, g, a, r[b][g][a]);
}

double regionTotal(const GemTable& t, int z) { return t.exists() ? t.regionSum(Z(z)) : 0.0; }

// a loop over the regions of a type, in parallel where the region tables are dense
template <class F> void typeLoop(const Orvane& c, size_t n, F&& body)
{
    if (c.sparseGem || MONTE_CARLO) {
        for (size_t i = 0; i < n; ++i) body(static_cast<int>(i));
        return;
    }
    os::parallelFor(0, static_cast<int>(n), [&](int i) { body(i); });
}

// one row of the region-to-region flows of the year
void flowRow(const Orvane& c, int zv, int zn, size_t b, size_t g, size_t a, double v)
{
    if (!c.gstrom || v == 0) return;
    csvWriteCell(c.gstrom, "%.0f", periodLabel(JAHR), 0);
    csvWriteCell(c.gstrom, "%.0f", double(keyOf(c, zv)), 0);
    csvWriteCell(c.gstrom, "%.0f", double(keyOf(c, zn)), 0);
    csvWriteCell(c.gstrom, "%.0f", double(b + 1), 0);
    csvWriteCell(c.gstrom, "%.0f", double(g + 1), 0);
    csvWriteCell(c.gstrom, "%.0f", double(a), 0);
    csvWriteCell(c.gstrom, "%.15g", v, 1);
}

// the flows between regions of different types: the type flow times the origin's share of its
// type's stock and the destination's share of its type's arrivals
void flowsBetweenTypes(const Orvane& c, const YearStep& y, const LA4& DR3ZB)
{
    if (!c.gstrom || c.sparseStrm || !c.DR4FB.exists()) return;
    size_t negatives = 0;
    double negativeSum = 0;
    for (int zv = 0; zv < c.NGZ; ++zv) {
        const size_t v = Z(c.region(zv).tyb);
        for (int zn = 0; zn < c.NGZ; ++zn) {
            const size_t n = Z(c.region(zn).tyb);
            if (n == v) continue;
            cohorts(c.DR4FB[v][n], [&](size_t b, size_t g, size_t a, double x) {
                if (x == 0) return;
                const double from = c.BG40B.get(Z(zv), b, g, a), to = y.DG4ZB.get(Z(zn), b, g, a);
                const double gs = x * safe(from, c.BR30B[v][b][g][a], 0) * safe(to, DR3ZB[n][b][g][a], 0);
                if (gs < 0) {
                    ++negatives;
                    negativeSum += gs;
                    if (Prot::level(4))
                        Prot::raw("<pre>%3zu: GZv=%d GZn=%d BG=%d GG=%d AG=%d: gstrom=%g BG40B=%g BR30B(TYBv=%d)=%g "
                                  "DG4ZB=%g DR3ZB(TYBn=%d)=%g\n</pre>",
                                  negatives, zv + 1, zn + 1, int(b) + 1, int(g) + 1, int(a), gs, from, int(v) + 1,
                                  c.BR30B[v][b][g][a], to, int(n) + 1, DR3ZB[n][b][g][a]);
                }
                flowRow(c, zv, zn, b, g, a, gs);
            });
        }
    }
    if (negatives)
        Prot::message(SEV_WARNING, "gstrom.csv enthält %zu negative Werte mit Summe %.15g", negatives, negativeSum);
}

// the free housing capacity of the regions of a type, printed as its parts
std::vector<double> freeCapacity(const Orvane& c, const YearStep& y, const std::vector<int>& regions, double& F)
{
    const bool building = !_(D_0), attraction = !_(V_0) && y.GG1ATTR.exists();
    std::vector<double> FWKG(regions.size(), 0.0);
    const bool print = Prot::level(2);
    if (print) {
        Prot::raw("<table>\n<caption>FWKG</caption>\n<tr><th>GZt</th><th>GKZ</th><th>S:DG4S</th><th>+WA:DG4WA</th>"
                  "<th>+OB:DG4OB</th>%s<th>=FWKG:FWKG</th>%s</tr>\n",
                  building ? "<th>+OB:DG4OBN</th>" : "", attraction ? "<th>*ATTR:GG1ATTR</th><th>=FWKG:FWKG</th>" : "");
    }
    std::vector<std::pair<long long, double>> negative;
    double sums[7] = {0, 0, 0, 0, 0, 0, 0};
    F = 0;
    for (size_t zt = 0; zt < regions.size(); ++zt) {
        const int z = regions[zt];
        const double S = -regionTotal(y.DG4S, z), WA = -regionTotal(y.DG4WA, z), OB = -regionTotal(y.DG4OB, z),
                     OBN = building ? -regionTotal(y.DG4OBN, z) : 0;
        double f = S + WA + OB + OBN;
        const double before = f, w = attraction ? y.GG1ATTR[Z(z)] : 1;
        f *= w;
        if (print) {
            Prot::raw("<tr><td class=r>%zu</td><td class=r>%lld</td><td class=r>%.6g</td><td class=r>%.6g</td>"
                      "<td class=r>%.6g</td>",
                      zt + 1, keyOf(c, z), S, WA, OB);
            if (building) Prot::raw("<td class=r>%.6g</td>", OBN);
            Prot::raw("<td class=r>%.6g</td>", before);
            if (attraction) Prot::raw("<td class=r>%.6g</td><td class=r>%.6g</td>", w, f);
            Prot::raw("</tr>\n");
        }
        double parts[7] = {S, WA, OB, OBN, before, w, f};
        for (int i = 0; i < 7; ++i) sums[i] += parts[i];
        if (f < 0) {
            negative.push_back({keyOf(c, z), f});
            f = 0;
        }
        FWKG[zt] = f;
        F += f;
    }
    if (print) {
        Prot::raw("<tr><td colspan=2>&Sigma;</td><td class=r>%.6g</td><td class=r>%.6g</td><td class=r>%.6g</td>", sums[0],
                  sums[1], sums[2]);
        if (building) Prot::raw("<td class=r>%.6g</td>", sums[3]);
        Prot::raw("<td class=r>%.6g</td>", sums[4]);
        if (attraction) Prot::raw("<td></td><td class=r>%.6g</td>", sums[6]);
        Prot::raw("</tr>\n</table>\n");
    }
    for (const auto& [key, v] : negative)
        Prot::writeln(1, "Gebiet %lld: negative freie Wohnkapazität %g auf Null gesetzt", key, v);
    return FWKG;
}

// the table of supply and demand of the regions of a type, and their limits for the fit
void regionLimits(const Orvane& c, const YearStep& y, TypeFit& f)
{
    const size_t n = f.regions.size();
    f.BG2A.make("BG2A", {2, n}, 0.0);
    const bool print = Prot::level(4);
    if (print)
        Prot::raw("<table>\n<tr><th>GR</th><th>GZt</th><th colspan=2>BG21E</th><th>GR,GZt,BG21E,+S:DG4S,+WA:DG4WA</th>"
                  "<th>-IAN:DG4IAN,-IBN:DG4IBN</th><th>+OAR:DG4OAR</th><th colspan=2>=BG2A:BG2A</th></tr>\n");
    for (size_t zt = 0; zt < n; ++zt) {
        const int z = f.regions[zt];
        const double S = regionTotal(y.DG4S, z), WA = regionTotal(y.DG4WA, z);
        const double IN = regionTotal(y.DG4IAN, z) + regionTotal(y.DG4IBN, z), OAR = regionTotal(y.DG4OAR, z);
        const double x = S + WA + IN + OAR;
        for (size_t k = 0; k < 2; ++k) {
            double limit = c.BG21E.exists() ? c.BG21E[k][Z(z)] : (k == 0 ? 0 : UNDEF);
            f.BG2A[k][zt] = isUndef(limit) ? limit : limit - x;
        }
        if (!print) continue;
        auto cell = [](double v) {
            return isUndef(v) ? std::string("<td class=r colspan=1>undef</td>") : "<td class=r>" + Pic::Get(v, 0) + "</td>";
        };
        Prot::raw("<tr><td class=r>%lld</td><td class=r>%zu</td>%s%s<td class=r>%.6g</td><td class=r>%.6g</td>"
                  "<td class=r>%.6g</td>%s%s</tr>\n",
                  f.keys[zt], zt + 1, cell(c.BG21E.exists() ? c.BG21E[0][Z(z)] : 0).c_str(),
                  cell(c.BG21E.exists() ? c.BG21E[1][Z(z)] : UNDEF).c_str(), -S - WA, -IN, -OAR,
                  cell(f.BG2A[0][zt]).c_str(), cell(f.BG2A[1][zt]).c_str());
    }
    if (print) Prot::raw("</table>\n");
}

// a region table of the type's regions into the table of the fit and back
void toFit(const GemTable& from, const std::vector<int>& regions, LA4& to, const TypeFit& f, const char* name)
{
    to.make(name, {regions.size(), f.nbg, f.ngg, f.nag}, 0.0);
    for (size_t zt = 0; zt < regions.size(); ++zt)
        from.forRegion(Z(regions[zt]), [&](size_t, size_t b, size_t g, size_t a, double v) { to[zt][b][g][a] = v; });
}
void fromFit(GemTable& to, const std::vector<int>& regions, const LA4& from)
{
    for (size_t zt = 0; zt < regions.size(); ++zt)
        cohorts(from[zt], [&](size_t b, size_t g, size_t a, double v) {
            if (v != 0 || to.get(Z(regions[zt]), b, g, a) != 0) to.set(Z(regions[zt]), b, g, a, v);
        });
}

} // namespace

// ---------------------------------------------------------------- the rate check

// the name of the flow rate table in force, "strm2024.csv" rather than its stem
std::string flowRateFile()
{
    const FileEntry& e = fileTable[FT_STRM];
    if (e.name.find("%d") == std::string::npos || e.fileNumber < 0) return e.name + ".csv";
    char name[64];
    std::snprintf(name, sizeof name, e.name.c_str(), e.fileNumber);
    return std::string(name) + ".csv";
}

// rates of one internal type that sum above 1 leave a negative number of stayers; the run goes
// on with them, and the warning names the table and the first cohorts
void checkFlowRates(const Orvane& c)
{
    if (!c.BR3R.exists()) return;
    const std::string file = flowRateFile();
    int count = 0;
    for (int t = 0; t < c.NTYB; ++t)
        cohorts(c.BR3R[Z(t)], [&](size_t b, size_t g, size_t a, double s) {
            // the stayer rate is 1 minus the sum of the flow rates
            if (Compare(1 - s, 1, c.SUMTOL) <= 0) return;
            if (++count <= 10)
                Prot::writeln(1, "%s: TYBv %d, BG %d, GG %d, AG %d: Summe der Raten %.15g &gt; 1",
                              file.c_str(), t + 1, int(b) + 1, int(g) + 1, int(a), 1 - s);
        });
    if (count)
        Prot::message(SEV_WARNING, "%s: bei %d Kohorten ist die Summe der Raten eines Binnentyps größer als 1",
                      file.c_str(), count);
}

// ---------------------------------------------------------------- the region level

void placeDisplacedWithoutFlows(Orvane& c, YearStep& y)
{
    if (!c.DR3IBR.exists()) return;
    for (int t = 0; t < c.NTYB; ++t) {
        double F = 0;
        const std::vector<double> FWKG = freeCapacity(c, y, y.regionsOfType[Z(t)], F);
        placeDisplaced(c, y, t, y.regionsOfType[Z(t)], FWKG, F);
    }
}

void internalMigrationRegions(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    const size_t ntyb = Z(c.NTYB), nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG);
    const bool draws = MONTE_CARLO != 0;

    // moves out of each type, within it too, and arrivals from other types
    LA4 DR3OB("DR3OB", {ntyb, nbg, ngg, nag}, 0.0), DR3ZB("DR3ZB", {ntyb, nbg, ngg, nag}, 0.0);
    LA4 STRMHD("STRMHD", {ntyb, nbg, ngg, nag}, 0.0);
    auto book = [&](size_t v, size_t n, size_t b, size_t g, size_t a, double x) {
        DR3OB[v][b][g][a] -= x;
        if (v != n)
            DR3ZB[n][b][g][a] += x;
        else
            STRMHD[v][b][g][a] += x;
    };
    if (c.sparseStrm) {
        for (const FBElem& e : c.DR4FBs.elems) book(e.tybv, e.tybn, e.bg, e.gg(), e.ag(), e.value);
    } else {
        for (size_t v = 0; v < ntyb; ++v)
            for (size_t n = 0; n < ntyb; ++n)
                cohorts(c.DR4FB[v][n], [&](size_t b, size_t g, size_t a, double x) { book(v, n, b, g, a, x); });
    }
    laPrint(3, DR3OB, TYPE_NAMES, "DR3OB");
    laPrint(3, DR3ZB, TYPE_NAMES, "DR3ZB");

    for (size_t t = 0; t < ntyb; ++t) {
        const auto& regions = y.regionsOfType[t];
        const double share1 = regions.empty() ? 0 : 1.0 / double(regions.size());
        typeLoop(c, regions.size(), [&](int zt) {
            const int z = regions[Z(zt)];
            cohorts(DR3OB[t], [&](size_t b, size_t g, size_t a, double n) {
                if (n == 0) return;
                double from = c.BG40B.get(Z(z), b, g, a), all = c.BR30B[t][b][g][a];
                double v = draws ? mc.draw(n, safe(from, all, share1)) : safe(from, all, share1) * n;
                if (v != 0) y.DG4OB.set(Z(z), b, g, a, v);
            });
        });
    }
    y.DG4OB.print(2, "@DG4OB;");

    // each type in turn
    const bool fitting = _(P_1), sparse = opt::get("$BFWKG", 0) != 0;
    Prot::writeln(1, "Berechne Innenwanderung nach freier Wohnkapazität%s", sparse ? " mit sparse Matrix" : "");
    LA1 FWKT_("FWKT_", {ntyb}, 0.0);
    Prot::writeln(1, "%s", DD::expKey("@TYB;\n<ol>\n").c_str());
    int fits = 0, maxIterations = 0;
    double sumIterations = 0;
    for (size_t t = 0; t < ntyb; ++t) {
        const auto& regions = y.regionsOfType[t];
        const size_t n = regions.size();
        c.NGZt = static_cast<int>(n);
        Prot::writeln(1, "<li value=\"%d\">%d @rk1gtu_TG;\n", int(t) + 1, int(n));
        if (Prot::level(3)) {
            Prot::raw("<table>\n<caption>GT</caption>\n<tr><th>ID</th><th>G</th><th>GKZ</th><th>%s</th></tr>\n",
                      DD::expKey("@GNAME;").c_str());
            for (size_t zt = 0; zt < n; ++zt)
                Prot::raw("<tr><td class=r>%zu</td><td class=r>%d</td><td class=r>%lld</td><td>%s</td></tr>\n", zt + 1,
                          regions[zt] + 1, keyOf(c, regions[zt]), c.region(regions[zt]).name.c_str());
            Prot::raw("</table>\n");
        }
        if (n == 0) continue;
        TypeFit f;
        f.type = static_cast<int>(t);
        f.year = periodLabel(JAHR);
        f.regions = regions;
        f.sparse = sparse;
        f.nbg = nbg, f.ngg = ngg, f.nag = nag;
        for (int z : regions) f.keys.push_back(keyOf(c, z));

        // the moves inside the type, by each region's share of the type's stock
        LA4 DG3OI("DG3OI", {n, nbg, ngg, nag}, 0.0);
        typeLoop(c, n, [&](int zt) {
            const int z = regions[Z(zt)];
            cohorts(DG3OI[Z(zt)], [&](size_t b, size_t g, size_t a, double& v) {
                const double s = STRMHD[t][b][g][a];
                if (s == 0) return;
                const double from = c.BG40B.get(Z(z), b, g, a), all = c.BR30B[t][b][g][a];
                v = draws ? mc.draw(s, safe(from, all, 0)) : safe(from, all, 0) * s;
            });
        });
        laPrint(2, DG3OI, "C.NGZt\0NBG\0NGG\0NAG\0", "DG3OI");
        for (size_t zt = 0; zt < n; ++zt)
            cohorts(DG3OI[zt], [&](size_t b, size_t g, size_t a, double v) {
                double w = y.DG4OB.get(Z(regions[zt]), b, g, a) + v;
                if (w != 0) y.DG4WB.set(Z(regions[zt]), b, g, a, w);
            });

        // free housing capacity
        double F = 0;
        const std::vector<double> FWKG = freeCapacity(c, y, regions, F);
        FWKT_[t] = F;
        auto shareOf = [&](size_t zt) { return safe(FWKG[zt], F, 1.0 / double(n)); };

        // in-migration from abroad by the region's capacity within its in-migration type
        if (c.DR4ZA.exists() && y.DG4ZA.exists() && K_() < 6) {
            std::vector<double> FWKZZA(Z(std::max(c.NTYZZA, 1)), 0.0);
            for (size_t zt = 0; zt < n; ++zt) FWKZZA[Z(c.region(regions[zt]).tyzza)] += FWKG[zt];
            typeLoop(c, n, [&](int zt) {
                const int z = regions[Z(zt)];
                const size_t yy = Z(c.region(z).tyzza);
                const double s = safe(FWKG[Z(zt)], FWKZZA[yy], 1.0 / double(n));
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a) {
                            double x = 0;
                            for (size_t ta = 0; ta < c.DR4ZA.size(); ++ta) x += c.DR4ZA[ta][yy][b][g][a];
                            if (x != 0 || y.DG4ZA.get(Z(z), b, g, a) != 0) y.DG4ZA.set(Z(z), b, g, a, s * x);
                        }
            });
        }
        // those displaced by demolition
        if (!_(E_0) && c.DR3IBR.exists()) placeDisplaced(c, y, static_cast<int>(t), regions, FWKG, F);

        // the arrivals from other types
        double stock = 0;
        std::vector<double> regionStock(n, 0.0);
        for (size_t zt = 0; zt < n; ++zt) stock += regionStock[zt] = c.BG40B.regionSum(Z(regions[zt]));
        RoundCarry carry;
        for (size_t zt = 0; zt < n; ++zt) {
            const double s = F != 0 ? FWKG[zt] / F : safe(regionStock[zt], stock, 1);
            cohorts(DR3ZB[t], [&](size_t b, size_t g, size_t a, double x) {
                double v = s * x;
                if (draws) v = carry(v);
                if (v != 0) y.DG4ZB.set(Z(regions[zt]), b, g, a, v);
            });
        }

        // the moves inside the type region to region
        const bool pairs = fitting || c.gstrom;
        if (fitting) {
            f.STAYER.make("STAYER", {n, nbg, ngg, nag}, 0.0);
            LA3 BR3R_("BR3R_", {nbg, ngg, nag}, 1.0);
            cohorts(BR3R_, [&](size_t b, size_t g, size_t a, double& r) { r = safe(c.BR3R[t][b][g][a], c.BR30B[t][b][g][a], 1); });
            laPrint(3, BR3R_, "NBG\0NGG\0NAG\0",
                    "BR3R_ = BR3R(TYB) / BR30(TYB) für aktuelle TYB rückgerechnete Stayerrate (default 1)", LA_RATE);
            for (size_t zt = 0; zt < n; ++zt)
                c.BG40B.forRegion(Z(regions[zt]), [&](size_t, size_t b, size_t g, size_t a, double v) {
                    f.STAYER[zt][b][g][a] = v * BR3R_[b][g][a];
                });
        }
        size_t stored = 0;
        if (pairs && !sparse) {
            f.DG5FI.make("DG5FI", {n, n, nbg, ngg, nag}, 0.0);
            typeLoop(c, n, [&](int zv) {
                for (size_t zn = 0; zn < n; ++zn) {
                    const double s = shareOf(zn);
                    cohorts(f.DG5FI[Z(zv)][zn], [&](size_t b, size_t g, size_t a, double& v) { v = s * DG3OI[Z(zv)][b][g][a]; });
                }
            });
            f.DG5FI.forEach([&](double v) { stored += v != 0; });
        } else if (pairs) {
            std::vector<double> shares(n);
            for (size_t zn = 0; zn < n; ++zn) shares[zn] = shareOf(zn);
            f.DG5FIs.make(DG3OI, std::move(shares));
            stored = f.DG5FIs.size();
        }
        if (pairs)
            Prot::writeln(2, "@fillDeg; @DG5FI; %.2f%%",
                          double(stored) * 100 / (double(n) * double(n) * double(nbg * ngg * nag)));

        // the fit to the limits of the regions
        if (fitting && n == 1) {
            Prot::writeln(2, "@rk1gtu_1GpT;");
        } else if (fitting) {
            regionLimits(c, y, f);
            toFit(y.DG4ZB, regions, f.DG4ZB, f, "DG4ZB");
            if (y.DG4IBR.exists()) toFit(y.DG4IBR, regions, f.DG4IBR, f, "DG4IBR");
            if (y.DG4ZA.exists()) {
                toFit(y.DG4ZA, regions, f.DG4ZA, f, "DG4ZA");
                f.groups = Z(std::max(c.NTYZZA, 1));
                for (int z : regions) f.group.push_back(Z(c.region(z).tyzza));
            }
            int k = abgleichInnenwanderung(f);
            ++fits;
            maxIterations = std::max(maxIterations, k);
            sumIterations += k;
            fromFit(y.DG4ZB, regions, f.DG4ZB);
            if (f.DG4IBR.exists()) fromFit(y.DG4IBR, regions, f.DG4IBR);
            if (f.DG4ZA.exists()) fromFit(y.DG4ZA, regions, f.DG4ZA);
        }
        y.DG4ZB.print(3, "@DG4ZB; DG4ZB=DR3ZB*FWKG (Anteil TYB)");

        // booked as moves out of and into the regions
        if (!pairs) {
            // without the fit each region sends to the others by their shares
            for (size_t zv = 0; zv < n; ++zv) {
                const double away = 1 - shareOf(zv);
                cohorts(DG3OI[zv], [&](size_t b, size_t g, size_t a, double x) {
                    if (x != 0 && away != 0) y.DG4OI.add(Z(regions[zv]), b, g, a, -x * away);
                });
            }
            LA3 all("DG3OI_", {nbg, ngg, nag}, 0.0);
            for (size_t zv = 0; zv < n; ++zv) cohorts(DG3OI[zv], [&](size_t b, size_t g, size_t a, double x) { all[b][g][a] += x; });
            for (size_t zn = 0; zn < n; ++zn) {
                const double s = shareOf(zn);
                cohorts(all, [&](size_t b, size_t g, size_t a, double x) {
                    double v = s * (x - DG3OI[zn][b][g][a]);
                    if (v != 0) y.DG4II.add(Z(regions[zn]), b, g, a, v);
                });
            }
        } else if (sparse) {
            LA4 away, from;
            f.DG5FIs.betweenRegions(away, from);
            for (size_t zt = 0; zt < n; ++zt) {
                cohorts(away[zt], [&](size_t b, size_t g, size_t a, double v) {
                    if (v != 0) y.DG4OI.add(Z(regions[zt]), b, g, a, -v);
                });
                cohorts(from[zt], [&](size_t b, size_t g, size_t a, double v) {
                    if (v != 0) y.DG4II.add(Z(regions[zt]), b, g, a, v);
                });
            }
            // the flow recorder takes every pair of different regions
            if (c.gstrom)
                f.DG5FIs.forEach([&](const FIElem& e) {
                    if (e.zv != e.zn) flowRow(c, regions[e.zv], regions[e.zn], e.bg, e.gg(), e.ag(), e.value);
                });
        } else {
            for (size_t zv = 0; zv < n; ++zv)
                for (size_t zn = 0; zn < n; ++zn) {
                    if (zv == zn) continue;
                    cohorts(f.DG5FI[zv][zn], [&](size_t b, size_t g, size_t a, double v) {
                        if (v == 0) return;
                        y.DG4OI.add(Z(regions[zv]), b, g, a, -v);
                        y.DG4II.add(Z(regions[zn]), b, g, a, v);
                        flowRow(c, regions[zv], regions[zn], b, g, a, v);
                    });
                }
        }
    }
    c.NGZt = c.NGZ;
    Prot::writeln(1, "</ol>\n");
    laPrint(2, FWKT_, "C.NTYB\0", "FWKT_");
    if (fits)
        Prot::writeln(1, "maximal %g, durchschnittlich %.2f Iterationen pro Binnentyp bei Abgleich Innenwanderung",
                      double(maxIterations), sumIterations / fits);
    flowsBetweenTypes(c, y, DR3ZB);
    for (GemTable* t : {&y.DG4WB, &y.DG4OI, &y.DG4II}) t->print(2);
}
