#include "kernel/region_table_reading.h"

#include <algorithm>
#include <array>
#include <functional>

namespace {

// every index of a region table in order, with its position among the cells: f(index, position)
template <class F> void forEachIndex(const std::array<size_t, 4>& ext, F&& f)
{
    long long idx[4];
    uint64_t k = 0;
    for (size_t a = 0; a < ext[0]; ++a)
        for (size_t b = 0; b < ext[1]; ++b)
            for (size_t c = 0; c < ext[2]; ++c)
                for (size_t d = 0; d < ext[3]; ++d, ++k) {
                    idx[0] = static_cast<long long>(a);
                    idx[1] = static_cast<long long>(b);
                    idx[2] = static_cast<long long>(c);
                    idx[3] = static_cast<long long>(d);
                    f(idx, k);
                }
}

// the compact region table in sparse storage: a bit per cell marks what was assigned
class CompactTarget : public ReadTarget {
public:
    explicit CompactTarget(GemTable& t) : table(t)
    {
        ext = t.extents();
        uint64_t n = 1;
        for (size_t e : ext) n *= e;
        assigned.assign(n, false);
    }
    uint64_t flat(const long long* i) const
    {
        return ((static_cast<uint64_t>(i[0]) * ext[1] + static_cast<uint64_t>(i[1])) * ext[2] +
                static_cast<uint64_t>(i[2])) * ext[3] + static_cast<uint64_t>(i[3]);
    }
    double get(const long long* i) override
    {
        if (!assigned[flat(i)]) return UNDEF;
        return table.get(static_cast<size_t>(i[0]), static_cast<size_t>(i[1]), static_cast<size_t>(i[2]),
                         static_cast<size_t>(i[3]));
    }
    void put(const long long* i, double v) override
    {
        assigned[flat(i)] = true;
        table.set(static_cast<size_t>(i[0]), static_cast<size_t>(i[1]), static_cast<size_t>(i[2]),
                  static_cast<size_t>(i[3]), v);
    }
    void clear() override
    {
        table.cells.clear();
        std::fill(assigned.begin(), assigned.end(), false);
    }
    void unassigned(const std::function<void(const long long*)>& f) override
    {
        forEachIndex(ext, [&](const long long* idx, uint64_t k) {
            if (!assigned[k]) f(idx);
        });
    }
    uint64_t cells() const override { return assigned.size(); }
    GemTable& table;
    std::array<size_t, 4> ext;
    std::vector<bool> assigned;
};

// the dense region table: rows of ages in one block, every cell undefined until a line names it
class DenseGemTarget : public ReadTarget {
public:
    explicit DenseGemTarget(GemTable& t) : table(t), ext(t.extents()) {}
    // the row of the line before serves again while the outer indices stay (the lines of a
    // table mostly run through the last index)
    double* row(const long long* index) override
    {
        if (last && std::equal(index, index + 3, lastIndex)) return last;
        last = table.row(static_cast<size_t>(index[0]), static_cast<size_t>(index[1]), static_cast<size_t>(index[2]));
        std::copy(index, index + 3, lastIndex);
        return last;
    }
    void clear() override { std::fill(table.values(), table.values() + table.stored(), UNDEF); }
    void unassigned(const std::function<void(const long long*)>& f) override
    {
        double* v = table.values();
        forEachIndex(ext, [&](const long long* idx, uint64_t k) {
            if (!isUndef(v[k])) return;
            v[k] = fill;
            f(idx);
        });
    }
    uint64_t cells() const override { return table.stored(); }
    GemTable& table;
    std::array<size_t, 4> ext;

private:
    double* last = nullptr;
    long long lastIndex[3] = {};
};

class ListTarget : public ReadTarget {
public:
    explicit ListTarget(std::vector<GemCell>& c) : list(c) {}
    void put(const long long* i, double v) override
    {
        list.push_back(GemCell{GemKey::make(static_cast<size_t>(i[0]), static_cast<size_t>(i[1]),
                                            static_cast<size_t>(i[2]), static_cast<size_t>(i[3])),
                               v});
    }
    std::vector<GemCell>& list;
};

class GemAddTarget : public ReadTarget {
public:
    explicit GemAddTarget(GemTable& t) : table(t) {}
    void put(const long long* i, double v) override
    {
        cells.push_back(GemCell{GemKey::make(static_cast<size_t>(i[0]), static_cast<size_t>(i[1]),
                                             static_cast<size_t>(i[2]), static_cast<size_t>(i[3])),
                                v});
    }
    void finish() override
    {
        for (const GemCell& c : cells)
            table.add(GemKey::gz(c.key), GemKey::bg(c.key), GemKey::gg(c.key), GemKey::ag(c.key), c.value);
        std::vector<GemCell>().swap(cells);
    }
    GemTable& table;
    std::vector<GemCell> cells;
};

class FBAddTarget : public ReadTarget {
public:
    explicit FBAddTarget(FBList& l) : list(l) {}
    void put(const long long* i, double v) override
    {
        list.elems.push_back(FBElem::make(static_cast<size_t>(i[0]), static_cast<size_t>(i[1]),
                                          static_cast<size_t>(i[2]), static_cast<size_t>(i[3]),
                                          static_cast<size_t>(i[4]), v));
    }
    void finish() override
    {
        list.sort();
        std::vector<FBElem> merged;
        merged.reserve(list.elems.size());
        for (const FBElem& e : list.elems) {
            if (!merged.empty() && merged.back().order() == e.order())
                merged.back().value += e.value;
            else
                merged.push_back(e);
        }
        merged.erase(std::remove_if(merged.begin(), merged.end(), [](const FBElem& e) { return e.value == 0; }),
                     merged.end());
        list.elems.swap(merged);
    }
    FBList& list;
};

// reads into a region table through the target form given, sparse or not, and shows it
template <class Target> ReadResult readGemTable(FileEntry& file, GemTable& table, int sparse, const char* names,
                                                int valueCheck)
{
    CheckUndefGuard reset;
    const auto& ext = table.extents();
    long long sizes[4];
    for (int j = 0; j < 4; ++j) sizes[j] = static_cast<long long>(ext[static_cast<size_t>(j)]);
    Target t(table);
    ReadResult r = readTable(file, t, sparse, 4, sizes, names, valueCheck);
    if (r.nonZero != 0 || valueCheck == VC_ADDITIVE) table.print(1, nullptr, readKind(valueCheck));
    return r;
}
} // namespace

