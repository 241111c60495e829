// Deaths: the deaths of the year by the death rates of the death types into DG4S, with the
// plausibility of the oldest rates, the life expectancy reports, the mortality doubling time
// fitted by gnuplot, and the death targets of module S.
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/safe_output.h"
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
#include "tables/gnuplot_bridge.h"
#include "tables/input_reader.h"
#include "tables/constants_table.h"

// The life table of one cohort: from the death rates q(x) of the age groups the rows p, l, d,
// L, T and e, with a radix of 100000 and the last age group open.
class LE {
public:
    enum Row { ROW_P, ROW_L, ROW_D, ROW_LL, ROW_T, ROW_E };
    static constexpr const char* rowNames[6] = {"p", "l", "d", "L", "T", "e"};
    std::array<std::vector<double>, 6> rows;

    void build(const double* q, size_t n)
    {
        for (auto& r : rows) r.assign(n, 0.0);
        if (n == 0) return;
        auto& p = rows[ROW_P];
        auto& l = rows[ROW_L];
        auto& d = rows[ROW_D];
        auto& L = rows[ROW_LL];
        auto& T = rows[ROW_T];
        auto& e = rows[ROW_E];
        for (size_t x = 0; x < n; ++x) p[x] = 1 - q[x];
        l[0] = 100000.0;
        for (size_t x = 1; x < n; ++x) l[x] = l[x - 1] * p[x - 1];
        for (size_t x = 0; x + 1 < n; ++x) {
            d[x] = l[x] - l[x + 1];
            L[x] = (l[x] + l[x + 1]) * 0.5;
        }
        d[n - 1] = l[n - 1];
        L[n - 1] = l[n - 1] * 0.5;
        T[n - 1] = L[n - 1];
        for (size_t x = n - 1; x-- > 0;) T[x] = L[x] + T[x + 1];
        // a cohort that has died out has no further years
        for (size_t x = 0; x < n; ++x) e[x] = safe(T[x], l[x], 0);
    }

    // remaining life expectancy at x, 0.5 plus the sum of the survival products from x on;
    // 0.5 beyond the table
    static double expectancy(const double* q, size_t n, long x)
    {
        if (x < 0 || static_cast<size_t>(x) >= n) return 0.5;
        return expectancyPlain(q, n, x);
    }
    static double expectancyPlain(const double* q, size_t n, long x)
    {
        double sum = 0.5, product = 1;
        for (long k = x; k < static_cast<long>(n); ++k) {
            product *= 1 - q[k];
            sum += product;
        }
        return sum;
    }
};

