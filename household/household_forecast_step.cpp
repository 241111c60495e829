#include "household/household_forecast_step.h"

#include <algorithm>
#include <functional>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <stdexcept>

#include "household/household_classes.h"
#include "household/household_outputs.h"
#include "household/household_protocol.h"
#include "household/household_settings.h"
#include "household/household_size_estimation.h"
#include "platform/dictionary.h"
#include "platform/settings.h"
#include "statistics/cell_numbers.h"
#include "tables/table_text.h"
#include "platform/text_format.h"

namespace {

const Altersklasse* zqClasses[6] = {&AKJ, &AKJ, &AKL3, &AKJ, &AKA, &AKL3};

int populationGroups() { return std::max(hh.populationGroups, 1); }
size_t populationCell(int r, int b, int g, int a)
{
    return ((static_cast<size_t>(r) * populationGroups() + b) * 2 + g) * 100 + a;
}

// Each data row of a semicolon table: row(cells, line, text) with its cells, the line it starts
// on and its text joined again for messages. Returns the reader's last status (-1 at the end).
int forEachRow(FILE* f, const char* sep,
               const std::function<void(std::vector<std::string>& cells, size_t line, const std::string& text)>& row)
{
    CsvReader reader(f, sep);
    char cell[1024];
    std::vector<std::string> cells;
    size_t rowLine = 0;
    int status;
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) continue;
        if (cells.empty()) rowLine = static_cast<size_t>(reader.lineNumber());
        cells.push_back(cell);
        if (status != '\n') continue;
        std::string text;
        for (size_t i = 0; i < cells.size(); ++i) text += (i ? sep : "") + cells[i];
        row(cells, rowLine, text);
        cells.clear();
    }
    return status;
}

} // namespace

int readYearTable(const std::string& name, const std::string& directory, std::map<int, std::vector<double>>* population,
                  std::map<int, Assumptions>* assumptions)
{
    std::string path = directory + name + ".csv";
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return 1;
    FILE* page = hhprot::page();
    std::string link = directory == hh.directory ? "../" + name + ".csv" : "../Quoten/" + name + ".csv";
    fprintf(page, "%s <a href=\"%s\">%s.csv</a>\n", DD::lookup("hh_read").c_str(), link.c_str(), name.c_str());
    char sep[2] = {si::separator ? si::separator : ';', 0};
    int lastYear = -1;
    std::vector<double>* year = nullptr;
    Assumptions* zq = nullptr;
    size_t R = static_cast<size_t>(g2t.regions()), T = static_cast<size_t>(std::max(g2t.maxType, 1));
    int nbg = populationGroups();
    auto fail = [&](const std::string& text) {
        fclose(f);
        throw std::runtime_error(text);
    };
    int status = forEachRow(f, sep, [&](std::vector<std::string>& cells, size_t lineNo, const std::string& text) {
        if (cells.size() > 6)
            hhprot::warning("Überflüssige Spalte %s in Zeile %zu:<br><code>%s</code>\n", cells[6].c_str(), lineNo, text.c_str());
        cells.resize(6);
        int y = std::atoi(cells[0].c_str());
        int second = std::atoi(cells[2].c_str()), sex = std::atoi(cells[3].c_str()), age = std::atoi(cells[4].c_str());
        double value;
        if (!cellNumber(cells[5].c_str(), value))
            fail(format("Zeile %zu:<br><code>%s</code><br>Wert %s ist keine Zahl\n", lineNo, text.c_str(), cells[5].c_str()));
        if (population) {
            int r = g2t.region(std::atoll(cells[1].c_str()));
            if (r < 0)
                fail(format("Unbekanntes Gebietskennzeichen %s in Zeile %zu:<br><code>%s</code><br>(Fehler in %s- oder Referenzdatei)\n",
                            cells[1].c_str(), lineNo, text.c_str(), name.c_str()));
            if (age < 0) fail(format("Zeile %zu:<br><code>%s</code><br>Altersgruppe %d negativ\n", lineNo, text.c_str(), age));
            if (sex < 1 || sex > 2)
                fail(format("Zeile %zu:<br><code>%s</code><br> Geschlecht %d nicht im Bereich 1 .. %zu\n", lineNo, text.c_str(), sex,
                            static_cast<size_t>(2)));
            if (nbg == 1) second = 1;
            if (second < 1 || second > nbg)
                fail(format("Zeile %zu:<br><code>%s</code><br>BG %d nicht im Bereich 1 .. %zu\n", lineNo, text.c_str(), second,
                            static_cast<size_t>(nbg)));
            if (y != lastYear || !year) {
                auto [it, fresh] = population->try_emplace(y);
                if (fresh) it->second.assign(R * static_cast<size_t>(nbg) * 200, 0.0);
                year = &it->second;
                lastYear = y;
            }
            (*year)[populationCell(r, second - 1, sex - 1, std::min(age, 99))] = value;
        } else {
            int nr = std::atoi(cells[1].c_str());
            if (nr < 1 || nr > 6 || second < 1 || static_cast<size_t>(second) > T)
                fail(format("Zeile %zu:<br><code>%s</code><br>Gebietsnummer %d(%d) nicht im Bereich 1 .. %zu\n", lineNo, text.c_str(),
                            second, nr, T));
            if (sex < 1 || sex > 2)
                fail(format("Zeile %zu:<br><code>%s</code><br> Geschlecht %d nicht im Bereich 1 .. %zu\n", lineNo, text.c_str(), sex,
                            static_cast<size_t>(2)));
            if (age < 0) fail(format("Zeile %zu:<br><code>%s</code><br>Altersgruppe %d negativ\n", lineNo, text.c_str(), age));
            if (y != lastYear || !zq) {
                auto [it, fresh] = assumptions->try_emplace(y);
                if (fresh)
                    for (int k = 0; k < 6; ++k) it->second.zq[k].size({static_cast<int>(T), 2, zqClasses[k]->count()});
                zq = &it->second;
                lastYear = y;
            }
            if (age < zqClasses[nr - 1]->count()) zq->zq[nr - 1](second - 1, sex - 1, age) = value;
        }
    });
    fclose(f);
    if (status != -1) throw std::runtime_error(path + ": " + CsvReader::errorText(status));
    if (population)
        for (const auto& entry : *population) fprintf(page, " %d", entry.first);
    else
        for (const auto& entry : *assumptions) fprintf(page, " %d", entry.first);
    fputs("<br>\n", page);
    return 0;
}

