// Births: the new-born of the year by the fertility rates of the birth types, entering the
// population at age group 0, with the birth targets of module G.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
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
#include "tables/functions.h"
#include "tables/input_reader.h"

namespace {

constexpr const char* SOURCE = "source\\c\\rkgeb";
// column of TYG in the reference table, counted from 1
constexpr int COLUMN_TYG = 3;

size_t Z(int i) { return static_cast<size_t>(i); }

long long keyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && Z(gz) < c.indexKeys.size()) return c.indexKeys[Z(gz)];
    return Z(gz) < c.regions.size() ? c.regions[Z(gz)].key : gz + 1;
}

// ---------------------------------------------------------------- reading by type

// A rate table whose first index is a type of the reference table that starts at 0 there: the
// file names the type as the reference table does, 0 for the first, so the column is taken
// one lower than the reader counts it. Values outside the types are an error of the file.
template <int R> class TypeFromZero : public ReadTarget {
public:
    TypeFromZero(LA<R>& a, const char* typeName) : array(a), type(typeName)
    {
        auto e = a.extents();
        scratch.assign(e[R - 1], UNDEF);
    }
    double* row(const long long* index) override
    {
        long long t = index[0] + 1;
        if (t < 0 || t >= static_cast<long long>(array.size())) {
            Prot::message(SEV_ERROR, "%s: %s %lld @outside; [0..%zu]", readingName().c_str(), type, t,
                          array.size() - 1);
            std::fill(scratch.begin(), scratch.end(), UNDEF);
            return scratch.data();
        }
        if constexpr (R == 3)
            return array[Z(static_cast<int>(t))][Z(static_cast<int>(index[1]))].data();
        else
            return array[Z(static_cast<int>(t))][Z(static_cast<int>(index[1]))][Z(static_cast<int>(index[2]))].data();
    }
    void clear() override { array.fill(UNDEF); }
    void unassigned(const std::function<void(const long long*)>& f) override
    {
        long long idx[5] = {};
        walk(array, idx, 0, f);
    }
    uint64_t cells() const override
    {
        uint64_t n = 1;
        for (size_t e : array.extents()) n *= e;
        return n;
    }

private:
    // every cell still undefined becomes 0; the tuple handed on names the type as the file does
    template <class V> void walk(V& v, long long* idx, int depth, const std::function<void(const long long*)>& f)
    {
        for (size_t k = 0; k < v.size(); ++k) {
            idx[depth] = static_cast<long long>(k) - (depth == 0 ? 1 : 0);
            if constexpr (std::is_same_v<V, std::vector<f64>>) {
                if (!isUndef(v[k])) continue;
                v[k] = 0;
                f(idx);
            } else {
                walk(v[k], idx, depth + 1, f);
            }
        }
    }
    LA<R>& array;
    const char* type;
    std::vector<f64> scratch;
};

template <int R>
ReadResult readTypeTable(FileEntry& file, LA<R>& target, const char* names, int valueCheck, int column)
{
    if (RK::refLowest(column) != 0) return readTable(file, target, names, valueCheck);
    // the type column counts from 0: the reader leaves it unchecked and the target shifts it
    auto ext = target.extents();
    long long sizes[5] = {};
    for (int j = 0; j < R; ++j) sizes[j] = static_cast<long long>(ext[Z(j)]);
    sizes[0] = -1;
    const char* typeName = column == COLUMN_TYG ? "TYG" : "TYS";
    TypeFromZero<R> t(target, typeName);
    checkUndef = 1;
    ReadResult r = readTable(file, t, 0, R, sizes, names, valueCheck);
    checkUndef = 1;
    if (r.nonZero != 0) laPrint(1, target, names, nullptr, valueCheck == VC_RATE ? LA_RATE : LA_NUMBER, r.sum);
    return r;
}

// A target per region that keeps its fill where the table gives no value: an absent target is
// infinite, not 0.
class KeepFill : public ReadTarget {
public:
    explicit KeepFill(LA1& a) : array(a) {}
    double* row(const long long*) override { return array.data(); }
    uint64_t cells() const override { return array.size(); }
    LA1& array;
};

} // namespace

// the rate tables of births and deaths, with their type column counted as the reference table
// counts it (column 3 TYG, 4 TYS)
ReadResult readByType(FileEntry& file, LA3& target, const char* names, int valueCheck, int column)
{
    return readTypeTable(file, target, names, valueCheck, column);
}
ReadResult readByType(FileEntry& file, LA4& target, const char* names, int valueCheck, int column)
{
    return readTypeTable(file, target, names, valueCheck, column);
}

