#include "household/household_size_estimation.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

#include "household/household_classes.h"
#include "household/household_outputs.h"
#include "household/household_protocol.h"
#include "household/household_files.h"
#include "household/household_settings.h"
#include "numerics/chi_square_adjustment.h"
#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/text_format.h"

namespace {
const int ROWS[6] = {0, 0, 26, 19, 13, 1};
const int OFFSET[6] = {0, 0, 0, 26, 45, 58};
FILE* personPage = nullptr;
} // namespace

void readBaseTables(BaseTables& base)
{
    std::string path = hh.directory + "Quoten/hdo.csv";
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) throw std::runtime_error("open " + path + " " + os::errorText(errno));
    fprintf(hhprot::page(), "%s <a href=\"../Quoten/hdo.csv\">hdo.csv</a><br>\n", DD::lookup("hh_read").c_str());
    size_t T = typeSeen.size();
    base.rows.assign(T, std::vector<double>());
    std::fill(typeSeen.begin(), typeSeen.end(), false);
    char line[512];
    int lastType = -1, row = 0;
    while (fgets(line, sizeof line, f)) {
        if (line[0] == '#' || (line[0] == '"' && line[1] == '#')) continue;
        int v[6];
        char c[5];
        if (sscanf(line, "%d%c%d%c%d%c%d%c%d%c%d", &v[0], &c[0], &v[1], &c[1], &v[2], &c[2], &v[3], &c[3], &v[4], &c[4], &v[5]) != 11)
            continue;
        int t = v[0] - 1;
        if (t < 0 || static_cast<size_t>(t) >= T) continue;
        if (t != lastType) row = 0, lastType = t;
        std::vector<double>& cells = base.rows[static_cast<size_t>(t)];
        if (cells.empty()) cells.assign(59 * 4, 0.0);
        if (row < 59)
            for (int k = 0; k < 4; ++k) cells[static_cast<size_t>(row) * 4 + k] = v[2 + k];
        ++row;
        typeSeen[static_cast<size_t>(t)] = true;
    }
    fclose(f);
    for (int r = 0; r < g2t.regions(); ++r) {
        int t = g2t.pairs[static_cast<size_t>(r)].second - 1;
        regionSeen[static_cast<size_t>(r)] = t >= 0 && static_cast<size_t>(t) < T && typeSeen[static_cast<size_t>(t)];
    }
}

void openPersonPage(int year)
{
    personPage = hh.protocolVolume >= 1 ? hhprot::subPage("PHG", "PHG") : nullptr;
    if (personPage) fprintf(personPage, "<h2>%s %d</h2>\n<ol>\n", DD::lookup("hh_PHG").c_str(), year);
}

void closePersonPage()
{
    if (personPage) fputs("</ol>\n", personPage);
    personPage = nullptr;
}

