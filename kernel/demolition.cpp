// Demolition: the last occupiers of the dwellings lost in a region during the year, their
// cohorts, how many go abroad and how many stay in the study area, and where those who stay
// arrive.
#include <cmath>
#include <functional>
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

constexpr const char* SOURCE = "source\\c\\rkrea";

size_t Z(int i) { return static_cast<size_t>(i); }

long long keyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && Z(gz) < c.indexKeys.size()) return c.indexKeys[Z(gz)];
    return Z(gz) < c.regions.size() ? c.regions[Z(gz)].key : gz + 1;
}

// the last movers of a region at one cohort: numbers by cohort quotas (E 1, 2) or a share of
// the region's population (E 3, 4); negative
double lastMovers(const Orvane& c, const YearStep& y, int z, size_t b, size_t g, size_t a)
{
    const double n = y.DG1OR[Z(z)];
    if (n == 0) return 0;
    if (E_() <= 2) return n * y.QR3ZAR[Z(c.region(z).tyrea)][b][g][a];
    return n * c.BG40.get(Z(z), b, g, a);
}

} // namespace

// ---------------------------------------------------------------- RK::REA

void RK::REA(Orvane& c, YearStep& y)
{
    Trace::enter("RKREA");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    Prot::heading(4, "@rueckbau;", "@leaveDeconstruction;");
    VCHECK(!_(E_0), SOURCE);
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ntyb = Z(C.NTYB), nrea = Z(C.NTYREA),
                 nta = Z(C.NTYA);
    const bool byNumbers = E_() <= 2;

    // 1. the cohorts of the last movers, each type summing to 1
    if (byNumbers) {
        y.QR3ZAR.make("QR3ZAR", {nrea, nbg, ngg, nag}, 0.0);
        readTable(fileTable[FT_REAQ], y.QR3ZAR, "C.NTYREA\0NBG\0NGG\0NAG\0", VC_RATE);
        int scaled = scaleCohortQuotas(y.QR3ZAR, C.SUMTOL, "QR3ZAR_agg_", "C.NTYREA\0");
        if (scaled) Prot::writeln(1, "QR3ZAR wurde bei %d Typen Rückbauendauszug auf Summe 1 skaliert", scaled);
    }

    // 2. last movers per region, as outflows
    y.DG1OR.make("DG1OR", {Z(C.NGZ)}, 0.0);
    readTable(fileTable[byNumbers ? FT_REAB : FT_REAR], y.DG1OR, "C.NGZ\0");
    for (double& v : y.DG1OR) v = -v;

    // 3.
    if (byNumbers && !_(M_0) && -y.DG1OR.sum() > C.BR30.sum())
        Prot::message(SEV_WARNING, "@rk3prf_fmt840;", -y.DG1OR.sum(), C.BR30.sum());
    if (!byNumbers)
        for (int z = 0; z < C.NGZ; ++z)
            if (!inrange(-1.0, y.DG1OR[Z(z)], 1.0))
                Prot::message(SEV_WARNING, "%s: @GKZ; %lld: %g", DD::expKey("@rueckbau;").c_str(), keyOf(C, z),
                              -y.DG1OR[Z(z)]);

    // 4. by internal type and by demolition type
    C.DR3OR.make("C.DR3OR", {ntyb, nbg, ngg, nag}, 0.0);
    LA4 DR3OR_REA_("DR3OR_REA_", {nrea, nbg, ngg, nag}, 0.0);
    for (int z = 0; z < C.NGZ; ++z) {
        if (y.DG1OR[Z(z)] == 0) continue;
        const size_t t = Z(C.region(z).tyb), e = Z(C.region(z).tyrea);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double x = lastMovers(C, y, z, b, g, a);
                    C.DR3OR[t][b][g][a] += x;
                    DR3OR_REA_[e][b][g][a] += x;
                }
    }
    laPrint(3, DR3OR_REA_, "C.NTYREA\0NBG\0NGG\0NAG\0");

    // 5. the shares going abroad
    y.QR1ZAR.make("QR1ZAR", {nrea, nta}, 0.0);
    readTable(fileTable[FT_REAQZA], y.QR1ZAR, "C.NTYREA\0NTYA\0", VC_RATE);
    for (size_t e = 0; e < nrea; ++e) {
        double s = 0;
        for (double v : y.QR1ZAR[e]) s += v;
        if (s > 1)
            Prot::message(SEV_WARNING,
                          "Bei Rückbauendauszugstyp %d (Spalte 2) ist die Summe %g über %d Außentypen (Spalte 3) &gt; 1",
                          int(e) + 1, s, C.NTYA);
    }

    // 6. by external area
    LA4 DR3ZAR_REA_("DR3ZAR_REA_", {nrea, nbg, ngg, nag}, 0.0), DR3ZARQ_("DR3ZARQ_", {nta, nbg, ngg, nag}, 0.0);
    for (size_t ta = 0; ta < nta; ++ta)
        for (size_t e = 0; e < nrea; ++e) {
            const double q = y.QR1ZAR[e][ta];
            if (q == 0) continue;
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        double x = DR3OR_REA_[e][b][g][a] * q;
                        DR3ZAR_REA_[e][b][g][a] += x;
                        DR3ZARQ_[ta][b][g][a] += x;
                    }
        }

    // 7. abroad, by out-migration type and by internal type
    C.DR3OAR.make("C.DR3OAR", {ntyb, nbg, ngg, nag}, 0.0);
    C.DR3ZAR.make("C.DR3ZAR", {nta, Z(C.NTYQWA), nbg, ngg, nag}, 0.0);
    for (int z = 0; z < C.NGZ; ++z) {
        if (y.DG1OR[Z(z)] == 0) continue;
        const RegionRow& r = C.region(z);
        const size_t t = Z(r.tyb), e = Z(r.tyrea), q = Z(r.tyqwa);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double x = lastMovers(C, y, z, b, g, a);
                    if (x == 0) continue;
                    for (size_t ta = 0; ta < nta; ++ta) {
                        double v = x * y.QR1ZAR[e][ta];
                        C.DR3ZAR[ta][q][b][g][a] += v;
                        C.DR3OAR[t][b][g][a] += v;
                    }
                }
    }

    // 8. the rest stays in the study area
    C.DR3OBR.make("C.DR3OBR", {ntyb, nbg, ngg, nag}, 0.0);
    for (size_t t = 0; t < ntyb; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) C.DR3OBR[t][b][g][a] = C.DR3OR[t][b][g][a] - C.DR3OAR[t][b][g][a];
    laPrint(2, C.DR3OAR, "C.NTYB\0NBG\0NGG\0NAG\0", "@DG4OAR;");
    laPrint(2, C.DR3OBR, "C.NTYB\0NBG\0NGG\0NAG\0", "@DG4OBR;");
    laPrint(3, C.DR3ZAR, "C.NTYA\0NTYQWA\0NBG\0NGG\0NAG\0");
    if (Prot::level(2)) {
        LA2 agg("DR3ZAR_", {nta, Z(C.NTYQWA)}, 0.0);
        for (size_t ta = 0; ta < nta; ++ta)
            for (size_t q = 0; q < Z(C.NTYQWA); ++q)
                for (const auto& b : C.DR3ZAR[ta][q])
                    for (const auto& g : b)
                        for (double v : g) agg[ta][q] += v;
        laPrint(2, agg, "C.NTYA\0NTYQWA\0", "@DR3ZAR; @aggDG;");
        laPrint(2, DR3ZARQ_, "C.NTYA\0NBG\0NGG\0NAG\0");
        laPrint(2, DR3ZAR_REA_, "C.NTYREA\0NBG\0NGG\0NAG\0");
    }
}

