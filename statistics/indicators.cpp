#include "statistics/indicators.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>

#include "platform/dictionary.h"
#include "platform/exit_status.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "statistics/region_map.h"
#include "statistics/statistics_preparation.h"
#include "tables/table_text.h"

namespace {
const double NaN = std::numeric_limits<double>::quiet_NaN();

// the event kinds of the table, by their column text
const char* const kinds[] = {"hh_GEM", "BG40DSG", "DG4GAM_", "birth", "strb", "DG1IN", "DG4WB", "DG4ZB", "DG4WBGv", "DG4WBGn"};
const int kKinds = 10;
enum { STOCK, INSTITUTION, MOTHER, BABY, DEATH, FIRST_OCCUPIER, INTERNAL_OUT, INTERNAL_IN, CHANGE_FROM, CHANGE_TO };

using Vectors = std::array<std::vector<long long>, kKinds>;
using Place = std::tuple<long long, long long, long long>;   // year, region, group

void add(std::map<Place, Vectors>& all, long long year, long long region, long long group, int kind, long long age,
         long long count)
{
    if (age < 0) return;
    auto& v = all[{year, region, group}][kind];
    if (v.size() <= static_cast<size_t>(age)) v.resize(static_cast<size_t>(age) + 1, 0);
    v[static_cast<size_t>(age)] += count;
}

std::string label(const char* kind)
{
    bool letter = (kind[0] >= 'A' && kind[0] <= 'Z') || (kind[0] >= 'a' && kind[0] <= 'z');
    return letter && DD::has(kind) ? DD::lookup(kind) : kind;
}

void cell(FILE* f, double value, int last)
{
    if (std::isnan(value)) csvWriteText(f, "nan", last);
    else csvWriteCell(f, "%g", value, last);
}
} // namespace

AgeMeasures ageMeasures(const std::vector<long long>& c, int lowerLimit, int upperLimit)
{
    AgeMeasures m;
    double weighted = 0, squares = 0;
    long long p1 = 0, p2 = 0, p3 = 0, peak = 0;
    for (size_t a = 0; a < c.size(); ++a) {
        long long count = c[a];
        double age = static_cast<double>(a);
        m.sum += count;
        weighted += static_cast<double>(count) * age;
        squares += static_cast<double>(count) * age * age;
        if (count > 0) {
            if (m.minAge < 0) m.minAge = static_cast<int>(a);
            m.maxAge = static_cast<int>(a);
        }
        (a < 15 ? p1 : a <= 49 ? p2 : p3) += count;
        int ia = static_cast<int>(a);
        (ia < lowerLimit ? m.young : ia <= upperLimit ? m.working : m.old) += count;
        peak = std::max(peak, count);
    }
    double n = static_cast<double>(m.sum);
    m.average = m.sum ? weighted / n + 0.5 : NaN;
    m.variance = m.sum ? (squares - weighted * weighted / n) / n : NaN;
    m.mode = NaN;
    if (peak > 0) {
        // the first highest age; each later age of the same count adds a half
        for (size_t a = 0; a < c.size(); ++a) {
            if (c[a] != peak) continue;
            if (std::isnan(m.mode)) m.mode = static_cast<double>(a);
            else m.mode += 0.5;
        }
    }
    m.median = NaN;
    if (m.sum) {
        double running = 0;
        for (size_t a = 0; a < c.size(); ++a) {
            running += static_cast<double>(c[a]);
            if (running >= n / 2) {
                m.median = c[a] ? static_cast<double>(a) + (static_cast<double>(c[a]) - running + n / 2) / static_cast<double>(c[a])
                                : static_cast<double>(a);
                break;
            }
        }
    }
    m.billeter = p2 ? static_cast<double>(p1 - p3) / static_cast<double>(p2) : NaN;
    double w = static_cast<double>(m.working);
    m.youngQuotient = m.working ? static_cast<double>(m.young) / w : NaN;
    m.oldQuotient = m.working ? static_cast<double>(m.old) / w : NaN;
    m.totalQuotient = m.working ? static_cast<double>(m.young + m.old) / w : NaN;
    return m;
}

