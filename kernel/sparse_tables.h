// Tables with the region first, held dense or sparse, and the list forms of the flow tables.
#pragma once
#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tables/labelled_array.h"

// The 64-bit key of a sparse region table: bits 0..11 AG, 12..15 GG, 16..31 BG, 32..63 region.
struct GemKey {
    static constexpr size_t maxAG = 4096, maxGG = 16, maxBG = 65536;
    static constexpr uint64_t make(size_t gz, size_t bg, size_t gg, size_t ag) {
        return (static_cast<uint64_t>(gz) << 32) | (static_cast<uint64_t>(bg & 0xFFFF) << 16) |
               (static_cast<uint64_t>(gg & 0xF) << 12) | static_cast<uint64_t>(ag & 0xFFF);
    }
    static constexpr size_t gz(uint64_t k) { return static_cast<size_t>(k >> 32); }
    static constexpr size_t bg(uint64_t k) { return static_cast<size_t>((k >> 16) & 0xFFFF); }
    static constexpr size_t gg(uint64_t k) { return static_cast<size_t>((k >> 12) & 0xF); }
    static constexpr size_t ag(uint64_t k) { return static_cast<size_t>(k & 0xFFF); }
};

// The values of a dense region table: one block of doubles, region by group by sex by age, the
// age innermost. A block given up goes back to a few kept for the next table of the same size.
class DenseBlock {
public:
    DenseBlock() = default;
    DenseBlock(DenseBlock&& from) noexcept : values(from.values), count(from.count), alignment(from.alignment)
    {
        from.values = nullptr;
        from.count = 0;
    }
    DenseBlock& operator=(DenseBlock&& from) noexcept
    {
        std::swap(values, from.values);
        std::swap(count, from.count);
        std::swap(alignment, from.alignment);
        from.free();
        return *this;
    }
    DenseBlock(const DenseBlock&) = delete;
    DenseBlock& operator=(const DenseBlock&) = delete;
    ~DenseBlock() { free(); }

    // a new block of n values, all 0
    static DenseBlock zeros(size_t n);
    double* data() { return values; }
    const double* data() const { return values; }
    size_t size() const { return count; }
    bool exists() const { return values != nullptr; }
    void free();

private:
    double* values = nullptr;
    size_t count = 0;
    size_t alignment = 64;
};

// A population table indexed region, BG, GG, AG. Dense: one block of values, age innermost.
// Sparse: an ordered map from GemKey to value, where a missing key reads 0 and writing 0 removes
// the key; or, for a table whose elements all stand at age group 0 (the births of a year), one
// value per cohort, read as a sparse table is (the elements that are not 0, in the same order).
// Stages reach elements only through get, set, add, the rows and the walks below, so that one
// code path serves both forms. Inside a parallel loop over regions a body may change
// values of its own region but must not create or remove keys of a sparse table.
class GemTable {
public:
    std::string name;
    bool sparse = false;
    std::map<uint64_t, double> cells;

    GemTable() = default;
    explicit GemTable(std::string n) : name(std::move(n)) {}
    GemTable(const GemTable& from) { *this = from; }
    GemTable(GemTable&&) = default;
    GemTable& operator=(GemTable&&) = default;
    // a copy into the storage this table or a table given up lately already holds
    GemTable& operator=(const GemTable& from);

    // builds an empty table of the extents; a sparse table starts with no key
    void make(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag, bool asSparse, double fill = 0);
    // make for a caller that writes every element of a dense table before anything reads it: the
    // storage of a table given up lately keeps its old values instead of being filled first
    void makeForOverwrite(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag, bool asSparse);
    // builds an empty table of the extents whose elements stand at age group 0 alone
    void makeFirstAge(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag);
    void release();
    // a new name for the table and for the table of its values in the protocol
    void rename(std::string n) {
        name = std::move(n);
        valuesName = name;
    }
    bool exists() const { return made; }
    const std::array<size_t, 4>& extents() const { return ext; }