ReadResult readTable(FileEntry& file, GemTable& target, const char* names, int valueCheck)
{
    if (!target.sparse) {
        CheckUndefGuard reset;
        auto ext = target.extents();
        long long sizes[4] = {};
        if (target.stored() != 0)
            for (int j = 0; j < 4; ++j) sizes[j] = static_cast<long long>(ext[static_cast<size_t>(j)]);
        DenseGemTarget t(target);
        ReadResult r = readTable(file, t, 0, 4, sizes, names, valueCheck);
        if (r.nonZero != 0 || valueCheck == VC_ADDITIVE)
            target.printDense(1, names, nullptr, readKind(valueCheck), readTotalShown(r, valueCheck));
        return r;
    }
    return readGemTable<CompactTarget>(file, target, 0, names, valueCheck);
}

ReadResult readTableAdd(FileEntry& file, GemTable& target, const char* names, int valueCheck)
{
    return readGemTable<GemAddTarget>(file, target, 1, names, valueCheck);
}

ReadResult readTableAdd(FileEntry& file, FBList& target, const long long sizes[5], const char* names, int valueCheck)
{
    CheckUndefGuard reset;
    FBAddTarget t(target);
    ReadResult r = readTable(file, t, 1, 5, sizes, names, valueCheck);
    if (r.nonZero != 0 || valueCheck == VC_ADDITIVE) target.print(1, nullptr, readKind(valueCheck));
    return r;
}

ReadResult readTableList(FileEntry& file, std::vector<GemCell>& cells, const long long sizes[4], const char* names,
                         int valueCheck)
{
    CheckUndefGuard reset;
    ListTarget t(cells);
    return readTable(file, t, 1, 4, sizes, names, valueCheck);
}
