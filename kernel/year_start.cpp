// Year initialisation: the start population in the first year, the reference table, the checks
// of the modules, and the special groups, limits and targets of the year; and the release of a
// year's arrays.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/banded_summary.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/run_values.h"
#include "kernel/year_step.h"
#include "kernel/kernel_helpers.h"
#include "tables/table_text.h"
#include "tables/functions.h"
#include "tables/constants_table.h"

int MONTE_CARLO = 0;
int RANDOMLIMIT = 0;
int ZOMBIE = 0;
double MBF = 1;
double LEAKS = 0;
int SPARSEGEM = 0;
int AGGREGATES = 0;
std::map<std::string, std::string> EVA;

#define C (*Orvane::current)

namespace {

const char* const GEMNAMES = "C.NGZ\0NBG\0NGG\0NAG\0";

size_t Z(int i) { return static_cast<size_t>(i); }

std::string variantDirectory()
{
    std::string dir = si::Directory + si::Version;
    if (!dir.empty() && dir.back() != '/') dir += '/';
    return dir;
}

long long keyOf(int gz)
{
    if (C.keyScale != 1 && Z(gz) < C.indexKeys.size()) return C.indexKeys[Z(gz)];
    return Z(gz) < C.regions.size() ? C.regions[Z(gz)].key : gz + 1;
}

// the population at the start of the year: the start table in the first year, afterwards the
// result of the year before
const GemTable& startPopulation()
{
    if (JAHR != ini::STARTJAHR && C.BG40.exists()) return C.BG40;
    return C.BGEM;
}

std::string countText(double v) { return csvFormatDouble(v, 1); }

// ---------------------------------------------------------------- EVA.csv

void readEva()
{
    std::string path = si::Directory + "EVA.csv";
    FILE* f = fopen(path.c_str(), "r");
    if (!f) return;
    char sep[2] = {si::separator ? si::separator : ';', 0};
    CsvReader r(f, sep);
    char cell[1024];
    std::string key;
    int status;
    while ((status = r.next(cell, sizeof cell)) > 0) {
        if (r.isComment) continue;
        if (r.column == 0) key = cell;
        else if (r.column == 1) EVA[key] = cell;
    }
    fclose(f);
    // the page stands in <Directory><Version>/prot/, the table in <Directory>
    Prot::writeln(1, "@reading; <a href=\"../../EVA.csv\">EVA.csv</a>");
}

// ---------------------------------------------------------------- passes over the population

struct Totals {
    double total = 0, negatives = 0;
    long negativeCount = 0;
    long fractional = 0;
    double deviation = 0;
};

// total, negatives and fractional cells of a region table; one body per region, the sums
// taken in region order
Totals totalsOf(const GemTable& t)
{
    int n = static_cast<int>(t.extents()[0]);
    std::vector<Totals> per(Z(std::max(n, 0)));
    os::parallelFor(0, n, [&](int z) {
        Totals& s = per[Z(z)];
        t.forRegion(Z(z), [&](size_t, size_t, size_t, size_t, double v) {
            s.total += v;
            if (v < 0) {
                ++s.negativeCount;
                s.negatives += v;
            }
            double d = std::fabs(v - std::round(v));
            if (d != 0) {
                ++s.fractional;
                s.deviation += d;
            }
        });
    });
    Totals all;
    for (const Totals& s : per) {
        all.total += s.total;
        all.negatives += s.negatives;
        all.negativeCount += s.negativeCount;
        all.fractional += s.fractional;
        all.deviation += s.deviation;
    }
    return all;
}

// ---------------------------------------------------------------- start population

void readStartPopulation()
{
    SPARSEGEM = opt::getIntTrace("$SPARSEGEM", 0);
    FileEntry& entry = fileTable[FT_GEM];
    const long long cut = keyScale;
    ReadResult rr;
    size_t cells = 0;
    if (SPARSEGEM == 0 && cut == 1) {
        C.sparseGem = false;
        C.makeGem(C.BGEM, "C.BGEM");
        rr = readTable(entry, C.BGEM, GEMNAMES, VC_PLAIN);
        std::vector<size_t> perRegion(Z(C.NGZ), 0);
        os::parallelFor(0, C.NGZ, [&](int z) {
            C.BGEM.forRegion(Z(z), [&](size_t, size_t, size_t, size_t, double) { ++perRegion[Z(z)]; });
        });
        for (size_t n : perRegion) cells += n;
    } else {
        std::vector<GemCell> list;
        long long sizes[4] = {cut == 1 ? C.NGZ : -1, C.NBG, C.NGG, C.NAG};
        rr = readTableList(entry, list, sizes, GEMNAMES, VC_PLAIN);
        if (cut > 1) C.NGZ = static_cast<int>(C.indexKeys.size());
        size_t full = Z(C.NGZ) * Z(C.NBG) * Z(C.NGG) * Z(C.NAG);
        Prot::write(3, "SPARSEGEM=%d,SIZE=%zu\n", SPARSEGEM, full * sizeof(double));
        // equal cells are added, so count the distinct ones
        std::vector<uint64_t> keys;
        keys.reserve(list.size());
        for (const GemCell& g : list) keys.push_back(g.key);
        std::sort(keys.begin(), keys.end());
        cells = static_cast<size_t>(std::unique(keys.begin(), keys.end()) - keys.begin());
        double fill = 100.0 * static_cast<double>(cells) / static_cast<double>(full ? full : 1);
        C.sparseGem = fill < SPARSEGEM;
        C.makeGem(C.BGEM, "C.BGEM");
        for (const GemCell& g : list)
            C.BGEM.add(GemKey::gz(g.key), GemKey::bg(g.key), GemKey::gg(g.key), GemKey::ag(g.key), g.value);
        std::vector<GemCell>().swap(list);
        C.BGEM.print(3);
    }
    size_t full = Z(C.NGZ) * Z(C.NBG) * Z(C.NGG) * Z(C.NAG);
    double fill = 100.0 * static_cast<double>(cells) / static_cast<double>(full ? full : 1);
    double total = C.BGEM.sum();
    char extra[256];
    snprintf(extra, sizeof extra, ", %.0f %s", total, DD::lookup("inhabitant").c_str());
    Prot::writeln(1, "@rk1ini_fmt2200;", Pic::Get(C.NGZ).c_str(), static_cast<int>(cells), fill, SPARSEGEM,
                  C.sparseGem ? "sparse" : "full", extra);

    double perCell = total / static_cast<double>(full ? full : 1);
    int fractional = static_cast<int>(rr.nonInteger);
    if (MONTE_CARLO == 0) {
        if (fractional == 0 && perCell < 5.0) {
            Prot::writeln(1, "%d nicht ganzzahlige Werte, %.2f Personen pro Altersgruppe", fractional, perCell);
            Prot::message(SEV_HINT, "@rk1ini_fmt2400;");
        }
    } else if (fractional > 0 || perCell > 10.0) {
        Prot::writeln(1, "%d nicht ganzzahlige Werte, %.2f Personen pro Altersgruppe", fractional, perCell);
        Prot::message(SEV_WARNING, "@rk1ini_fmt2300;");
    }

    if (GEMALL > 0) removeTable(FT_OUT_GEM);
    if (GEMALL > 1) writePopulation(C, C.BGEM, periodLabel(ini::STARTJAHR - 1));
}

// ---------------------------------------------------------------- first year

int aggregateCount()
{
    switch (ini::DIFF_G) {
    case 0: return 0;
    case 1: return 1;
    case 2: return C.NGZ;
    case 3: return C.NTYG;
    case 4: return C.NTYS;
    case 5: return C.NTYB;
    case 6: return C.NTYZZA;
    case 7: return C.NTYQWA;
    case 8: return C.NTYNEE;
    case 9: return C.NTYREA;
    case 10: return C.NTYWBG;
    case 11: return C.NTYAGF;
    case 12: return C.NTYHH;
    default: return C.NRA;
    }
}

void openGstrom()
{
    std::string path = variantDirectory() + "gstrom.csv";
    if (C.gstrom) fclose(C.gstrom);
    C.gstrom = fopen(path.c_str(), "w");
    if (!C.gstrom) {
        int err = errno;
        Prot::message(SEV_ERROR, "open %s %s", path.c_str(), os::errorText(err).c_str());
        return;
    }
    const char* columns[] = {"@year;", "@GKZq;", "@GKZz;", "@BG;", "@GG;", "@AG;", "@number;", nullptr};
    csvWriteHead(C.gstrom, "gstrom", columns, "forecast");
    Prot::addOutputFile("gstrom.csv");
}

void firstYear()
{
    // the number format serves the outputs of the year before the start already
    C.fmt = ValueFormat(si::floatFormat);
    readStartPopulation();

    AGGREGATES = aggregateCount();
    accountStart(C);
    const int before = periodLabel(ini::STARTJAHR - 1);
    if (summaryOnly()) startSummary(C, C.BGEM, before);
    else if (ini::DIFF_G != 0) writeAggregates(C, C.BGEM, before);
    if (ini::PYRAMIDE == 0)
        removeTable(FT_OUT_PYRAMID);
    else
        writePyramid(C, C.BGEM, before);
    removeTable(FT_OUT_WEGZUG);
    if (!_(E_0)) removeTable(FT_OUT_REAA);
    removeTable(FT_OUT_ZUZUG);
    if (!_(D_0)) removeTable(FT_OUT_NEBA);

    Totals t = totalsOf(C.BGEM);
    // negative start values pass here without a word
    if (t.negativeCount < 0) Prot::message(SEV_WARNING, "@rk1ini_fmt2000;", static_cast<int>(t.negativeCount), t.negatives);

    MONTE_CARLO = opt::getIntTrace("$MONTE_CARLO", 0);
    if (MONTE_CARLO != 0) {
        ZOMBIE = static_cast<int>(opt::get("$ZOMBIE", 0));
        RANDOMLIMIT = static_cast<int>(opt::get("$RANDOMLIMIT", 100));
        if (!_(A_0) || !_(B_0) || !_(C_0) || !_(G_0) || !_(M_0) || !_(N_0) || !_(P_0) || !_(S_0) || _(R_1))
            Prot::message(SEV_WARNING, "Bitte meiden Sie Bausteine A, B, C, G, M, N, P, R1, S bei ganzahliger "
                                       "Monte-Carlo Simulation (siehe Handbuch)");
        if (t.fractional > 0)
            Prot::message(SEV_WARNING, "@rk1ini_fmt2100;", static_cast<int>(t.fractional), ini::STARTJAHR - 1,
                          t.deviation);
    }

    std::string totalText = Pic::Get(t.total, t.total == std::floor(t.total) ? 0 : 2);
    if (MONATE == 12) {
        std::string date = "31.12." + std::to_string(ini::STARTJAHR - 1) + " 24:00";
        Prot::writeln(0, "@rk0jhr_sum; @referenceDate; %s @is; %s", date.c_str(), totalText.c_str());
    } else {
        Prot::writeln(0, "Summe der Bevölkerung am Ende des Jahresabschnitts %d ist %s", before, totalText.c_str());
    }

    C.lastKey = std::to_string(static_cast<long long>(C.maxKey));
    if (keyScale != 1 && !C.indexKeys.empty()) C.lastKey = std::to_string(static_cast<long long>(C.indexKeys.back()));
    C.ntya = std::to_string(C.NTYA);
    C.nbg = std::to_string(C.NBG);
    C.ngg = std::to_string(C.NGG);
    C.nag = std::to_string(C.NAG - 1);
    if (_(I_1) && ini::AUSGABE_BINNEN_MATRIX >= 2) openGstrom();
}

// ---------------------------------------------------------------- average age

void averageAgeTable()
{
    const GemTable& pop = startPopulation();
    if (!pop.exists()) return;
    struct Row {
        long long key;
        int b, g;
        double n, ageSum;
    };
    std::vector<Row> rows;
    double grand = 0, grandAge = 0;
    for (int z = 0; z < static_cast<int>(pop.extents()[0]); ++z) {
        std::vector<double> n(Z(C.NBG * C.NGG), 0.0), s(n.size(), 0.0);
        pop.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) {
            n[b * Z(C.NGG) + g] += v;
            s[b * Z(C.NGG) + g] += static_cast<double>(a) * v;
        });
        for (int b = 0; b < C.NBG; ++b)
            for (int g = 0; g < C.NGG; ++g) {
                size_t i = Z(b) * Z(C.NGG) + Z(g);
                grand += n[i];
                grandAge += s[i];
                if (ini::MATRIX_AUSGABEFORMAT < 1 || n[i] != 0) rows.push_back({keyOf(z), b + 1, g + 1, n[i], s[i]});
            }
    }
    LADest d = laTitle(nullptr, "AVAG_", LA_NUMBER, grand, "averageAge");
    if (!d.f) return;
    FILE* f = d.f;
    const std::string sum = DD::lookup("sum"), avg = DD::lookup("averageAge");
    char sep = d.format == 1 ? (si::separator ? si::separator : ';') : ' ';
    if (d.format == 0)
        fprintf(f, "<table>\n<tr><th>GKZ</th><th>BG</th><th>GG</th><th>%s</th><th>%s</th></tr>\n", sum.c_str(), avg.c_str());
    else
        fprintf(f, "GKZ%cBG%cGG%c%s%c%s\n", sep, sep, sep, sum.c_str(), sep, avg.c_str());
    for (const Row& r : rows) {
        double mean = r.n != 0 ? r.ageSum / r.n : UNDEF;
        if (d.format == 0) {
            fprintf(f, "<tr><td class=r>%lld</td><td class=r>%d</td><td class=r>%d</td>", r.key, r.b, r.g);
            laCell(d, LA_NUMBER, false, r.n, true);
            laCell(d, LA_RATE, false, mean, false);
            fputs("</tr>\n", f);
        } else {
            fprintf(f, "%lld%c%d%c%d%c", r.key, sep, r.b, sep, r.g, sep);
            laCell(d, LA_NUMBER, false, r.n, true);
            laCell(d, LA_RATE, false, mean, false);
            fputs("\n", f);
        }
    }
    if (d.format == 0) {
        fputs("<tr><th colspan=3>overall</th>", f);
        laCell(d, LA_NUMBER, true, grand, true);
        if (grand != 0)
            laCell(d, LA_RATE, true, grandAge / grand, false);
        else
            fputs("<th></th>", f);
        fputs("</tr>\n", f);
    } else {
        fprintf(f, "overall%c%c%c", sep, sep, sep);
        laCell(d, LA_NUMBER, true, grand, true);
        if (grand != 0) laCell(d, LA_RATE, true, grandAge / grand, false);
        fputs("\n", f);
    }
    laEnd(d);
}