// the targets per region of modules G and S: a region the table does not name keeps +infinity
ReadResult readRegionTargets(FileEntry& file, LA1& target, const char* names)
{
    KeepFill t(target);
    long long sizes[1] = {static_cast<long long>(target.size())};
    checkUndef = 1;
    ReadResult r = readTable(file, t, 0, 1, sizes, names, VC_PLAIN);
    checkUndef = 1;
    laPrint(1, target, names, nullptr, LA_NUMBER);
    return r;
}

// the yearly factor of a target adjustment into its output table (frucfak, strbfak)
void writeTargetFactor(int entry, double factor)
{
    FILE* f = nullptr;
    char name[64];
    if (openTable(&f, entry, name, sizeof name) != 0 || !f) return;
    csvWriteCell(f, "%.0f", periodLabel(JAHR), 0);
    csvWriteCell(f, "%.15g", factor, 1);
    closeTable(f);
}

namespace {

// the quotas of the child's group: each mother's group of each type sums to 1
void normaliseQuotas(Orvane& C, LA3& QR2G)
{
    const char* aggTitle = "QR2G Summe Quoten BG Mutter über BG Kinder == 1";
    auto aggregate = [&]() {
        if (!Prot::level(4)) return;
        LA2 agg("QR2G_agg_", {Z(C.NTYG), Z(C.NBG)}, 0.0);
        for (int t = 0; t < C.NTYG; ++t)
            for (int b = 0; b < C.NBG; ++b)
                for (double q : QR2G[Z(t)][Z(b)]) agg[Z(t)][Z(b)] += q;
        laPrint(4, agg, "C.NTYG\0NBG\0", aggTitle, LA_RATE);
    };
    aggregate();
    int count = 0;
    for (int t = 0; t < C.NTYG; ++t)
        for (int b = 0; b < C.NBG; ++b) {
            auto& q = QR2G[Z(t)][Z(b)];
            double s = 0;
            for (double v : q) s += v;
            if (Compare(s, 1, C.SUMTOL) == 0) continue;
            for (double& v : q) v = s == 0 ? 1.0 / C.NBG : v * (1 / s);
            for (double v : q) VCHECK(inrange(0.0, v, 1.0), SOURCE);
            ++count;
        }
    if (count > 0) {
        Prot::message(SEV_HINT, "QR2G wurde bei %d Geburtstypen auf Summe 1 skaliert", count);
        laPrint(3, QR2G, "C.NTYG\0NBG\0NBG\0", nullptr, LA_RATE);
        aggregate();
    }
}

// The births without draws of the mothers of one group in one region, two sexes: for each age
// the boys (share GP) and the girls, spread over the child's groups by their quotas, added to the
// region's births and to the sums of the type by child's group and sex (index ch * 2 + sex).
// ownGroup < nbg: every child stays in that group (quota 1, the others 0), so a quota's product is
// the births themselves or 0, unless the births are not finite.
void plainBirths(const double* women, const double* rates, const double* quotas, size_t nbg, size_t lowest,
                 size_t highest, double GP, size_t ownGroup, double* regionBorn, double* typeSums)
{
    // the sums of the mothers' own group stay in registers while its children stay in it: four
    // chains of additions side by side instead of one through memory
    const bool own = ownGroup < nbg;
    double born0 = 0, born1 = 0, type0 = 0, type1 = 0;
    auto load = [&] {
        born0 = regionBorn[ownGroup * 2];
        born1 = regionBorn[ownGroup * 2 + 1];
        type0 = typeSums[ownGroup * 2];
        type1 = typeSums[ownGroup * 2 + 1];
    };
    auto store = [&] {
        regionBorn[ownGroup * 2] = born0;
        regionBorn[ownGroup * 2 + 1] = born1;
        typeSums[ownGroup * 2] = type0;
        typeSums[ownGroup * 2 + 1] = type1;
    };
    if (own) load();
    for (size_t a = lowest; a <= highest; ++a) {
        const double w = women[a];
        if (w == 0) continue;
        const double f = rates[a];
        if (f == 0) continue;
        const double born[2] = {f * w * GP, f * w * (1 - GP)};
        const bool finite = std::isfinite(born[0]) && std::isfinite(born[1]);
        if (own && finite) {
            if (born[0] != 0) {
                born0 += born[0];
                type0 += born[0];
            }
            if (born[1] != 0) {
                born1 += born[1];
                type1 += born[1];
            }
            continue;
        }
        // births that are not finite go through the quotas of every child's group
        if (own) store();
        for (size_t g = 0; g < 2; ++g) {
            if (born[g] == 0) continue;
            for (size_t ch = 0; ch < nbg; ++ch) {
                const double x = born[g] * quotas[ch];
                if (x == 0) continue;
                regionBorn[ch * 2 + g] += x;
                typeSums[ch * 2 + g] += x;
            }
        }
        if (own) load();
    }
    if (own) store();
}

} // namespace

