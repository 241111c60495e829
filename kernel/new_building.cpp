// New building: the first occupiers of the dwellings built in a region during the year, their
// cohorts, how many come from abroad and how many from the study area, and the matching moves
// out of the regions where those from the study area lived.
#include <cmath>
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

namespace {

constexpr const char* SOURCE = "source\\c\\rkebb";

size_t Z(int i) { return static_cast<size_t>(i); }

long long keyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && Z(gz) < c.indexKeys.size()) return c.indexKeys[Z(gz)];
    return Z(gz) < c.regions.size() ? c.regions[Z(gz)].key : gz + 1;
}

// the sum of each type's quotas over the cohort
LA1 quotaSums(const LA4& q, const char* name)
{
    LA1 s(name, {q.size()}, 0.0);
    for (size_t t = 0; t < q.size(); ++t)
        for (const auto& b : q[t])
            for (const auto& g : b)
                for (double v : g) s[t] += v;
    return s;
}

} // namespace

int scaleCohortQuotas(LA4& q, double tol, const char* aggregateName, const char* typesName)
{
    laPrint(3, quotaSums(q, aggregateName), typesName, nullptr, LA_RATE);
    int count = 0;
    for (size_t t = 0; t < q.size(); ++t) {
        double s = 0, n = 0;
        for (const auto& b : q[t])
            for (const auto& g : b)
                for (double v : g) s += v, n += 1;
        if (Compare(s, 1, tol) == 0) continue;
        ++count;
        for (auto& b : q[t])
            for (auto& g : b)
                for (double& v : g) v = s == 0 ? 1 / n : v / s;
    }
    if (count) laPrint(3, quotaSums(q, aggregateName), typesName, nullptr, LA_RATE);
    return count;
}

double regionsShare(const Orvane& c, const YearStep& y, int z, size_t b, size_t g, size_t a, const LA4& typeStock)
{
    const int t = c.region(z).tyb;
    const double n = static_cast<double>(y.regionsOfType[Z(t)].size());
    return safe(c.BG40.get(Z(z), b, g, a), typeStock[Z(t)][b][g][a], n > 0 ? 1 / n : 0);
}

// ---------------------------------------------------------------- RK::EBB

