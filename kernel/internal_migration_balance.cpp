// Internal migration between the types: the flow rates turned into numbers on the population
// left after new building and demolition (RK::ASM), what each type can hold and what the flows
// would put there, and the balance of the flow table to those limits (RK::ABG): a row-and-column
// balance in dense or list form, or the chi-square table adjustment.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "numerics/chi_square_adjustment.h"
#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "platform/variant_settings.h"
#include "kernel/file_table.h"
#include "kernel/kernel_helpers.h"
#include "kernel/run_object.h"
#include "kernel/run_values.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"
#include "tables/table_text.h"

namespace {

constexpr const char* SOURCE = "source\\c\\rkpag";
const char* const TYPE_NAMES = "C.NTYB\0NBG\0NGG\0NAG\0";
const char* const FLOW_NAMES = "C.NTYB\0NTYB\0NBG\0NGG\0NAG\0";

size_t Z(int i) { return static_cast<size_t>(i); }

long long keyOf(const Orvane& c, int gz)
{
    if (c.keyScale != 1 && Z(gz) < c.indexKeys.size()) return c.indexKeys[Z(gz)];
    return Z(gz) < c.regions.size() ? c.regions[Z(gz)].key : gz + 1;
}

double total(const LA4& a, size_t t)
{
    double s = 0;
    if (t >= a.size()) return 0;
    for (const auto& b : a[t])
        for (const auto& g : b)
            for (double v : g) s += v;
    return s;
}

double regionTotal(const GemTable& t, int z) { return t.exists() ? t.regionSum(Z(z)) : 0.0; }

// every cohort of a type table: f(b, g, a, value&)
template <class T, class F> void cohorts(T& r, F&& f)
{
    for (size_t b = 0; b < r.size(); ++b)
        for (size_t g = 0; g < r[b].size(); ++g)
            for (size_t a = 0; a < r[b][g].size(); ++a) f(b, g, a, r[b][g][a]);
}

std::string limitText(double v) { return isUndef(v) ? std::string("undef") : Pic::Get(v, 0); }

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// ---------------------------------------------------------------- protocol of the flows

// the flows between types in all, with the two limits below them
void protSTROM(const Orvane& c, const char* label, const char* caption)
{
    if (!Prot::level(3)) return;
    const size_t n = Z(c.NTYB);
    if (c.BR3R.exists()) laPrint(3, c.BR3R, TYPE_NAMES, label ? label : "@BR3R;");
    if (c.sparseStrm)
        c.DR4FBs.print(3, caption);
    else if (c.DR4FB.exists())
        laPrint(3, c.DR4FB, FLOW_NAMES, caption);
    LA2 DR1STROMB_("DR1STROMB_", {n + (c.BR0A.exists() ? 2 : 0), n}, 0.0);
    if (c.sparseStrm) {
        for (const FBElem& e : c.DR4FBs.elems) DR1STROMB_[e.tybv][e.tybn] += e.value;
    } else if (c.DR4FB.exists()) {
        for (size_t v = 0; v < n; ++v)
            for (size_t t = 0; t < n; ++t) cohorts(c.DR4FB[v][t], [&](size_t, size_t, size_t, double x) { DR1STROMB_[v][t] += x; });
    }
    if (c.BR0A.exists())
        for (size_t t = 0; t < n; ++t) {
            DR1STROMB_[n][t] = c.BR0A[0][t];
            DR1STROMB_[n + 1][t] = c.BR0A[1][t];
        }
    laPrint(3, DR1STROMB_, "TYBv\0C.NTYB\0", caption);
}

// the diagonal of the dense flow table: its total per type and by cohort
void protHDS(const Orvane& c)
{
    if (c.sparseStrm || !c.DR4FB.exists() || !Prot::level(2)) return;
    const size_t n = Z(c.NTYB);
    LA1 BR1SUM("BR1SUM", {n}, 0.0);
    LA4 HDS("HDS", {n, Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
    for (size_t t = 0; t < n; ++t)
        cohorts(c.DR4FB[t][t], [&](size_t b, size_t g, size_t a, double x) {
            BR1SUM[t] += x;
            HDS[t][b][g][a] = x;
        });
    laPrint(2, BR1SUM, "C.NTYB\0", "BR1SUM");
    laPrint(3, HDS, TYPE_NAMES, "HDS");
}

// ---------------------------------------------------------------- stayers on the diagonal

// stayers join the flows within their type; BR3R keeps the stayers' share of the diagonal
void mergeStayers(Orvane& c)
{
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& d = c.DR4FB[Z(t)][Z(t)];
        cohorts(c.BR3R[Z(t)], [&](size_t b, size_t g, size_t a, double& s) {
            double& x = d[b][g][a];
            double sum = s + x;
            s = sum == 0 ? 0 : s / sum;
            x = sum;
        });
    });
}

void unmergeStayers(Orvane& c)
{
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& d = c.DR4FB[Z(t)][Z(t)];
        cohorts(c.BR3R[Z(t)], [&](size_t b, size_t g, size_t a, double& q) {
            double& x = d[b][g][a];
            const double all = x;
            x = (1 - q) * all;
            q = q * all;
        });
    });
}

