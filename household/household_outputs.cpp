#include "household/household_outputs.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <stdexcept>
#include <cerrno>
#include <type_traits>

#include "household/household_classes.h"
#include "household/household_files.h"
#include "household/household_protocol.h"
#include "household/household_settings.h"
#include "platform/dictionary.h"
#include "platform/settings.h"
#include "tables/gnuplot_bridge.h"
#include "tables/table_text.h"

FILE* quotaFile = nullptr;
CrossYear ZR;
ResultFiles results;

Axis typeAxis() { return {'t'}; }
Axis regionAxis() { return {'r'}; }
Axis sexAxis() { return {'g'}; }
Axis classAxis(const Altersklasse& set) { return {'c', &set}; }
Axis countAxis() { return {'n'}; }

namespace {
bool dense(const Axis& axis) { return axis.kind == 'c' && dynamic_cast<const DichtAltersklasse*>(axis.set) != nullptr; }
bool clipped(const Altersklasse* set) { return set == &AK1_5 || set == &AK15_99 || set == &AK0_99; }
} // namespace

int axisNumber(const Axis& axis, int i) { return dense(axis) ? axis.set->lower(i) : i + 1; }

bool axisIndex(const Axis& axis, int number, int& i)
{
    if (dense(axis)) return axis.set->find(number, i);
    i = number - 1;
    return i >= 0;
}