namespace {

// one entry of the person table: PDO, sex (0, 1), age class, values by HDO 1..5
struct Entry {
    int pdo, g, j;
    double byHdo[6];
};

std::vector<Entry> personEntries(const RegionYear& z)
{
    std::vector<Entry> e;
    for (int g = 0; g < 2; ++g) {
        double children = 0;
        for (int a = 0; a < 18; ++a) children += z.ZPK[g][a];
        e.push_back({1, g, 0, {0, 0, children, 0, 0, 0}});
    }
    auto add = [&](int pdo, auto values) {
        for (int g = 0; g < 2; ++g)
            for (int j = 0; j < 3; ++j) {
                Entry x{pdo, g, j, {0, 0, 0, 0, 0, 0}};
                values(x.byHdo, g, j);
                e.push_back(x);
            }
    };
    add(2, [&](double* v, int g, int j) { v[2] = z.ZPE[g][j]; });
    add(3, [&](double* v, int g, int j) { v[2] = z.ZPP2[g][j], v[3] = z.ZPP3[g][j]; });
    add(4, [&](double* v, int g, int j) { v[2] = z.ZPN2[g][j], v[3] = z.ZPN3[g][j], v[4] = z.ZPN4[g][j]; });
    add(5, [&](double* v, int g, int j) { v[2] = z.ZPV2[g][j], v[3] = z.ZPV3[g][j], v[4] = z.ZPV4[g][j]; });
    add(6, [&](double* v, int g, int j) { v[1] = z.ZP1[g][j]; });
    add(7, [&](double* v, int g, int j) {
        for (int k = 0; k < 4; ++k) v[2 + k] = z.ZPM[k][g][j];
    });
    return e;
}

const char* rowKey(int pdo)
{
    static const char* keys[8] = {"", "hh_t7_1", "hh_t8_1", "hh_t10_1", "hh_t11_1", "hh_t12_1", "hh_t14_1", "hh_t15_1"};
    return keys[pdo];
}

void personTable(FILE* f, int year, int region, const RegionYear& z, const std::vector<Entry>& entries)
{
    fprintf(f, "<li value=\"%lld\"> ", g2t.pairs[static_cast<size_t>(region)].first);
    fprintf(f, "<p class=cap>%s<br>Gebiet %lld Jahr %d</p>\n", DD::lookup("hh_hB2_5a").c_str(), g2t.pairs[static_cast<size_t>(region)].first,
            year);
    auto k = [](const char* key) { return DD::lookup(key); };
    fprintf(f, "<table>\n<tr><th>%s %s %s</th><th>1</th><th>%s %s</th><th>%s%s</th><th>%s%s</th><th>%s %s</th><th>&Sigma;</th></tr>\n",
            k("hh_t1_1").c_str(), k("hh_t1_2").c_str(), k("hh_t1_3").c_str(), k("hh_t3_1").c_str(), k("hh_t3_2").c_str(),
            k("hh_t4_1").c_str(), k("hh_t4_2").c_str(), k("hh_t5_1").c_str(), k("hh_t5_2").c_str(), k("hh_t6_1").c_str(),
            k("hh_t6_2").c_str());
    double columns[6] = {};
    for (const Entry& e : entries) {
        if (e.pdo == 1) fprintf(f, "<tr><th class=l>%s %c %s</th>", k(rowKey(1)).c_str(), e.g == 0 ? 'm' : 'w', k("hh_t7_2").c_str());
        else fprintf(f, "<tr><th class=l>%s %c %d..%d</th>", k(rowKey(e.pdo)).c_str(), e.g == 0 ? 'm' : 'w', AKL3.lower(e.j), AKL3.upper(e.j));
        double s = 0;
        for (int h = 1; h <= 5; ++h) {
            fprintf(f, "<td class=r>%.2f</td>", e.byHdo[h]);
            s += e.byHdo[h];
            columns[h] += e.byHdo[h];
        }
        fprintf(f, "<th class=r>%.2f</th></tr>\n", s);
    }
    fprintf(f, "<tr><th class=l>%s</th>", k("hh_t17_1").c_str());
    double all = 0;
    for (int h = 1; h <= 5; ++h) fprintf(f, "<th class=r>%.2f</th>", columns[h]), all += columns[h];
    fprintf(f, "<th class=r>%.2f</th></tr>\n<tr><th class=l>%s</th>", all, k("hh_t18_1").c_str());
    double households = 0;
    for (int h = 1; h <= 5; ++h) fprintf(f, "<th class=r>%.2f</th>", z.households[h]), households += z.households[h];
    fprintf(f, "<th class=r>%.2f</th></tr>\n</table>\n", households);
}

// the row targets of a household type, in the order of the rows of hdo.csv
std::vector<double> rowTargets(int hdo, const RegionYear& z)
{
    std::vector<double> targets;
    auto six = [&](const double a[2][3]) {
        for (int g = 1; g >= 0; --g)
            for (int j = 0; j < 3; ++j) targets.push_back(a[g][j]);
    };
    double children = 0;
    for (int g = 0; g < 2; ++g)
        for (int a = 0; a < 18; ++a) children += z.ZPK[g][a];
    if (hdo == 2) {
        targets.push_back(children);
        six(z.ZPE), six(z.ZPP2), six(z.ZPN2), six(z.ZPV2);
    } else if (hdo == 3) {
        six(z.ZPP3), six(z.ZPN3), six(z.ZPV3);
    } else if (hdo == 4) {
        six(z.ZPN4), six(z.ZPV4);
    }
    double others = 0;
    for (int g = 0; g < 2; ++g)
        for (int j = 0; j < 3; ++j) others += z.ZPM[hdo - 2][g][j];
    targets.push_back(others);
    return targets;
}

std::string numberText(double v)
{
    char text[64];
    snprintf(text, sizeof text, "%.15g", v);
    return text;
}

// the input of the adjustment as a file for a check in an outside table tool
std::string writeAdjustmentInput(int hdo, int region, int year, const AdjustmentProblem& p, const AdjustmentTable& table)
{
    char name[64];
    snprintf(name, sizeof name, "hdo%d_%d_%06d.txt", hdo, region + 1, year);
    os::createDirectory(hh.directory + "Quoten/");
    FILE* f = openOutput("Quoten/p/", name);
    fprintf(f,
            "# Eingabedatei für ADETON:\n# ADETON starten, Tabelle %s laden, Verfahren Chi-Quadrat, Gewicht 100%%,\n# Kompilieren, "
            "Berechnen,\n# Resultat Ansicht, überprüfen.\nKLASSEN\n   row, col;\nAUSPRAEGUNGEN\n   row = %2d :\n   col = %2d ;\nBASIS\n(_,_)\n",
            name, p.rows, p.columns);
    for (int i = 0; i < p.rows; ++i) {
        for (int j = 0; j < p.columns; ++j) fprintf(f, " %.0f", table.b[static_cast<size_t>(i * p.columns + j)]);
        fputc('\n', f);
    }
    fputs(";\nRESTRIKTIONEN\n# Zeilensummen\n", f);
    for (int i = 0; i < p.rows; ++i) fprintf(f, "(%2d,&) = %s :\n", i, numberText(table.z[static_cast<size_t>(i)]).c_str());
    fputs("# Summe der Mehrpersonenhaushalte\n", f);
    for (int j = 0; j < p.columns; ++j)
        fprintf(f, "%s * (&,%d) %c ", numberText(table.w[static_cast<size_t>(j)]).c_str(), j + 1, j + 1 < p.columns ? '+' : '=');
    fprintf(f, "%.15g\n", table.H);
    closeOutput(f);
    return name;
}

void inputTable(FILE* f, int hdo, const AdjustmentProblem& p, const AdjustmentTable& t)
{
    fprintf(f, "<table>\n<tr><th>HDO%d</th><th>2</th><th>3</th><th>4</th><th>5</th><th>&Sigma;</th><th>Ziel</th></tr>\n", hdo);
    std::vector<double> col(4, 0.0);
    for (int i = 0; i < p.rows; ++i) {
        fprintf(f, "<tr><th>%d</th>", i + 1);
        double s = 0;
        for (int j = 0; j < 4; ++j) {
            double v = t.b[static_cast<size_t>(i * 4 + j)];
            fprintf(f, "<td class=r>%.0f</td>", v);
            s += v, col[static_cast<size_t>(j)] += v;
        }
        fprintf(f, "<th class=r>%.0f</th><th class=r>%.2f</th></tr>\n", s, t.z[static_cast<size_t>(i)]);
    }
    fputs("<tr><th>&Sigma;</th>", f);
    for (double v : col) fprintf(f, "<th class=r>%.0f</th>", v);
    fputs("</tr>\n<tr><th>Ziel</th>", f);
    for (int j = 0; j < 4; ++j) fprintf(f, "<td class=r>%.1f</td>", 1 / t.w[static_cast<size_t>(j)]);
    fprintf(f, "<td></td><th class=r>%.2f</th></tr>\n<tr><th>&Sigma;/Ziel</th>", t.H);
    for (int j = 0; j < 4; ++j) fprintf(f, "<td class=r>%.2f</td>", col[static_cast<size_t>(j)] * t.w[static_cast<size_t>(j)]);
    fputs("</tr>\n</table>\n", f);
}

void resultTables(FILE* f, int hdo, const AdjustmentProblem& p, const AdjustmentTable& base, const AdjustmentTable& x)
{
    fprintf(f, "<table>\n<tr><th>HDO%d</th><th>2</th><th>3</th><th>4</th><th>5</th><th>&Sigma;</th><th>Ziel</th><th>Abweichung %%</th></tr>\n",
            hdo);
    std::vector<double> col(4, 0.0);
    for (int i = 0; i < p.rows; ++i) {
        fprintf(f, "<tr><th>%d</th>", i + 1);
        double s = 0;
        for (int j = 0; j < 4; ++j) {
            double v = x.b[static_cast<size_t>(i * 4 + j)];
            fprintf(f, "<td class=%s>%.2f</td>", v < 0 ? "warning" : "r", v);
            s += v, col[static_cast<size_t>(j)] += v;
        }
        double target = x.z[static_cast<size_t>(i)];
        if (target == 0) fprintf(f, "<th class=r>%.2f</th><th class=r>%.2f</th><td>undefined</td></tr>\n", s, target);
        else fprintf(f, "<th class=r>%.2f</th><th class=r>%.2f</th><td class=r>%.2f</td></tr>\n", s, target, (s / target - 1) * 100);
    }
    fputs("<tr><th>&Sigma; Personen</th>", f);
    double households = 0;
    for (int j = 0; j < 4; ++j) fprintf(f, "<th class=r>%.2f</th>", col[static_cast<size_t>(j)]);
    fputs("</tr>\n<tr><th>Ziel</th>", f);
    for (int j = 0; j < 4; ++j) fprintf(f, "<td class=r>%.1f</td>", 1 / x.w[static_cast<size_t>(j)]);
    fputs("</tr>\n<tr><th>&Sigma; Haushalte</th>", f);
    for (int j = 0; j < 4; ++j) {
        double h = col[static_cast<size_t>(j)] * x.w[static_cast<size_t>(j)];
        households += h;
        fprintf(f, "<td class=r>%.2f</td>", h);
    }
    fprintf(f, "<th class=r>%.2f</th><th class=r>%.2f</th></tr>\n</table>\n", households, x.H);
    // the change of each cell against the base
    fprintf(f, "<p class=cap id=r%d>HDOar</p>\n", hdo);
    fprintf(f, "<table>\n<tr><th>HDO%d %%</th><th>2</th><th>3</th><th>4</th><th>5</th></tr>\n", hdo);
    for (int i = 0; i < p.rows; ++i) {
        fprintf(f, "<tr><th>%d</th>", i + 1);
        for (int j = 0; j < 4; ++j) {
            double b = base.b[static_cast<size_t>(i * 4 + j)], v = x.b[static_cast<size_t>(i * 4 + j)];
            if (b == 0) fputs("<td>undefined</td>", f);
            else fprintf(f, "<td class=r>%.2f</td>", (v / b - 1) * 100);
        }
        fputs("</tr>\n", f);
    }
    fputs("</table>\n", f);
}

} // namespace