// ---------------------------------------------------------------- export for an external check

void exportBalanceInput(const Orvane& c)
{
    const int number = static_cast<int>(opt::get("$IPF", 0));
    if (number == 0) return;
    char path[1024];
    snprintf(path, sizeof path, "%s/%s/IPF%d.csv", si::Directory.c_str(), si::Version.c_str(), periodLabel(JAHR));
    FILE* f = fopen(path, "w");
    if (!f) {
        Prot::message(SEV_WARNING, "open %s %s", path, os::errorText(errno).c_str());
        return;
    }
    const char* comment = "# ";
    Prot::writeln(1, "<a href=\"%s\">%s Eingabedatei</a> für IPF.pl", path, c.sparseStrm ? "sparse" : "dense");
    fprintf(f, "Binnenwanderung DR4FB incl. Stayer BR3R\n");
    if (c.sparseStrm) {
        fprintf(f, "%sTYBv;TYBn;BG;GG;AG;Anzahl\n", comment);
        for (const FBElem& e : c.DR4FBs.elems)
            fprintf(f, "%d;%d;%d;%d;%d;%.15g\n", e.tybv + 1, e.tybn + 1, e.bg + 1, e.gg() + 1, e.ag(), e.value);
        for (int t = 0; t < c.NTYB; ++t)
            cohorts(c.BR3R[Z(t)], [&](size_t b, size_t g, size_t a, double s) {
                if (s != 0) fprintf(f, "%d;%d;%d;%d;%d;%.15g\n", t + 1, t + 1, int(b) + 1, int(g) + 1, int(a), s);
            });
    } else {
        for (int n = 0; n < c.NTYB; ++n) fprintf(f, "TYBn %d;", n + 1);
        fprintf(f, "Quelle\n");
        for (int v = 0; v < c.NTYB; ++v)
            cohorts(c.BR3R[Z(v)], [&](size_t b, size_t g, size_t a, double) {
                for (int n = 0; n < c.NTYB; ++n) fprintf(f, "%.15g;", c.DR4FB[Z(v)][Z(n)][b][g][a]);
                fprintf(f, "%sDR4FB[%d,*,%d,%d,%d]+BR3R[%d,%d,%d,%d]\n", comment, v + 1, int(b) + 1, int(g) + 1,
                        int(a), v + 1, int(b) + 1, int(g) + 1, int(a));
            });
    }
    fprintf(f, "%sZielwerte BR0A\n", comment);
    for (int k = 0; k < 2; ++k) {
        fprintf(f, "*;%d", k);
        for (int t = 0; t < c.NTYB; ++t) fprintf(f, ";%.15g", c.BR0A[Z(k)][Z(t)]);
        fprintf(f, "%sBR0A[%d,*]\n", comment, k + 1);
    }
    fclose(f);
}

// ---------------------------------------------------------------- the row-and-column balance

// the column factors of the types against their limits; the largest change still needed
double columnFactors(Orvane& c, LA1& SKF)
{
    double norm = 0;
    for (int t = 0; t < c.NTYB; ++t) {
        const size_t i = Z(t);
        SKF[i] = 1;
        c.MR0Z[i] = 0;
        if (c.BR0A[0][i] > c.BR0N[i]) {
            SKF[i] = safe(c.BR0A[0][i], c.BR0N[i], 1);
            c.MR0Z[i] = -1;
        } else if (!isUndef(c.BR0A[1][i]) && c.BR0N[i] > c.BR0A[1][i]) {
            SKF[i] = safe(c.BR0A[1][i], c.BR0N[i], 1);
            c.MR0Z[i] = 1;
        }
        norm = std::max(norm, std::fabs(SKF[i] - 1));
    }
    return norm;
}