void Dstmak::indicators()
{
    Dstmak& tool = *this;
    if (!tool.protocol->open(tool.directory)) {
        fprintf(stderr, "open %sprot.tmp:\n%s\n", tool.directory, os::errorText(errno).c_str());
        exitStatus = 1;
        return;
    }
    DstProtocol& prot = tool.prot();
    prot.text("Start %s\n", DD::lookup("dstindi").c_str());
    tool.showSettings(true);
    if (!r02map::valid(tool.settings.r02map)) {
        prot.message('w', "%s: ungültige Abbildung in kleinräumige Gliederung\n", tool.settings.r02map.c_str());
        exitStatus = 1;
        return;
    }
    tool.walk();

    // the age vectors by year, region and group
    std::map<Place, Vectors> all;
    for (const auto& [k, n] : tool.bestand) add(all, k[0], k[1], k[2], STOCK, k[4], n);
    for (const auto& [k, n] : tool.dsg) add(all, k[0], k[1], k[2], INSTITUTION, k[4], n);
    for (const auto& [k, n] : tool.baby) add(all, k[0], k[1], k[2], BABY, k[4], n);
    for (const auto& [k, n] : tool.geburt) add(all, k[0], k[1], k[2], MOTHER, k[3], n);
    for (const auto& [k, n] : tool.sterb) add(all, k[0], k[1], k[2], DEATH, k[4], n);
    for (const auto& [k, n] : tool.neubaubezug) add(all, k[0], k[1], k[2], FIRST_OCCUPIER, k[4], n);
    for (const auto& [k, n] : tool.binnenwegzug) {
        add(all, k[0], k[1], k[3], INTERNAL_OUT, k[5], n);
        add(all, k[0], k[2], k[3], INTERNAL_IN, k[5], n);
    }
    for (const auto& [k, n] : tool.bgw) {
        add(all, k[0], k[1], k[2], CHANGE_FROM, k[5], n);
        add(all, k[0], k[1], k[3], CHANGE_TO, k[5], n);
    }
    for (int k = 0; k < kKinds; ++k) prot.text("%d %s\n", k, label(kinds[k]).c_str());

    std::string path = tool.path("indikator.csv");
    FILE* f = safeOutput::open(path);
    if (!f) {
        prot.text("&gt;         indikator.csv %s\n", os::errorText(errno).c_str());
        exitStatus = 1;
        return;
    }
    int lower = tool.settings.nagwu, upper = tool.settings.nagwo;
    std::string young = "0.." + std::to_string(lower - 1), working = std::to_string(lower) + ".." + std::to_string(upper),
                old = std::to_string(upper + 1) + "+";
    std::string jq = DD::lookup("tkindi_fert_JQ"), aq = DD::lookup("tkindi_fert_AQ"), gq = DD::lookup("tkindi_fert_GQ");
    const char* columns[] = {"year", "region", "BG", "event", "sum", "AGmin", "AGmax", "averageAge", "modeAge",
                             "medianAge", "varianceAge", "billeter_J", young.c_str(), working.c_str(), old.c_str(),
                             jq.c_str(), aq.c_str(), gq.c_str(), nullptr};
    csvWriteHead(f, "dstindi", columns, nullptr);
    int rows = 0;
    for (const auto& [place, vectors] : all) {
        for (int k = 0; k < kKinds; ++k) {
            AgeMeasures m = ageMeasures(vectors[k], lower, upper);
            char head[96];
            const char sep = si::separator;
            int n = snprintf(head, sizeof head, "%d%c%d%c%d%c%d%c%d%c", static_cast<int>(std::get<0>(place)), sep,
                             static_cast<int>(std::get<1>(place)), sep, static_cast<int>(std::get<2>(place)), sep, k, sep,
                             static_cast<int>(m.sum), sep);
            csvWrite(f, head, static_cast<size_t>(n));
            // the newborns are all of age 0: no age measures; the mothers are no population to
            // weigh young and old against: no dependency block
            if (k == BABY) {
                for (int e = 0; e < 7; ++e) csvWriteText(f, "", 0);
            } else {
                csvWriteCell(f, "%.0f", m.minAge, 0);
                csvWriteCell(f, "%.0f", m.maxAge, 0);
                cell(f, m.average, 0);
                cell(f, m.mode, 0);
                cell(f, m.median, 0);
                cell(f, m.variance, 0);
                cell(f, m.billeter, 0);
            }
            if (k == MOTHER) {
                for (int e = 0; e < 5; ++e) csvWriteText(f, "", 0);
                csvWriteText(f, "", 1);
            } else {
                csvWriteCell(f, "%.0f", static_cast<double>(m.young), 0);
                csvWriteCell(f, "%.0f", static_cast<double>(m.working), 0);
                csvWriteCell(f, "%.0f", static_cast<double>(m.old), 0);
                cell(f, m.youngQuotient, 0);
                cell(f, m.oldQuotient, 0);
                cell(f, m.totalQuotient, 1);
            }
            ++rows;
        }
    }
    safeOutput::close(f);
    prot.text("&gt;         indikator.csv, %d records\n", rows);
}
