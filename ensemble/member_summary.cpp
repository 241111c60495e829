#include "ensemble/member_summary.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/safe_output.h"
#include "tables/labelled_array.h"

bool KeyTable::read(SummaryTable table, const std::string& path, std::string& error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    std::stringstream whole;
    whole << in.rdbuf();
    const std::string bytes = whole.str();
    hash = fnv1a64(bytes.data(), bytes.size());
    cells.clear();
    always.clear();
    const size_t want = table == SummaryTable::Population ? 5 : 3;
    size_t at = bytes.find('\n');
    if (at == std::string::npos || bytes.compare(0, at, keyTableHeader(table)) != 0) {
        error = path + ": line 1: not the key table of the " +
                (table == SummaryTable::Population ? std::string("population") : std::string("components"));
        return false;
    }
    long line = 1;
    for (++at; at < bytes.size();) {
        size_t end = bytes.find('\n', at);
        if (end == std::string::npos) end = bytes.size();
        const std::string row = bytes.substr(at, end - at);
        at = end + 1;
        ++line;
        size_t commas = 0;
        for (char c : row) commas += c == ',';
        const char flag = row.empty() ? ' ' : row.back();
        if (commas + 1 != want || row.size() < 2 || row[row.size() - 2] != ',' || (flag != '0' && flag != '1')) {
            error = path + ": line " + std::to_string(line) + ": " + row;
            return false;
        }
        cells.push_back(row.substr(0, row.size() - 1));
        always.push_back(flag == '1');
    }
    return true;
}

SummaryValues::~SummaryValues()
{
    if (fd >= 0) ::close(fd);
}

bool SummaryValues::open(const std::string& p, const KeyTable& keys, std::string& error)
{
    path = p;
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    char header[SUMMARY_HEADER_BYTES];
    uint64_t hash = 0;
    struct stat st {};
    if (pread(fd, header, sizeof header, 0) != ssize_t(sizeof header) || std::memcmp(header, SUMMARY_MAGIC, 8) != 0) {
        error = path + ": not a summary (no header \"" + SUMMARY_MAGIC + "\")";
        return false;
    }
    std::memcpy(&keyCount, header + 8, 8);
    std::memcpy(&hash, header + 16, 8);
    if (keyCount != keys.size() || hash != keys.hash) {
        error = path + ": " + std::to_string(keyCount) + " keys of another key table than the ensemble's (" +
                std::to_string(keys.size()) + " keys)";
        return false;
    }
    fstat(fd, &st);
    const uint64_t block = 8 * (keyCount + 1), body = uint64_t(st.st_size) - SUMMARY_HEADER_BYTES;
    if (body % block != 0) {
        error = path + ": " + std::to_string(st.st_size) + " bytes, a year cut short";
        return false;
    }
    yearCount = size_t(body / block);
    return true;
}

bool SummaryValues::label(size_t year, int64_t& out, std::string& error) const
{
    const off_t at = off_t(SUMMARY_HEADER_BYTES + year * 8 * (keyCount + 1));
    if (pread(fd, &out, 8, at) == 8) return true;
    error = path + ": " + std::strerror(errno);
    return false;
}

bool SummaryValues::read(size_t year, size_t from, size_t count, double* out, std::string& error) const
{
    const off_t at = off_t(SUMMARY_HEADER_BYTES + year * 8 * (keyCount + 1) + 8 * (1 + from));
    const size_t bytes = count * sizeof(double);
    char* p = reinterpret_cast<char*>(out);
    for (size_t done = 0; done < bytes;) {
        ssize_t n = pread(fd, p + done, bytes - done, at + off_t(done));
        if (n <= 0) {
            error = path + ": " + (n == 0 ? std::string("shorter than its header says") : std::strerror(errno));
            return false;
        }
        done += size_t(n);
    }
    return true;
}

void appendPlainNumber(std::string& out, double value)
{
    if (value == 0) {
        out += '0';
        return;
    }
    char buffer[32];
    auto [p, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, p);
}

bool writeSummaryText(SummaryTable table, const std::string& keysPath, const std::string& valuesPath,
                      const std::string& output, std::string& error)
{
    KeyTable keys;
    SummaryValues values;
    if (!keys.read(table, keysPath, error) || !values.open(valuesPath, keys, error)) return false;
    FILE* out = safeOutput::open(output);
    if (!out) {
        error = output + ": " + std::strerror(errno);
        return false;
    }
    std::string text = summaryHeader(table, table == SummaryTable::Population ? "population" : "value") + "\n";
    std::vector<double> v(keys.size());
    bool ok = true;
    for (size_t y = 0; ok && y < values.years(); ++y) {
        int64_t label = 0;
        ok = values.label(y, label, error) && values.read(y, 0, keys.size(), v.data(), error);
        const std::string year = std::to_string(label) + ",";
        for (size_t k = 0; ok && k < keys.size(); ++k)
            if (keys.always[k] || v[k] != 0) {
                text += year;
                text += keys.cells[k];
                appendPlainNumber(text, v[k]);
                text += '\n';
            }
        fwrite(text.data(), 1, text.size(), out);
        text.clear();
    }
    return safeOutput::finish(out, ok, output, error);
}
