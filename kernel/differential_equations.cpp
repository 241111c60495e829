// The forecast as a system of differential equations, a check of the year step for a simple
// method: the rates of each family change linearly between the years of their tables.
#include "kernel/differential_equations.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <map>
#include <string>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/banded_summary.h"
#include "kernel/file_table.h"
#include "kernel/kernel_helpers.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

namespace {

constexpr const char* SOURCE = "source\\c\\rkode";
// column of TYAGF in the reference table, counted from 1
constexpr int COLUMN_TYAGF = 11;

size_t Z(int i) { return i > 0 ? static_cast<size_t>(i) : 0; }

// the table of a family at time t: linear between the two surrounding tables, the last one
// after them, the first one before them
template <int R> LA<R> rateAt(const std::map<int, LA<R>>& family, double t)
{
    if (family.empty()) return {};
    auto b = family.upper_bound(static_cast<int>(std::floor(t)));
    if (b == family.begin()) return b->second;
    auto a = std::prev(b);
    if (b == family.end() || t <= a->first) return a->second;
    const double w = (t - a->first) / (b->first - a->first);
    std::vector<double> to;
    b->second.forEach([&](const f64& v) { to.push_back(v); });
    LA<R> r = a->second;
    size_t i = 0;
    r.forEach([&](f64& v) {
        v += w * (to[i] - v);
        ++i;
    });
    return r;
}

struct Families {
    std::map<int, LA3> fruc;
    std::map<int, LA4> strb;
    std::map<int, LA5> wegz, zuvg, strm, bgwr;
};

// the rates of all families at one time
struct Rates {
    LA3 fruc;
    LA4 strb;
    LA5 wegz, zuvg, strm, bgwr;
};

class System {
public:
    System(const Orvane& c, const Families& f) : C(c), F(f)
    {
        nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
        cohorts = nbg * ngg * nag;
    }

    size_t index(size_t z, size_t b, size_t g, size_t a) const { return ((z * nbg + b) * ngg + g) * nag + a; }

    void operator()(double t, const std::vector<double>& y, std::vector<double>& dy) const
    {
        Rates r{rateAt(F.fruc, t), rateAt(F.strb, t), rateAt(F.wegz, t), rateAt(F.zuvg, t), rateAt(F.strm, t),
                rateAt(F.bgwr, t)};
        dy.assign(y.size(), 0.0);
        const size_t ngz = Z(C.NGZ);
        for (size_t z = 0; z < ngz; ++z) {
            const RegionRow& row = C.region(static_cast<int>(z));
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) {
                        const size_t i = index(z, b, g, a);
                        // deaths and out-migration
                        double out = 0;
                        if (r.strb.exists() && Z(row.tys) < r.strb.size()) out += r.strb[Z(row.tys)][b][g][a];
                        if (r.wegz.exists() && Z(row.tyqwa) < r.wegz.size())
                            for (const auto& area : r.wegz[Z(row.tyqwa)]) out += area[b][g][a];
                        dy[i] -= out * y[i];
                        // in-migration by number
                        if (r.zuvg.exists())
                            for (const auto& area : r.zuvg)
                                if (z < area.size()) dy[i] += area[z][b][g][a];
                        // group change
                        if (r.bgwr.exists() && Z(row.tywbg) < r.bgwr.size())
                            for (size_t n = 0; n < nbg; ++n) {
                                double x = r.bgwr[Z(row.tywbg)][b][n][g][a] * y[i];
                                dy[i] -= x;
                                dy[index(z, n, g, a)] += x;
                            }
                    }
            // births: the mothers are the second sex group
            if (r.fruc.exists() && Z(row.tyg) < r.fruc.size())
                for (size_t b = 0; b < nbg; ++b) {
                    double born = 0;
                    for (size_t a = 0; a < nag; ++a) born += r.fruc[Z(row.tyg)][b][a] * y[index(z, b, 1, a)];
                    dy[index(z, b, 0, 0)] += C.GP * born;
                    dy[index(z, b, 1, 0)] += (1 - C.GP) * born;
                }
        }
        if (r.strm.exists()) internalFlows(r.strm, y, dy);
    }

private:
    // flows between types: leaving each region by the rate of its type, arriving in the regions
    // of the target type by their share of the type's cohort
    void internalFlows(const LA5& strm, const std::vector<double>& y, std::vector<double>& dy) const
    {
        const size_t ntyb = strm.size(), ngz = Z(C.NGZ);
        std::vector<double> total(ntyb * cohorts, 0.0), arriving(ntyb * cohorts, 0.0), regions(ntyb, 0.0);
        for (size_t z = 0; z < ngz; ++z) {
            size_t v = Z(C.region(static_cast<int>(z)).tyb);
            if (v >= ntyb) continue;
            regions[v] += 1;
            for (size_t c = 0; c < cohorts; ++c) total[v * cohorts + c] += y[z * cohorts + c];
        }
        for (size_t z = 0; z < ngz; ++z) {
            size_t v = Z(C.region(static_cast<int>(z)).tyb);
            if (v >= ntyb) continue;
            for (size_t n = 0; n < ntyb; ++n)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a) {
                            double rate = strm[v][n][b][g][a];
                            if (rate == 0) continue;
                            size_t c = (b * ngg + g) * nag + a;
                            double x = rate * y[z * cohorts + c];
                            dy[z * cohorts + c] -= x;
                            arriving[n * cohorts + c] += x;
                        }
        }
        for (size_t z = 0; z < ngz; ++z) {
            size_t n = Z(C.region(static_cast<int>(z)).tyb);
            if (n >= ntyb) continue;
            for (size_t c = 0; c < cohorts; ++c) {
                double in = arriving[n * cohorts + c];
                if (in == 0) continue;
                dy[z * cohorts + c] += safe(y[z * cohorts + c], total[n * cohorts + c], 1 / regions[n]) * in;
            }
        }
    }

    const Orvane& C;
    const Families& F;
    size_t nbg = 0, ngg = 0, nag = 0, cohorts = 0;
};