namespace {

std::string classHead(const Axis& axis, int i, int n)
{
    char text[64];
    if (axis.kind == 'g') snprintf(text, sizeof text, "<th class=r>%c</th>", i == 0 ? 'm' : 'w');
    else if (axis.kind != 'c') snprintf(text, sizeof text, "<th class=r>%d</th>", i + 1);
    else if (dense(axis) && clipped(axis.set) && i == n - 1) snprintf(text, sizeof text, "<th class=r>&ge;%d</th>", axis.set->lower(i));
    else if (dense(axis)) snprintf(text, sizeof text, "<th class=r>%d</th>", axis.set->lower(i));
    else snprintf(text, sizeof text, "<th class=r>%d..%d</th>", axis.set->lower(i), axis.set->upper(i));
    return text;
}

template <class T>
void cell(FILE* f, T value, const char* tag = "td")
{
    double v = static_cast<double>(value);
    if (v == 0) fprintf(f, "<%s></%s>", tag, tag);
    else if (v < 0) fprintf(f, "<%s class=warning>%.6g</%s>", tag, v, tag);
    else fprintf(f, "<%s class=r>%.6g</%s>", tag, v, tag);
}

bool rowSeen(const Axis& axis, int i)
{
    if (axis.kind == 't') return i < static_cast<int>(typeSeen.size()) && typeSeen[static_cast<size_t>(i)];
    if (axis.kind == 'r') return i < static_cast<int>(regionSeen.size()) && regionSeen[static_cast<size_t>(i)];
    return true;
}

template <class T>
void writeQuotaSection(const char* name, const Grid<T>& a, const std::vector<Axis>& axes)
{
    fprintf(quotaFile, "%s\n", name);
    int rank = a.rank();
    std::vector<int> idx(static_cast<size_t>(rank), 0);
    for (size_t k = 0; k < a.v.size(); ++k) {
        size_t rest = k;
        for (int j = rank - 1; j >= 0; --j) {
            idx[static_cast<size_t>(j)] = static_cast<int>(rest % static_cast<size_t>(a.dims[static_cast<size_t>(j)]));
            rest /= static_cast<size_t>(a.dims[static_cast<size_t>(j)]);
        }
        if (a.v[k] == 0) continue;
        for (int j = 0; j < rank; ++j) {
            int number = axisNumber(axes[static_cast<size_t>(j)], idx[static_cast<size_t>(j)]);
            if (j == 0) fprintf(quotaFile, "%u", static_cast<unsigned>(number));
            else fprintf(quotaFile, ";%d", number);
        }
        fputs(rank == 1 ? ";;;" : rank == 2 ? ";;" : ";", quotaFile);
        if constexpr (std::is_integral_v<T>) fprintf(quotaFile, "%d\n", static_cast<int>(a.v[k]));
        else fprintf(quotaFile, "%.15g\n", static_cast<double>(a.v[k]));
    }
}

template <class T>
void writeTable(const char* name, const Grid<T>& a, const std::vector<Axis>& axes, int limit)
{
    if (hh.protocolVolume < limit || !hhprot::isOpen()) return;
    double total = 0;
    for (const T& x : a.v) total += static_cast<double>(x);
    char link[128];
    snprintf(link, sizeof link, "%s, &Sigma; = %.15g", name, total);
    FILE* f = hhprot::subPage(name, link);
    if (!f) return;
    int rank = a.rank();
    int last = rank == 1 ? 1 : a.dims.back();
    size_t rows = a.v.size() / static_cast<size_t>(last);
    fprintf(f, "<table>\n<caption>%s</caption>\n<tr><th>%s</th>", DD::lookup(std::string("hh_") + name, name).c_str(),
            axes[0].kind == 'r' ? "Gebiet" : "Typ");
    for (int j = 1; j < rank - 1; ++j) fputs(axes[static_cast<size_t>(j)].kind == 'g' ? "<th>GG</th>" : "<th>Alter</th>", f);
    if (rank == 1) fputs("<th>Wert</th>", f);
    else
        for (int i = 0; i < last; ++i) fputs(classHead(axes.back(), i, last).c_str(), f);
    fputs(rank == 1 ? "</tr>\n" : "<th>&Sigma;</th></tr>\n", f);
    std::vector<double> columnSum(static_cast<size_t>(last), 0.0);
    std::vector<int> idx(static_cast<size_t>(rank), 0);
    for (size_t row = 0; row < rows; ++row) {
        size_t rest = row;
        for (int j = rank - 2; j >= 0; --j) {
            idx[static_cast<size_t>(j)] = static_cast<int>(rest % static_cast<size_t>(a.dims[static_cast<size_t>(j)]));
            rest /= static_cast<size_t>(a.dims[static_cast<size_t>(j)]);
        }
        if (rank == 1) idx[0] = static_cast<int>(row);
        if (!rowSeen(axes[0], idx[0])) continue;
        int first = axes[0].kind == 'r' ? static_cast<int>(g2t.pairs[static_cast<size_t>(idx[0])].first) : idx[0] + 1;
        fprintf(f, "<tr><th class=r>%d</th>", first);
        for (int j = 1; j < rank - 1; ++j) {
            const Axis& ax = axes[static_cast<size_t>(j)];
            int i = idx[static_cast<size_t>(j)];
            if (ax.kind == 'g') fprintf(f, "<th class=r>%c</th>", i == 0 ? 'm' : 'w');
            else fputs(classHead(ax, i, a.dims[static_cast<size_t>(j)]).c_str(), f);
        }
        double sum = 0;
        for (int i = 0; i < last; ++i) {
            T value = a.v[row * static_cast<size_t>(last) + static_cast<size_t>(i)];
            cell(f, value);
            sum += static_cast<double>(value);
            columnSum[static_cast<size_t>(i)] += static_cast<double>(value);
        }
        if (rank > 1) cell(f, sum, "th");
        fputs("</tr>\n", f);
    }
    fprintf(f, "<tr><th>&Sigma;</th>");
    for (int j = 1; j < rank - 1; ++j) fputs("<th></th>", f);
    for (int i = 0; i < last && rank > 1; ++i) cell(f, columnSum[static_cast<size_t>(i)], "th");
    cell(f, total, "th");
    fputs("</tr>\n</table>\n", f);
}

template <class T>
void writeAny(const char* name, const Grid<T>& a, const std::vector<Axis>& axes, int limit)
{
    if (quotaFile && (name[0] == 'Q' || !strcmp(name, "SPKV") || !strcmp(name, "SH2i"))) writeQuotaSection(name, a, axes);
    writeTable(name, a, axes, limit);
}

} // namespace