// ---------------------------------------------------------------- the year step's part

void demolitionArrivals(Orvane& c, YearStep& y)
{
    Orvane& C = c;
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ntyb = Z(C.NTYB);
    // 9. the arrivals of each type from all types, by the rates of the balance
    LA4 DR3IB("DR3IB", {ntyb, nbg, ngg, nag}, 0.0);
    if (C.sparseStrm) {
        for (const FBElem& e : C.DR4FBs.elems)
            DR3IB[e.tybn][e.bg][e.gg()][e.ag()] += e.value * C.BR30[e.tybv][e.bg][e.gg()][e.ag()];
    } else if (C.DR4FB.exists()) {
        for (size_t v = 0; v < ntyb; ++v)
            for (size_t n = 0; n < ntyb; ++n)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a) DR3IB[n][b][g][a] += C.DR4FB[v][n][b][g][a] * C.BR30[v][b][g][a];
    }
    LA3 DR2OBR("DR2OBR", {nbg, ngg, nag}, 0.0), DR2IB("DR2IB", {nbg, ngg, nag}, 0.0);
    for (size_t t = 0; t < ntyb; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    DR2OBR[b][g][a] += C.DR3OBR[t][b][g][a];
                    DR2IB[b][g][a] += DR3IB[t][b][g][a];
                }
    for (size_t b = 0; b < nbg; ++b)
        for (size_t g = 0; g < ngg; ++g)
            for (size_t a = 0; a < nag; ++a)
                if (-DR2OBR[b][g][a] > DR2IB[b][g][a])
                    Prot::message(SEV_WARNING, "@BG; %d, @GG; %d, @AG; %d: DR2OBR @DG4OBR; %g &gt; DR2IB @DR2IB; %g",
                                  int(b) + 1, int(g) + 1, int(a), 0.0 - DR2OBR[b][g][a], DR2IB[b][g][a]);
    // 10. those who stay arrive in the types as all arrivals do
    C.DR3IBR.make("C.DR3IBR", {ntyb, nbg, ngg, nag}, 0.0);
    for (size_t t = 0; t < ntyb; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a)
                    C.DR3IBR[t][b][g][a] = -safe(DR3IB[t][b][g][a] * DR2OBR[b][g][a], DR2IB[b][g][a], 0);
    laPrint(2, C.DR3IBR, "C.NTYB\0NBG\0NGG\0NAG\0", "@DG4IBR;");
}