bool proportionalShift(double target, double* h, int n, double& rest)
{
    double M = 0;
    for (int k = 0; k < n; ++k) M += (k + 1) * h[k];
    double D = target - M;
    rest = D;
    if (D == 0) return false;
    if (D > 0) {
        do {
            double X = 0, f;
            for (int k = 0; k <= n - 2; ++k) X += h[k];
            if (X > D) f = D, D = 0;
            else f = X, D -= X;
            if (f == 0) return rest = D, true;
            for (int k = n - 2; k >= 0; --k) {
                double move = h[k] * f / X;
                h[k] -= move;
                h[k + 1] += move;
            }
        } while (D > 0);
    } else {
        D = -D;
        do {
            double X = 0, f;
            for (int k = 1; k <= n - 1; ++k) X += h[k];
            if (X > D) f = D, D = 0;
            else f = X, D -= X;
            if (f == 0) return rest = D, true;
            for (int k = 1; k <= n - 1; ++k) {
                double move = h[k] * f / X;
                h[k] -= move;
                h[k - 1] += move;
            }
        } while (D > 0);
    }
    rest = D;
    return false;
}

double stepwiseShift(double target, double implied, double* h)
{
    double D = target - implied, R = std::fabs(D);
    if (D > 0) {
        for (int k = 0; k <= 5 && R > 0; ++k) {
            if (h[k] <= 0) continue;
            if (R < h[k]) {
                h[k] -= R, h[k + 1] += R, R = 0;
            } else {
                h[k + 1] += h[k], R -= h[k], h[k] = 0;
            }
        }
    } else if (D < 0) {
        for (int k = 6; k >= 1 && R > 0; --k) {
            if (h[k] <= 0) continue;
            if (R < h[k]) {
                h[k] -= R, h[k - 1] += R, R = 0;
            } else {
                h[k - 1] += h[k], R -= h[k], h[k] = 0;
            }
        }
    }
    return R;
}