void writeArray(const char* name, const Grid<uint32_t>& array, const std::vector<Axis>& axes, int limit)
{
    writeAny(name, array, axes, limit);
}

void writeArray(const char* name, const Grid<double>& array, const std::vector<Axis>& axes, int limit)
{
    writeAny(name, array, axes, limit);
}

namespace {
FILE* openResult(const char* name, const char* const* columns, const char* comment)
{
    FILE* f = openOutput("Prognose/", std::string(name) + ".csv");
    csvWriteHead(f, name, columns, comment);
    return f;
}

const char* personColumns[] = {"Jahr", "Gebiet", "Gebietstyp", "PDO", "Geschlecht", "Altersgruppe", "HDO;Anzahl", nullptr};
const char* householdColumns[] = {"Jahr", "Gebiet", "Gebietstyp", "HDO", "Haushaltsgröße", "Anzahl", nullptr};
} // namespace

void openResults(int firstYear, int lastYear)
{
    ZR = CrossYear();
    ZR.firstYear = firstYear;
    ZR.years = lastYear - firstYear + 1;
    ZR.present.assign(static_cast<size_t>(ZR.years), false);
    int R = g2t.regions();
    ZR.ZRHG.size({R, ZR.years, AK1_5.count()});
    ZR.ZRHT.size({R, ZR.years, AK1_5.count()});
    ZR.ZRHTa.size({R, ZR.years, AK1_2.count()});
    ZR.ZRHK.size({R, ZR.years, AK1_7.count()});
    results.typeWidth = static_cast<int>(std::to_string(std::max(g2t.maxType, 1)).size());
    results.person = openResult("person", personColumns,
                                "Anzahl der Personen (ANZP) nach dominanter Familienbez. (PDO), Geschlecht (G), Altersgrppe "
                                "(AGR) und Haushalten nach dominanter Familienbez. (HDO)");
    results.household = openResult("haushalt", householdColumns,
                                   "Anzahl der Haushalte (ANZH) nach dominanter Familienbeziehung (HDO) und Haushaltsgröße (HGr)");
    results.plot = nullptr;
    if (hh.timeSeriesPlot > 0 && hh.protocolVolume >= 1) {
        results.plot = plotOpen(hhprot::page(), hh.protocolVolume, si::appDir, "hhprog");
        if (results.plot) {
            fprintf(results.plot, "%s\n", plotTerminal());
            fprintf(results.plot,
                    "print '%s %s'\nset key outside title 'Personen'\nset xlabel 'Jahr'\nset tics out\n%sset xtics 1\n"
                    "set datafile separator ';'\nset decimalsign locale ''\nset grid\nset style data filledcurves\n"
                    "set style fill transparent solid 0.75\n",
                    DD::lookup("forecastHHP").c_str(), DD::lookup("zr").c_str(), "");
        }
    }
}

std::string typeText(int region)
{
    char text[32];
    snprintf(text, sizeof text, "%0*d", results.typeWidth, g2t.pairs[static_cast<size_t>(region)].second);
    return text;
}

void personRow(int year, int region, int pdo, int sex, int ageClass, int hdo, double value)
{
    char line[256];
    int n = snprintf(line, sizeof line, "%d;%lld;%s;%d;%d;%d;%d;%.15g\n", year, g2t.pairs[static_cast<size_t>(region)].first,
                     typeText(region).c_str(), pdo, sex, ageClass, hdo, value);
    csvWrite(results.person, line, static_cast<size_t>(n));
}

void householdRow(int year, int region, int hdo, int size, double value)
{
    char line[256];
    int n = snprintf(line, sizeof line, "%d;%lld;%s;%d;%d;%.15g\n", year, g2t.pairs[static_cast<size_t>(region)].first,
                     typeText(region).c_str(), hdo, size, value);
    csvWrite(results.household, line, static_cast<size_t>(n));
}

