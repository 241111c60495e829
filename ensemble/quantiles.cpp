#include "ensemble/quantiles.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/resource.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include "platform/safe_output.h"

namespace {

// the quantile of p of values already sorted
double sortedQuantile(const std::vector<double>& v, double p)
{
    if (v.empty()) return 0;
    double h = double(v.size() - 1) * p;
    size_t j = size_t(std::floor(h));
    if (j + 1 >= v.size()) return v.back();
    return v[j] + (h - double(j)) * (v[j + 1] - v[j]);
}

} // namespace

double quantile(std::vector<double>& v, double p)
{
    std::sort(v.begin(), v.end());
    return sortedQuantile(v, p);
}

namespace {

// a mean or quantile of sums over regions, to twelve significant digits: members whose draws
// meet the same target sum to it only up to the last bits (409.99999999999994 for 410)
void appendQuantileNumber(std::string& out, double value)
{
    if (value == 0) {
        out += '0';
        return;
    }
    char buffer[32];
    auto [p, ec] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 12);
    out.append(buffer, p);
}

// The rows of a stretch of keys of one year: every member's values of the stretch, then per key
// the mean and the quantiles (the key's row left out when it only stands where it is not 0 and
// every member has 0).
void quantileRows(const std::vector<std::unique_ptr<SummaryValues>>& members, const KeyTable& keys,
                  const std::string& yearCells, size_t year, size_t from, size_t count, size_t stretch,
                  std::string& text, std::string& error)
{
    const size_t n = members.size();
    thread_local std::vector<double> block, values;
    block.resize(n * stretch);
    values.resize(n);
    for (size_t i = 0; i < n; ++i)
        if (!members[i]->read(year, from, count, &block[i * stretch], error)) return;
    text.reserve(count * 64);
    for (size_t k = 0; k < count; ++k) {
        double sum = 0, low = block[k], high = block[k];
        for (size_t i = 0; i < n; ++i) {
            const double v = block[i * stretch + k];
            values[i] = v;
            sum += v;
            low = std::min(low, v);
            high = std::max(high, v);
        }
        if (!keys.always[from + k] && low == 0 && high == 0) continue;
        text += yearCells;
        text += keys.cells[from + k];
        appendQuantileNumber(text, sum / double(n));
        if (low == high) {
            for (size_t q = 0; q < quantileLevels.size(); ++q) {
                text += ',';
                appendQuantileNumber(text, low);
            }
        } else {
            std::sort(values.begin(), values.end());
            for (double p : quantileLevels) {
                text += ',';
                appendQuantileNumber(text, sortedQuantile(values, p));
            }
        }
        text += '\n';
    }
}

// lets this process hold a file of every member open at once, as far as the system allows
void allowOpenFiles(size_t files)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= files + 32) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, rlim_t(files + 32));
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

bool writeQuantiles(SummaryTable table, const std::string& keysPath, const std::vector<std::string>& summaries,
                    const std::string& output, std::string& error)
{
    KeyTable keys;
    if (!keys.read(table, keysPath, error)) return false;
    const size_t n = summaries.size();
    allowOpenFiles(n);
    std::vector<std::unique_ptr<SummaryValues>> members(n);
    for (size_t i = 0; i < n; ++i) {
        members[i] = std::make_unique<SummaryValues>();
        if (!members[i]->open(summaries[i], keys, error)) return false;
        if (members[i]->years() != members[0]->years()) {
            error = summaries[i] + ": " + std::to_string(members[i]->years()) + " years, " + summaries[0] + ": " +
                    std::to_string(members[0]->years());
            return false;
        }
    }
    FILE* out = safeOutput::open(output);
    if (!out) {
        error = output + ": " + std::strerror(errno);
        return false;
    }
    std::string columns = "mean";
    for (double p : quantileLevels) {
        char name[16];
        snprintf(name, sizeof name, ",q%02d", int(std::lround(p * 100)));
        columns += name;
    }
    fprintf(out, "%s\n", summaryHeader(table, columns).c_str());

    // the year labels, the same in every member
    const size_t years = n ? members[0]->years() : 0;
    std::vector<std::string> yearCells(years);
    for (size_t y = 0; y < years; ++y) {
        int64_t label = 0, other = 0;
        bool ok = members[0]->label(y, label, error);
        for (size_t i = 1; ok && i < n; ++i)
            if ((ok = members[i]->label(y, other, error)) && other != label) {
                error = summaries[i] + ": year " + std::to_string(other) + " where " + summaries[0] + " has " +
                        std::to_string(label);
                ok = false;
            }
        if (!ok) {
            safeOutput::discard(out);
            return false;
        }
        yearCells[y] = std::to_string(label) + ",";
    }

    // Stretches of keys of a year, in order: read from every member and turned into rows side
    // by side, written in their order. A stretch of all members is about 8 MB.
    const size_t K = keys.size(), stretch = std::min(K, std::max<size_t>(256, (size_t(1) << 20) / std::max<size_t>(n, 1)));
    struct Piece {
        size_t year = 0, from = 0, count = 0;
        std::string text, error;
    };
    size_t nextYear = 0, nextFrom = 0;
    std::atomic<bool> ok = true;
    bool failed = false;
    int writeError = 0;
    tbb::parallel_pipeline(
        size_t(std::max(2, 2 * tbb::this_task_arena::max_concurrency())),
        tbb::make_filter<void, Piece*>(tbb::filter_mode::serial_in_order,
                                       [&](tbb::flow_control& fc) -> Piece* {
                                           if (!ok || nextYear >= years) {
                                               fc.stop();
                                               return nullptr;
                                           }
                                           Piece* p = new Piece;
                                           p->year = nextYear;
                                           p->from = nextFrom;
                                           p->count = std::min(stretch, K - nextFrom);
                                           nextFrom += p->count;
                                           if (nextFrom >= K) nextFrom = 0, ++nextYear;
                                           return p;
                                       }) &
            tbb::make_filter<Piece*, Piece*>(tbb::filter_mode::parallel,
                                             [&](Piece* p) {
                                                 quantileRows(members, keys, yearCells[p->year], p->year, p->from,
                                                              p->count, stretch, p->text, p->error);
                                                 return p;
                                             }) &
            tbb::make_filter<Piece*, void>(tbb::filter_mode::serial_in_order, [&](Piece* p) {
                if (ok && !p->error.empty()) {
                    error = p->error;
                    ok = false;
                }
                if (ok && !failed && fwrite(p->text.data(), 1, p->text.size(), out) != p->text.size()) {
                    failed = true;
                    writeError = errno;
                }
                delete p;
            }));
    if (ok && failed) error = output + ": " + std::strerror(writeError);
    return safeOutput::finish(out, ok && !failed, output, error);
}
