// The account of a run for its results overview: persons by population group before the first
// year and at the end of each year, with the births, deaths, arrivals from and departures to
// places outside the study area and the changes of group that made the difference, and the
// persons of each aggregate of the reference table.
#include <cstddef>
#include <initializer_list>
#include <vector>

#include "platform/variant_settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

namespace {

// the persons of a table by population group and by aggregate row
struct Sums {
    std::vector<double> groups, aggregates;
};

Sums sumsOf(const Orvane& c, const GemTable& t, bool byAggregate)
{
    Sums s;
    s.groups.assign(size_t(c.NBG > 0 ? c.NBG : 1), 0.0);
    const int rows = byAggregate ? aggregateRows() : 0;
    s.aggregates.assign(size_t(rows > 0 ? rows : 0), 0.0);
    const auto& e = t.extents();
    const size_t n = e[0];
    const double* values = t.exists() ? t.values() : nullptr;
    for (size_t z = 0; z < n; ++z) {
        const int row = rows > 0 ? aggregateRowOf(c, int(z)) : -1;
        double regionSum = 0;
        if (values) {
            // a dense table row by row, each sum held in a register: adding a 0 leaves a sum as
            // it is, so the sums are those of the elements that are not 0, in the same order
            const double* v = values + z * e[1] * e[2] * e[3];
            for (size_t b = 0; b < e[1]; ++b) {
                const bool counted = b < s.groups.size();
                double group = counted ? s.groups[b] : 0;
                for (size_t k = 0; k < e[2] * e[3]; ++k, ++v) {
                    group += *v;
                    regionSum += *v;
                }
                if (counted) s.groups[b] = group;
            }
        } else {
            t.forRegion(z, [&](size_t, size_t b, size_t, size_t, double v) {
                if (b < s.groups.size()) s.groups[b] += v;
                regionSum += v;
            });
        }
        if (row >= 0 && row < rows) s.aggregates[size_t(row)] += regionSum;
    }
    return s;
}

// the persons of movement tables by group, as positive numbers
std::vector<double> flowByGroup(const Orvane& c, std::initializer_list<const GemTable*> tables)
{
    std::vector<double> sum(size_t(c.NBG > 0 ? c.NBG : 1), 0.0);
    for (const GemTable* t : tables) {
        if (!t->exists()) continue;
        if (const double* v = t->values()) {
            // a dense table row by row, as in sumsOf: a 0 adds nothing
            const auto& e = t->extents();
            for (size_t z = 0; z < e[0]; ++z)
                for (size_t b = 0; b < e[1]; ++b) {
                    const size_t cells = e[2] * e[3];
                    if (b >= sum.size()) {
                        v += cells;
                        continue;
                    }
                    double group = sum[b];
                    for (size_t k = 0; k < cells; ++k, ++v) group += *v < 0 ? -*v : *v;
                    sum[b] = group;
                }
            continue;
        }
        t->forEach([&](size_t, size_t b, size_t, size_t, double v) {
            if (b < sum.size()) sum[b] += v < 0 ? -v : v;
        });
    }
    return sum;
}

} // namespace

void accountStart(Orvane& c)
{
    Sums s = sumsOf(c, c.BGEM, ini::DIFF_G > 0);
    c.startByGroup = std::move(s.groups);
    c.aggregateStart = std::move(s.aggregates);
    c.accountByYear.clear();
    c.aggregateByYear.clear();
}

void accountYear(Orvane& c, const YearStep& y, int label)
{
    Orvane::GroupAccount& a = c.accountByYear[label];
    Sums s = sumsOf(c, c.BG40, ini::DIFF_G > 0);
    a.end = std::move(s.groups);
    if (ini::DIFF_G > 0) c.aggregateByYear[label] = std::move(s.aggregates);
    a.births.resize(a.end.size(), 0.0);
    a.deaths = flowByGroup(c, {&y.DG4S});
    // out of the study area: external out-migration and the move-outs of demolition abroad;
    // into it: external in-migration and first occupants of new dwellings from abroad
    a.departures = flowByGroup(c, {&y.DG4WA, &y.DG4OAR});
    a.arrivals = flowByGroup(c, {&y.DG4ZA, &y.DG4IAN});
    a.groupLeft = flowByGroup(c, {&y.DG4WBGv});
    a.groupJoined = flowByGroup(c, {&y.DG4WBGn});
}