namespace {

// a number for gnuplot, with a decimal point whatever the locale
std::string plotNumber(double v)
{
    char text[64];
    auto [end, error] = std::to_chars(text, text + sizeof text, v, std::chars_format::general, 15);
    return error == std::errc() ? std::string(text, end) : "0";
}

std::string classLabel(const Altersklasse& set, int i)
{
    char text[32];
    if (set.lower(i) == set.upper(i)) snprintf(text, sizeof text, "%d", set.lower(i));
    else snprintf(text, sizeof text, "%d..%d", set.lower(i), set.upper(i));
    return text;
}

// the plots of one cross-year array, grouped by the plot setting
void timeSeriesPlot(const Grid<double>& a, const char* name, const Altersklasse& set, bool sum)
{
    int R = a.dims[0], Y = a.dims[1], C = a.dims[2];
    int presentYears = 0;
    for (bool p : ZR.present) presentYears += p;
    if (!results.plot || presentYears < 2) return;
    int grouping = hh.timeSeriesPlot;
    int groups = grouping == 1 ? 1 : grouping == 2 ? std::max(g2t.maxType, 1) : R;
    std::vector<double> data(static_cast<size_t>(groups) * Y * C, 0.0);
    std::vector<bool> used(static_cast<size_t>(groups), false);
    for (int r = 0; r < R; ++r) {
        if (!regionSeen[static_cast<size_t>(r)]) continue;
        int group = grouping == 1 ? 0 : grouping == 2 ? g2t.pairs[static_cast<size_t>(r)].second - 1 : r;
        if (group < 0 || group >= groups) throw std::logic_error("Programmierfehler mxio");
        used[static_cast<size_t>(group)] = true;
        for (int y = 0; y < Y; ++y)
            for (int c = 0; c < C; ++c) data[(static_cast<size_t>(group) * Y + y) * C + c] += a(r, y, c);
    }
    if (!used[0]) return;
    for (int group = 0; group < groups; ++group) {
        if (!used[static_cast<size_t>(group)]) continue;
        std::string picture = hhprot::nextPlot();
        char title[128];
        if (grouping == 1) snprintf(title, sizeof title, "%s", name);
        else if (grouping == 2) snprintf(title, sizeof title, "%s Typ %d", name, group + 1);
        else snprintf(title, sizeof title, "%s Gebiet %lld", name, g2t.pairs[static_cast<size_t>(group)].first);
        fprintf(results.plot, "set output '%s'\nset title '%s'\nset ylabel '%s'\nset yrange [%s]\nplot \\\n", picture.c_str(), title,
                "Anzahl", "0:*");
        for (int c = 0; c < C; ++c)
            fprintf(results.plot, "%s'-' title \" %s\"\\\n", c ? "," : "", classLabel(set, c).c_str());
        fputc('\n', results.plot);
        for (int c = 0; c < C; ++c) {
            for (int y = 0; y < Y; ++y) {
                if (!ZR.present[static_cast<size_t>(y)]) continue;
                double lower = 0;
                for (int k = 0; k < c; ++k) lower += data[(static_cast<size_t>(group) * Y + y) * C + k];
                double upper = lower + data[(static_cast<size_t>(group) * Y + y) * C + c];
                fprintf(results.plot, "%zu", static_cast<size_t>(ZR.firstYear + y));
                fprintf(results.plot, ";%s;%s\n", plotNumber(lower).c_str(), plotNumber(upper).c_str());
            }
            fputs("e\n", results.plot);
        }
    }
    (void)sum;
}

void timeSeriesTable(int limit, const Grid<double>& a, const char* name, const Altersklasse& set, bool sum)
{
    if (hh.protocolVolume < limit) return;
    timeSeriesPlot(a, name, set, sum);
    FILE* f = hhprot::subPage(name, name);
    if (!f) return;
    int R = a.dims[0], Y = a.dims[1], C = a.dims[2];
    fprintf(f, "<table>\n<tr><th colspan=\"2\">%s</th></tr>\n", DD::lookup(std::string("hh_") + name, name).c_str());
    fputs("<tr><th>Gebiet</th><th>Gebietstyp</th><th>Jahr</th>", f);
    for (int c = 0; c < C; ++c) fprintf(f, "<th>%s</th>", classLabel(set, c).c_str());
    if (sum) fputs("<th>&Sigma;</th>", f);
    fputs("</tr>\n", f);
    for (int r = 0; r < R; ++r) {
        if (!regionSeen[static_cast<size_t>(r)]) continue;
        for (int y = 0; y < Y; ++y) {
            if (!ZR.present[static_cast<size_t>(y)]) continue;
            fprintf(f, "<tr><td>%lld</td><td>%d</td><td>%d</td>", g2t.pairs[static_cast<size_t>(r)].first,
                    g2t.pairs[static_cast<size_t>(r)].second, ZR.firstYear + y);
            double s = 0;
            for (int c = 0; c < C; ++c) {
                double v = a(r, y, c);
                s += v;
                fprintf(f, "<td class=%s>%.2f</td>", v < 0 ? "warning" : "r", v);
            }
            if (sum) fprintf(f, "<th class=%s>%.2f</th>", s < 0 ? "warning" : "r", s);
            fputs("</tr>\n", f);
        }
    }
    fputs("</table>\n", f);
}

void writeCrossYearTables()
{
    const char* hdo2Columns[] = {"Jahr", "Gebiet", "Gebietstyp", "HDO2", "Anzahl", nullptr};
    FILE* f = openResult("hdo2", hdo2Columns, "Haushalte mit Kindern, HDO2=21: allein Erziehend, HDO2=22 : nicht allein Erziehend");
    const char* kinderColumns[] = {"Jahr", "Gebiet", "Gebietstyp", "Anzahl Kinder", "Anzahl Haushalte", nullptr};
    FILE* k = openResult("kinder", kinderColumns, "Haushalte mit Kindern (HDO=2) nach der Zahl der Kinder (1,2,3,4 u.m.)");
    char line[256];
    for (int y = 0; y < ZR.years; ++y) {
        if (!ZR.present[static_cast<size_t>(y)]) continue;
        for (int r = 0; r < g2t.regions(); ++r) {
            if (!regionSeen[static_cast<size_t>(r)]) continue;
            long long key = g2t.pairs[static_cast<size_t>(r)].first;
            std::string type = typeText(r);
            double single = ZR.ZRHTa(r, y, 0);
            int n = snprintf(line, sizeof line, "%d;%lld;%s;%d;%.15g\n", ZR.firstYear + y, key, type.c_str(), 21, single);
            csvWrite(f, line, static_cast<size_t>(n));
            n = snprintf(line, sizeof line, "%d;%lld;%s;%d;%.15g\n", ZR.firstYear + y, key, type.c_str(), 22, ZR.ZRHT(r, y, 1) - single);
            csvWrite(f, line, static_cast<size_t>(n));
            for (int c = 1; c <= 4; ++c) {
                double v = 0;
                if (c < 4) v = ZR.ZRHK(r, y, c - 1);
                else
                    for (int kk = 3; kk < AK1_7.count(); ++kk) v += ZR.ZRHK(r, y, kk);
                n = snprintf(line, sizeof line, "%d;%lld;%s;%d;%.15g\n", ZR.firstYear + y, key, type.c_str(), c, v);
                csvWrite(k, line, static_cast<size_t>(n));
            }
        }
    }
    closeOutput(f);
    closeOutput(k);
}

} // namespace

