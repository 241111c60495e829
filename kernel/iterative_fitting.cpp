// The fit of the flows inside one internal type to the limits of its regions: columns (the
// end-of-year population of a region) against lower and upper limit, rows (what each region
// sends, and the type's totals of arrivals) back to what they were, in turn, until the largest
// change a region still needs is below EPS.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/kernel_helpers.h"
#include "kernel/run_object.h"
#include "kernel/run_values.h"
#include "kernel/year_step.h"

namespace {

const char* const REGION_NAMES = "C.NGZt\0NBG\0NGG\0NAG\0";

// every cohort of a table of one region: f(b, g, a, value&)
template <class T, class F> void cohorts(T& r, F&& f)
{
    for (size_t b = 0; b < r.size(); ++b)
        for (size_t g = 0; g < r[b].size(); ++g)
            for (size_t a = 0; a < r[b][g].size(); ++a) f(b, g, a, r[b][g][a]);
}

double total(const LA4& t, size_t z)
{
    double s = 0;
    if (z < t.size()) cohorts(t[z], [&](size_t, size_t, size_t, double v) { s += v; });
    return s;
}

std::string limitText(double v) { return isUndef(v) ? std::string("undef") : Pic::Get(v, 0); }

// the sums of the fit: region demand, its six parts and the column sums of the flows
struct Demand {
    LA1 BG2N, SSUMFI;
    LA2 PIN;
};

void demandOf(const TypeFit& f, Demand& d)
{
    const size_t n = f.regions.size();
    // made at the first call; every element is written anew below
    if (d.PIN.size() != n || !d.PIN.exists()) {
        d.BG2N.make("BG2N", {n}, 0.0);
        d.SSUMFI.make("SSUMFI", {n}, 0.0);
        d.PIN.make("PIN", {n, 6}, 0.0);
    }
    if (f.sparse) {
        f.DG5FIs.columnSums(d.SSUMFI);
    } else {
        // one body per destination: the column over all origins
        os::parallelFor(0, static_cast<int>(n), [&](int zn) {
            double s = 0;
            for (size_t zv = 0; zv < n; ++zv) cohorts(f.DG5FI[zv][size_t(zn)], [&](size_t, size_t, size_t, double v) { s += v; });
            d.SSUMFI[size_t(zn)] = s;
        });
    }
    for (size_t z = 0; z < n; ++z) {
        double parts[5] = {d.SSUMFI[z], total(f.STAYER, z), total(f.DG4ZB, z), total(f.DG4IBR, z), total(f.DG4ZA, z)};
        double s = 0;
        for (int i = 0; i < 5; ++i) {
            d.PIN[z][size_t(i) + 1] = parts[i];
            s += parts[i];
        }
        d.PIN[z][0] = s;
        d.BG2N[z] = s;
    }
}

// a table of one region by cohort for each region, made and set to 0
LA4 regionCohorts(const char* name, const TypeFit& f, size_t n)
{
    return LA4(name, {n, f.nbg, f.ngg, f.nag}, 0.0);
}

// the type's totals of a table of arrivals by cohort, in region order
LA3 typeTotals(const char* name, const TypeFit& f, const LA4& t)
{
    LA3 s(name, {f.nbg, f.ngg, f.nag}, 0.0);
    for (const auto& r : t) cohorts(r, [&](size_t b, size_t g, size_t a, double v) { s[b][g][a] += v; });
    return s;
}

// the same by in-migration type of the regions
LA4 totalsByGroup(const char* name, const TypeFit& f)
{
    LA4 s(name, {f.groups, f.nbg, f.ngg, f.nag}, 0.0);
    for (size_t z = 0; z < f.DG4ZA.size(); ++z)
        cohorts(f.DG4ZA[z], [&](size_t b, size_t g, size_t a, double v) { s[f.group[z]][b][g][a] += v; });
    return s;
}

// the row sums of the flows plus the stayers, by origin and cohort, into the storage into already
// holds when it has the shape
void rowSums(const TypeFit& f, LA4& into)
{
    const size_t n = f.regions.size();
    if (into.size() != n || !into.exists()) into = regionCohorts("ZSUMFI", f, n);
    for (size_t z = 0; z < n; ++z)
        cohorts(into[z], [&](size_t b, size_t g, size_t a, double& v) { v = f.STAYER.exists() ? f.STAYER[z][b][g][a] : 0; });
    if (f.sparse) {
        f.DG5FIs.addRowSums(into);
        return;
    }
    os::parallelFor(0, static_cast<int>(n), [&](int zv) {
        auto& r = into[size_t(zv)];
        for (const auto& to : f.DG5FI[size_t(zv)])
            cohorts(to, [&](size_t b, size_t g, size_t a, double v) { r[b][g][a] += v; });
    });
}

void writeExport(const TypeFit& f)
{
    const int number = static_cast<int>(opt::get("$IPF", 0));
    if (number == 0) return;
    char path[1024];
    snprintf(path, sizeof path, "%s/%s/IPF%d_%d.csv", si::Directory.c_str(), si::Version.c_str(), f.year, f.type + 1);
    FILE* out = fopen(path, "w");
    if (!out) {
        Prot::message(SEV_WARNING, "open %s %s", path, os::errorText(errno).c_str());
        return;
    }
    Prot::writeln(1, "<a href=\"%s\">%s Eingabedatei</a> für IPF.pl", path, "dense");
    const char* comment = "# ";
    const size_t n = f.regions.size();
    fprintf(out, "%sIPF %s input %d TYB %d\n%s", comment, f.sparse ? "sparse" : "dense", f.year, f.type + 1, comment);
    for (size_t z = 0; z < n; ++z) fprintf(out, "%d %d %lld;", int(z) + 1, f.regions[z] + 1, f.keys[z]);
    fprintf(out, "Quelle\n");
    if (f.sparse) {
        fprintf(out, "%skeine Ausgabe sparse DG5FIs!\n", comment);
    } else {
        for (size_t zv = 0; zv < n; ++zv)
            cohorts(f.DG5FI[zv][0], [&](size_t b, size_t g, size_t a, double) {
                for (size_t zn = 0; zn < n; ++zn) fprintf(out, "%.15g;", f.DG5FI[zv][zn][b][g][a]);
                fprintf(out, "%sDG5FI[%d,*,%d,%d,%d]\n", comment, int(zv) + 1, int(b) + 1, int(g) + 1, int(a));
            });
    }
    auto arrivals = [&](const LA4& t, const char* name) {
        if (!t.exists()) return;
        cohorts(t[0], [&](size_t b, size_t g, size_t a, double) {
            for (size_t z = 0; z < n; ++z) fprintf(out, "%.15g;", t[z][b][g][a]);
            fprintf(out, "%s%s[*,%d,%d,%d]\n", comment, name, int(b) + 1, int(g) + 1, int(a));
        });
    };
    arrivals(f.STAYER, "STAYER");
    arrivals(f.DG4ZB, "DG4ZB");
    arrivals(f.DG4IBR, "DG4IBR");
    arrivals(f.DG4ZA, "DG4ZA");
    for (size_t k = 0; k < 2; ++k) {
        for (size_t z = 0; z < n; ++z) fprintf(out, "%.15g;", f.BG2A[k][z]);
        fprintf(out, "%sBG2A[%d,*]\n", comment, int(k) + 1);
    }
    fclose(out);
}

// the flows between the regions at level 4: the dense table, or the list form's origins by
// cohort with its destination weights
void printFlows(const TypeFit& f, const char* title)
{
    if (!Prot::level(4)) return;
    if (!f.sparse) {
        laPrint(4, f.DG5FI, "C.NGZt\0NGZt\0NBG\0NGG\0NAG\0", title);
        return;
    }
    laPrint(4, f.DG5FIs.origin, REGION_NAMES, title);
    LA1 weights("DG5FIs", {f.DG5FIs.destination.size()}, 0.0);
    for (size_t zn = 0; zn < weights.size(); ++zn) weights[zn] = f.DG5FIs.destination[zn];
    laPrint(4, weights, "C.NGZt\0", title, LA_RATE);
}

} // namespace