void demolitionRegions(Orvane& c, YearStep& y)
{
    Orvane& C = c;
    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    // 11. each region's last movers, abroad and in the study area
    for (int z = 0; z < C.NGZ; ++z) {
        if (y.DG1OR[Z(z)] == 0) continue;
        const size_t e = Z(C.region(z).tyrea);
        double q = 0;
        for (double v : y.QR1ZAR[e]) q += v;
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double x = lastMovers(C, y, z, b, g, a);
                    if (x == 0) continue;
                    y.DG4OAR.set(Z(z), b, g, a, x * q);
                    y.DG4OBR.set(Z(z), b, g, a, x - x * q);
                    y.DG1OBR_[Z(z)] += x - x * q;
                }
    }
}

void placeDisplaced(Orvane& c, YearStep& y, int type, const std::vector<int>& regions, const std::vector<double>& FWKG,
                    double F)
{
    const size_t nbg = Z(c.NBG), ngg = Z(c.NGG), nag = Z(c.NAG), t = Z(type);
    const double n = static_cast<double>(regions.size());
    for (size_t zt = 0; zt < regions.size(); ++zt) {
        const double share = safe(FWKG[zt], F, n > 0 ? 1 / n : 0);
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double v = share * c.DR3IBR[t][b][g][a];
                    if (v != 0) y.DG4IBR.set(Z(regions[zt]), b, g, a, v);
                }
    }
}

void weighDisplaced(Orvane& c, YearStep& y)
{
    // 13. the weights of the regions, then the total of the types again
    bool constant = true;
    std::function<double(size_t)> weightOf;
    LA1 GR1IBR3("GR1IBR3", {Z(c.NGZ)}, 1.0);
    LA2 GR2IBR("GR2IBR", {Z(c.NTYREA), Z(c.NTYB)}, 1.0);
    if (E_() == 1 || E_() == 3) {
        readTable(fileTable[FT_REAGZR], GR1IBR3, "C.NGZ\0", VC_PLAIN, 1.0);
        for (double w : GR1IBR3) constant = constant && w == GR1IBR3[0];
        weightOf = [&](size_t z) { return GR1IBR3[z]; };
    } else {
        readTable(fileTable[FT_REAGZT], GR2IBR, "C.NTYREA\0NTYB\0", VC_PLAIN, 1.0);
        for (const auto& r : GR2IBR)
            for (double w : r) constant = constant && w == GR2IBR[0][0];
        weightOf = [&](size_t z) {
            const RegionRow& r = c.region(int(z));
            return GR2IBR[Z(r.tyrea)][Z(r.tyb)];
        };
    }
    if (!constant) {
        y.DG4IBR.print(2, "@DG4IBR; vor Gewichtung");
        const double S = y.DG4IBR.sum();
        y.DG4IBR.scaleRegions(weightOf);
        rescaleToTypes(c, y.DG4IBR, c.DR3IBR, S, "@DG4IBR; vor Anpassung", "@DG4IBR;");
    }
    y.DG4IBR.print(2, "@DG4IBR;");
}