// the iteration protocol: one row per pass
struct IterationTable {
    bool open = false;
    void start(const Orvane& c)
    {
        open = Prot::level(2);
        if (!open) return;
        Prot::raw("<table>\n<caption>%s</caption>\n<tr><th>I</th><th>NORM</th>", DD::expKey("@iterProt;").c_str());
        if (Prot::level(3)) Prot::raw("<th>ENTROPIE</th>");
        if (!_(P_0))
            for (const char* h : {"MR0Z", "SKF"})
                for (int t = 0; t < c.NTYB; ++t) Prot::raw("<th>%s %d</th>", h, t + 1);
        Prot::raw("</tr>\n");
    }
    void row(const Orvane& c, int k, double norm, double entropy, const LA1& SKF)
    {
        if (!open) return;
        Prot::raw("<tr><td class=r>%d</td><td class=r>%.6g</td>", k, norm);
        if (Prot::level(3)) Prot::raw("<td class=r>%.6g</td>", entropy);
        if (!_(P_0)) {
            for (int t = 0; t < c.NTYB; ++t) Prot::raw("<td class=r>%g</td>", c.MR0Z[Z(t)]);
            for (int t = 0; t < c.NTYB; ++t) Prot::raw("<td class=r>%.6g</td>", SKF[Z(t)]);
        }
        Prot::raw("</tr>\n");
    }
    void end()
    {
        if (open) Prot::raw("</table>\n");
    }
};

// sum over all cells with a positive start value of x ln(x / x0)
double entropyOf(const LA5& now, const LA5& start)
{
    double e = 0;
    for (size_t v = 0; v < start.size(); ++v)
        for (size_t n = 0; n < start[v].size(); ++n)
            cohorts(start[v][n], [&](size_t b, size_t g, size_t a, double x0) {
                double x = now[v][n][b][g][a];
                if (x0 > 0 && x > 0) e += x * std::log(x / x0);
            });
    return e;
}

// what the flows put into each type; the stayers count unless they are merged into the diagonal
void demandOfTypes(Orvane& c, bool stayersApart)
{
    if (c.sparseStrm) {
        for (int t = 0; t < c.NTYB; ++t) c.BR0N[Z(t)] = total(c.BR3R, Z(t));
        for (const FBElem& e : c.DR4FBs.elems) c.BR0N[e.tybn] += e.value;
        return;
    }
    os::parallelFor(0, c.NTYB, [&](int n) {
        double s = 0;
        for (int v = 0; v < c.NTYB; ++v) cohorts(c.DR4FB[Z(v)][Z(n)], [&](size_t, size_t, size_t, double x) { s += x; });
        c.BR0N[Z(n)] = s + (stayersApart && c.BR3R.exists() ? total(c.BR3R, Z(n)) : 0);
    });
}

void finishBalance(const Orvane& c, int iterations, double norm, std::chrono::steady_clock::time_point start, const LA1& SKF)
{
    if (Prot::level(1)) {
        Prot::writeln(1, "@rk2abg_fmt1200;", iterations, norm, seconds(start));
        laPrint(1, c.BR0N, "C.NTYB\0", "BR0N");
        laPrint(1, SKF, "C.NTYB\0", "SKF", LA_RATE);
    }
}