namespace {

struct Phase {
    BaseTables base;
    std::vector<double> fwbb;   // region x group x sex x age, 1 without the factor
    bool quotasRead = false;
};

// the factor of the population entitled to live here, from the main and secondary residents
void residenceFactor(Phase& phase)
{
    size_t R = static_cast<size_t>(g2t.regions());
    int nbg = populationGroups();
    phase.fwbb.assign(R * static_cast<size_t>(nbg) * 200, 1.0);
    std::string path = hh.directory + "Quoten/hnws.csv";
    FILE* f = fopen(path.c_str(), "rb");
    FILE* page = hhprot::page();
    if (!f) {
        hhprot::warning("Fehlende Datei fwbb.csv - Faktor Wohnberechtigte Bev&ouml;lkerung wird als 1 angenommen");
        return;
    }
    fprintf(page, "%s <a href=\"../Quoten/hnws.csv\" target=_blank>hnws.csv</a><br>\n", DD::lookup("hh_read").c_str());
    std::vector<double> h(phase.fwbb.size(), 0.0), n(phase.fwbb.size(), 0.0);
    char sep[2] = {si::separator ? si::separator : ';', 0};
    long sumH = 0, sumN = 0;
    forEachRow(f, sep, [&](std::vector<std::string>& cells, size_t lineNo, const std::string& text) {
        cells.resize(6);
        int r = g2t.region(std::atoll(cells[0].c_str())), b = std::atoi(cells[1].c_str()), g = std::atoi(cells[2].c_str()),
            a = std::atoi(cells[3].c_str());
        if (nbg == 1) b = 1;
        if (r < 0)
            hhprot::warning("Unbekanntes Gebietskennzeichen %s in Zeile %d:<br><code>%s</code><br> (Fehler in gem- oder Referenzdatei)\n",
                            cells[0].c_str(), static_cast<int>(lineNo), text.c_str());
        else if (b < 1 || b > 2)
            hhprot::warning("Bev&ouml;lkerungsgruppe %s in Zeile %d:<br><code>%s</code><br> nicht im Bereich 1 .. 2\n",
                            cells[1].c_str(), static_cast<int>(lineNo), text.c_str());
        else if (g < 1 || g > 2)
            hhprot::warning("Geschlecht %s in Zeile %d:<br><code>%s</code><br> nicht im Bereich 1 .. 2\n", cells[2].c_str(),
                            static_cast<int>(lineNo), text.c_str());
        else if (a < 0 || a > 99)
            hhprot::warning("Altersgruppe %s in Zeile %d:<br><code>%s</code><br> nicht im Bereich 0 .. 99\n", cells[3].c_str(),
                            static_cast<int>(lineNo), text.c_str());
        else if (b <= nbg) {
            size_t k = populationCell(r, b - 1, g - 1, a);
            h[k] += std::atof(cells[4].c_str());
            n[k] += std::atof(cells[5].c_str());
            sumH += std::atol(cells[4].c_str());
            sumN += std::atol(cells[5].c_str());
        }
    });
    fclose(f);
    for (size_t k = 0; k < h.size(); ++k) phase.fwbb[k] = h[k] == 0 ? 1.0 : (h[k] + n[k]) / h[k];
    fprintf(page, "&Sigma; Hauptwohnsitzler %d, &Sigma; Nebenwohnsitzler %d<br>\n", static_cast<int>(sumH), static_cast<int>(sumN));
}

// a table of one value per region and per column, on a sub-page
void regionTable(const char* name, const std::vector<RegionYear>& z, int columns, const std::function<double(const RegionYear&, int)>& get,
                 int limit = 1)
{
    if (hh.protocolVolume < limit) return;
    double total = 0;
    for (int r = 0; r < g2t.regions(); ++r)
        if (regionSeen[static_cast<size_t>(r)])
            for (int c = 0; c < columns; ++c) total += get(z[static_cast<size_t>(r)], c);
    char link[128];
    snprintf(link, sizeof link, "%s, &Sigma; = %.15g", name, total);
    FILE* f = hhprot::subPage(name, link);
    if (!f) return;
    fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th>Gebiet</th>", DD::lookup(std::string("hh_") + name, name).c_str());
    for (int c = 0; c < columns; ++c) fprintf(f, "<th class=r>%d</th>", c + 1);
    fputs("<th>&Sigma;</th></tr>\n", f);
    for (int r = 0; r < g2t.regions(); ++r) {
        if (!regionSeen[static_cast<size_t>(r)]) continue;
        fprintf(f, "<tr><th class=r>%lld</th>", g2t.pairs[static_cast<size_t>(r)].first);
        double s = 0;
        for (int c = 0; c < columns; ++c) {
            double v = get(z[static_cast<size_t>(r)], c);
            s += v;
            if (v == 0) fputs("<td></td>", f);
            else fprintf(f, "<td class=%s>%.2f</td>", v < 0 ? "warning" : "r", v);
        }
        fprintf(f, "<th class=r>%.15g</th></tr>\n", s);
    }
    fprintf(f, "<tr><th>&Sigma;</th><th colspan=%d class=r>%.15g</th></tr>\n</table>\n", columns + 1, total);
}

// a table by sex (m, w) and the classes of AKL3
void sexClassTable(const char* name, const std::vector<RegionYear>& z, double (RegionYear::*a)[2][3])
{
    regionTable(name, z, 6, [a](const RegionYear& y, int c) { return (y.*a)[c / 3][c % 3]; });
}

// a table of three classes by region (sex blank)
void classTable(const char* name, const std::vector<RegionYear>& z, double (RegionYear::*a)[3])
{
    regionTable(name, z, 3, [a](const RegionYear& y, int c) { return (y.*a)[c]; });
}

// a table of two classes of each sex by region
void sexPairTable(const char* name, const std::vector<RegionYear>& z, double (RegionYear::*a)[2][2])
{
    regionTable(name, z, 4, [a](const RegionYear& y, int c) { return (y.*a)[c / 2][c % 2]; });
}

// a vector that is the same for all regions, as one row
void shareTable(const char* name, const double* values, int columns, int limit)
{
    if (hh.protocolVolume < limit) return;
    double total = 0;
    for (int c = 0; c < columns; ++c) total += values[c];
    char link[128];
    snprintf(link, sizeof link, "%s, &Sigma; = %.15g", name, total);
    FILE* f = hhprot::subPage(name, link);
    if (!f) return;
    fprintf(f, "<table>\n<caption>%s</caption>\n<tr>", DD::lookup(std::string("hh_") + name, name).c_str());
    for (int c = 0; c < columns; ++c) fprintf(f, "<th class=r>%d</th>", c + 1);
    fputs("<th>&Sigma;</th></tr>\n<tr>", f);
    for (int c = 0; c < columns; ++c) {
        if (values[c] == 0) fputs("<td></td>", f);
        else fprintf(f, "<td class=%s>%.2f</td>", values[c] < 0 ? "warning" : "r", values[c]);
    }
    fprintf(f, "<th class=r>%.15g</th></tr>\n</table>\n", total);
}

// The population of the year as the step takes it (region, group, sex, age), rows with
// persons only; from volume 3 on.
void populationTable(const char* caption, const std::vector<double>& gem, int nbg)
{
    if (hh.protocolVolume < 3) return;
    double total = 0;
    for (double v : gem) total += v;
    char link[128];
    snprintf(link, sizeof link, "GEM, &Sigma; = %.15g", total);
    FILE* f = hhprot::subPage("GEM", link);
    if (!f) return;
    fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th>Gebiet</th><th>BG</th><th>GG</th><th>AG</th><th>Wert</th></tr>\n",
            caption);
    for (int r = 0; r < g2t.regions(); ++r)
        for (int b = 0; b < nbg; ++b)
            for (int g = 0; g < 2; ++g)
                for (int a = 0; a < 100; ++a) {
                    double v = gem[populationCell(r, b, g, a)];
                    if (v == 0) continue;
                    fprintf(f, "<tr><th class=r>%lld</th><th class=r>%d</th><th class=r>%d</th><th class=r>%d</th>",
                            g2t.pairs[static_cast<size_t>(r)].first, b + 1, g + 1, a);
                    fprintf(f, "<td class=%s>%.2f</td></tr>\n", v < 0 ? "warning" : "r", v);
                }
    fprintf(f, "<tr><th colspan=5 class=r>&Sigma; = %.15g</th></tr>\n</table>\n", total);
}

// the children of an age in core families by the age of their mother
double childrenByMotherAge(const RegionYear& y, int t, int a, int m) { return y.ZPKZ_Ew[a] * QQ.QK(t, a, m); }