namespace {

constexpr const char* SOURCE = "source\\c\\rktod";
// column of TYS in the reference table, counted from 1
constexpr int COLUMN_TYS = 4;

size_t Z(int i) { return static_cast<size_t>(i); }

struct FileCloser {
    void operator()(FILE* f) const
    {
        // an output is put into place whole (or the run ends); an input is just closed
        if (f) safeOutput::close(f);
    }
};
using File = std::unique_ptr<FILE, FileCloser>;

// the shortest text that reads back as the same number
std::string shortest(double v)
{
    char b[64];
    auto r = std::to_chars(b, b + sizeof b, v);
    return std::string(b, r.ptr);
}

// the number of the file the rates came from in the year before; a new number is a new table
int lastRateFile = -1;

// ---------------------------------------------------------------- plausibility of the oldest rates

void checkOldestRates(const Orvane& C)
{
    const double S90 = konst::number("S90"), S99m = konst::number("S99m"), S99w = konst::number("S99w");
    const int last = C.NAG - 1;
    int below90 = 0, belowLast = 0;
    for (int t = 0; t < C.NTYS; ++t)
        for (int b = 0; b < C.NBG; ++b)
            for (int g = 0; g < C.NGG; ++g) {
                const auto& q = C.PR3S[Z(t)][Z(b)][Z(g)];
                for (int a = 90; a <= last - 1; ++a)
                    if (q[Z(a)] < S90) {
                        Prot::writeln(2, "PR3S %d %d %d %d %g &lt; %g", t + 1, b + 1, g + 1, a + 1, q[Z(a)], S90);
                        ++below90;
                    }
                // the last age group is held against the women's limit for every sex group
                if (q[Z(last)] < S99w) {
                    Prot::writeln(2, "PR3S %d %d %d %d %g &lt; %g", t + 1, b + 1, g + 1, last + 1, q[Z(last)], S99w);
                    ++belowLast;
                }
            }
    if (below90)
        Prot::message(SEV_HINT, "%d Sterberaten PR3S ab Altersgruppe 90 (&lt; %g) (siehe Benutzerhandbuch)", below90, S90);
    if (belowLast)
        Prot::message(SEV_HINT,
                      "%d Sterberaten PR3S in Altersgruppe %d männlich &lt; %g, weiblich &lt; %g (manuelle Korrektur "
                      "siehe Benutzerhandbuch)",
                      belowLast, last, S99m, S99w);
}

// ---------------------------------------------------------------- life expectancy

template <class F> void forEachCohort(const Orvane& C, F&& f)
{
    for (int t = 0; t < C.NTYS; ++t)
        for (int b = 0; b < C.NBG; ++b)
            for (int g = 0; g < C.NGG; ++g) f(Z(t), Z(b), Z(g), C.PR3S[Z(t)][Z(b)][Z(g)]);
}

void lifeTableFile(const Orvane& C)
{
    const std::string path = variantDirectory() + "le.csv";
    // begun afresh by the first year of a run, extended by the others
    File f(safeOutput::open(path, JAHR != ini::STARTJAHR));
    if (!f) {
        int err = errno;
        Prot::message(SEV_WARNING, "@fn_open; %s (mode a): %s", path.c_str(), os::errorText(err).c_str());
        return;
    }
    if (JAHR == ini::STARTJAHR) {
        Prot::writeln(1, "@deaths_lifeTables; <a href=\"../le.csv\">le.csv</a>: @deaths_lifeTableRule;");
        Prot::addOutputFile("le.csv");
        fprintf(f.get(), "#%s;TYS;BG;GG;AG;q(x)", DD::lookup("year").c_str());
        for (const char* r : LE::rowNames) fprintf(f.get(), ";%s(x)", r);
        fputs("\n", f.get());
    }
    LE table;
    forEachCohort(C, [&](size_t t, size_t b, size_t g, const std::vector<double>& q) {
        table.build(q.data(), q.size());
        for (size_t a = 0; a < q.size(); ++a) {
            fprintf(f.get(), "%d;%d;%d;%d;%02d;%.15g", periodLabel(JAHR), static_cast<int>(t) + 1, static_cast<int>(b) + 1,
                    static_cast<int>(g) + 1, static_cast<int>(a), q[a]);
            for (const auto& row : table.rows) fprintf(f.get(), ";%.15g", row[a]);
            fputs("\n", f.get());
        }
    });
}

void lifeExpectancy(const Orvane& C, int report)
{
    const size_t ntys = Z(C.NTYS), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    if (report == 1 || report == 2) {
        LA3 BR3L_("BR3L_", {ntys, nbg, ngg}, 0.0);
        forEachCohort(C, [&](size_t t, size_t b, size_t g, const std::vector<double>& q) {
            BR3L_[t][b][g] = report == 1 ? LE::expectancy(q.data(), q.size(), 0) : LE::expectancyPlain(q.data(), q.size(), 0);
        });
        laPrint(2, BR3L_, "C.NTYS\0NBG\0NGG\0", nullptr, LA_RATE);
    } else if (report >= 3 && report <= 5) {
        LA4 BR4L_("BR4L_", {ntys, nbg, ngg, nag}, 0.0);
        LE table;
        forEachCohort(C, [&](size_t t, size_t b, size_t g, const std::vector<double>& q) {
            auto& e = BR4L_[t][b][g];
            if (report == 5) table.build(q.data(), q.size());
            for (size_t a = 0; a < nag; ++a)
                e[a] = report == 3   ? LE::expectancy(q.data(), q.size(), static_cast<long>(a))
                       : report == 4 ? LE::expectancyPlain(q.data(), q.size(), static_cast<long>(a))
                                     : table.rows[LE::ROW_E][a];
        });
        laPrint(2, BR4L_, "C.NTYS\0NBG\0NGG\0NAG\0", nullptr, LA_RATE);
    } else if (report == 6) {
        lifeTableFile(C);
    }
}

// ---------------------------------------------------------------- mortality doubling time

// true when the plot program can be started: the installation's own copy or one on the PATH
bool plotProgramFound()
{
    std::string program = plotPath(si::appDir);
    if (program != "gnuplot") return true;
    const char* path = os::getenv("PATH");
    if (!path) return false;
    std::string list = path;
    size_t start = 0;
    while (start <= list.size()) {
        size_t end = list.find(':', start);
        if (end == std::string::npos) end = list.size();
        std::string dir = list.substr(start, end - start);
        if (dir.empty()) dir = ".";
        if (access((dir + "/gnuplot").c_str(), X_OK) == 0) return true;
        start = end + 1;
    }
    return false;
}

void doublingTime(const Orvane& C, double mrdt)
{
    const std::string dir = variantDirectory();
    const std::string script = dir + "fit.tmp", result = dir + "fit.txt";
    if (!plotProgramFound()) {
        Prot::message(SEV_WARNING, "could not launch gnuplot");
        return;
    }
    FILE* plot = plotOpen(Prot::stream(), Prot::protocolLevel(), si::appDir, "fit");
    if (!plot) {
        Prot::message(SEV_WARNING, "could not launch gnuplot");
        return;
    }

    // the script: the rates from age 30 as a data block, one fit per cohort
    {
        File f(fopen(script.c_str(), "w"));
        if (!f) {
            int err = errno;
            plotClose(Prot::stream(), Prot::protocolLevel(), plot, si::appDir, "fit");
            Prot::message(SEV_ERROR, "@fn_open; %s (mode w): %s", script.c_str(), os::errorText(err).c_str());
            return;
        }
        fputs("$STRB <<e\n", f.get());
        for (int a = 30; a <= C.NAG - 2; ++a) {
            fprintf(f.get(), "%d", a);
            forEachCohort(C, [&](size_t, size_t, size_t, const std::vector<double>& q) {
                fprintf(f.get(), " %s", shortest(q[Z(a)]).c_str());
            });
            fputs("\n", f.get());
        }
        fprintf(f.get(), "e\nset fit nolog quiet\ns(x)=S30*exp(G*(x-30))\nset print '%s'\n", result.c_str());
        int column = 2;
        forEachCohort(C, [&](size_t, size_t, size_t, const std::vector<double>& q) {
            fprintf(f.get(), "G=0.08\nS30=%s\nfit s(x) $STRB using 1:%d via G\nprint G\n", shortest(q[30]).c_str(),
                    column++);
        });
    }
    std::remove(result.c_str());
    fprintf(plot, "load '%s'\n", script.c_str());
    int status = plotClose(Prot::stream(), Prot::protocolLevel(), plot, si::appDir, "fit");
    if (status == 127) {
        // the shell found no program to run
        Prot::message(SEV_WARNING, "could not launch gnuplot");
        return;
    }

    const size_t ntys = Z(C.NTYS), nbg = Z(C.NBG), ngg = Z(C.NGG);
    LA3 S30_("S30_", {ntys, nbg, ngg}, 0.0), GK_("GK_", {ntys, nbg, ngg}, 0.0), MRDT_("MRDT_", {ntys, nbg, ngg}, 0.0);
    const double lo = konst::number("MRDTmin"), hi = konst::number("MRDTmax");
    int outside = 0;
    {
        errno = 0;
        File in(fopen(result.c_str(), "r"));
        int openError = errno;
        forEachCohort(C, [&](size_t t, size_t b, size_t g, const std::vector<double>& q) {
            char line[256];
            errno = 0;
            if (!in || !fgets(line, sizeof line, in.get())) {
                int err = !in ? openError : errno;
                std::string why = err ? os::errorText(err) : std::string("end of file");
                Prot::message(SEV_ERROR, "TYS %d, BG %d, GG %d: read %s: %s", static_cast<int>(t) + 1,
                              static_cast<int>(b) + 1, static_cast<int>(g) + 1, result.c_str(), why.c_str());
                return;
            }
            size_t n = std::strlen(line);
            while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = 0;
            double G = 0;
            auto r = std::from_chars(line, line + n, G);
            if (r.ec != std::errc() || r.ptr != line + n) {
                int err = r.ec == std::errc::result_out_of_range ? ERANGE : EINVAL;
                const char* text = err == ERANGE ? "result out of range" : "invalid argument";
                Prot::message(SEV_ERROR, "fit.tmp: %g=getd(%s) unparsed(%s) err(%d:%s)", G, line, r.ptr, err, text);
                return;
            }
            S30_[t][b][g] = q[30];
            GK_[t][b][g] = G;
            MRDT_[t][b][g] = std::log(2.0) / G;
            if (!(MRDT_[t][b][g] >= lo && MRDT_[t][b][g] <= hi)) ++outside;
        });
    }
    laPrint(2, S30_, "C.NTYS\0NBG\0NGG\0", nullptr, LA_RATE);
    laPrint(2, GK_, "C.NTYS\0NBG\0NGG\0", nullptr, LA_RATE);
    laPrint(2, MRDT_, "C.NTYS\0NBG\0NGG\0", nullptr, LA_RATE);
    Prot::writeln(1, "%d MRDTs außerhalb [%g .. %g]\n", outside, lo, hi);
    if (mrdt < 2) std::remove(result.c_str());
}

// ---------------------------------------------------------------- the deaths of the regions

// The deaths of an age, negative: 0 where there are no persons or no rate (even an infinite
// rate), never -0. Written without branches, so that a row is worked out several ages at a time.
inline double deathsOf(double persons, double rate)
{
    const double x = (persons != 0) & (rate != 0) ? -(persons * rate) : 0.0;
    // -0 + 0 is 0; every other value stays itself
    return x + 0.0;
}

// The deaths of one cohort's row as deathsOf gives them, leaving the row at once. The rows of the
// deaths, the persons and the rates are apart in memory, and nothing looks at the floating point
// exception flags, so the compiler may work out two ages at a time (the values stay the same).
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((optimize("no-trapping-math")))
#endif
// True when an age of the row ends below 0.
bool leaveRow(double* __restrict d, double* __restrict w, const double* __restrict r, size_t nag)
{
    double below = 0;
    for (size_t a = 0; a < nag; ++a) {
        const double persons = w[a], rate = r[a];
        const double product = -(persons * rate);
        const double x = ((persons != 0) & (rate != 0) ? product : 0.0) + 0.0;
        d[a] = x;
        const double left = persons + x;
        w[a] = left;
        below = left < 0 ? -1.0 : below;
    }
    return below < 0;
}

void areaTarget(Orvane& C, GemTable& DG4S, bool montecarlo)
{
    const double T = DG4S.sum();
    double E = 0;
    FileEntry& entry = fileTable[FT_ECKSTRB];
    const std::string label = DD::expKey("@DU01SE;");
    readTable(entry, E, label.c_str(), VC_PLAIN);
    Prot::writeln(1, "@DU01SE; %.15g", E);
    if (E < 0) Prot::message(SEV_ERROR, "@rk3prf_fmt714;", tableFileName(entry, entry.fileNumber).c_str(), E);
    E = -E;
    if (ini::PLOT_DATEN > 1) C.deathTargets[periodLabel(JAHR)] = {-E, -T};
    const double population = C.BG40.sum();
    if (population != 0)
        Prot::writeln(1, "ST1000_ %g", E * 1000 / population);
    else
        Prot::writeln(1, "DU01SE %g", E);
    if (T == 0) return;
    const double SFAK = E / T;
    Prot::writeln(1, "SFAK %.15g", SFAK);
    DG4S.print(2, "@DG4S; @rk3tod_fmt300;");
    DG4S.scaleRegions([SFAK](size_t) { return SFAK; });
    if (montecarlo) DG4S.roundWithCarry();
    writeTargetFactor(FT_OUT_STRBFAK, SFAK);
}

void regionTargets(Orvane& C, GemTable& DG4S, bool montecarlo)
{
    const size_t ngz = Z(C.NGZ);
    LA1 DG11SE("DG11SE", {ngz}, UNDEF), SUMMESTRB("SUMMESTRB", {ngz}, 0.0), SFAK("SFAK", {ngz}, 1.0);
    FileEntry& entry = fileTable[FT_ECKSTRBG];
    readRegionTargets(entry, DG11SE, "C.NGZ\0");
    for (size_t z = 0; z < ngz; ++z) {
        double& target = DG11SE[z];
        if (isUndef(target)) continue;
        if (target < 0)
            Prot::message(SEV_ERROR, "@rk3prf_fmt714;", tableFileName(entry, entry.fileNumber).c_str(), target);
        target = -target;
    }
    int noTarget = 0;
    for (size_t z = 0; z < ngz; ++z) {
        SUMMESTRB[z] = DG4S.regionSum(z);
        if (isUndef(DG11SE[z]))
            ++noTarget;
        else
            SFAK[z] = safe(DG11SE[z], SUMMESTRB[z], 1);
    }
    if (noTarget) Prot::message(SEV_HINT, "Bei %d Gebieten ohne Eckwert keine Anpassung", noTarget);
    if (Prot::level(3)) {
        LA1 ST1000_("ST1000_", {ngz}, 0.0);
        for (size_t z = 0; z < ngz; ++z) {
            double deaths = isUndef(DG11SE[z]) ? SUMMESTRB[z] : DG11SE[z];
            ST1000_[z] = safe(deaths * 1000, C.BG40.regionSum(z), 0);
        }
        laPrint(3, ST1000_, "C.NGZ\0", nullptr, LA_RATE);
        laPrint(3, SFAK, "C.NGZ\0", nullptr, LA_RATE);
    }
    DG4S.scaleRegions([&SFAK](size_t z) { return SFAK[z]; });
    if (montecarlo) DG4S.roundWithCarry();
    double targets = 0, sums = 0;
    for (size_t z = 0; z < ngz; ++z) {
        targets += isUndef(DG11SE[z]) ? SUMMESTRB[z] : DG11SE[z];
        sums += SUMMESTRB[z];
    }
    if (ini::PLOT_DATEN > 1) C.deathTargets[periodLabel(JAHR)] = {-targets, -sums};
    writeTargetFactor(FT_OUT_STRBFAK, safe(targets, sums, 1));
}

} // namespace