    double get(size_t gz, size_t bg, size_t gg, size_t ag) const {
        if (!sparse) return rowAt(gz, bg, gg)[ag];
        if (firstAge) return ag == 0 ? block.data()[cohortAt(gz, bg, gg)] : 0.0;
        auto it = cells.find(GemKey::make(gz, bg, gg, ag));
        return it == cells.end() ? 0.0 : it->second;
    }
    void set(size_t gz, size_t bg, size_t gg, size_t ag, double v) {
        if (!sparse) {
            rowAt(gz, bg, gg)[ag] = v;
            return;
        }
        if (firstAge) {
            if (ag == 0)
                block.data()[cohortAt(gz, bg, gg)] = v;
            else if (v != 0)
                outsideFirstAge(ag);
            return;
        }
        uint64_t k = GemKey::make(gz, bg, gg, ag);
        if (v == 0)
            cells.erase(k);
        else
            cells[k] = v;
    }
    void add(size_t gz, size_t bg, size_t gg, size_t ag, double v) {
        if (!sparse) {
            rowAt(gz, bg, gg)[ag] += v;
            return;
        }
        if (v == 0) return;
        if (firstAge) {
            if (ag == 0)
                block.data()[cohortAt(gz, bg, gg)] += v;
            else
                outsideFirstAge(ag);
            return;
        }
        uint64_t k = GemKey::make(gz, bg, gg, ag);
        auto it = cells.find(k);
        if (it == cells.end()) {
            cells.emplace(k, v);
        } else {
            it->second += v;
            if (it->second == 0) cells.erase(it);
        }
    }

    // add for elements reached in key order, as a loop over regions, groups, sexes and ages
    // reaches them: a sparse table appends a new key behind the last without searching
    void addInOrder(size_t gz, size_t bg, size_t gg, size_t ag, double v) {
        if (!sparse || firstAge || v == 0) {
            add(gz, bg, gg, ag, v);
            return;
        }
        uint64_t k = GemKey::make(gz, bg, gg, ag);
        if (cells.empty() || cells.rbegin()->first < k)
            cells.emplace_hint(cells.end(), k, v);
        else
            add(gz, bg, gg, ag, v);
    }
    // the ages of one cohort of a dense table, nullptr for a sparse one
    double* row(size_t gz, size_t bg, size_t gg) { return sparse ? nullptr : rowAt(gz, bg, gg); }
    const double* row(size_t gz, size_t bg, size_t gg) const { return sparse ? nullptr : rowAt(gz, bg, gg); }
    // every value of a dense table in index order (stored() of them), nullptr for a sparse one
    double* values() { return sparse ? nullptr : block.data(); }
    const double* values() const { return sparse ? nullptr : block.data(); }

    // every element that is not 0, in index order (dense) or key order (sparse), which is
    // the same order: f(gz, bg, gg, ag, value)
    template <class F> void forEach(F&& f) const {
        if (firstAge) {
            for (size_t z = 0; z < ext[0]; ++z) forRegionFirstAge(z, f);
            return;
        }
        if (sparse) {
            for (const auto& [k, v] : cells) f(GemKey::gz(k), GemKey::bg(k), GemKey::gg(k), GemKey::ag(k), v);
            return;
        }
        if (!block.exists()) return;
        for (size_t z = 0; z < ext[0]; ++z) forRegionDense(z, f);
    }
    // the elements of one region that are not 0, in order
    template <class F> void forRegion(size_t gz, F&& f) const {
        if (!sparse) {
            if (block.exists()) forRegionDense(gz, f);
            return;
        }
        if (firstAge) {
            forRegionFirstAge(gz, f);
            return;
        }
        auto it = cells.lower_bound(GemKey::make(gz, 0, 0, 0));
        auto end = cells.lower_bound(GemKey::make(gz + 1, 0, 0, 0));
        for (; it != end; ++it) f(gz, GemKey::bg(it->first), GemKey::gg(it->first), GemKey::ag(it->first), it->second);
    }
    // total in row order
    double sum() const;
    // total of one region
    double regionSum(size_t gz) const;
    // multiplies every element by the factor of its region; a sparse element that becomes 0 goes
    void scaleRegions(const std::function<double(size_t gz)>& factorOf);
    // whole persons: each element that is not 0 rounded half away from 0 with the running
    // remainder of the table, in index order, so that the total survives; a sparse element
    // rounded to 0 goes
    void roundWithCarry();
    // stored elements: all of a dense table, the keys of a sparse one
    size_t stored() const;
    // bytes of the dense form
    size_t denseBytes() const { return ext[0] * ext[1] * ext[2] * ext[3] * sizeof(double); }