// ZPKZi_Ewj: one row per region and age of the child, one column per age of the mother; it
// is not kept, being the product of ZPKZ_Ew and QK. Rows without children are left out.
void childrenByMotherTable(const std::vector<RegionYear>& z, const std::vector<int>& types)
{
    double total = 0;
    for (int r = 0; r < g2t.regions(); ++r)
        if (regionSeen[static_cast<size_t>(r)] && types[static_cast<size_t>(r)] >= 0)
            for (int a = 0; a < 18; ++a)
                for (int m = 0; m < AK15_99.count(); ++m) total += childrenByMotherAge(z[static_cast<size_t>(r)], types[static_cast<size_t>(r)], a, m);
    char link[128];
    snprintf(link, sizeof link, "ZPKZi_Ewj, &Sigma; = %.15g", total);
    FILE* f = hhprot::subPage("ZPKZi_Ewj", link);
    if (!f) return;
    fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th>Gebiet</th><th>Alter</th>", DD::lookup("hh_ZPKZi_Ewj", "ZPKZi_Ewj").c_str());
    for (int m = 0; m < AK15_99.count(); ++m)
        fprintf(f, m + 1 == AK15_99.count() ? "<th class=r>&ge;%d</th>" : "<th class=r>%d</th>", AK15_99.lower(m));
    fputs("<th>&Sigma;</th></tr>\n", f);
    for (int r = 0; r < g2t.regions(); ++r) {
        int t = types[static_cast<size_t>(r)];
        if (!regionSeen[static_cast<size_t>(r)] || t < 0) continue;
        const RegionYear& y = z[static_cast<size_t>(r)];
        for (int a = 0; a < 18; ++a) {
            if (y.ZPKZ_Ew[a] == 0) continue;
            fprintf(f, "<tr><th class=r>%lld</th><th class=r>%d</th>", g2t.pairs[static_cast<size_t>(r)].first, a);
            double s = 0;
            for (int m = 0; m < AK15_99.count(); ++m) {
                double v = childrenByMotherAge(y, t, a, m);
                s += v;
                if (v == 0) fputs("<td></td>", f);
                else fprintf(f, "<td class=%s>%.2f</td>", v < 0 ? "warning" : "r", v);
            }
            fprintf(f, "<th class=r>%.15g</th></tr>\n", s);
        }
    }
    fprintf(f, "<tr><th colspan=2>&Sigma;</th><th colspan=%d class=r>%.15g</th></tr>\n</table>\n", AK15_99.count() + 1, total);
}

double sum23(const double a[2][3])
{
    double s = 0;
    for (int g = 0; g < 2; ++g)
        for (int j = 0; j < 3; ++j) s += a[g][j];
    return s;
}