// ---------------------------------------------------------------- special groups

void specialGroupsAbsolute()
{
    C.makeGem(C.BG40DSG, "C.BG40DSG");
    ReadResult r = readTable(fileTable[FT_DSGA], C.BG40DSG, GEMNAMES, VC_PLAIN);
    if (MONTE_CARLO && r.nonInteger > 0) {
        Prot::writeln(1, "%d nicht ganzzahlige Werte", static_cast<int>(r.nonInteger));
        Prot::message(SEV_WARNING, "@rk1ini_fmt2300;");
    }
    // special groups above the population of their cell
    const GemTable& pop = startPopulation();
    struct Excess {
        int z, b, g, a;
        double v, p;
    };
    std::vector<std::vector<Excess>> found(Z(C.NGZ));
    std::vector<double> sums(Z(C.NGZ), 0.0);
    os::parallelFor(0, C.NGZ, [&](int z) {
        C.BG40DSG.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double v) {
            sums[Z(z)] += v;
            double p = pop.exists() ? pop.get(Z(z), b, g, a) : 0;
            if (v > p)
                found[Z(z)].push_back({z, static_cast<int>(b), static_cast<int>(g), static_cast<int>(a), v, p});
        });
    });
    Statistic stat;
    double sum = 0;
    for (double s : sums) sum += s;
    for (const auto& list : found)
        for (const Excess& e : list) {
            if (stat.count == 0) Prot::writeln(1, "@rk3prf_fmt724;", C.BG40DSG.name.c_str());
            if (stat.count < 1000)
                Prot::writeln(1, "@rk3prf_fmt725;", e.z + 1, e.b + 1, e.g + 1, e.a, e.v, e.p);
            if (stat.count == 999) Prot::writeln(1, "...");
            stat.add(e.v - e.p);
        }
    if (!stat.empty())
        Prot::message(SEV_WARNING, "@rk3prf_fmt726;", static_cast<int>(stat.count), stat.min(), stat.max(), stat.total,
                      stat.mean());
    Prot::writeln(1, "@rk3prf_fmt718; = %s", countText(sum).c_str());
}