int abgleichInnenwanderung(TypeFit& f)
{
    const size_t n = f.regions.size();
    const int NITER = ini::NITER;
    const double EPS = ini::EPS;
    writeExport(f);

    // 1. the limits in all
    double A0 = 0, A1 = 0;
    for (size_t z = 0; z < n; ++z) {
        A0 += f.BG2A[0][z];
        A1 += f.BG2A[1][z];
    }
    if (n > 1) Prot::writeln(3, "@sum; @lowerLimit; %s, @sum; upperLimit; %s", Pic::Get(A0, 0).c_str(), limitText(A1).c_str());

    // 2. the row targets
    LA4 ZSUM0FI;
    rowSums(f, ZSUM0FI);
    ZSUM0FI.name = "ZSUM0FI";
    const LA3 ZSUM0ZB = typeTotals("ZSUM0ZB", f, f.DG4ZB);
    const LA3 ZSUM0IBR = f.DG4IBR.exists() ? typeTotals("ZSUM0IBR", f, f.DG4IBR) : LA3();
    const LA4 ZSUM0ZA = f.DG4ZA.exists() ? totalsByGroup("ZSUM0ZA", f) : LA4();
    laPrint(4, ZSUM0FI, REGION_NAMES);
    laPrint(4, ZSUM0ZB, "NBG\0NGG\0NAG\0");

    // 3. demand
    Demand d;
    demandOf(f, d);
    laPrint(3, d.BG2N, "C.NGZt\0", "BG2N");
    laPrint(3, d.PIN, "C.NGZt\0PIN\0", "BG2N(1) = DG5FI(2) + STAYER(3) + DG4ZB(4) + DG4IBR(5) + DG4ZA(6)");

    // 4. can the limits be met at all
    double N = d.BG2N.sum();
    if ((1 - EPS) * A0 > N || (!isUndef(A1) && N > (1 + EPS) * A1))
        Prot::message(SEV_WARNING, "PAG: Nachfrage BG2N %.15g ausserhalb Intervall Angebot BG2A [%.15g .. %s] (Toleranz %.15g)",
                      N, A0, isUndef(A1) ? "undef" : std::to_string(A1).c_str(), EPS);

    // 5. and 6. columns and rows in turn
    LA1 FAN("FAN", {n}, 1.0);
    LA4 ZSUMFI = regionCohorts("ZSUMFI", f, n), FAKZFI = regionCohorts("FAKZFI", f, n);
    Prot::writeln(3, "@iteration; - @ENORM;\n<ol>\n");
    int k = 0;
    for (;;) {
        double ENORM = 0;
        for (size_t z = 0; z < n; ++z) {
            FAN[z] = 1;
            if (f.BG2A[0][z] > d.BG2N[z])
                FAN[z] = safe(f.BG2A[0][z], d.BG2N[z], 1);
            else if (!isUndef(f.BG2A[1][z]) && d.BG2N[z] > f.BG2A[1][z])
                FAN[z] = safe(f.BG2A[1][z], d.BG2N[z], 1);
            ENORM = std::max(ENORM, std::fabs(FAN[z] - 1));
        }
        k += 1;
        Prot::writeln(3, "<li value=\"%d\"> %.15g", k, ENORM);
        laPrint(3, FAN, "C.NGZt\0", "FAN", LA_RATE);
        if (EPS > ENORM) break;
        if (k - 1 >= NITER) {
            Prot::message(SEV_WARNING, "@rk2abg_fmt1300;", NITER, ENORM, EPS);
            Prot::writeln(3, "</li>\n");
            break;
        }
        // f. the columns to the limits
        if (f.sparse) {
            f.DG5FIs.scaleDestinations(FAN);
        } else {
            os::parallelFor(0, static_cast<int>(n), [&](int zv) {
                auto& row = f.DG5FI[size_t(zv)];
                for (size_t zn = 0; zn < n; ++zn) cohorts(row[zn], [&](size_t, size_t, size_t, double& v) { v *= FAN[zn]; });
            });
        }
        for (LA4* t : {&f.STAYER, &f.DG4ZB, &f.DG4IBR, &f.DG4ZA})
            for (size_t z = 0; z < t->size(); ++z) cohorts((*t)[z], [&](size_t, size_t, size_t, double& v) { v *= FAN[z]; });
        printFlows(f, "nach Spaltenabgleich mit FAN");
        laPrint(4, f.STAYER, REGION_NAMES, "@STAYER; nach Spaltenabgleich");
        laPrint(4, f.DG4ZB, REGION_NAMES, "@DG4ZB; DG4ZB (Anteil TYB nach Spaltenabgleich)");
        if (f.DG4IBR.exists()) laPrint(4, f.DG4IBR, REGION_NAMES, "@DG4IBR; DG4IBR (Anteil TYB nach Spaltenabgleich)");
        if (f.DG4ZA.exists()) laPrint(4, f.DG4ZA, REGION_NAMES, "@DG4ZA; DG4ZA (Anteil TYB nach Spaltenabgleich)");

        // g. and h. each region sends what it sent before
        rowSums(f, ZSUMFI);
        for (size_t z = 0; z < n; ++z)
            cohorts(FAKZFI[z], [&](size_t b, size_t g, size_t a, double& x) {
                x = safe(ZSUM0FI[z][b][g][a], ZSUMFI[z][b][g][a], 1);
            });
        laPrint(4, FAKZFI, REGION_NAMES, "Faktoren ZSUM0FI/ZSUMFI für Zeilenabgleich DG5FI", LA_RATE);
        if (f.sparse) {
            f.DG5FIs.scaleOrigins(FAKZFI);
        } else {
            os::parallelFor(0, static_cast<int>(n), [&](int zv) {
                const auto& fak = FAKZFI[size_t(zv)];
                for (auto& to : f.DG5FI[size_t(zv)])
                    cohorts(to, [&](size_t b, size_t g, size_t a, double& v) { v *= fak[b][g][a]; });
            });
        }
        if (f.STAYER.exists())
            for (size_t z = 0; z < n; ++z)
                cohorts(f.STAYER[z], [&](size_t b, size_t g, size_t a, double& v) { v *= FAKZFI[z][b][g][a]; });
        printFlows(f, "nach Zeilenabgleich");
        laPrint(4, f.STAYER, REGION_NAMES, "@STAYER; nach Zeilenabgleich");

        // i. the arrivals keep the type's totals
        auto keepTotals = [&](LA4& t, const LA3& target, const char* name, const char* title) {
            if (!t.exists()) return;
            LA3 now = typeTotals(name, f, t);
            LA3 fak("FAK", {f.nbg, f.ngg, f.nag}, 1.0);
            cohorts(fak, [&](size_t b, size_t g, size_t a, double& x) { x = safe(target[b][g][a], now[b][g][a], 1); });
            laPrint(4, fak, "NBG\0NGG\0NAG\0", title, LA_RATE);
            for (auto& r : t) cohorts(r, [&](size_t b, size_t g, size_t a, double& v) { v *= fak[b][g][a]; });
        };
        keepTotals(f.DG4ZB, ZSUM0ZB, "ZSUMZB", "Faktor (default 1) ZSUM0ZB/ZSUMZB zum Abgleich DG4ZB");
        keepTotals(f.DG4IBR, ZSUM0IBR, "ZSUMIBR", "Faktor (default 1) ZSUM0IBR/ZSUMIBR zum Abgleich DG4IBR");
        if (f.DG4ZA.exists()) {
            LA4 ZSUMZA = totalsByGroup("ZSUMZA", f);
            LA4 FAKZA_("FAKZA_", {f.groups, f.nbg, f.ngg, f.nag}, 1.0);
            for (size_t y = 0; y < f.groups; ++y)
                cohorts(FAKZA_[y], [&](size_t b, size_t g, size_t a, double& x) {
                    x = safe(ZSUM0ZA[y][b][g][a], ZSUMZA[y][b][g][a], 1);
                });
            laPrint(4, FAKZA_, "C.NTYZZA\0NBG\0NGG\0NAG\0", "Faktor (default 1) ZSUM0ZA/ZSUMZA zum Abgleich DG4ZA", LA_RATE);
            for (size_t z = 0; z < n; ++z)
                cohorts(f.DG4ZA[z], [&](size_t b, size_t g, size_t a, double& v) { v *= FAKZA_[f.group[z]][b][g][a]; });
        }
        laPrint(4, f.DG4ZB, REGION_NAMES, "@DG4ZB; DG4ZB (Anteil TYB nach Zeilenabgleich)");
        laPrint(4, f.DG4ZA, REGION_NAMES, "@DG4ZA; DG4ZA (Anteil TYB nach Zeilenabgleich)");

        // j. the demand anew
        demandOf(f, d);
        Prot::writeln(3, "</li>\n");
    }
    Prot::writeln(3, "</ol>");

    // 7. the result per region
    if (Prot::level(2)) {
        Prot::raw("<table>\n<caption>%s</caption>\n<tr><th>GZt</th><th>GKZ</th><th>BG2A</th><th>BG2N</th><th>BG2A</th>"
                  "<th>FAN</th></tr>\n",
                  DD::expKey("@ITER_GEM;").c_str());
        for (size_t z = 0; z < n; ++z)
            Prot::raw("<tr><td class=r>%d</td><td class=r>%lld</td><td class=r>%s</td><td class=r>%.15g</td>"
                      "<td class=r>%s</td><td class=r>%.15g</td></tr>\n",
                      int(z) + 1, f.keys[z], limitText(f.BG2A[0][z]).c_str(), d.BG2N[z], limitText(f.BG2A[1][z]).c_str(),
                      FAN[z]);
        Prot::raw("</table>\n");
    }
    return k;
}