void RK::EBB(Orvane& c, YearStep& y)
{
    Trace::enter("RKEBB");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    Prot::heading(4, "@newBP;", "@newBuildPopulation;");
    VCHECK(!_(D_0), SOURCE);
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ntyb = Z(C.NTYB), nnee = Z(C.NTYNEE),
                 nta = Z(C.NTYA);

    // 1. the cohorts of first occupiers, each type summing to 1
    y.QR3ZN.make("QR3ZN", {nnee, nbg, ngg, nag}, 0.0);
    readTable(fileTable[FT_NEBQ], y.QR3ZN, "C.NTYNEE\0NBG\0NGG\0NAG\0", VC_RATE);
    int scaled = scaleCohortQuotas(y.QR3ZN, C.SUMTOL, "QR3ZN_agg_", "C.NTYNEE\0");
    if (scaled) Prot::writeln(1, "QR3ZN wurde bei %d Typen Neubauerstbezug auf Summe 1 skaliert", scaled);

    // 2. first occupiers per region
    y.DG1IN.make("DG1IN", {Z(C.NGZ)}, 0.0);
    readTable(fileTable[FT_NEBB], y.DG1IN, "C.NGZ\0");
    if (!_(M_0) && C.BR21.exists() && y.DG1IN.sum() > C.BR21.sum())
        Prot::message(SEV_WARNING, "@rk3prf_fmt840;", y.DG1IN.sum(), C.BR21.sum());

    // 3. by internal type and by new-building type
    LA1 DR0IN_("DR0IN_", {ntyb}, 0.0);
    C.DR3IN.make("C.DR3IN", {ntyb, nbg, ngg, nag}, 0.0);
    LA4 DR3IN_NEE_("DR3IN_NEE_", {nnee, nbg, ngg, nag}, 0.0);
    for (int z = 0; z < C.NGZ; ++z) {
        const double n = y.DG1IN[Z(z)];
        if (n == 0) continue;
        const size_t t = Z(C.region(z).tyb), e = Z(C.region(z).tynee);
        DR0IN_[t] += n;
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double x = n * y.QR3ZN[e][b][g][a];
                    C.DR3IN[t][b][g][a] += x;
                    DR3IN_NEE_[e][b][g][a] += x;
                }
    }
    laPrint(2, DR0IN_, "C.NTYB\0");
    laPrint(3, C.DR3IN, "C.NTYB\0NBG\0NGG\0NAG\0");
    laPrint(3, DR3IN_NEE_, "C.NTYNEE\0NBG\0NGG\0NAG\0", "Neubauestbezug in Typen Neubauerstbezug");

    // 4. the shares from abroad
    C.DR3IBN.make("C.DR3IBN", {ntyb, nbg, ngg, nag}, 0.0);
    y.DR3ZANQ_.make("DR3ZANQ_", {nta, nbg, ngg, nag}, 0.0);
    y.QR1ZAN.make("QR1ZAN", {nnee, nta}, 0.0);
    readTable(fileTable[FT_NEBQQA], y.QR1ZAN, "C.NTYNEE\0NTYA\0", VC_RATE);
    for (size_t e = 0; e < nnee; ++e) {
        double s = 0;
        for (double v : y.QR1ZAN[e]) s += v;
        if (s > 1)
            Prot::message(SEV_WARNING,
                          "Bei Neubaugebietstyp %d (Spalte 2) ist die Summe %g über %d Außentypen (Spalte 3) &gt; 1",
                          int(e) + 1, s, C.NTYA);
    }

    // 5. by external area
    C.DR3ZAN.make("C.DR3ZAN", {nta, Z(C.NTYZZA), nbg, ngg, nag}, 0.0);
    LA4 DR3ZAN_NEE_("DR3ZAN_NEE_", {nnee, nbg, ngg, nag}, 0.0);
    for (size_t ta = 0; ta < nta; ++ta)
        for (size_t e = 0; e < nnee; ++e) {
            const double q = y.QR1ZAN[e][ta];
            if (q == 0) continue;
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        double x = DR3IN_NEE_[e][b][g][a] * q;
                        DR3ZAN_NEE_[e][b][g][a] += x;
                        y.DR3ZANQ_[ta][b][g][a] += x;
                    }
        }

    // 6. from abroad, by in-migration type and by internal type
    C.DR3IAN.make("C.DR3IAN", {ntyb, nbg, ngg, nag}, 0.0);
    for (int z = 0; z < C.NGZ; ++z) {
        const double n = y.DG1IN[Z(z)];
        if (n == 0) continue;
        const RegionRow& r = C.region(z);
        const size_t t = Z(r.tyb), e = Z(r.tynee), zza = Z(r.tyzza);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a)
                    for (size_t ta = 0; ta < nta; ++ta) {
                        double v = n * y.QR1ZAN[e][ta] * y.QR3ZN[e][b][g][a];
                        C.DR3ZAN[ta][zza][b][g][a] += v;
                        C.DR3IAN[t][b][g][a] += v;
                    }
    }

    // 7. the rest comes from the study area
    for (size_t t = 0; t < ntyb; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) C.DR3IBN[t][b][g][a] = C.DR3IN[t][b][g][a] - C.DR3IAN[t][b][g][a];
    laPrint(2, C.DR3IAN, "C.NTYB\0NBG\0NGG\0NAG\0", "@DG4IAN;");
    laPrint(2, C.DR3IBN, "C.NTYB\0NBG\0NGG\0NAG\0", "@DG4IBN;");
    laPrint(3, C.DR3ZAN, "C.NTYA\0NTYZZA\0NBG\0NGG\0NAG\0");
    if (Prot::level(2)) {
        LA2 agg("DR3ZAN_", {nta, Z(C.NTYZZA)}, 0.0);
        for (size_t ta = 0; ta < nta; ++ta)
            for (size_t t = 0; t < Z(C.NTYZZA); ++t)
                for (const auto& b : C.DR3ZAN[ta][t])
                    for (const auto& g : b)
                        for (double v : g) agg[ta][t] += v;
        laPrint(2, agg, "C.NTYA\0NTYZZA\0", "@DR3ZAN; @aggDG;");
        laPrint(2, y.DR3ZANQ_, "C.NTYA\0NBG\0NGG\0NAG\0");
        laPrint(2, DR3ZAN_NEE_, "C.NTYNEE\0NBG\0NGG\0NAG\0");
    }
}