void specialGroupsByRate()
{
    GemTable QG40DSG("QG40DSG");
    C.makeGem(QG40DSG, "QG40DSG");
    readTable(fileTable[FT_DSGR], QG40DSG, GEMNAMES, VC_PLAIN);
    if (MONTE_CARLO) Prot::message(SEV_WARNING, "@rk1ini_fmt2300;");
    C.makeGem(C.BG40DSG, "C.BG40DSG");
    const GemTable& pop = startPopulation();
    auto body = [&](int z) {
        QG40DSG.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double q) {
            C.BG40DSG.set(Z(z), b, g, a, q * (pop.exists() ? pop.get(Z(z), b, g, a) : 0));
        });
    };
    if (C.sparseGem)
        for (int z = 0; z < C.NGZ; ++z) body(z);
    else
        os::parallelFor(0, C.NGZ, body);
    if (MONTE_CARLO) C.BG40DSG.roundWithCarry();
    C.BG40DSG.print(3);
}

// special group population of each region
std::vector<double> specialGroupTotals()
{
    std::vector<double> t(Z(C.NGZ), 0.0);
    if (!C.BG40DSG.exists()) return t;
    os::parallelFor(0, C.NGZ, [&](int z) { t[Z(z)] = C.BG40DSG.regionSum(Z(z)); });
    return t;
}