void births(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    Trace::enter("RKGEB");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    const size_t ngz = Z(C.NGZ), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG), ntyg = Z(C.NTYG);
    const bool montecarlo = MONTE_CARLO != 0;
    const bool gam = ini::GAM != 0;

    // 1. the period and the side tables
    Prot::writeln(2, "@rk3a_inp_fmt1000;", periodLabel(JAHR - 1), periodLabel(JAHR));
    LA4 DG4BGWG_("DG4BGWG_", {ntyg, nbg, nbg, ngg}, 0.0);
    // the same per region, so that each region's target factor reaches its own children
    // (only targets per region need it)
    LA4 bgwgOfRegion("DG4BGWG_");
    if (G_() >= 2) bgwgOfRegion.make({ngz, nbg, nbg, ngg}, 0.0);
    GemTable DG4GAM_("DG4GAM_");
    if (gam) c.makeGem(DG4GAM_, "DG4GAM_");

    // 2. fertility rates and their age range
    LA3 PR2G("PR2G", {ntyg, nbg, nag}, 0.0);
    readByType(fileTable[FT_FRUC], PR2G, "C.NTYG\0NBG\0NAG\0", VC_RATE, COLUMN_TYG);
    int lowest = -1, highest = -1;
    for (const auto& t : PR2G)
        for (const auto& b : t)
            for (size_t a = 0; a < b.size(); ++a)
                if (b[a] != 0) {
                    if (lowest < 0 || static_cast<int>(a) < lowest) lowest = static_cast<int>(a);
                    if (static_cast<int>(a) > highest) highest = static_cast<int>(a);
                }
    if (lowest >= 0) Prot::writeln(2, "@frucRange; %d .. %d", lowest, highest);

    // 3. total fertility
    LA2 BR1G("BR1G", {ntyg, nbg}, 0.0);
    for (size_t t = 0; t < ntyg; ++t)
        for (size_t b = 0; b < nbg; ++b)
            for (double f : PR2G[t][b]) BR1G[t][b] += f;
    laPrint(2, BR1G, "C.NTYG\0NBG\0", nullptr, LA_RATE);
    if (ini::PLOT_DATEN > 1) C.fertilityByYear[periodLabel(JAHR)] = BR1G;

    // 4. the child's group
    LA3 QR2G("QR2G", {ntyg, nbg, nbg}, 0.0);
    if (_(Y_0)) {
        for (size_t t = 0; t < ntyg; ++t)
            for (size_t b = 0; b < nbg; ++b) QR2G[t][b][b] = 1;
        laPrint(3, QR2G, "C.NTYG\0NBG\0NBG\0", nullptr, LA_RATE);
    } else {
        readByType(fileTable[FT_BGWQG], QR2G, "C.NTYG\0NBG\0NBG\0", VC_RATE, COLUMN_TYG);
    }
    normaliseQuotas(C, QR2G);

    // 5.
    VCHECK(isoneof(C.NGG, { 1, 2 }), SOURCE);

    // 6. and 7. the births of the mothers of each region and group, by age group
    GemTable& DG3G = y.DG3G;
    DG3G.makeFirstAge(_(Y_0) ? "DG3G" : "DG3G_Y1", ngz, nbg, ngg, nag);
    const size_t mothers = C.NGG != 1 ? 1 : 0;
    const double GP = C.GP;
    const double mbf = montecarlo ? opt::get("$MBF", MBF) : MBF;
    // the new-born of one region by group and sex, gathered before they enter the table of the
    // births, so that the table is looked up once per region and not once per mothers' age
    std::vector<double> regionBorn(nbg * ngg);
    // where the mothers of each region and group stand, gathered in one pass, so that the rows
    // of the regions ahead can be fetched while a region is computed
    std::vector<const double*> mothersRow;
    if (lowest >= 0 && !C.BG40.sparse) {
        mothersRow.resize(ngz * nbg);
        for (size_t z = 0; z < ngz; ++z)
            for (size_t b = 0; b < nbg; ++b) mothersRow[z * nbg + b] = std::as_const(C.BG40).row(z, b, mothers);
    }
    // without a birth target nothing changes the births after they are worked out: each region's
    // new-born enter the population (and the account by group) as soon as its mothers are done,
    // while the region's rows are still at hand
    const bool enterAtOnce = G_() == 0;
    // the mothers' groups whose children all stay in the mothers' group, by birth type
    std::vector<char> ownGroup(ntyg * nbg, 0);
    for (size_t t = 0; t < ntyg; ++t)
        for (size_t b = 0; b < nbg; ++b) {
            bool own = true;
            for (size_t ch = 0; ch < nbg; ++ch) own = own && QR2G[t][b][ch] == (ch == b ? 1.0 : 0.0);
            ownGroup[t * nbg + b] = own;
        }
    std::vector<double> bornOfGroup(nbg, 0.0);
    // the sums by type of the region's type and the mothers' group, held apart while the ages of
    // one region are added up
    std::vector<double> typeSums(nbg * ngg);
    // likewise the rows the new-born of each region enter at age group 0, by child's group and sex
    std::vector<double*> newbornRow;
    if (enterAtOnce && !mothersRow.empty()) {
        newbornRow.resize(ngz * nbg * ngg);
        for (size_t z = 0; z < ngz; ++z)
            for (size_t ch = 0; ch < nbg; ++ch)
                for (size_t g = 0; g < ngg; ++g) newbornRow[(z * nbg + ch) * ngg + g] = C.BG40.row(z, ch, g);
    }
    constexpr size_t AHEAD = 2;
    for (size_t z = 0; z < ngz; ++z) {
        if (!mothersRow.empty() && z + AHEAD < ngz) {
            for (size_t b = 0; b < nbg; ++b) {
                const double* ahead = mothersRow[(z + AHEAD) * nbg + b];
                for (int a = lowest; a <= highest; a += 8) __builtin_prefetch(ahead + a);
                __builtin_prefetch(ahead + highest);
            }
            for (size_t k = 0; k < nbg * ngg && !newbornRow.empty(); ++k)
                __builtin_prefetch(newbornRow[(z + AHEAD) * nbg * ngg + k]);
        }
        const size_t tyg = Z(C.region(static_cast<int>(z)).tyg);
        VCHECK(tyg < ntyg, SOURCE);
        std::fill(regionBorn.begin(), regionBorn.end(), 0.0);
        for (size_t b = 0; b < nbg && lowest >= 0; ++b) {
            // outside the ages of the fertility table no rate is other than 0
            const std::vector<double>& rates = PR2G[tyg][b];
            const double* women = mothersRow.empty() ? nullptr : mothersRow[z * nbg + b];
            const std::vector<double>& childGroup = QR2G[tyg][b];
            auto& ofType = DG4BGWG_[tyg][b];
            for (size_t ch = 0; ch < nbg; ++ch)
                for (size_t g = 0; g < ngg; ++g) typeSums[ch * ngg + g] = ofType[ch][g];
            auto* ofRegion = bgwgOfRegion.exists() ? &bgwgOfRegion[z][b] : nullptr;
            if (!montecarlo && ngg == 2 && !gam && !ofRegion && women) {
                plainBirths(women, rates.data(), childGroup.data(), nbg, Z(lowest), Z(highest), GP,
                            ownGroup[tyg * nbg + b] ? b : nbg, regionBorn.data(), typeSums.data());
                for (size_t ch = 0; ch < nbg; ++ch)
                    for (size_t g = 0; g < ngg; ++g) ofType[ch][g] = typeSums[ch * ngg + g];
                continue;
            }
            for (size_t a = Z(lowest); a <= Z(highest); ++a) {
                double w = women ? women[a] : C.BG40.get(z, b, mothers, a);
                if (w == 0) continue;
                double f = rates[a];
                if (f == 0) continue;
                double born[2] = {0, 0};
                if (C.NGG == 1) {
                    // one sex group: only the births of the mothers' own sex count
                    if (montecarlo) {
                        born[0] = mc.draw(w, f * 0.5);
                        born[0] = mc.draw(w, f * 0.5);
                    } else {
                        born[0] = w * (f * 0.5);
                    }
                } else if (!montecarlo) {
                    born[0] = f * w * GP;
                    born[1] = f * w * (1 - GP);
                } else if (w > RANDOMLIMIT) {
                    born[0] = roundHalfAway(w * f * GP);
                    born[1] = roundHalfAway((1 - GP) * f * w);
                } else {
                    // each woman in turn; multiple births spread the rate over more draws
                    double n = w, p = f;
                    if (mbf > 1 && !(mbf > n && p <= 1)) {
                        n = n * mbf;
                        p = p / mbf;
                    }
                    if (p > 1) Prot::message(SEV_ERROR, "Geburtenrate erfordert höheren Wert für !MBF");
                    const double sign = n < 0 ? -1 : 1;
                    for (double i = 0; i < std::fabs(n); ++i) {
                        double u = mc.uniform();
                        if (!(p > u)) continue;
                        double v = mc.uniform();
                        born[GP > v ? 0 : 1] += sign;
                    }
                }
                for (size_t g = 0; g < ngg; ++g) {
                    if (born[g] == 0) continue;
                    for (size_t ch = 0; ch < nbg; ++ch) {
                        double q = childGroup[ch];
                        double x = montecarlo ? mc.draw(born[g], q) : born[g] * q;
                        if (x == 0) continue;
                        regionBorn[ch * ngg + g] += x;
                        typeSums[ch * ngg + g] += x;
                        if (ofRegion) (*ofRegion)[ch][g] += x;
                    }
                    if (gam) DG4GAM_.set(z, b, g, a, born[g]);
                }
            }
            for (size_t ch = 0; ch < nbg; ++ch)
                for (size_t g = 0; g < ngg; ++g) ofType[ch][g] = typeSums[ch * ngg + g];
        }
        for (size_t ch = 0; ch < nbg; ++ch)
            for (size_t g = 0; g < ngg; ++g) {
                const double v = regionBorn[ch * ngg + g];
                if (v == 0) continue;
                DG3G.addInOrder(z, ch, g, 0, v);
                if (!enterAtOnce) continue;
                if (newbornRow.empty())
                    C.BG40.add(z, ch, g, 0, v);
                else
                    newbornRow[(z * nbg + ch) * ngg + g][0] += v;
                bornOfGroup[ch] += v;
            }
    }

    // 8. the birth targets
    if (G_() == 1) {
        const double B = DG3G.sum();
        double E = 0;
        FileEntry& entry = fileTable[FT_ECKGEB];
        const std::string label = DD::expKey("@DU01GE;");
        readTable(entry, E, label.c_str(), VC_PLAIN);
        if (E < 0)
            Prot::message(SEV_ERROR, "Fehler in der Datei %s: Geburteneckwert muss positiv sein",
                          tableFileName(entry, entry.fileNumber).c_str());
        if (ini::PLOT_DATEN > 1) C.birthTargets[periodLabel(JAHR)] = {E, B};
        const double population = C.BG40.sum();
        if (population != 0) Prot::writeln(1, "GB1000_ %g", E * 1000 / population);
        if (B != 0) {
            const double GFAK = E / B;
            Prot::writeln(1, "@rk1pag_anpgeb;", B, E, GFAK);
            DG3G.scaleRegions([GFAK](size_t) { return GFAK; });
            if (gam) DG4GAM_.scaleRegions([GFAK](size_t) { return GFAK; });
            if (GFAK != 1) DG4BGWG_.forEach([GFAK](f64& v) { v *= GFAK; });
            writeTargetFactor(FT_OUT_FRUCFAK, GFAK);
        }
    } else if (G_() >= 2) {
        LA1 DG11GE("DG11GE", {ngz}, UNDEF), SUMMEGEB("SUMMEGEB", {ngz}, 0.0), GFAK("GFAK", {ngz}, 1.0);
        FileEntry& entry = fileTable[FT_ECKGEBG];
        readRegionTargets(entry, DG11GE, "C.NGZ\0");
        for (size_t z = 0; z < ngz; ++z) SUMMEGEB[z] = DG3G.regionSum(z);
        int noBirths = 0, noTarget = 0;
        for (size_t z = 0; z < ngz; ++z) {
            const double target = DG11GE[z];
            if (!isUndef(target) && target < 0)
                Prot::message(SEV_ERROR, "Fehler in der Datei %s: Geburteneckwert %lld %g muss positiv sein",
                              tableFileName(entry, entry.fileNumber).c_str(), keyOf(C, static_cast<int>(z)), target);
            if (std::fabs(SUMMEGEB[z]) < 1e-30)
                ++noBirths;
            else if (isUndef(target))
                ++noTarget;
            else
                GFAK[z] = target / SUMMEGEB[z];
        }
        if (noBirths) Prot::message(SEV_HINT, "Bei %d Gebieten keine Anpassung an Geburteneckwert wegen fehlender Geburten", noBirths);
        if (noTarget) Prot::message(SEV_HINT, "Bei %d Gebieten ohne Eckwert keine Anpassung", noTarget);
        if (Prot::level(3)) {
            LA1 GB1000_("GB1000_", {ngz}, 0.0);
            for (size_t z = 0; z < ngz; ++z) {
                double births = isUndef(DG11GE[z]) ? SUMMEGEB[z] : DG11GE[z];
                GB1000_[z] = safe(births * 1000, C.BG40.regionSum(z), 0);
            }
            laPrint(3, GB1000_, "C.NGZ\0", nullptr, LA_RATE);
            laPrint(3, GFAK, "C.NGZ\0", nullptr, LA_RATE);
        }
        DG3G.scaleRegions([&GFAK](size_t z) { return GFAK[z]; });
        if (gam) DG4GAM_.scaleRegions([&GFAK](size_t z) { return GFAK[z]; });
        DG4BGWG_.fill(0);
        for (size_t z = 0; z < ngz; ++z) {
            auto& into = DG4BGWG_[Z(C.region(static_cast<int>(z)).tyg)];
            for (size_t b = 0; b < nbg; ++b)
                for (size_t ch = 0; ch < nbg; ++ch)
                    for (size_t g = 0; g < ngg; ++g) into[b][ch][g] += bgwgOfRegion[z][b][ch][g] * GFAK[z];
        }
        double targets = 0, sums = 0;
        for (size_t z = 0; z < ngz; ++z) {
            targets += isUndef(DG11GE[z]) ? SUMMEGEB[z] : DG11GE[z];
            sums += SUMMEGEB[z];
        }
        if (ini::PLOT_DATEN > 1) C.birthTargets[periodLabel(JAHR)] = {targets, sums};
        writeTargetFactor(FT_OUT_FRUCFAK, safe(targets, sums, 1));
    }

    // 9. births per birth type
    if (Prot::level(2)) {
        LA3 DT2G_("DT2G_", {ntyg, nbg, ngg}, 0.0);
        DG3G.forEach([&](size_t z, size_t b, size_t g, size_t, double v) {
            DT2G_[Z(C.region(static_cast<int>(z)).tyg)][b][g] += v;
        });
        laPrint(2, DT2G_, "C.NTYG\0NBG\0NGG\0", nullptr, LA_NUMBER);
    }
    if (gam) DG4GAM_.print(3);
    laPrint(3, DG4BGWG_, "C.NTYG\0NBG\0NBG\0NGG\0", nullptr, LA_NUMBER);

    // 10. the youngest cohort of the year, counted into the run's account by group
    std::vector<double>& born = C.accountByYear[periodLabel(JAHR)].births;
    if (enterAtOnce) {
        born = bornOfGroup;
    } else {
        born.assign(nbg, 0.0);
        DG3G.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
            C.BG40.add(z, b, g, a, v);
            born[b] += v;
        });
    }
    if (laActive(3)) {
        std::vector<LAListRow> rows;
        DG3G.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
            rows.push_back({static_cast<unsigned long>(z), static_cast<unsigned>(b), static_cast<unsigned>(g),
                            static_cast<unsigned>(a), v});
        });
        static const char* const labels[] = {"NGZ", "NBG", "NGG", "NAG"};
        laPrintList(nullptr, DG3G.name.c_str(), nullptr, LA_NUMBER, rows, labels);
    }
    C.BG40.print(3);
    DG4GAM_.release();
    // the births stay for the movement tables, the rates and quotas for the births on the mean
    // of the year
    y.PR2G = std::move(PR2G);
    y.QR2G = std::move(QR2G);
}