void aggregateTables(const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        std::string dir = hh.directory + "Prognose";
        FILE* in = fopen((dir + "/" + name + ".csv").c_str(), "rb");
        if (!in) {
            hhprot::warning("Eingabedatei %s%s/%s nicht gefunden - keine Aggreagtion", hh.directory.c_str(), "Prognose",
                            (name + ".csv").c_str());
            continue;
        }
        FILE* out;
        try {
            out = openOutput("Prognose/", name + "_agg.csv");
        } catch (...) {
            fclose(in);
            throw;
        }
        char sep[2] = {si::separator ? si::separator : ';', 0};
        CsvReader reader(in, sep);
        std::map<std::string, double> sums;
        std::vector<std::string> cells;
        std::vector<std::string> comment;
        char buffer[1024];
        int status;
        bool head = true;
        while ((status = reader.next(buffer, sizeof buffer)) > 0) {
            if (head && reader.hadBom && si::csvBom) csvWrite(out, "\xEF\xBB\xBF", 3);
            head = false;
            if (reader.isComment) {
                comment.push_back(buffer);
                if (status != '\n') continue;
                // the line of the column names loses the region as the rows do
                if (comment.size() >= 3) comment.erase(comment.begin() + 1);
                std::string line;
                for (const std::string& c : comment) line += (line.empty() ? "" : sep) + c;
                line += '\n';
                csvWrite(out, line.c_str(), line.size());
                comment.clear();
                continue;
            }
            cells.push_back(buffer);
            if (status != '\n') continue;
            std::string key;
            for (size_t i = 0; i + 1 < cells.size(); ++i)
                if (i != 1) key += cells[i] + sep;
            sums[key] += std::atof(cells.back().c_str());
            cells.clear();
        }
        if (status != -1) hhprot::warning("%s: %s\n", name.c_str(), CsvReader::errorText(status).c_str());
        for (const auto& [key, value] : sums) {
            char line[512];
            int n = snprintf(line, sizeof line, "%s%.15g\n", key.c_str(), value);
            csvWrite(out, line, static_cast<size_t>(n));
        }
        fclose(in);
        closeOutput(out);
    }
}