// ---------------------------------------------------------------- the year step's part

void newBuildingOrigins(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    Orvane& C = c;
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ntyb = Z(C.NTYB);

    // 8. the moves out of the types, by the stayer rates of the balance
    LA4 DR3OB("DR3OB", {ntyb, nbg, ngg, nag}, 0.0);
    if (C.BR3R.exists())
        for (size_t t = 0; t < ntyb; ++t)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a)
                        DR3OB[t][b][g][a] = -(1 - C.BR3R[t][b][g][a]) * C.BR30[t][b][g][a];
    LA3 DR2IBN("DR2IBN", {nbg, ngg, nag}, 0.0), DR2OB("DR2OB", {nbg, ngg, nag}, 0.0);
    for (size_t t = 0; t < ntyb; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    DR2IBN[b][g][a] += C.DR3IBN[t][b][g][a];
                    DR2OB[b][g][a] += DR3OB[t][b][g][a];
                }
    for (size_t b = 0; b < nbg; ++b)
        for (size_t g = 0; g < ngg; ++g)
            for (size_t a = 0; a < nag; ++a)
                if (DR2IBN[b][g][a] > -DR2OB[b][g][a])
                    Prot::message(SEV_WARNING, "@BG; %d, @GG; %d, @AG; %d: @DG4IBN; %g &gt; @DG4OB; %g", int(b) + 1,
                                  int(g) + 1, int(a), DR2IBN[b][g][a], 0.0 - DR2OB[b][g][a]);

    // 9. the types give in proportion to their moves out
    C.DR3OBN.make("C.DR3OBN", {ntyb, nbg, ngg, nag}, 0.0);
    for (size_t t = 0; t < ntyb; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a)
                    C.DR3OBN[t][b][g][a] = -safe(DR3OB[t][b][g][a] * DR2IBN[b][g][a], DR2OB[b][g][a], 0);
    laPrint(2, C.DR3OBN, "C.NTYB\0NBG\0NGG\0NAG\0", "@DG4OBN;");
    const bool draws = MONTE_CARLO != 0;
    auto spread = [&](int z) {
        const size_t t = Z(C.region(z).tyb);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double n = C.DR3OBN[t][b][g][a];
                    if (n == 0) continue;
                    double share = regionsShare(C, y, z, b, g, a, C.BR30);
                    double v = draws ? mc.draw(n, share) : share * n;
                    if (v != 0) y.DG4OBN.set(Z(z), b, g, a, v);
                }
    };
    if (draws || y.DG4OBN.sparse)
        for (int z = 0; z < C.NGZ; ++z) spread(z);
    else
        os::parallelFor(0, C.NGZ, spread);
    const double T = C.DR3OBN.sum();

    // 10. weights of the regions
    bool weighted = false;
    if (D_() == 2) {
        LA1 GR1OBE("GR1OBE", {Z(C.NGZ)}, 1.0);
        readTable(fileTable[FT_NEBGQR], GR1OBE, "C.NGZ\0", VC_PLAIN, 1.0);
        bool constant = true;
        for (double w : GR1OBE) constant = constant && w == GR1OBE[0];
        if (!constant) {
            y.DG4OBN.print(2, "@DG4OBN; nicht gewichtet");
            y.DG4OBN.scaleRegions([&](size_t z) { return GR1OBE[z]; });
            weighted = true;
        }
    } else if (D_() > 2) {
        LA2 GR2OBE("GR2OBE", {Z(C.NTYNEE), ntyb}, 1.0);
        readTable(fileTable[FT_NEBGQT], GR2OBE, "C.NTYNEE\0NTYB\0", VC_PLAIN, 1.0);
        bool equal = true;
        for (const auto& r : GR2OBE)
            for (double w : r) equal = equal && w == GR2OBE[0][0];
        if (!equal) {
            y.DG4OBN.print(2, "@DG4OBN; nicht gewichtet");
            auto weightOf = [&](size_t z) {
                const RegionRow& r = C.region(int(z));
                return GR2OBE[Z(r.tynee)][Z(r.tyb)];
            };
            if (Prot::level(3)) {
                Prot::raw("<table>\n<caption>Gewichte der Gebiete</caption>\n<tr><th>#</th><th>GKZ</th><th>NEE</th>"
                          "<th>B</th><th>Gewicht</th></tr>\n");
                for (int z = 0; z < C.NGZ; ++z)
                    Prot::raw("<tr><td>%d</td><td>%lld</td><td>%d</td><td>%d</td><td>%.15g</td</tr>\n", z + 1,
                              keyOf(C, z), C.region(z).tynee + 1, C.region(z).tyb + 1, weightOf(Z(z)));
                Prot::raw("</table>\n");
            }
            y.DG4OBN.scaleRegions(weightOf);
            weighted = true;
        }
    }

    // 11. the weighted moves keep the total of the types
    if (weighted) rescaleToTypes(c, y.DG4OBN, C.DR3OBN, T, "@DG4OBN; gewichtet", "@DG4OBN; normiert");
    y.DG4OBN.print(2, "@DG4OBN;");
}