// one age group on in the regions whose ageing type is 1; the last age group collects
void ageInPlace(Orvane& C)
{
    const size_t nag = Z(C.NAG);
    if (nag == 0) return;
    for (int z = 0; z < C.NGZ; ++z) {
        if (C.region(z).tyagf + RK::refLowest(COLUMN_TYAGF) != 1) continue;
        for (size_t b = 0; b < Z(C.NBG); ++b)
            for (size_t g = 0; g < Z(C.NGG); ++g) {
                double last = C.BGEM.get(Z(z), b, g, nag - 1);
                for (size_t a = nag - 1; a > 0; --a) C.BGEM.set(Z(z), b, g, a, C.BGEM.get(Z(z), b, g, a - 1));
                C.BGEM.set(Z(z), b, g, 0, 0);
                if (nag > 1) C.BGEM.add(Z(z), b, g, nag - 1, last);
            }
    }
}

} // namespace

void odeStep(int method, const Derivative& f, std::vector<double>& y, double t, double h)
{
    const size_t n = y.size();
    std::vector<double> k1, k2, k3, k4, w(n);
    f(t, y, k1);
    if (method == 1) {
        for (size_t i = 0; i < n; ++i) y[i] += h * k1[i];
        return;
    }
    for (size_t i = 0; i < n; ++i) w[i] = y[i] + h * k1[i] / 2;
    f(t + h / 2, w, k2);
    for (size_t i = 0; i < n; ++i) w[i] = y[i] + h * k2[i] / 2;
    f(t + h / 2, w, k3);
    for (size_t i = 0; i < n; ++i) w[i] = y[i] + h * k3[i];
    f(t + h, w, k4);
    for (size_t i = 0; i < n; ++i) y[i] += (h / 6) * (k1[i] + 2 * k2[i] + 2 * k3[i] + k4[i]);
}

void differentialEquations(Orvane* orvane)
{
    Orvane& C = *orvane;
    Trace::enter("RKODE");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Prot::heading(2, "ODE", "Prognose mit System partieller Differentialgleichungen");
    const int method = static_cast<int>(opt::get("$ODE", 0));
    if (!isoneof(method, {1, 4})) {
        VCHECK(isoneof(method, { 1, 4 }), SOURCE);
        Prot::message(SEV_ERROR, "Methode %d unbekannt", method);
        return;
    }

    // the start population, the reference table and the dimensions
    JAHR = ini::STARTJAHR;
    RK::INI(orvane);
    VCHECK(_(A_0) && _(B_0) && _(C_0) && _(D_0) && _(E_0) && _(G_0), SOURCE);
    VCHECK(_(K_0) || _(K_6), SOURCE);
    VCHECK(_(M_0) && _(N_0) && _(P_0) && _(R_0) && _(S_0), SOURCE);
    VCHECK(_(V_0), SOURCE);
    VCHECK(_(Y_0), SOURCE);
    VCHECK(C.NGG == 2, SOURCE);
    RK::releaseYear();

    // all rate histories before the first year
    Families f;
    f.fruc = ratesByYearFruc();
    f.strb = ratesByYearStrb();
    if (!_(T_0) && C_() != 6) f.wegz = ratesByYearWegz();
    if (_(K_6)) f.zuvg = ratesByYearZuvg();
    if (!_(I_0)) f.strm = ratesByYearStrm();
    if (!_(W_0)) f.bgwr = ratesByYearBgwr();
    const System system(C, f);
    const Derivative derivative = [&system](double t, const std::vector<double>& y, std::vector<double>& dy) {
        system(t, y, dy);
    };

    const size_t nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ngz = Z(C.NGZ);
    std::vector<double> y(ngz * nbg * ngg * nag, 0.0);
    for (JAHR = ini::STARTJAHR; JAHR <= ini::ENDJAHR; ++JAHR) {
        Prot::writeln(3, "@run; @rk0pro_forecast; %d", JAHR);
        ageInPlace(C);
        std::fill(y.begin(), y.end(), 0.0);
        C.BGEM.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) { y[system.index(z, b, g, a)] = v; });
        odeStep(method, derivative, y, JAHR, 1.0);
        for (size_t z = 0; z < ngz; ++z)
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g)
                    for (size_t a = 0; a < nag; ++a) C.BGEM.set(z, b, g, a, y[system.index(z, b, g, a)]);
        C.BGEM.print(3, "@BGEM1;");
        if (summaryOnly()) summariseYear(C, C.BGEM, nullptr, periodLabel(JAHR));
        else writePopulation(C, C.BGEM, periodLabel(JAHR));
        Prot::writeln(1, "%d: @sum; %.15g", JAHR, C.BGEM.sum());
    }
}
