// Region tables in dense or sparse storage and the list form of the type flows.
#include "kernel/sparse_tables.h"

#include <cstring>
#include <iterator>
#include <mutex>
#include <new>

#include "kernel/kernel_helpers.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"

namespace {

// The storage of dense tables given up lately, kept for the next table of the same size: the
// tables of a year are made again the year after, and a block of 10,000 regions is 32 MB, whose
// pages would be given back and faulted in anew every year otherwise. A few are enough for the
// tables of one year step.
constexpr size_t KEPT_TABLES = 4;
std::mutex keptLock;
std::vector<DenseBlock> kept;

void keep(DenseBlock& storage)
{
    if (!storage.exists()) return;
    std::lock_guard<std::mutex> lock(keptLock);
    if (kept.size() < KEPT_TABLES)
        kept.push_back(std::move(storage));
    else
        storage.free();
}

// storage of n values, from the kept blocks if one fits; the caller fills it
void reuse(DenseBlock& storage, size_t n)
{
    if (storage.exists() && storage.size() == n) return;
    keep(storage);
    {
        std::lock_guard<std::mutex> lock(keptLock);
        for (auto it = kept.begin(); it != kept.end(); ++it)
            if (it->size() == n) {
                storage = std::move(*it);
                kept.erase(it);
                return;
            }
    }
    storage = DenseBlock::zeros(n);
}

} // namespace

DenseBlock DenseBlock::zeros(size_t n)
{
    DenseBlock b;
    if (n == 0) n = 1;
    const size_t bytes = n * sizeof(double), huge = os::hugePageBytes;
    // a large table in huge pages: its passes in order walk the page tables 512 times less often
    b.alignment = bytes >= 2 * huge ? huge : 64;
    const size_t rounded = (bytes + b.alignment - 1) / b.alignment * b.alignment;
    // through operator new, so that a failed allocation ends the run as every other does
    b.values = static_cast<double*>(::operator new(rounded, std::align_val_t(b.alignment)));
    if (b.alignment == huge) os::adviseHugePages(b.values, rounded);
    std::memset(b.values, 0, bytes);
    b.count = n;
    return b;
}

void DenseBlock::free()
{
    if (values) ::operator delete(values, std::align_val_t(alignment));
    values = nullptr;
    count = 0;
}

void GemTable::make(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag, bool asSparse, double fill) {
    name = std::move(n);
    std::map<uint64_t, double>().swap(cells);
    sparse = asSparse;
    firstAge = false;
    ext = {ngz, nbg, ngg, nag};
    if (sparse) {
        keep(block);
        // the key has room for 4096 age groups, 16 sex groups and 65536 population groups
        VCHECK(nag <= GemKey::maxAG && ngg <= GemKey::maxGG && nbg <= GemKey::maxBG, "source\\c\\sparse");
        // a sparse table reads 0 where nothing is stored: it can only start empty
        VCHECK(fill == 0, "source\\c\\sparse");
    } else {
        reuse(block, ngz * nbg * ngg * nag);
        std::fill(block.data(), block.data() + block.size(), fill);
        valuesName = name;
    }
    made = true;
}

void GemTable::makeFirstAge(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag) {
    name = std::move(n);
    std::map<uint64_t, double>().swap(cells);
    sparse = true;
    firstAge = true;
    ext = {ngz, nbg, ngg, nag};
    reuse(block, ngz * nbg * ngg);
    std::fill(block.data(), block.data() + block.size(), 0.0);
    made = true;
}

void GemTable::outsideFirstAge(size_t ag) const {
    Prot::message(SEV_ERROR, "%s: %s %zu, %s", name.c_str(), "AG", ag, "the table holds age group 0 alone");
}

void GemTable::makeForOverwrite(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag, bool asSparse) {
    if (asSparse) {
        make(std::move(n), ngz, nbg, ngg, nag, true);
        return;
    }
    std::map<uint64_t, double>().swap(cells);
    sparse = false;
    firstAge = false;
    ext = {ngz, nbg, ngg, nag};
    reuse(block, ngz * nbg * ngg * nag);
    name = std::move(n);
    valuesName = name;
    made = true;
}

void GemTable::release() {
    keep(block);
    std::map<uint64_t, double>().swap(cells);
    firstAge = false;
    made = false;
}

GemTable& GemTable::operator=(const GemTable& from) {
    if (this == &from) return *this;
    name = from.name;
    sparse = from.sparse;
    firstAge = from.firstAge;
    ext = from.ext;
    made = from.made;
    cells = from.cells;
    if ((from.sparse && !from.firstAge) || !from.block.exists()) {
        keep(block);
    } else {
        reuse(block, from.block.size());
        std::copy(from.block.data(), from.block.data() + from.block.size(), block.data());
        valuesName = from.valuesName;
    }
    return *this;
}