void step(Phase& phase, std::vector<double> gem, int year, const Assumptions& zq, const std::vector<double>* special)
{
    FILE* page = hhprot::page();
    int R = g2t.regions(), nbg = populationGroups();
    char label[32];
    snprintf(label, sizeof label, "B2 %d", year);
    hhprot::heading(1, label);
    double total = 0;
    for (double v : gem) total += v;
    fprintf(page, "GEM: Jahr %d, %d Gebiet(e), %d BG, %d GG, %d AG, &Sigma; = %.2f<br>\n", year, R, nbg, 2, 100, total);
    if (hh.residenceFactor) {
        double added = 0;
        for (size_t k = 0; k < gem.size(); ++k) {
            added += (phase.fwbb[k] - 1) * gem[k];
            gem[k] *= phase.fwbb[k];
        }
        if (hh.protocolVolume < 3) fprintf(page, "%s = %.2f<br>\n", DD::lookup("hh_SWBB").c_str(), added);
        else fprintf(page, "Bevölkerung aus GEM-Datei zusätzlich Wohnberechtigte Bevölkerung %.2f:<br>\n", added);
        populationTable("GEM", gem, nbg);
    }
    fprintf(page, "Quote oder Indikator der Annahmesetzung ZQ: Jahr %d<br>\n", year);
    readBaseTables(phase.base);
    if (special && hh.specialGroups == 2) {
        fprintf(page, "HDSGR: Jahr %d, %d Gebiet(e), %d BG, %d GG, %d AG<br>\n", year, R, nbg, 2, 100);
        double sum = 0;
        for (size_t k = 0; k < gem.size(); ++k) {
            double g = gem[k] * (*special)[k];
            sum += g;
            gem[k] -= g;
        }
        fprintf(page, "Summe demographische Sondergruppen %.2f<br>\n", sum);
        populationTable(hh.residenceFactor ? "GEM * FWBB abz&uuml;glich demographisch Sondergruppen (Raten):"
                                           : "GEM abz&uuml;glich demographisch Sondergruppen (Raten):",
                        gem, nbg);
    } else if (special && hh.specialGroups == 1) {
        double sum = 0;
        for (double v : *special) sum += v;
        fprintf(page, "HDSGA: Jahr %d, %d Gebiet(e), %d BG, %d GG, %d AG, &Sigma; = %.2f<br>\n", year, R, nbg, 2, 100, sum);
        for (int r = 0; r < R; ++r)
            for (int b = 0; b < nbg; ++b)
                for (int g = 0; g < 2; ++g)
                    for (int a = 0; a < 100; ++a) {
                        size_t k = populationCell(r, b, g, a);
                        gem[k] -= (*special)[k];
                        if (gem[k] < 0) {
                            hhprot::warning("Korrektur negative GEM %d %d %d %d = %g", static_cast<int>(g2t.pairs[static_cast<size_t>(r)].first),
                                            b + 1, g + 1, a, gem[k]);
                            gem[k] = 0;
                        }
                    }
        populationTable(hh.residenceFactor ? "GEM * FWBB - HDSGA:" : "GEM - HDSGA:", gem, nbg);
    }

    std::vector<RegionYear> z(static_cast<size_t>(R));
    for (int r = 0; r < R; ++r) {
        RegionYear& y = z[static_cast<size_t>(r)];
        for (int b = 0; b < nbg; ++b)
            for (int g = 0; g < 2; ++g)
                for (int a = 0; a < 100; ++a) y.B1[g][a] += gem[populationCell(r, b, g, a)];
        for (int g = 0; g < 2; ++g)
            for (int a = 0; a < 100; ++a) y.B1sum += y.B1[g][a];
    }
    regionTable("B1", z, 200, [](const RegionYear& y, int c) { return y.B1[c / 100][c % 100]; });
    regionTable("B1sum", z, 1, [](const RegionYear& y, int) { return y.B1sum; });

    auto typeOf = [&](int r) {
        int t = g2t.pairs[static_cast<size_t>(r)].second - 1;
        if (t < 0 || t >= static_cast<int>(typeSeen.size())) {
            hhprot::warning("Keine Abbildung von Schlüssel %d in Datei Referenzdatei", static_cast<int>(g2t.pairs[static_cast<size_t>(r)].first));
            return -1;
        }
        return t;
    };
    std::vector<int> types(static_cast<size_t>(R), -1);
    for (int r = 0; r < R; ++r)
        if (regionSeen[static_cast<size_t>(r)]) types[static_cast<size_t>(r)] = typeOf(r);
    auto active = [&](int r) { return regionSeen[static_cast<size_t>(r)] && types[static_cast<size_t>(r)] >= 0; };
    const Grid<double>&ZQ1 = zq.zq[0], &ZQ2 = zq.zq[1], &ZQ3 = zq.zq[2], &ZQ4 = zq.zq[3], &ZQ5 = zq.zq[4], &ZQ6 = zq.zq[5];

    // children and parents
    hhprot::heading(2, "B2.1");
    bool additionLog = hh.protocolVolume > 3;
    for (int r = 0; r < R; ++r) {
        if (!active(r)) continue;
        int t = types[static_cast<size_t>(r)];
        RegionYear& y = z[static_cast<size_t>(r)];
        for (int g = 0; g < 2; ++g)
            for (int a = 0; a < 18; ++a) y.ZPK[g][a] = a < 15 ? y.B1[g][a] : y.B1[g][a] * QQ.Q10(t, g, a - 15);
        for (int a = 0; a < 18; ++a) y.ZPKZ_Ew[a] = (y.ZPK[0][a] + y.ZPK[1][a]) * QQ.Q11(t, a);
        if (additionLog) fputs("<pre>", page);
        for (int a = 0; a < 18; ++a)
            for (int m = 0; m < AK15_99.count(); ++m) {
                int c;
                if (!AKJ.find(AK15_99.lower(m), c)) continue;
                double term = childrenByMotherAge(y, t, a, m), before = y.ZPKZ_Ewg[c];
                y.ZPKZ_Ewg[c] += term;
                if (additionLog && term != 0)
                    fprintf(page, "ZPKZ_Ewg[%d][%2d..%2d] += ZPKZi_Ewj[%d][%2d][%2d] (%.15g + %.15g = %.15g)\n", r + 1, AKJ.lower(c),
                            AKJ.upper(c), r + 1, a, AK15_99.lower(m), before, term, y.ZPKZ_Ewg[c]);
            }
        if (additionLog) fputs("</pre>\n", page);
        for (int c = 0; c < 2; ++c) {
            y.ZPEZw[c] = safeDivision(y.ZPKZ_Ewg[c], ZQ1(t, 1, c), 0, format("ZPEZw[%d][%d]=ZPKZ_Ewg[a]/ZQ1[%d][%d]\n", r + 1, c + 1, t + 1, c + 1).c_str());
            y.ZPEAZw[c] = y.ZPEZw[c] * ZQ2(t, 1, c);
            y.ZPEPZw[c] = y.ZPEZw[c] - y.ZPEAZw[c];
        }
        y.ZPEA = safeDivision(y.ZPEAZw[0] + y.ZPEAZw[1], QQ.Q20(t), 0, format("ZPEA[%d]=ZPEAZw.sum(%d)/Q20[%d]\n", r + 1, r + 1, t + 1).c_str());
        y.ZHEA = QQ.Q21(t) * y.ZPEA;
        y.ZPEAZwf[0] = y.ZPEAZw[0];
        y.ZPEAZwf[1] = QQ.Q12(t) * y.ZPEAZw[1];
        y.ZPEAZwf[2] = (1 - QQ.Q12(t)) * y.ZPEAZw[1];
        y.ZPEPZwf[0] = y.ZPEPZw[0];
        y.ZPEPZwf[1] = QQ.Q13(t) * y.ZPEPZw[1];
        y.ZPEPZwf[2] = (1 - QQ.Q13(t)) * y.ZPEPZw[1];
        for (int i = 0; i < 3; ++i)
            y.ZPEPZm[i] = QQ.Q14(t, i) * y.ZPEPZwf[0] + QQ.Q15(t, i) * y.ZPEPZwf[1] + QQ.Q16(t, i) * y.ZPEPZwf[2];
        for (int j = 0; j < 3; ++j) y.ZPEZ += y.ZPEAZwf[j] + y.ZPEPZwf[j];
        y.ZFK = y.ZPEZ / QQ.Q17(t);
        y.ZH2 = y.ZFK / QQ.Q18(t);
        y.ZPESs = y.ZFK - y.ZPEZ;
    }
    regionTable("ZPK", z, 36, [](const RegionYear& y, int c) { return y.ZPK[c / 18][c % 18]; });
    regionTable("ZPKZ_Ew", z, 18, [](const RegionYear& y, int c) { return y.ZPKZ_Ew[c]; });
    if (hh.protocolVolume >= 1) childrenByMotherTable(z, types);
    regionTable("ZPKZ_Ewg", z, 2, [](const RegionYear& y, int c) { return y.ZPKZ_Ewg[c]; });
    regionTable("ZPEZw", z, 2, [](const RegionYear& y, int c) { return y.ZPEZw[c]; });
    regionTable("ZPEAZw", z, 2, [](const RegionYear& y, int c) { return y.ZPEAZw[c]; });
    regionTable("ZPEPZw", z, 2, [](const RegionYear& y, int c) { return y.ZPEPZw[c]; });
    regionTable("ZPEA", z, 1, [](const RegionYear& y, int) { return y.ZPEA; });
    regionTable("ZHEA", z, 1, [](const RegionYear& y, int) { return y.ZHEA; });
    classTable("ZPEAZwf", z, &RegionYear::ZPEAZwf);
    classTable("ZPEPZwf", z, &RegionYear::ZPEPZwf);
    classTable("ZPEPZm", z, &RegionYear::ZPEPZm);
    regionTable("ZPEZ", z, 1, [](const RegionYear& y, int) { return y.ZPEZ; });
    regionTable("ZFK", z, 1, [](const RegionYear& y, int) { return y.ZFK; });
    regionTable("ZH2", z, 1, [](const RegionYear& y, int) { return y.ZH2; });
    regionTable("ZPESs", z, 1, [](const RegionYear& y, int) { return y.ZPESs; });

    // the number of children per household
    double QSH2i[7] = {}, all = 0;
    for (int r = 0; r < R; ++r)
        if (active(r))
            for (int k = 0; k < 7; ++k) QSH2i[k] += S.SH2i(r, k);
    for (double v : QSH2i) all += v;
    for (double& v : QSH2i) v = safeDivision(v, all, 0, "QSH2i[k]=SH2i[k]/SH2i.sum()");
    int mode = static_cast<int>(opt::get("HHHKZ", 3));
    const char* modeText = mode == 1 ? "Anpassung der Klassen 1..3 und 5..7 an Zielwert"
                           : mode == 2 ? "Anpassung Struktur Kinderzahl an Zielwert"
                                       : "Anpassung Struktur Anzahl Haushalte nach Kinderzahl an Zielwert Kinder";
    if (mode >= 1 && mode <= 3) fprintf(page, "%s<br>\n", modeText);
    if (mode == 1) hhprot::warning("HHHKZ 1 ist überholt");
    if (mode < 1 || mode > 3) hhprot::warning("hhhkz %d ungültig, verwende 3", mode);
    for (int r = 0; r < R; ++r) {
        if (!active(r)) continue;
        RegionYear& y = z[static_cast<size_t>(r)];
        y.ZH2is = y.ZH2 - S.SH2i(r, 7);
        double N = 0;
        for (int k = 0; k < 7; ++k) N += S.SH2i(r, k);
        for (int k = 0; k < 7; ++k) y.ZH2ib[k] = N == 0 ? QSH2i[k] * y.ZH2is : S.SH2i(r, k) * (y.ZH2is / N);
        for (int g = 0; g < 2; ++g)
            for (int a = 0; a < 18; ++a) y.ZH2z += y.ZPK[g][a];
        y.ZH2z -= S.SPKV(r);
        for (int k = 0; k < 7; ++k) y.ZH2n += (k + 1) * y.ZH2ib[k];
        std::copy(y.ZH2ib, y.ZH2ib + 7, y.ZH2in);
        long long key = g2t.pairs[static_cast<size_t>(r)].first;
        if (mode == 1) {
            double d = (y.ZH2z - y.ZH2n) / 12;
            if (d != 0)
                for (int k = 0; k < 3; ++k) y.ZH2in[k] -= d, y.ZH2in[k + 4] += d;
        } else if (mode == 2) {
            double rest = stepwiseShift(y.ZH2z, y.ZH2n, y.ZH2in);
            if (rest > 0)
                fprintf(page, "Gebiet %d (%d): Ziel: (%g-%g=%g), Rest %g<br>\n", r + 1, static_cast<int>(key), y.ZH2z, y.ZH2n,
                        y.ZH2z - y.ZH2n, rest);
        } else if (mode == 3) {
            double rest;
            if (proportionalShift(y.ZH2z, y.ZH2in, 7, rest))
                hhprot::warning("Gebiet %d (%d): Ziel: (%g-%g=%g), Rest %g", r + 1, static_cast<int>(key), y.ZH2z, y.ZH2n,
                                y.ZH2z - y.ZH2n, rest);
        }
        for (int k = 0; k < 7; ++k) ZR.ZRHK(r, year - ZR.firstYear, k) = y.ZH2in[k];
    }
    regionTable("ZH2is", z, 1, [](const RegionYear& y, int) { return y.ZH2is; }, 2);
    shareTable("QSH2i", QSH2i, 7, 2);
    regionTable("ZH2ib", z, 7, [](const RegionYear& y, int c) { return y.ZH2ib[c]; }, 2);
    regionTable("ZH2n", z, 1, [](const RegionYear& y, int) { return y.ZH2n; }, 2);
    regionTable("ZH2z", z, 1, [](const RegionYear& y, int) { return y.ZH2z; }, 2);
    regionTable("ZH2in", z, 7, [](const RegionYear& y, int c) { return y.ZH2in[c]; });

    // single parents and all parents
    double negatives = 0, negativeSum = 0;
    for (int r = 0; r < R; ++r) {
        if (!active(r)) continue;
        int t = types[static_cast<size_t>(r)];
        RegionYear& y = z[static_cast<size_t>(r)];
        for (int g = 0; g < 2; ++g)
            for (int j = 0; j < 3; ++j) {
                y.ZPES[g][j] = y.ZPESs * QQ.Q19(t, g, j);
                y.ZPE[g][j] = y.ZPES[g][j];
                if (g == 1) y.ZPE[g][j] += j == 0 ? y.ZPEZw[0] : y.ZPEAZwf[j] + y.ZPEPZwf[j];
                else y.ZPE[g][j] += y.ZPEPZm[j];
                for (int a = AKL3.lower(j); a <= std::min(AKL3.upper(j), 99); ++a) y.B1agg[g][j] += y.B1[g][a];
                double children = 0;
                if (j == 0)
                    for (int a = 0; a < 18; ++a) children += y.ZPK[g][a];
                y.B2[g][j] = y.B1agg[g][j] - children - y.ZPE[g][j];
                if (y.B2[g][j] < 0) negatives += 1, negativeSum += -y.B2[g][j];
            }
    }
    sexClassTable("ZPES", z, &RegionYear::ZPES);
    sexClassTable("ZPE", z, &RegionYear::ZPE);
    sexClassTable("B1agg", z, &RegionYear::B1agg);
    sexClassTable("B2", z, &RegionYear::B2);
    if (negatives > 0) {
        hhprot::warning("%.0f negative Werte in B2 mit Summe %.15g auf Null gesetzt:", negatives, negativeSum);
        for (RegionYear& y : z)
            for (auto& row : y.B2)
                for (double& v : row) v = std::max(v, 0.0);
        sexClassTable("B2", z, &RegionYear::B2);
    }

    // partners
    hhprot::heading(2, "B2.2");
    for (int r = 0; r < R; ++r) {
        if (!active(r)) continue;
        int t = types[static_cast<size_t>(r)];
        RegionYear& y = z[static_cast<size_t>(r)];
        for (int j = 0; j < 3; ++j) y.ZPP1a[1][j] = y.B2[1][j] * ZQ3(t, 1, j);
        for (int i = 0; i < 3; ++i) {
            y.ZPP1a[0][i] = 0;
            for (int j = 0; j < 3; ++j) y.ZPP1a[0][i] += y.ZPP1a[1][j] * QQ.Q22m(t, j, i);
        }
        for (int g = 0; g < 2; ++g)
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) y.ZPP1b[g][i] += y.ZPP1a[g][i] * QQ.Q26(t, g, i, g, j);
        for (int j = 0; j < 3; ++j) y.ZPP2[1][j] = y.ZPP1a[1][j] * QQ.Q25(t, j);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) y.ZPP2[0][i] += QQ.Q22m(t, j, i) * y.ZPP1a[1][j] * QQ.Q25(t, j);
        for (int g = 0; g < 2; ++g)
            for (int j = 0; j < 3; ++j) {
                y.ZPP3[g][j] = y.ZPP1a[g][j] + y.ZPP1b[g][j] - y.ZPP2[g][j];
                y.B3[g][j] = y.B2[g][j] - (y.ZPP1a[g][j] + y.ZPP1b[g][j]);
            }
    }
    sexClassTable("ZPP1a", z, &RegionYear::ZPP1a);
    sexClassTable("ZPP1b", z, &RegionYear::ZPP1b);
    sexClassTable("ZPP2", z, &RegionYear::ZPP2);
    sexClassTable("ZPP3", z, &RegionYear::ZPP3);
    sexClassTable("B3", z, &RegionYear::B3);

    // descendants and ascendants
    hhprot::heading(2, "B2.3");
    for (int r = 0; r < R; ++r) {
        if (!active(r)) continue;
        int t = types[static_cast<size_t>(r)];
        RegionYear& y = z[static_cast<size_t>(r)];
        for (int g = 0; g < 2; ++g) {
            y.ZPNg[g][0] = y.B3[g][0] * ZQ4(t, g, 0);
            y.ZPNg[g][1] = (y.B3[g][1] + y.B3[g][2]) * ZQ4(t, g, 1);
            y.ZPN[g][0] = y.ZPNg[g][0];
            y.ZPN[g][1] = y.ZPNg[g][1] * QQ.Q32(t, g, 1);
            y.ZPN[g][2] = y.ZPNg[g][1] * QQ.Q32(t, g, 2);
            y.ZPVg[g][0] = (y.B3[g][0] + y.B3[g][1]) * ZQ5(t, g, 0);
            y.ZPVg[g][1] = y.B3[g][2] * ZQ5(t, g, 1);
            y.ZPV[g][0] = y.ZPVg[g][0] * QQ.Q34(t, g, 0);
            y.ZPV[g][1] = y.ZPVg[g][0] * QQ.Q34(t, g, 1);
            y.ZPV[g][2] = y.ZPVg[g][1];
            for (int j = 0; j < 3; ++j) {
                y.ZPN2[g][j] = y.ZPN[g][j] * QQ.QN2(t, g, j);
                y.ZPN3[g][j] = y.ZPN[g][j] * QQ.QN3(t, g, j);
                y.ZPN4[g][j] = y.ZPN[g][j] * QQ.QN4(t, g, j);
                y.ZPV2[g][j] = y.ZPV[g][j] * QQ.QV2(t, g, j);
                y.ZPV3[g][j] = y.ZPV[g][j] * QQ.QV3(t, g, j);
                y.ZPV4[g][j] = y.ZPV[g][j] * QQ.QV4(t, g, j);
                y.B4[g][j] = y.B3[g][j] - y.ZPN[g][j] - y.ZPV[g][j];
            }
        }
        y.ZH4 = sum23(y.ZPV4) * QQ.Q35(t);
    }
    sexPairTable("ZPNg", z, &RegionYear::ZPNg);
    sexClassTable("ZPN", z, &RegionYear::ZPN);
    sexClassTable("ZPN2", z, &RegionYear::ZPN2);
    sexClassTable("ZPN3", z, &RegionYear::ZPN3);
    sexClassTable("ZPN4", z, &RegionYear::ZPN4);
    sexPairTable("ZPVg", z, &RegionYear::ZPVg);
    sexClassTable("ZPV", z, &RegionYear::ZPV);
    sexClassTable("ZPV2", z, &RegionYear::ZPV2);
    sexClassTable("ZPV3", z, &RegionYear::ZPV3);
    sexClassTable("ZPV4", z, &RegionYear::ZPV4);
    regionTable("ZH4", z, 1, [](const RegionYear& y, int) { return y.ZH4; });
    sexClassTable("B4", z, &RegionYear::B4);

    // persons alone and others
    hhprot::heading(2, "B2.4");
    for (int r = 0; r < R; ++r) {
        if (!active(r)) continue;
        int t = types[static_cast<size_t>(r)];
        RegionYear& y = z[static_cast<size_t>(r)];
        Quota* qm[4] = {&QQ.QM2, &QQ.QM3, &QQ.QM4, &QQ.QM5};
        for (int g = 0; g < 2; ++g)
            for (int j = 0; j < 3; ++j) {
                y.ZP1[g][j] = y.B4[g][j] * ZQ6(t, g, j);
                for (int k = 0; k < 4; ++k) y.ZPM[k][g][j] = (y.B4[g][j] - y.ZP1[g][j]) * (*qm[k])(t);
            }
        y.ZH5 = sum23(y.ZPM[3]) * QQ.Q8(t);
        y.households[1] = sum23(y.ZP1);
        y.households[2] = y.ZH2;
        y.households[3] = y.ZPP1a[1][0] + y.ZPP1a[1][1] + y.ZPP1a[1][2] + 0.5 * sum23(y.ZPP1b);
        y.households[4] = y.ZH4;
        y.households[5] = y.ZH5;
    }

    sexClassTable("ZP1", z, &RegionYear::ZP1);
    for (int k = 0; k < 4; ++k) {
        std::string name = "ZPM" + std::to_string(k + 2);
        regionTable(name.c_str(), z, 6, [k](const RegionYear& y, int c) { return y.ZPM[k][c / 3][c % 3]; });
    }
    regionTable("ZH5", z, 1, [](const RegionYear& y, int) { return y.ZH5; });

    // the persons and households of each region, and their sizes
    hhprot::heading(2, "B2.5");
    openPersonPage(year);
    for (int r = 0; r < R; ++r)
        if (active(r)) estimateSizes(year, r, z[static_cast<size_t>(r)], phase.base);
    closePersonPage();
}

} // namespace

