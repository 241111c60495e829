#include "kernel/variant_key_check.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

std::string trimmed(const std::string& s)
{
    size_t a = s.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) return "";
    size_t b = s.find_last_not_of(" \t\r\n");
    return s.substr(a, b - a + 1);
}

char upper(char c) { return char(std::toupper(static_cast<unsigned char>(c))); }

} // namespace

size_t keyDistance(const std::string& a, const std::string& b)
{
    // three rows of the edit table are enough for a swap of neighbours
    size_t n = a.size(), m = b.size();
    std::vector<size_t> before(m + 1), last(m + 1), row(m + 1);
    for (size_t j = 0; j <= m; ++j) last[j] = j;
    for (size_t i = 1; i <= n; ++i) {
        row[0] = i;
        for (size_t j = 1; j <= m; ++j) {
            size_t cost = upper(a[i - 1]) == upper(b[j - 1]) ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + cost});
            if (i > 1 && j > 1 && upper(a[i - 1]) == upper(b[j - 2]) && upper(a[i - 2]) == upper(b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before.swap(last);
        last.swap(row);
    }
    return last[m];
}

std::string closestKey(const std::string& key, const std::vector<std::string>& known)
{
    // a short key is only taken for a slip of one character
    size_t limit = key.size() >= 4 ? 2 : 1;
    std::string best;
    size_t bestDistance = limit + 1;
    for (const auto& k : known) {
        size_t d = keyDistance(key, k);
        if (d > 0 && d < bestDistance) {
            best = k;
            bestDistance = d;
        }
    }
    return best;
}

bool wholeInteger(const std::string& text)
{
    std::string t = trimmed(text);
    if (!t.empty() && t[0] == '+') t.erase(0, 1);
    if (t.empty()) return false;
    long long v;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    return ec == std::errc() && end == t.data() + t.size();
}

bool wholeNumber(const std::string& text)
{
    std::string t = trimmed(text);
    std::replace(t.begin(), t.end(), ',', '.');
    if (!t.empty() && t[0] == '+') t.erase(0, 1);
    if (t.empty()) return false;
    double v;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    return ec == std::errc() && end == t.data() + t.size();
}