double GemTable::sum() const {
    double s = 0;
    if (firstAge) {
        forEach([&s](size_t, size_t, size_t, size_t, double v) { s += v; });
        return s;
    }
    if (sparse) {
        for (const auto& kv : cells) s += kv.second;
        return s;
    }
    if (!block.exists()) return s;
    const double* v = block.data();
    for (size_t i = 0, n = stored(); i < n; ++i) s += v[i];
    return s;
}

double GemTable::regionSum(size_t gz) const {
    double s = 0;
    forRegion(gz, [&s](size_t, size_t, size_t, size_t, double v) { s += v; });
    return s;
}

size_t GemTable::stored() const {
    if (firstAge) {
        size_t n = 0;
        forEach([&n](size_t, size_t, size_t, size_t, double) { ++n; });
        return n;
    }
    return sparse ? cells.size() : ext[0] * ext[1] * ext[2] * ext[3];
}

void GemTable::printDense(int level, const char* names, const char* title, int kind, double total) const {
    if (!laActive(level)) return;
    // a table given up prints as an array that holds no element
    const std::array<size_t, 4> none{};
    laPrint4(block.data(), block.exists() ? ext : none, valuesName, nullptr, names, title, kind, total);
}

void GemTable::print(int level, const char* title, int kind) const {
    if (!laActive(level)) return;
    if (!sparse) {
        printDense(level, "NGZ\0NBG\0NGG\0NAG\0", title, kind, LA_AUTO);
        return;
    }
    std::vector<LAListRow> rows;
    rows.reserve(stored());
    forEach([&rows](size_t z, size_t b, size_t g, size_t a, double v) {
        rows.push_back({static_cast<unsigned long>(z), static_cast<unsigned>(b), static_cast<unsigned>(g),
                        static_cast<unsigned>(a), v});
    });
    laPrintList(nullptr, name.c_str(), title, kind, rows);
}

void GemTable::roundWithCarry() {
    if (!exists()) return;
    RoundCarry r;
    if (sparse && !firstAge) {
        for (auto& kv : cells) kv.second = r(kv.second);
        for (auto it = cells.begin(); it != cells.end();) it = it->second == 0 ? cells.erase(it) : std::next(it);
        return;
    }
    // a block in index order, which is key order: a 0 stays as it is (a -0 too), and an element of
    // the births rounded to 0 is no longer one
    double* v = block.data();
    for (size_t i = 0, n = firstAge ? block.size() : stored(); i < n; ++i)
        if (v[i] != 0) v[i] = r(v[i]);
}

double FBList::get(size_t v, size_t n, size_t bg, size_t gg, size_t ag) const {
    FBElem probe = FBElem::make(v, n, bg, gg, ag, 0);
    auto it = std::lower_bound(elems.begin(), elems.end(), probe);
    if (it != elems.end() && it->order() == probe.order()) return it->value;
    return 0;
}

double FBList::sum() const {
    double s = 0;
    for (const FBElem& e : elems) s += e.value;
    return s;
}

void FBList::fromDense(const LA5& d) {
    elems.clear();
    for (size_t v = 0; v < d.size(); ++v)
        for (size_t n = 0; n < d[v].size(); ++n)
            for (size_t b = 0; b < d[v][n].size(); ++b)
                for (size_t g = 0; g < d[v][n][b].size(); ++g)
                    for (size_t a = 0; a < d[v][n][b][g].size(); ++a) add(v, n, b, g, a, d[v][n][b][g][a]);
}

void FBList::toDense(LA5& d, size_t ntyb, size_t nbg, size_t ngg, size_t nag) const {
    d.make({ntyb, ntyb, nbg, ngg, nag}, 0.0);
    for (const FBElem& e : elems) d[e.tybv][e.tybn][e.bg][e.gg()][e.ag()] += e.value;
}

void FBList::print(int level, const char* title, int kind) const {
    if (!laActive(level)) return;
    std::vector<LAPairRow> rows;
    rows.reserve(elems.size());
    for (const FBElem& e : elems) rows.push_back({e.tybv, e.tybn, e.bg, e.gg(), e.ag(), e.value});
    laPrintPairs(nullptr, name.c_str(), title, kind, rows, false);
}