// ---------------------------------------------------------------- limits and targets

double rowSum(const LA2& a, size_t row)
{
    double s = 0;
    if (row < a.size())
        for (double v : a[row]) s += v;
    return s;
}

void sumsLine(const LA2& a)
{
    Prot::writeln(2, "@sum; @lowerLimit; %s, @sum; @upperLimit; %s", countText(rowSum(a, 0)).c_str(),
                  countText(rowSum(a, 1)).c_str());
}

struct Limits {
    double total = UNDEF;       // total target of P 1
    double lower = 0, upper = UNDEF;
    bool have = false;
};

Limits regionLimits()
{
    Limits l;
    C.BG21E.make("C.BG21E", {2, Z(C.NGZ)}, UNDEF);
    for (double& v : C.BG21E[0]) v = 0;
    readTable(fileTable[FT_ECKGEM], C.BG21E, "2\0C.NGZ\0", VC_ADDITIVE);
    int classes[4] = {};
    for (int z = 0; z < C.NGZ; ++z) {
        bool lower = C.BG21E[0][Z(z)] != 0, upper = !isUndef(C.BG21E[1][Z(z)]);
        ++classes[(lower ? 0 : 2) + (upper ? 0 : 1)];
    }
    const char* texts[4] = {"%d Gebiete mit Untergrenze und mit Obergrenze", "%d Gebiete mit Untergrenze, ohne Obergrenze",
                            "%d Gebiete ohne Untergrenze aber mit Obergrenze",
                            "%d Gebiete ohne Untergrenze und ohne Obergrenze"};
    for (int k = 0; k < 4; ++k)
        if (classes[k]) Prot::writeln(1, texts[k], classes[k]);
    sumsLine(C.BG21E);
    l.lower = rowSum(C.BG21E, 0);
    l.upper = rowSum(C.BG21E, 1);
    l.have = true;
    if (!isUndef(l.upper) && l.lower == l.upper) l.total = l.upper;
    if (!_(R_0)) {
        std::vector<double> dsg = specialGroupTotals();
        for (size_t k = 0; k < 2; ++k)
            for (int z = 0; z < C.NGZ; ++z) C.BG21E[k][Z(z)] -= dsg[Z(z)];
        if (Prot::level(2)) Prot::heading(3, nullptr, "@rk1ini_fmt1200;");
        laPrint(2, C.BG21E, "2\0C.NGZ\0", nullptr, LA_UNKNOWN);
        sumsLine(C.BG21E);
    }
    for (int z = 0; z < C.NGZ; ++z) {
        double lo = C.BG21E[0][Z(z)], hi = C.BG21E[1][Z(z)];
        if (!isUndef(hi) && hi < lo) Prot::message(SEV_WARNING, "@rk3c_inp_fmt2300;", keyOf(z), lo, hi);
        int t = C.region(z).tyb;
        if (t < 0 || t >= C.NTYB) continue;
        if (!isUndef(lo)) C.BR21E[0][Z(t)] += lo;
        C.BR21E[1][Z(t)] += hi;
    }
    return l;
}