// a table weighted by regions brought back to the total of its types: in all, or under M 2 by cohort
void rescaleToTypes(Orvane& c, GemTable& t, const LA4& types, double T, const char* before, const char* after)
{
    if (!_(M_2)) {
        const double W = t.sum();
        if (W == T || W == 0) return;
        t.print(2, before);
        Prot::writeln(2, "Anpassungsfaktor %.15g = %.15g / %.15g", T / W, W, T);
        t.scaleRegions([f = T / W](size_t) { return f; });
        t.print(2, after);
        return;
    }
    const size_t nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG);
    LA3 SUM1("SUM1", {nbg, ngg, nag}, 0.0), SUM2("SUM2", {nbg, ngg, nag}, 0.0);
    t.forEach([&](size_t, size_t b, size_t g, size_t a, double v) { SUM1[b][g][a] += v; });
    for (const auto& r : types)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) SUM2[b][g][a] += r[b][g][a];
    for (int z = 0; z < c.NGZ; ++z)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double v = t.get(Z(z), b, g, a);
                    if (v != 0) t.set(Z(z), b, g, a, v * safe(SUM2[b][g][a], SUM1[b][g][a], 1));
                }
    t.print(2, after);
    laPrint(3, SUM1, "NBG\0NGG\0NAG\0");
    laPrint(3, SUM2, "NBG\0NGG\0NAG\0");
}

void newBuildingRegions(Orvane& c, YearStep& y)
{
    Orvane& C = c;
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    // 12. each region's first occupiers, from abroad and from the study area
    for (int z = 0; z < C.NGZ; ++z) {
        const double n = y.DG1IN[Z(z)];
        if (n == 0) continue;
        const size_t e = Z(C.region(z).tynee);
        double q = 0;
        for (double v : y.QR1ZAN[e]) q += v;
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double x = n * y.QR3ZN[e][b][g][a];
                    if (x == 0) continue;
                    y.DG4IAN.set(Z(z), b, g, a, x * q);
                    y.DG4IBN.set(Z(z), b, g, a, x - x * q);
                    y.DG1IBN_[Z(z)] += x - x * q;
                }
    }
}