void deaths(MonteCarlo& mc, Orvane& c, YearStep& y)
{
    Trace::enter("RKTOD");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    const size_t ntys = Z(C.NTYS), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);
    const bool montecarlo = MONTE_CARLO != 0;

    // 1. the deaths of the year and the rates
    if (!y.DG4S.exists()) c.makeGem(y.DG4S, "DG4S");
    GemTable& DG4S = y.DG4S;
    C.PR3S.make("C.PR3S", {ntys, nbg, ngg, nag}, 0.0);
    FileEntry& rates = fileTable[FT_STRB];
    readByType(rates, C.PR3S, "C.NTYS\0NBG\0NGG\0NAG\0", VC_RATE, COLUMN_TYS);
    const bool newTable = JAHR == ini::STARTJAHR || rates.fileNumber != lastRateFile;
    lastRateFile = rates.fileNumber;

    // 2. the oldest rates
    if (newTable && C.NAG >= 100 && C.NAG <= 120) checkOldestRates(C);

    // 3. life expectancy
    const int report = Prot::level(2) ? static_cast<int>(opt::get("$LE", 1)) : 0;
    lifeExpectancy(C, report);
    if (ini::PLOT_DATEN > 1) {
        // the life expectancy at birth of each cohort of the rates, for the charts of the summary
        LA3 e0("BR3L_", {ntys, nbg, ngg}, 0.0);
        forEachCohort(C, [&](size_t t, size_t b, size_t g, const std::vector<double>& q) {
            e0[t][b][g] = LE::expectancy(q.data(), q.size(), 0);
        });
        C.lifeExpectancyByYear[periodLabel(JAHR)] = std::move(e0);
    }

    // 4. mortality doubling time
    const double mrdt = opt::get("$MRDT", 0);
    if (mrdt != 0 && C.NAG > 99) doublingTime(C, mrdt);

    // 5. the deaths of each region by the rates of its type
    VCHECK(isoneof(C.NGG, { 1, 2 }), SOURCE);
    const bool plain = !montecarlo && !C.BG40.sparse && !DG4S.sparse;
    // the deaths enter the population at once only on the plain path, which adds them row by row
    y.deathsInPopulation = y.deathsInPopulation && plain;
    const bool enter = y.deathsInPopulation;
    if (enter) y.belowZero.assign(Z(C.NGZ), 0);
    auto body = [&](int z) {
        const size_t t = Z(C.region(z).tys);
        if (plain) {
            // cohort by cohort, the deaths of each age by its rate; every element of the region
            // is written, as the table may hold the values of an earlier one
            for (size_t b = 0; b < nbg; ++b)
                for (size_t g = 0; g < ngg; ++g) {
                    double* d = DG4S.row(Z(z), b, g);
                    double* w = C.BG40.row(Z(z), b, g);
                    if (t >= ntys) {
                        std::fill(d, d + nag, 0.0);
                        if (enter) {
                            for (size_t a = 0; a < nag; ++a) w[a] += 0.0;
                            y.belowZero[Z(z)] = 1;
                        }
                        continue;
                    }
                    const std::vector<double>& r = C.PR3S[t][b][g];
                    if (enter) {
                        if (leaveRow(d, w, r.data(), nag)) y.belowZero[Z(z)] = 1;
                        continue;
                    }
                    for (size_t a = 0; a < nag; ++a) d[a] = deathsOf(w[a], r[a]);
                }
            return;
        }
        if (t >= ntys) return;
        const auto& rate = C.PR3S[t];
        C.BG40.forRegion(Z(z), [&](size_t, size_t b, size_t g, size_t a, double w) {
            double r = rate[b][g][a];
            if (r == 0) return;
            double d = montecarlo ? -mc.draw(w, r) : -(w * r);
            if (d != 0) DG4S.set(Z(z), b, g, a, d);
        });
    };
    if (montecarlo || DG4S.sparse) {
        // draws keep their order, and a sparse table gets its keys on one thread
        for (int z = 0; z < C.NGZ; ++z) body(z);
    } else {
        os::parallelFor(0, C.NGZ, body);
    }

    // 6. the death targets
    if (S_() == 1)
        areaTarget(C, DG4S, montecarlo);
    else if (S_() >= 2)
        regionTargets(C, DG4S, montecarlo);

    // 7. deaths per death type
    if (Prot::level(2)) {
        LA4 DT3S_("DT3S_", {ntys, nbg, ngg, nag}, 0.0);
        DG4S.forEach([&](size_t z, size_t b, size_t g, size_t a, double v) {
            DT3S_[Z(C.region(static_cast<int>(z)).tys)][b][g][a] += v;
        });
        laPrint(2, DT3S_, "C.NTYS\0NBG\0NGG\0NAG\0", nullptr, LA_NUMBER);
    }
    DG4S.print(2);
}