Limits typeLimits()
{
    Limits l;
    LA2 BTYP("BTYP", {2, Z(C.NTYB)}, 0.0);
    for (double& v : BTYP[1]) v = UNDEF;
    readTable(fileTable[FT_ECKTYP], BTYP, "2\0C.NTYB\0", VC_ADDITIVE);
    for (int t = 0; t < C.NTYB; ++t) {
        double lo = BTYP[0][Z(t)];
        if (lo < 0) {
            Prot::message(SEV_WARNING, "Binnentyp %d: negative Untergrenze %.15g auf Null korrigiert", t + 1, lo);
            // the correction goes to the upper limit: so it stands
            BTYP[1][Z(t)] = 0;
        } else if (lo > BTYP[1][Z(t)]) {
            Prot::message(SEV_WARNING, "@rk3c_inp_fmt2600;", t + 1, lo, BTYP[1][Z(t)]);
        }
    }
    C.BR21E[0] = BTYP[0];
    C.BR21E[1] = BTYP[1];
    if (!_(R_0)) {
        std::vector<double> dsg = specialGroupTotals();
        for (int z = 0; z < C.NGZ; ++z) {
            int t = C.region(z).tyb;
            if (t < 0 || t >= C.NTYB) continue;
            C.BR21E[0][Z(t)] -= dsg[Z(z)];
            C.BR21E[1][Z(t)] -= dsg[Z(z)];
        }
    }
    l.lower = rowSum(BTYP, 0);
    l.upper = rowSum(BTYP, 1);
    l.have = true;
    return l;
}