// the dense form, with the stayers merged into the diagonal
void IPF_large(Orvane& c)
{
    const auto start = std::chrono::steady_clock::now();
    mergeStayers(c);
    protSTROM(c, "@BR3R; (Stayerquote)", "@rk2adt_strom1;");
    exportBalanceInput(c);
    LA5 first;
    if (Prot::level(3)) first = c.DR4FB;
    LA1 SKF("SKF", {Z(c.NTYB)}, 1.0);
    IterationTable ITP;
    ITP.start(c);
    LA4 ZSUM("ZSUM", {Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
    os::parallelFor(0, c.NTYB, [&](int v) {
        for (const auto& n : c.DR4FB[Z(v)])
            cohorts(n, [&](size_t b, size_t g, size_t a, double x) { ZSUM[Z(v)][b][g][a] += x; });
    });
    int k = 0;
    double norm = 0;
    for (;; ++k) {
        norm = _(P_0) ? 0 : columnFactors(c, SKF);
        ITP.row(c, k + 1, norm, first.exists() ? entropyOf(c.DR4FB, first) : 0, SKF);
        if (ini::EPS > norm) break;
        if (k >= ini::NITER) {
            Prot::message(SEV_WARNING, "@rk2abg_fmt1300;", ini::NITER, norm, ini::EPS);
            break;
        }
        os::parallelFor(0, c.NTYB, [&](int v) {
            auto& row = c.DR4FB[Z(v)];
            for (size_t n = 0; n < row.size(); ++n)
                cohorts(row[n], [&](size_t, size_t, size_t, double& x) { x *= SKF[n]; });
            LA3 now("ZSUMv", {Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
            for (const auto& n : row) cohorts(n, [&](size_t b, size_t g, size_t a, double x) { now[b][g][a] += x; });
            for (auto& n : row)
                cohorts(n, [&](size_t b, size_t g, size_t a, double& x) {
                    x *= dampedRatio(ZSUM[Z(v)][b][g][a], now[b][g][a], ini::SCE);
                });
        });
        demandOfTypes(c, false);
    }
    ITP.end();
    finishBalance(c, k, norm, start, SKF);
    unmergeStayers(c);
    protSTROM(c, nullptr, "@rk2adt_strom2;");
    protHDS(c);
    if (!_(P_0)) laPrint(2, c.MR0Z, "C.NTYB\0", "MR0Z");
}

// the list form: the stayers stay in BR3R and count as the diagonal's part
void IPF_list(Orvane& c)
{
    const auto start = std::chrono::steady_clock::now();
    protSTROM(c, nullptr, "@rk2adt_strom1;");
    exportBalanceInput(c);
    LA1 SKF("SKF", {Z(c.NTYB)}, 1.0);
    IterationTable ITP;
    ITP.start(c);
    const LA4::Extents ext{Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)};
    auto rowSums = [&](LA4& s) {
        s = c.BR3R;
        for (const FBElem& e : c.DR4FBs.elems) s[e.tybv][e.bg][e.gg()][e.ag()] += e.value;
    };
    LA4 ZSUM("ZSUM", ext, 0.0), now("ZSUMk", ext, 0.0), ZFAK("ZFAK", ext, 1.0);
    rowSums(ZSUM);
    int k = 0;
    double norm = 0;
    for (;; ++k) {
        norm = _(P_0) ? 0 : columnFactors(c, SKF);
        ITP.row(c, k + 1, norm, 0, SKF);
        if (ini::EPS > norm) break;
        if (k >= ini::NITER) {
            Prot::message(SEV_WARNING, "@rk2abg_fmt1300;", ini::NITER, norm, ini::EPS);
            break;
        }
        for (FBElem& e : c.DR4FBs.elems) e.value *= SKF[e.tybn];
        for (int t = 0; t < c.NTYB; ++t) cohorts(c.BR3R[Z(t)], [&](size_t, size_t, size_t, double& s) { s *= SKF[Z(t)]; });
        rowSums(now);
        for (size_t t = 0; t < ZFAK.size(); ++t)
            cohorts(ZFAK[t], [&](size_t b, size_t g, size_t a, double& f) {
                f = dampedRatio(ZSUM[t][b][g][a], now[t][b][g][a], ini::SCE);
                c.BR3R[t][b][g][a] *= f;
            });
        for (FBElem& e : c.DR4FBs.elems) e.value *= ZFAK[e.tybv][e.bg][e.gg()][e.ag()];
        demandOfTypes(c, true);
    }
    ITP.end();
    finishBalance(c, k, norm, start, SKF);
    protSTROM(c, nullptr, "@rk2adt_strom2;");
    if (!_(P_0)) laPrint(2, c.MR0Z, "C.NTYB\0", "MR0Z");
}

// the chi-square table adjustment: rows are origin type and cohort, columns the destination
// types; the rows keep their sums, the columns are weighted towards the limits
void adjustByDecomposition(Orvane& c)
{
    const auto start = std::chrono::steady_clock::now();
    mergeStayers(c);
    protSTROM(c, "@BR3R; (Stayerquote)", "@rk2adt_strom1;");
    const int ntyb = c.NTYB, ncoh = c.NBG * c.NGG * c.NAG;
    for (int t = 0; t < ntyb; ++t)
        if (c.BR0A[0][Z(t)] != c.BR0A[1][Z(t)])
            Prot::message(SEV_ERROR, "TYB %d, Untergrenze %g != Obergrenze %g", t + 1, c.BR0A[0][Z(t)],
                          c.BR0A[1][Z(t)]);
    AdjustmentProblem problem(ntyb * ncoh, ntyb);
    AdjustmentTable table;
    if (createTable(problem, table) != 0) {
        Prot::message(SEV_ERROR, "ADETON: Not enough memory for table data\n");
        return;
    }
    struct Free {
        AdjustmentTable& t;
        ~Free() { freeTable(t); }
    } release{table};
    auto cell = [&](int v, size_t b, size_t g, size_t a, int n) {
        size_t row = Z(v) * Z(ncoh) + (b * Z(c.NGG) + g) * Z(c.NAG) + a;
        return row * Z(ntyb) + Z(n);
    };
    std::vector<double> columnSum(Z(ntyb), 0.0);
    for (int v = 0; v < ntyb; ++v)
        for (int n = 0; n < ntyb; ++n)
            cohorts(c.DR4FB[Z(v)][Z(n)], [&](size_t b, size_t g, size_t a, double x) {
                table.b[cell(v, b, g, a, n)] = x;
                table.z[cell(v, b, g, a, 0) / Z(ntyb)] += x;
                table.H += x;
                columnSum[Z(n)] += x;
            });
    for (int n = 0; n < ntyb; ++n) table.w[Z(n)] = columnSum[Z(n)] / c.BR0A[0][Z(n)];
    AdjustmentResult r = adjustTable(problem, table);
    switch (r.outcome) {
    case Adjustment::NoMemoryForWork:
        Prot::message(SEV_ERROR, "ADETON: Not enough memory for SVD data\n");
        return;
    case Adjustment::DecompositionFailed:
        Prot::message(SEV_ERROR, "ADETON: Error in Golub Reinsch Algorithm");
        return;
    case Adjustment::NullMatrix:
        Prot::message(SEV_ERROR, "ADETON: SVD Null Matrix!");
        return;
    case Adjustment::Done:
        break;
    }
    Prot::writeln(1, "ADETON: Singular Value Decomposition completed");
    for (int v = 0; v < ntyb; ++v)
        for (int n = 0; n < ntyb; ++n)
            cohorts(c.DR4FB[Z(v)][Z(n)], [&](size_t b, size_t g, size_t a, double& x) { x = table.b[cell(v, b, g, a, n)]; });
    demandOfTypes(c, false);
    unmergeStayers(c);
    protSTROM(c, nullptr, "@rk2adt_strom2;");
    Prot::writeln(1, "ADETON: Anpassung Binnenwanderung %g s", seconds(start));
}

// the flows of the year between the types as output 46
void writeTypeFlows(const Orvane& c)
{
    FILE* f = nullptr;
    char name[64];
    if (c.sparseStrm ? c.DR4FBs.empty() : !c.DR4FB.exists()) return;
    if (openTable(&f, FT_OUT_STROM, name, sizeof name) != 0 || !f) return;
    const double label = periodLabel(JAHR);
    auto row = [&](size_t v, size_t n, size_t b, size_t g, size_t a, double x) {
        if (x == 0) return;
        csvWriteCell(f, "%.0f", label, 0);
        csvWriteCell(f, "%.0f", double(v + 1), 0);
        csvWriteCell(f, "%.0f", double(n + 1), 0);
        csvWriteCell(f, "%.0f", double(b + 1), 0);
        csvWriteCell(f, "%.0f", double(g + 1), 0);
        csvWriteCell(f, "%.0f", double(a), 0);
        csvWriteCell(f, "%.15g", x, 1);
    };
    if (c.sparseStrm) {
        for (const FBElem& e : c.DR4FBs.elems) row(e.tybv, e.tybn, e.bg, e.gg(), e.ag(), e.value);
    } else {
        for (size_t v = 0; v < c.DR4FB.size(); ++v)
            for (size_t n = 0; n < c.DR4FB[v].size(); ++n)
                cohorts(c.DR4FB[v][n], [&](size_t b, size_t g, size_t a, double x) { row(v, n, b, g, a, x); });
    }
    closeTable(f);
}

} // namespace

// ---------------------------------------------------------------- supply and demand of the types

void typeSupplyAndDemand(Orvane& c, YearStep& y, bool final)
{
    c.BR0A.make("C.BR0A", {2, Z(c.NTYB)}, 0.0);
    c.BR0N.make("C.BR0N", {Z(c.NTYB)}, 0.0);
    demandOfTypes(c, true);

    LA1 DR1WA("DR1WA", {Z(c.NTYB)}, 0.0), DR1ZA("DR1ZA", {Z(c.NTYB)}, 0.0);
    for (int z = 0; z < c.NGZ; ++z) DR1WA[Z(c.region(z).tyb)] += regionTotal(y.DG4WA, z);
    // each external in-migration type lies inside one internal type
    std::vector<int> tybOfZza(Z(std::max(c.NTYZZA, 0)), -1);
    for (int z = 0; z < c.NGZ; ++z) {
        const RegionRow& r = c.region(z);
        if (r.tyzza < 0 || r.tyzza >= c.NTYZZA) continue;
        int& t = tybOfZza[Z(r.tyzza)];
        if (t < 0) {
            t = r.tyb;
        } else if (t != r.tyb) {
            Prot::message(SEV_ERROR,
                          "Gebiet %lld darf nicht Typ Außenzugug %d und Binnentyp %d haben, da Typ Außenzuzug %d "
                          "bereits Teilmenge von Binnentyp %d",
                          keyOf(c, z), r.tyzza + 1, r.tyb + 1, r.tyzza + 1, t + 1);
        }
    }
    if (c.DR4ZA.exists())
        for (size_t a = 0; a < c.DR4ZA.size(); ++a)
            for (size_t t = 0; t < c.DR4ZA[a].size() && t < tybOfZza.size(); ++t) {
                if (tybOfZza[t] < 0) continue;
                cohorts(c.DR4ZA[a][t], [&](size_t, size_t, size_t, double x) { DR1ZA[Z(tybOfZza[t])] += x; });
            }
    const bool building = !_(D_0), demolition = !_(E_0);
    struct Parts {
        double S, WA, ZA, IAN, IBN, OAR, IBR;
    };
    std::vector<Parts> parts(Z(c.NTYB));
    for (int t = 0; t < c.NTYB; ++t) {
        Parts& p = parts[Z(t)];
        p.S = total(c.DR3S, Z(t));
        p.WA = DR1WA[Z(t)];
        p.ZA = DR1ZA[Z(t)];
        p.IAN = building && c.DR3IAN.exists() ? total(c.DR3IAN, Z(t)) : 0;
        p.IBN = final && building && c.DR3IBN.exists() ? total(c.DR3IBN, Z(t)) : 0;
        p.OAR = demolition && c.DR3OAR.exists() ? total(c.DR3OAR, Z(t)) : 0;
        p.IBR = final && demolition && c.DR3IBR.exists() ? total(c.DR3IBR, Z(t)) : 0;
        double x = p.S + p.WA + p.ZA + p.IAN + p.IBN + p.OAR + p.IBR;
        for (size_t k = 0; k < 2; ++k) {
            double limit = c.BR21E.exists() ? c.BR21E[k][Z(t)] : (k == 0 ? 0 : UNDEF);
            c.BR0A[k][Z(t)] = isUndef(limit) ? limit : limit - x;
        }
    }
    if (Prot::level(4)) {
        // each row reads as the sum its headers say
        Prot::raw("<table>\n<tr><th>TYB</th><th colspan=2>BR21E</th><th>+S:DG4S,+WA:DG4WA,-ZA:DG4ZA</th>");
        if (building) Prot::raw("<th>%s</th>", final ? "-IAN:DG4IAN,-IBN:DG4IBN" : "-IAN:DG4IAN");
        if (demolition) Prot::raw("<th>%s</th>", final ? "+OAR:DG4OAR,-IBR:DG4IBR" : "+OAR:DG4OAR");
        Prot::raw("<th colspan=2>=BR0A:BR0A</th></tr>\n");
        Parts sum{0, 0, 0, 0, 0, 0, 0};
        double lim[4] = {0, 0, 0, 0};
        auto line = [&](const char* label, const Parts& p, const double* l) {
            Prot::raw("<tr><td>%s</td><td class=r>%s</td><td class=r>%s</td><td class=r>%.15g</td>", label,
                      limitText(l[0]).c_str(), limitText(l[1]).c_str(), -p.S - p.WA - p.ZA);
            if (building) Prot::raw("<td class=r>%.15g</td>", -p.IAN - p.IBN);
            if (demolition) Prot::raw("<td class=r>%.15g</td>", -p.OAR - p.IBR);
            Prot::raw("<td class=r>%s</td><td class=r>%s</td></tr>\n", limitText(l[2]).c_str(), limitText(l[3]).c_str());
        };
        for (int t = 0; t < c.NTYB; ++t) {
            const Parts& p = parts[Z(t)];
            double l[4] = {c.BR21E.exists() ? c.BR21E[0][Z(t)] : 0, c.BR21E.exists() ? c.BR21E[1][Z(t)] : UNDEF,
                           c.BR0A[0][Z(t)], c.BR0A[1][Z(t)]};
            line(std::to_string(t + 1).c_str(), p, l);
            sum = {sum.S + p.S, sum.WA + p.WA, sum.ZA + p.ZA, sum.IAN + p.IAN, sum.IBN + p.IBN, sum.OAR + p.OAR,
                   sum.IBR + p.IBR};
            for (int i = 0; i < 4; ++i) lim[i] += l[i];
        }
        line("&Sigma;", sum, lim);
        Prot::raw("</table>\n");
    }
    auto sums = [&](const char* format) {
        double lo = 0, hi = 0;
        for (int t = 0; t < c.NTYB; ++t) {
            lo += c.BR0A[0][Z(t)];
            hi += c.BR0A[1][Z(t)];
        }
        Prot::writeln(1, format, Pic::Get(lo, 0).c_str(), limitText(hi).c_str());
    };
    sums("@sum; @lowerLimit; %s, @sum; @upperLimit; %s");
    if (_(R_0)) {
        int count = 0;
        double raised = 0;
        for (int t = 0; t < c.NTYB; ++t) {
            double& lo = c.BR0A[0][Z(t)];
            double& hi = c.BR0A[1][Z(t)];
            if (!isUndef(lo) && lo < 0) {
                lo = 0;
                ++count;
                if (_(P_2) && hi < lo) {
                    raised += lo - hi;
                    hi = lo;
                }
            }
            if (_(P_2) && c.BR21E.exists() && c.BR21E[0][Z(t)] > c.BR21E[1][Z(t)])
                Prot::message(SEV_ERROR, "@rk2asm_fmt1310; (TYB %d: %g > %g)", t + 1, c.BR21E[0][Z(t)],
                              c.BR21E[1][Z(t)]);
        }
        if (count) {
            Prot::message(SEV_WARNING, "@rk2asm_fmt1300;", count);
            if (raised > 0) Prot::writeln(1, "@rk2asm_fmt1302;", raised);
            sums("@sum; @lowerLimit; %s, @sum; @upperLimit; %s, ");
        }
    }
    double A0 = 0, A1 = 0, N = 0;
    for (int t = 0; t < c.NTYB; ++t) {
        A0 += c.BR0A[0][Z(t)];
        A1 += c.BR0A[1][Z(t)];
        N += c.BR0N[Z(t)];
    }
    const double tol = N > 0 ? N / 1e6 : 1;
    if (A0 - tol > N || (!isUndef(A1) && N > A1 + tol))
        Prot::message(SEV_WARNING, "%s: Nachfrage BR0N %.15g nicht im Intervall Angebot BR0A [%.15g .. %.15g]",
                      final ? "ASM" : "PAG", N, A0, A1);
    c.MR0Z.make("C.MR0Z", {Z(c.NTYB)}, 0.0);
    for (int t = 0; t < c.NTYB; ++t) {
        double lo = c.BR0A[0][Z(t)], hi = c.BR0A[1][Z(t)], n = c.BR0N[Z(t)];
        c.MR0Z[Z(t)] = lo > n ? -1 : (!isUndef(hi) && n > hi ? 1 : 0);
    }
    if (final) laPrint(2, c.MR0Z, "C.NTYB\0", "MR0Z");
}

// ---------------------------------------------------------------- RK::ASM, RK::ABG

void RK::ASM(Orvane& c, YearStep& y)
{
    Trace::enter("RKASM");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Prot::heading(3, "@inMG;", "@inMoveGroup;");
    const bool building = !_(D_0) || !_(E_0);

    // 1. the population left after new building and demolition have taken their movers
    c.BG40B = c.BG40;
    c.BG40B.name = "C.BG40B";
    for (const GemTable* t : {&y.DG4OBN, &y.DG4OBR})
        if (t->exists()) t->forEach([&](size_t z, size_t b, size_t g, size_t a, double v) { c.BG40B.add(z, b, g, a, v); });
    if (building) {
        size_t count = 0;
        double sum = 0;
        c.BG40B.forEach([&](size_t, size_t, size_t, size_t, double v) {
            if (v < 0) ++count, sum += v;
        });
        c.BG40B.print(count ? 1 : 4, "C.BG40B");
        if (count) Prot::message(SEV_WARNING, "BG40B enthält %zu negative Werte mit Summe %.15g", count, sum);
    }

    // 2. its sums by type
    c.BR30B.make("C.BR30B", {Z(c.NTYB), Z(c.NBG), Z(c.NGG), Z(c.NAG)}, 0.0);
    os::parallelFor(0, c.NTYB, [&](int t) {
        auto& r = c.BR30B[Z(t)];
        for (int z : y.regionsOfType[Z(t)])
            c.BG40B.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) { r[b][g][a] += v; });
    });
    if (building) laPrint(3, c.BR30B, TYPE_NAMES, ("Anfangsbevölkerung " + DD::lookup("inMG")).c_str());

    // 3. rates to numbers
    if (c.sparseStrm) {
        for (FBElem& e : c.DR4FBs.elems) e.value *= c.BR30B[e.tybv][e.bg][e.gg()][e.ag()];
    } else {
        laPrint(4, c.DR4FB, FLOW_NAMES, "@DR4FB; Raten", LA_RATE);
        for (int v = 0; v < c.NTYB; ++v)
            os::parallelFor(0, c.NTYB, [&](int n) {
                cohorts(c.DR4FB[Z(v)][Z(n)], [&](size_t b, size_t g, size_t a, double& x) { x *= c.BR30B[Z(v)][b][g][a]; });
            });
        laPrint(4, c.DR4FB, FLOW_NAMES, "@DR4FB;");
    }
    for (int t = 0; t < c.NTYB; ++t)
        cohorts(c.BR3R[Z(t)], [&](size_t b, size_t g, size_t a, double& s) { s *= c.BR30B[Z(t)][b][g][a]; });

    // 4. what the types can hold and what the flows would put there
    if (!_(P_0)) typeSupplyAndDemand(c, y, true);
}

void RK::ABG(Orvane& c, const LA4& BR30)
{
    Prot::check(inrange(P_1, P_(), P_2), SOURCE, __LINE__, "inrange(P_1, P_(), P_2)");
    (void)BR30;
    if (c.sparseStrm)
        IPF_list(c);
    else if (opt::get("$ADTBW", 0) != 0)
        adjustByDecomposition(c);
    else
        IPF_large(c);
}

void balanceInternalMigration(Orvane& c, YearStep& y)
{
    Prot::check(!_(I_0), SOURCE, __LINE__, "!_(I_0)");
    RK::ASM(c, y);
    if (!_(P_0)) {
        if (c.NTYB > 1)
            RK::ABG(c, c.BR30B);
        else
            Prot::message(SEV_ERROR, "NTYB=%d: Baustein P benötigt mehr als einen Binnenwanderungstyp", c.NTYB);
    }
    if (ini::AUSGABE_BINNEN_MATRIX == 1 || ini::AUSGABE_BINNEN_MATRIX == 6) writeTypeFlows(c);
}