    // prints at the protocol level: dense as a table, sparse as a compact listing
    void print(int level, const char* title = nullptr, int kind = LA_NUMBER) const;
    // prints a dense table under the dimension names given, with the total shown in its title
    void printDense(int level, const char* names, const char* title, int kind, double total) const;

private:
    bool made = false;
    // sparse, held as one value per cohort at age group 0
    bool firstAge = false;
    std::array<size_t, 4> ext{};
    DenseBlock block;
    // the name the protocol shows over the values of a dense table: the name the table was made
    // with, or that of the table its values were copied from
    std::string valuesName;
    double* rowAt(size_t gz, size_t bg, size_t gg) const {
        return const_cast<double*>(block.data()) + cohortAt(gz, bg, gg) * ext[3];
    }
    size_t cohortAt(size_t gz, size_t bg, size_t gg) const { return (gz * ext[1] + bg) * ext[2] + gg; }
    // an element that is not 0 written at another age group than 0: a fault of the caller
    void outsideFirstAge(size_t ag) const;
    template <class F> void forRegionFirstAge(size_t z, F& f) const {
        if (!block.exists()) return;
        const double* v = block.data() + cohortAt(z, 0, 0);
        for (size_t b = 0; b < ext[1]; ++b)
            for (size_t g = 0; g < ext[2]; ++g, ++v)
                if (*v != 0) f(z, b, g, size_t(0), *v);
    }
    template <class F> void forRegionDense(size_t z, F& f) const {
        const double* v = rowAt(z, 0, 0);
        for (size_t b = 0; b < ext[1]; ++b)
            for (size_t g = 0; g < ext[2]; ++g)
                for (size_t a = 0; a < ext[3]; ++a, ++v)
                    if (*v != 0) f(z, b, g, a, *v);
    }
};

// One element of the list form of DR4FB: TYBv, TYBn, BG as u16, GG in bits 0..3 and AG in
// bits 4..15 of a u16, the value.
struct FBElem {
    uint16_t tybv = 0, tybn = 0, bg = 0, ggag = 0;
    double value = 0;
    static FBElem make(size_t v, size_t n, size_t bg, size_t gg, size_t ag, double value) {
        FBElem e;
        e.tybv = static_cast<uint16_t>(v);
        e.tybn = static_cast<uint16_t>(n);
        e.bg = static_cast<uint16_t>(bg);
        e.ggag = static_cast<uint16_t>((gg & 0xF) | ((ag & 0xFFF) << 4));
        e.value = value;
        return e;
    }
    unsigned gg() const { return ggag & 0xF; }
    unsigned ag() const { return ggag >> 4; }
    // ordering key: TYBv, TYBn, BG, GG, AG, as the dense table
    uint64_t order() const {
        return (static_cast<uint64_t>(tybv) << 48) | (static_cast<uint64_t>(tybn) << 32) |
               (static_cast<uint64_t>(bg) << 16) | (static_cast<uint64_t>(gg()) << 12) | ag();
    }
    bool operator<(const FBElem& o) const { return order() < o.order(); }
};

// The list form of DR4FB: its non-zero elements, sorted.
class FBList {
public:
    std::string name = "DR4FBs";
    std::vector<FBElem> elems;

