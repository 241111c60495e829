#include "ensemble/quantiles.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

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

bool writeQuantiles(SummaryTable table, const std::vector<std::string>& summaries, const std::string& output,
                    std::string& error)
{
    struct Head {
        std::unique_ptr<SummaryReader> reader;
        SummaryKey key;
        double value = 0;
        bool live = false;
    };
    std::vector<Head> heads(summaries.size());
    for (size_t i = 0; i < summaries.size(); ++i) {
        heads[i].reader = std::make_unique<SummaryReader>(table, summaries[i]);
        if (!heads[i].reader->ok()) {
            error = heads[i].reader->error;
            return false;
        }
        heads[i].live = heads[i].reader->next(heads[i].key, heads[i].value);
        if (!heads[i].reader->error.empty()) {
            error = heads[i].reader->error;
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
    std::vector<double> values(summaries.size());
    std::string line;
    for (;;) {
        const Head* lowest = nullptr;
        for (const Head& h : heads)
            if (h.live && (!lowest || h.key < lowest->key)) lowest = &h;
        if (!lowest) break;
        const SummaryKey key = lowest->key;
        double sum = 0;
        for (size_t i = 0; i < heads.size(); ++i) {
            Head& h = heads[i];
            values[i] = 0;
            if (h.live && h.key == key) {
                values[i] = h.value;
                h.live = h.reader->next(h.key, h.value);
                if (!h.reader->error.empty()) {
                    error = h.reader->error;
                    fclose(out);
                    std::remove(tmp.c_str());
                    return false;
                }
            }
            sum += values[i];
        }
        line = keyCells(table, key);
        line += plainNumber(sum / double(values.size()));
        std::sort(values.begin(), values.end());
        for (double p : quantileLevels) {
            line += ',';
            line += plainNumber(sortedQuantile(values, p));
        }
        line += "\n";
        fwrite(line.data(), 1, line.size(), out);
    }
    bool failed = ferror(out) != 0;
    failed = fclose(out) != 0 || failed;
    if (failed || std::rename(tmp.c_str(), output.c_str()) != 0) {
        error = output + ": " + std::strerror(errno);
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}