void forecastPhase()
{
    safeDivisionMode(true);
    hhprot::heading(1, "B2");
    FILE* page = hhprot::page();
    std::map<int, std::vector<double>> gem;
    if (readYearTable("gem", hh.directory, &gem, nullptr)) {
        fprintf(page, DD::lookup("hh_notfound_forecast").c_str(), (hh.directory + "gem.csv").c_str());
        fputs("<br>\n", page);
        return;
    }
    if (gem.empty()) {
        fprintf(page, ", %s.<br>\n", DD::lookup("noforecast").c_str());
        return;
    }
    std::map<int, std::vector<double>> special;
    const char* specialName = hh.specialGroups == 1 ? "hdsga" : "hdsgr";
    if (hh.specialGroups != 0 && readYearTable(specialName, hh.directory, &special, nullptr))
        hhprot::warning("Fehler beim Einlesen %s%s.csv, Datei nicht gefunden", hh.directory.c_str(), specialName);
    std::map<int, Assumptions> zq;
    if (readYearTable("zq", hh.directory, nullptr, &zq)) {
        hhprot::warning("Datei %s%s.csv nicht gefunden", hh.directory.c_str(), "zq");
        fputs("versuche ersatzweise zqa.csv zu lesen<br>\n", page);
        if (readYearTable("zqa", hh.directory + "Quoten/", nullptr, &zq)) {
            fprintf(page, "Datei %sQuoten/zqa.csv nicht gefunden, keine Prognose<br>\n", hh.directory.c_str());
            return;
        }
    }
    if (hh.protocolVolume >= 2) {
        FILE* f = hhprot::subPage("ZQ", "ZQ");
        if (f) {
            fputs("<ol>\n", f);
            for (const auto& [y, a] : zq) {
                fprintf(f, "<li value=\"%d\">", y);
                for (int k = 0; k < 6; ++k) {
                    fprintf(f, "<p>%s ZQ%d\n<table>\n<tr><td>Typ</td><td>GG</td>", DD::lookup(format("hh_ZQ%d", k + 1)).c_str(), k + 1);
                    for (int c = 0; c < zqClasses[k]->count(); ++c) fprintf(f, "<td>%d..%d</td>", zqClasses[k]->lower(c), zqClasses[k]->upper(c));
                    fputs("</tr>\n", f);
                    for (int t = 0; t < a.zq[k].dims[0]; ++t)
                        for (int g = 0; g < 2; ++g) {
                            fprintf(f, "<tr><td>%d</td><td>%d</td>", t + 1, g + 1);
                            for (int c = 0; c < a.zq[k].dims[2]; ++c) fprintf(f, "<td>%.15g</td>", a.zq[k](t, g, c));
                            fputs("</tr>\n", f);
                        }
                    fputs("</table>\n", f);
                }
            }
            fputs("</ol>\n", f);
        }
    }
    Phase phase;
    if (!hh.computeQuotas || hh.protocolVolume >= 3) readQuotaFile(hh.computeQuotas != 0);
    if (hh.residenceFactor) residenceFactor(phase);
    openResults(gem.begin()->first, gem.rbegin()->first);
    while (!gem.empty()) {
        auto it = gem.begin();
        int year = it->first;
        std::vector<double> data = std::move(it->second);
        gem.erase(it);
        ZR.present[static_cast<size_t>(year - ZR.firstYear)] = true;
        const std::vector<double>* specialYear = nullptr;
        if (hh.specialGroups != 0) {
            auto s = special.find(year);
            if (s == special.end()) hhprot::warning("in %s fehlt zu Jahr %d aus gem passendes Jahr", specialName, year);
            else specialYear = &s->second;
        }
        auto q = zq.find(year);
        if (q == zq.end()) {
            hhprot::warning("in zq fehlt zu Jahr %d aus gem passendes Jahr", year);
            ZR.present[static_cast<size_t>(year - ZR.firstYear)] = false;
            continue;
        }
        step(phase, std::move(data), year, q->second, specialYear);
    }
    finishResults();
}