void GemTable::scaleRegions(const std::function<double(size_t gz)>& factorOf)
{
    if (!exists()) return;
    if (firstAge) {
        // an element that is 0 is none: it stays 0
        const size_t perRegion = ext[1] * ext[2];
        for (size_t z = 0; z < ext[0]; ++z) {
            double* v = block.data() + z * perRegion;
            bool any = false;
            for (size_t i = 0; i < perRegion; ++i) any = any || v[i] != 0;
            if (!any) continue;
            const double f = factorOf(z);
            for (size_t i = 0; i < perRegion; ++i)
                if (v[i] != 0) v[i] *= f;
        }
        return;
    }
    if (sparse) {
        for (auto it = cells.begin(); it != cells.end();) {
            it->second *= factorOf(GemKey::gz(it->first));
            it = it->second == 0 ? cells.erase(it) : std::next(it);
        }
        return;
    }
    if (!block.exists()) return;
    const size_t perRegion = ext[1] * ext[2] * ext[3];
    for (size_t z = 0; z < ext[0]; ++z) {
        const double f = factorOf(z);
        double* v = rowAt(z, 0, 0);
        for (size_t i = 0; i < perRegion; ++i) v[i] *= f;
    }
}

namespace {

// every cohort of a table of one region: f(b, g, a, value&)
template <class T, class F> void eachCohort(T& r, F&& f)
{
    for (size_t b = 0; b < r.size(); ++b)
        for (size_t g = 0; g < r[b].size(); ++g)
            for (size_t a = 0; a < r[b][g].size(); ++a) f(b, g, a, r[b][g][a]);
}

} // namespace

void FIList::make(const LA4& moves, std::vector<double> shares)
{
    origin = moves;
    origin.name = name;
    destination = std::move(shares);
}

void FIList::clear()
{
    origin.release();
    std::vector<double>().swap(destination);
}

size_t FIList::size() const
{
    size_t rows = 0, columns = 0;
    origin.forEach([&rows](double v) { rows += v != 0; });
    for (double s : destination) columns += s != 0;
    return rows * columns;
}

void FIList::scaleDestinations(const std::vector<double>& factor)
{
    for (size_t zn = 0; zn < destination.size(); ++zn) destination[zn] *= factor[zn];
}

void FIList::scaleOrigins(const LA4& factor)
{
    for (size_t zv = 0; zv < origin.size(); ++zv)
        eachCohort(origin[zv], [&](size_t b, size_t g, size_t a, double& v) {
            if (v != 0) v *= factor[zv][b][g][a];
        });
}

void FIList::addRowSums(LA4& into) const
{
    double all = 0;
    for (double s : destination) all += s;
    for (size_t zv = 0; zv < origin.size(); ++zv)
        eachCohort(origin[zv], [&](size_t b, size_t g, size_t a, double v) {
            if (v != 0) into[zv][b][g][a] += v * all;
        });
}

void FIList::columnSums(std::vector<double>& into) const
{
    const double all = origin.sum();
    into.assign(destination.size(), 0.0);
    for (size_t zn = 0; zn < destination.size(); ++zn) into[zn] = destination[zn] * all;
}

void FIList::betweenRegions(LA4& out, LA4& in) const
{
    const size_t n = destination.size();
    out = origin;
    in = origin;
    if (n == 0) return;
    // the weights of all destinations but one, and the origins of all but one, summed without
    // taking the one away again: the part before it plus the part after it
    std::vector<double> after(n + 1, 0.0);
    for (size_t z = n; z-- > 0;) after[z] = after[z + 1] + destination[z];
    double before = 0;
    for (size_t zv = 0; zv < n; ++zv) {
        const double others = before + after[zv + 1];
        eachCohort(out[zv], [&](size_t, size_t, size_t, double& v) { v *= others; });
        before += destination[zv];
    }
    // in[z] first holds the origins after z, then the origins of all others times z's weight
    eachCohort(in[n - 1], [](size_t, size_t, size_t, double& v) { v = 0; });
    for (size_t z = n - 1; z-- > 0;)
        eachCohort(in[z], [&](size_t b, size_t g, size_t a, double& v) { v = in[z + 1][b][g][a] + origin[z + 1][b][g][a]; });
    std::vector<double> prefix;
    for (size_t zn = 0; zn < n; ++zn) {
        size_t i = 0;
        if (prefix.empty()) eachCohort(origin[zn], [&](size_t, size_t, size_t, double) { prefix.push_back(0); });
        eachCohort(in[zn], [&](size_t b, size_t g, size_t a, double& v) {
            v = destination[zn] * (prefix[i] + v);
            prefix[i++] += origin[zn][b][g][a];
        });
    }
}
