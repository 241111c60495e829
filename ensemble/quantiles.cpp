#include "ensemble/quantiles.h"

#include <algorithm>
#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/resource.h>

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

// a number as plainNumber writes it, appended to `out`
void appendNumber(std::string& out, double value)
{
    if (value == 0) {
        out += '0';
        return;
    }
    char buffer[32];
    auto [p, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, p);
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
    std::string tmp = output + ".part";
    FILE* out = fopen(tmp.c_str(), "w");
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

    // a stretch of keys of every member: about 32 MB whatever the number of members
    const size_t K = keys.size(), stretch = n == 0 ? 0 : std::min(K, std::max<size_t>(1024, (size_t(4) << 20) / n));
    std::vector<double> block(n * stretch), values(n);
    std::string text;
    bool ok = n > 0;
    const size_t years = n ? members[0]->years() : 0;
    for (size_t y = 0; ok && y < years; ++y) {
        int64_t label = 0, other = 0;
        ok = members[0]->label(y, label, error);
        for (size_t i = 1; ok && i < n; ++i)
            if ((ok = members[i]->label(y, other, error)) && other != label) {
                error = summaries[i] + ": year " + std::to_string(other) + " where " + summaries[0] + " has " +
                        std::to_string(label);
                ok = false;
            }
        const std::string year = std::to_string(label) + ",";
        for (size_t from = 0; ok && from < K; from += stretch) {
            const size_t count = std::min(stretch, K - from);
            for (size_t i = 0; ok && i < n; ++i) ok = members[i]->read(y, from, count, &block[i * stretch], error);
            for (size_t k = 0; ok && k < count; ++k) {
                double sum = 0, low = block[k], high = block[k];
                for (size_t i = 0; i < n; ++i) {
                    const double v = block[i * stretch + k];
                    values[i] = v;
                    sum += v;
                    low = std::min(low, v);
                    high = std::max(high, v);
                }
                if (!keys.always[from + k] && low == 0 && high == 0) continue;
                text += year;
                text += keys.cells[from + k];
                appendNumber(text, sum / double(n));
                if (low == high) {
                    for (size_t q = 0; q < quantileLevels.size(); ++q) {
                        text += ',';
                        appendNumber(text, low);
                    }
                } else {
                    std::sort(values.begin(), values.end());
                    for (double p : quantileLevels) {
                        text += ',';
                        appendNumber(text, sortedQuantile(values, p));
                    }
                }
                text += '\n';
            }
            if (text.size() > (1u << 20)) {
                fwrite(text.data(), 1, text.size(), out);
                text.clear();
            }
        }
    }
    fwrite(text.data(), 1, text.size(), out);
    bool failed = ferror(out) != 0;
    failed = fclose(out) != 0 || failed;
    if (!ok || failed || std::rename(tmp.c_str(), output.c_str()) != 0) {
        if (ok) error = output + ": " + std::strerror(errno);
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}