    void sort() { std::stable_sort(elems.begin(), elems.end()); }
    void add(size_t v, size_t n, size_t bg, size_t gg, size_t ag, double value) {
        if (value != 0) elems.push_back(FBElem::make(v, n, bg, gg, ag, value));
    }
    // the value of an element of the sorted list, 0 when absent
    double get(size_t v, size_t n, size_t bg, size_t gg, size_t ag) const;
    double sum() const;
    void clear() { std::vector<FBElem>().swap(elems); }
    bool empty() const { return elems.empty(); }
    size_t size() const { return elems.size(); }
    // the list from a dense table and back
    void fromDense(const LA5& dense);
    void toDense(LA5& dense, size_t ntyb, size_t nbg, size_t ngg, size_t nag) const;
    void print(int level, const char* title = nullptr, int kind = LA_NUMBER) const;
};

// One element of the sparse form of the flows between the regions of one type (DG5FIs):
// zv, zn as u32, BG u16, GG and AG packed as in FBElem, the value.
struct FIElem {
    uint32_t zv = 0, zn = 0;
    uint16_t bg = 0, ggag = 0;
    double value = 0;
    static FIElem make(size_t zv, size_t zn, size_t bg, size_t gg, size_t ag, double value) {
        FIElem e;
        e.zv = static_cast<uint32_t>(zv);
        e.zn = static_cast<uint32_t>(zn);
        e.bg = static_cast<uint16_t>(bg);
        e.ggag = static_cast<uint16_t>((gg & 0xF) | ((ag & 0xFFF) << 4));
        e.value = value;
        return e;
    }
    unsigned gg() const { return ggag & 0xF; }
    unsigned ag() const { return ggag >> 4; }
};

// The list form of the flows between the regions of one type (DG5FIs). A flow is laid out as
// the moves of its origin zv in a cohort times the share of its destination zn, and the fit only
// ever scales all flows into a destination (columns) or all flows of an origin in a cohort
// (rows). So every element stays the product of an origin value and a destination weight, and
// the list is held as these two factors: it grows with the regions of the type, not with their
// pairs, and a pass of the fit costs as much. The elements are made when the list is walked, in
// list order (zv, zn, BG, GG, AG); an element whose origin value or destination weight is 0 is
// not in the list.
class FIList {
public:
    std::string name = "DG5FIs";
    LA4 origin{"DG5FIs"};              // zv, BG, GG, AG
    std::vector<double> destination;  // zn

    // the list of the flows origin[zv] * shares[zn]
    void make(const LA4& moves, std::vector<double> shares);
    void clear();
    bool empty() const { return destination.empty(); }
    // the number of elements: the non-zero origin values times the non-zero destination weights
    size_t size() const;
    // every element in list order: f(const FIElem&)
    template <class F> void forEach(F&& f) const {
        for (size_t zv = 0; zv < origin.size(); ++zv)
            for (size_t zn = 0; zn < destination.size(); ++zn) {
                const double s = destination[zn];
                if (s == 0) continue;
                const auto& r = origin[zv];
                for (size_t b = 0; b < r.size(); ++b)
                    for (size_t g = 0; g < r[b].size(); ++g)
                        for (size_t a = 0; a < r[b][g].size(); ++a)
                            if (r[b][g][a] != 0) f(FIElem::make(zv, zn, b, g, a, r[b][g][a] * s));
            }
    }
    // every flow into zn times factor[zn]
    void scaleDestinations(const std::vector<double>& factor);
    // every flow of zv in a cohort times factor[zv][cohort]
    void scaleOrigins(const LA4& factor);
    // into[zv][cohort] += the flows of zv in the cohort to all regions
    void addRowSums(LA4& into) const;
    // into[zn] = the flows into zn from all regions in all cohorts
    void columnSums(std::vector<double>& into) const;
    // by region and cohort, the flows to the other regions (out) and from them (in), both positive
    void betweenRegions(LA4& out, LA4& in) const;
};