void finishResults()
{
    FILE* person = results.person;
    FILE* household = results.household;
    results.person = results.household = nullptr;
    closeOutput(person);
    closeOutput(household);
    hhprot::heading(1, "B3");
    FILE* page = hhprot::page();
    fprintf(page, "%s:<br>\n", DD::lookup("vEck").c_str());
    timeSeriesTable(1, ZR.ZRHG, "ZRHG", AK1_5, true);
    timeSeriesTable(1, ZR.ZRHT, "ZRHT", AK1_5, true);
    timeSeriesTable(1, ZR.ZRHTa, "ZRHTa", AK1_2, false);
    timeSeriesTable(1, ZR.ZRHK, "ZRHK", AK1_7, true);
    if (results.plot) {
        plotClose(page, hh.protocolVolume, results.plot, si::appDir, "hhprog");
        hhprot::checkPlots();
    }
    results.plot = nullptr;
    writeCrossYearTables();
    aggregateTables({"person", "haushalt", "hdo2", "kinder"});
    fprintf(page,
            "<p>\n<table>\n<caption>%s</caption>\n<tr><th></th><th colspan=2>%s</th></tr>\n<tr><th class=l></th><th>%s</th><th>%s</th></tr>\n",
            DD::lookup("tkindi_zr").c_str(), DD::lookup("differentiation").c_str(), DD::lookup("hh_region").c_str(),
            DD::lookup("type").c_str());
    const char* files[4][2] = {{"hh_persons", "person"}, {"household", "haushalt"}, {"hh_ZRHTa", "hdo2"}, {"hh_ZRHK", "kinder"}};
    for (auto& file : files)
        fprintf(page,
                "<tr><th class=l>%s</th><td><a href=\"../Prognose/%s.csv\" target=_blank>%s.csv</a></td><td><a "
                "href=\"../Prognose/%s_agg.csv\" target=_blank>%s_agg.csv</a></td></tr>\n",
                DD::lookup(file[0]).c_str(), file[1], file[1], file[1], file[1]);
    fputs("</table>\n", page);
}

void closeResultFiles()
{
    for (FILE** f : {&results.person, &results.household, &quotaFile}) {
        dropOutput(*f);
        *f = nullptr;
    }
    if (results.plot) plotClose(nullptr, 0, results.plot, si::appDir, "hhprog");
    results.plot = nullptr;
}