void estimateSizes(int year, int region, const RegionYear& z, const BaseTables& base)
{
    std::vector<Entry> entries = personEntries(z);
    if (personPage) personTable(personPage, year, region, z, entries);
    for (const Entry& e : entries)
        for (int h = 1; h <= 5; ++h) personRow(year, region, e.pdo, e.g + 1, e.j + 1, h, e.byHdo[h]);
    int y = year - ZR.firstYear;
    for (int h = 1; h <= 5; ++h) ZR.ZRHT(region, y, h - 1) = z.households[h];
    ZR.ZRHTa(region, y, 0) = z.ZHEA;
    ZR.ZRHG(region, y, 0) += z.households[1];
    householdRow(year, region, 1, 1, z.households[1]);
    for (int s = 2; s <= 5; ++s) householdRow(year, region, 1, s, 0);
    FILE* f = hh.protocolVolume > 1 ? personPage : nullptr;
    // the result table: one row per HDO with the links to its inputs, its result and the change
    // of each cell, which stand on a page of the region and year
    FILE* detail = nullptr;
    char detailName[48];
    snprintf(detailName, sizeof detailName, "hdo%d_%d.htm", year, region + 1);
    if (f) {
        fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th>HDO</th>%s<th>Eingaben</th><th>Ergebnis</th><th>Abweichung</th></tr>\n",
                DD::lookup("hh_hB2_6").c_str(), hh.protocolVolume > 2 ? "<th>Einagbedatei</th>" : "");
        detail = hhprot::openPage(hh.directory + "Prognose/p/" + detailName);
        if (detail)
            fprintf(detail, "<!DOCTYPE html>\n<html lang=\"de\">\n<head>\n<meta charset=\"utf-8\">\n"
                            "<link rel=\"stylesheet\" href=\"style.css\">\n<title>HDO %d %d</title>\n</head>\n<body>\n",
                    year, static_cast<int>(g2t.pairs[static_cast<size_t>(region)].first));
    }
    auto link = [&](const char* anchor, int hdo, const char* text) {
        if (!detail) return std::string("<td></td>");
        return format("<td><a href=\"%s#%s%d\" target=_blank>%s</a></td>", detailName, anchor, hdo, text);
    };
    struct Finish {
        FILE* page;
        FILE* detail;
        ~Finish()
        {
            if (page) fputs("</table>\n", page);
            hhprot::closePage(detail);
        }
    } finish{f, detail};
    int t = g2t.pairs[static_cast<size_t>(region)].second - 1;
    if (t < 0 || static_cast<size_t>(t) >= base.rows.size() || base.rows[static_cast<size_t>(t)].empty()) return;
    const std::vector<double>& cells = base.rows[static_cast<size_t>(t)];
    long long key = g2t.pairs[static_cast<size_t>(region)].first;
    for (int hdo = 2; hdo <= 5; ++hdo) {
        AdjustmentProblem p(ROWS[hdo], 4);
        AdjustmentTable table, adjusted;
        if (createTable(p, table) != 0) {
            hhprot::warning("Not enough memory for table data");
            return;
        }
        for (int i = 0; i < p.rows; ++i)
            for (int j = 0; j < 4; ++j)
                table.b[static_cast<size_t>(i * 4 + j)] = cells[static_cast<size_t>((OFFSET[hdo] + i) * 4 + j)];
        std::vector<double> targets = rowTargets(hdo, z);
        for (int i = 0; i < p.rows; ++i) table.z[static_cast<size_t>(i)] = targets[static_cast<size_t>(i)];
        table.w[0] = 1.0 / 2, table.w[1] = 1.0 / 3, table.w[2] = 1.0 / 4, table.w[3] = 1.0 / QQ.Q50(t);
        table.H = z.households[hdo];
        std::string row = format("<tr><th>%d</th>", hdo);
        if (hh.protocolVolume > 2) {
            std::string name = writeAdjustmentInput(hdo, region, year, p, table);
            row += format("<td><a href=\"../../Quoten/p/%s\" target=_blank>%s</a></td>", name.c_str(), name.c_str());
        }
        if (detail) {
            fprintf(detail, "<p class=cap id=e%d>HDOe</p>\n", hdo);
            inputTable(detail, hdo, p, table);
        }
        row += link("e", hdo, "HDOe");
        if (copyTable(p, table, adjusted) != 0) {
            hhprot::warning("Not enough memory for table data copy");
            freeTable(table);
            return;
        }
        AdjustmentResult result = adjustTable(p, adjusted);
        if (result.outcome == Adjustment::NoMemoryForWork) {
            hhprot::warning("Not enough memory for SVD data");
            freeTable(table), freeTable(adjusted);
            return;
        }
        if (f && result.outcome != Adjustment::Done) fprintf(f, "%s<td></td><td></td></tr>\n", row.c_str());
        if (result.outcome == Adjustment::DecompositionFailed) {
            hhprot::warning("Error in Golub Reinsch Algorithm");
            freeTable(table), freeTable(adjusted);
            continue;
        }
        if (result.outcome == Adjustment::NullMatrix) {
            hhprot::warning("SVD Null Matrix - Abbruch Sch&auml;tzverfahren f&uuml;r Gebiet %d: %d, HDO%d!", region + 1,
                            static_cast<int>(key), hdo);
            freeTable(table), freeTable(adjusted);
            continue;
        }
        if (detail) {
            fprintf(detail, "<p class=cap id=a%d>HDOa</p>\n", hdo);
            resultTables(detail, hdo, p, table, adjusted);
        }
        if (f) fprintf(f, "%s%s%s</tr>\n", row.c_str(), link("a", hdo, "HDOa").c_str(), link("r", hdo, "HDOar").c_str());
        for (int j = 0; j < 4; ++j) {
            double column = 0;
            for (int i = 0; i < p.rows; ++i) column += adjusted.b[static_cast<size_t>(i * 4 + j)];
            double households = column * adjusted.w[static_cast<size_t>(j)];
            householdRow(year, region, hdo, j + 2, households);
            ZR.ZRHG(region, y, j + 1) += households;
        }
        freeTable(table), freeTable(adjusted);
    }
}