void targetPopulation(const Limits& limits)
{
    C.BR21.make("C.BR21", {Z(C.NMBG()), Z(C.NMGG()), Z(C.NMAG())}, 0.0);
    const char* names = "NMBG\0NMGG\0NMAG\0";
    if (_(M_1) && _(P_1) && !isUndef(limits.total)) {
        C.BR21[0][0][0] = limits.total;
        Prot::writeln(2, "Zielbevölkerung abgeleitet aus eckgem, eckreg wird nicht benötigt");
        laPrint(2, C.BR21, names, "@rk2inp_fmt1705;");
    } else {
        readTable(fileTable[FT_ECKREG], C.BR21, names, VC_PLAIN);
        if (limits.have) {
            double T = C.BR21.sum();
            Prot::writeln(1, "@rk3prf_fmt832;", T, _(P_1) ? "ECKGEM" : "ECKTYP", limits.lower, limits.upper);
            if (limits.lower > T || (!isUndef(limits.upper) && T > limits.upper))
                Prot::message(SEV_WARNING, "@rk3prf_fmt834;", T, limits.lower, limits.upper);
        }
    }
    if ((_(R_1) || _(R_2)) && C.BG40DSG.exists()) {
        C.BG40DSG.forEach([&](size_t, size_t b, size_t g, size_t a, double v) {
            C.BR21[Z(C.ENMBG(static_cast<int>(b)))][Z(C.ENMGG(static_cast<int>(g)))][Z(C.ENMAG(static_cast<int>(a)))] -= v;
        });
        laPrint(2, C.BR21, names, "@rk2inp_fmt1700;");
    }
}

} // namespace

void RK::INI(Orvane* orvane)
{
    Trace::enter("RKINI");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    (void)orvane;

    readEva();
    RK::REF();
    // the dimension table in the start year and in the year a newer reference table takes over
    const FileEntry& ref = fileTable[FT_REFT];
    if (JAHR == ini::STARTJAHR || (ref.fileNumber > 1 && JAHR == ref.fileNumber + ref.yearOffset))
        RK::reportDimensions(C);

    C.checkModules();
    if (konst::has("GPmin") && konst::has("GPmax")) {
        double lo = konst::number("GPmin"), hi = konst::number("GPmax");
        if (C.GP < lo || C.GP > hi) Prot::message(SEV_WARNING, "@gp; (@gp?;) %g @outside; [%g .. %g]", C.GP, lo, hi);
    }

    if (JAHR == ini::STARTJAHR)
        firstYear();
    else
        ++fileTable[FT_GEM].fileNumber;

    if (Prot::level(2)) averageAgeTable();

    if (_(R_1)) specialGroupsAbsolute();
    if (_(R_2)) specialGroupsByRate();

    Limits limits;
    if (!_(P_0)) {
        if (C.NTYB == 1)
            Prot::message(SEV_ERROR, "NTYB=%d: Baustein P benötigt mehr als einen Binnenwanderungstyp", C.NTYB);
        C.BR21E.make("C.BR21E", {2, Z(C.NTYB)}, 0.0);
        if (C.EPS > 0.001) Prot::message(SEV_HINT, "@EPS; %g reduzieren, um Genauigkeit zu erhöhen", C.EPS);
    }
    if (_(P_1)) limits = regionLimits();
    if (_(P_2)) limits = typeLimits();

    if (_(M_1) || _(M_2)) targetPopulation(limits);

    if (!_(P_0)) {
        laPrint(2, C.BR21E, "2\0C.NTYB\0", nullptr, LA_UNKNOWN);
        sumsLine(C.BR21E);
    }
}

void RK::releaseYear()
{
    if (Orvane::current) Orvane::current->releaseYear();
}
