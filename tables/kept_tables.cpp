#include "tables/kept_tables.h"
#include "tables/labelled_array.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>

bool KeptTable::servesYear(long long year) const
{
    bool any = false;
    for (const KeptSection& s : sections) {
        if (!s.section.contains(year)) continue;
        if (!s.recorded) return false;
        any = true;
    }
    return any;
}

size_t KeptTableRecorder::KeyHash::operator()(const Key& k) const
{
    return static_cast<size_t>(fnv1a64(reinterpret_cast<const char*>(k.data()), sizeof k));
}

void KeptTableRecorder::start(std::unique_ptr<KeptTable> t)
{
    table = std::move(t);
    abandoned = false;
    current = -1;
    recording = false;
    position.clear();
}

void KeptTableRecorder::giveUp()
{
    if (table) abandoned = true;
    table.reset();
    std::unordered_map<Key, size_t, KeyHash>().swap(position);
}

void KeptTableRecorder::line(const YearSection& s, bool inside)
{
    if (!table) return;
    auto& sections = table->sections;
    if (current < 0 || !(sections[static_cast<size_t>(current)].section == s)) {
        ++current;
        position.clear();
        const size_t k = static_cast<size_t>(current);
        if (k == sections.size()) {
            sections.emplace_back();
            sections.back().section = s;
        } else if (!(sections[k].section == s)) {
            giveUp();       // the file no longer has the sections of its first reading
            return;
        }
        recording = inside && !sections[k].recorded;
        if (recording) sections[k].recorded = true;
    }
}

void KeptTableRecorder::assignment(const long long* index, double value)
{
    if (!table) return;
    if (current < 0) line(YearSection{}, true);
    if (!table || !recording) return;
    KeptSection& s = table->sections[static_cast<size_t>(current)];
    const int n = table->indexCount;
    Key k{};
    for (int j = 0; j < n; ++j) {
        if (index[j] < 0 || index[j] > INT32_MAX) {
            giveUp();
            return;
        }
        k[static_cast<size_t>(j)] = static_cast<int32_t>(index[j]);
    }
    if (table->lastWins) {
        auto [it, fresh] = position.try_emplace(k, s.values.size());
        if (!fresh) {
            s.values[it->second] = value;
            return;
        }
    }
    if (table->assignments >= keptTables::kLimit) {
        giveUp();
        return;
    }
    ++table->assignments;
    s.indices.insert(s.indices.end(), k.begin(), k.begin() + n);
    s.values.push_back(value);
}

void KeptTableRecorder::counted(double value)
{
    if (!table) return;
    if (current < 0) line(YearSection{}, true);
    if (!table || !recording) return;
    KeptSection& r = table->sections[static_cast<size_t>(current)];
    if (value != 0) {
        ++r.nonZero;
        r.sum += value;
        if (value != std::floor(value)) ++r.nonInteger;
    }
}

std::unique_ptr<KeptTable> KeptTableRecorder::finish()
{
    std::unordered_map<Key, size_t, KeyHash>().swap(position);
    return std::move(table);
}

namespace keptTables {

namespace {
std::mutex lock;
std::map<std::string, std::unique_ptr<KeptTable>>& store()
{
    static std::map<std::string, std::unique_ptr<KeptTable>> tables;
    return tables;
}
std::set<std::string>& refused()
{
    static std::set<std::string> keys;
    return keys;
}

// size and modification time of a file, -1 when it cannot be seen
void fileStamp(const std::string& path, long long& size, long long& modified)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        size = modified = -1;
        return;
    }
    size = static_cast<long long>(st.st_size);
    modified = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
}
} // namespace

std::string key(const std::string& path, int sparse, int indexCount, const long long* sizes, int valueCheck,
                double fill)
{
    std::string k = path;
    char part[64];
    snprintf(part, sizeof part, "\n%d %d %d %.17g", sparse, indexCount, valueCheck, fill);
    k += part;
    for (int j = 0; j < indexCount; ++j) {
        snprintf(part, sizeof part, " %lld", sizes ? sizes[j] : -1);
        k += part;
    }
    return k;
}

const KeptTable* find(const std::string& key)
{
    std::lock_guard<std::mutex> guard(lock);
    auto it = store().find(key);
    if (it == store().end()) return nullptr;
    long long size, modified;
    fileStamp(it->second->path, size, modified);
    if (size < 0 || size != it->second->size || modified != it->second->modified) {
        store().erase(it);
        return nullptr;
    }
    return it->second.get();
}

std::unique_ptr<KeptTable> take(const std::string& key, const std::string& path, int indexCount, bool lastWins)
{
    std::lock_guard<std::mutex> guard(lock);
    auto it = store().find(key);
    if (it != store().end()) {
        std::unique_ptr<KeptTable> t = std::move(it->second);
        store().erase(it);
        return t;
    }
    auto t = std::make_unique<KeptTable>();
    t->path = path;
    fileStamp(path, t->size, t->modified);
    t->indexCount = indexCount;
    t->lastWins = lastWins;
    if (t->size < 0) return nullptr;
    return t;
}

void keep(const std::string& key, std::unique_ptr<KeptTable> table)
{
    if (!table) return;
    std::lock_guard<std::mutex> guard(lock);
    store()[key] = std::move(table);
}

void never(const std::string& key)
{
    std::lock_guard<std::mutex> guard(lock);
    refused().insert(key);
}

bool isNever(const std::string& key)
{
    std::lock_guard<std::mutex> guard(lock);
    return refused().count(key) != 0;
}

void forget()
{
    std::lock_guard<std::mutex> guard(lock);
    store().clear();
    refused().clear();
}

} // namespace keptTables
