// Region tables in dense or sparse storage and the list form of the type flows.
#include "kernel/sparse_tables.h"

#include <iterator>
#include <mutex>

#include "platform/protocol.h"

namespace {

// The storage of dense tables given up lately, kept for the next table of the same shape: the
// tables of a year are made again the year after, and a table of 10,000 regions is 40,000 rows,
// each allocated and freed again otherwise. A few are enough for the tables of one year step.
constexpr size_t KEPT_TABLES = 4;
std::mutex keptLock;
std::vector<LA4> kept;

void keep(LA4& storage)
{
    if (!storage.exists()) return;
    std::lock_guard<std::mutex> lock(keptLock);
    if (kept.size() < KEPT_TABLES) kept.push_back(std::move(storage));
    storage.release();
}

// storage of the shape, from the kept tables if one fits; the caller fills it
void reuse(LA4& storage, const LA4::Extents& shape)
{
    if (storage.exists() && storage.extents() == shape) return;
    storage.release();
    std::lock_guard<std::mutex> lock(keptLock);
    for (auto it = kept.begin(); it != kept.end(); ++it)
        if (it->extents() == shape) {
            storage = std::move(*it);
            kept.erase(it);
            return;
        }
}

} // namespace

void GemTable::indexRows() {
    rows.clear();
    if (sparse || !dense.exists()) return;
    rows.reserve(ext[0] * ext[1] * ext[2]);
    for (auto& r : dense)
        for (auto& b : r)
            for (auto& g : b) rows.push_back(g.data());
}

void GemTable::make(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag, bool asSparse, double fill) {
    name = std::move(n);
    std::map<uint64_t, double>().swap(cells);
    sparse = asSparse;
    ext = {ngz, nbg, ngg, nag};
    if (sparse) {
        keep(dense);
        // the key has room for 4096 age groups, 16 sex groups and 65536 population groups
        VCHECK(nag <= GemKey::maxAG && ngg <= GemKey::maxGG && nbg <= GemKey::maxBG, "source\\c\\sparse");
        // a sparse table reads 0 where nothing is stored: it can only start empty
        VCHECK(fill == 0, "source\\c\\sparse");
    } else {
        reuse(dense, {ngz, nbg, ngg, nag});
        dense.make(name, {ngz, nbg, ngg, nag}, fill);
    }
    indexRows();
    made = true;
}

void GemTable::makeForOverwrite(std::string n, size_t ngz, size_t nbg, size_t ngg, size_t nag, bool asSparse) {
    if (asSparse) {
        make(std::move(n), ngz, nbg, ngg, nag, true);
        return;
    }
    std::map<uint64_t, double>().swap(cells);
    sparse = false;
    ext = {ngz, nbg, ngg, nag};
    reuse(dense, {ngz, nbg, ngg, nag});
    if (!dense.exists()) dense.make({ngz, nbg, ngg, nag}, 0.0);
    name = std::move(n);
    dense.name = name;
    indexRows();
    made = true;
}

void GemTable::release() {
    keep(dense);
    std::map<uint64_t, double>().swap(cells);
    std::vector<double*>().swap(rows);
    made = false;
}

GemTable& GemTable::operator=(const GemTable& from) {
    if (this == &from) return *this;
    name = from.name;
    sparse = from.sparse;
    ext = from.ext;
    made = from.made;
    cells = from.cells;
    if (from.sparse || !from.dense.exists()) {
        keep(dense);
    } else {
        reuse(dense, from.ext);
        dense = from.dense;
    }
    indexRows();
    return *this;
}

double GemTable::sum() const {
    double s = 0;
    if (sparse) {
        for (const auto& kv : cells) s += kv.second;
        return s;
    }
    return dense.sum();
}

double GemTable::regionSum(size_t gz) const {
    double s = 0;
    forRegion(gz, [&s](size_t, size_t, size_t, size_t, double v) { s += v; });
    return s;
}

size_t GemTable::stored() const { return sparse ? cells.size() : ext[0] * ext[1] * ext[2] * ext[3]; }

void GemTable::print(int level, const char* title, int kind) const {
    if (!laActive(level)) return;
    if (!sparse) {
        laPrint4(dense, nullptr, "NGZ\0NBG\0NGG\0NAG\0", title, kind);
        return;
    }
    std::vector<LAListRow> rows;
    rows.reserve(cells.size());
    for (const auto& [k, v] : cells)
        rows.push_back({static_cast<unsigned long>(GemKey::gz(k)), static_cast<unsigned>(GemKey::bg(k)),
                        static_cast<unsigned>(GemKey::gg(k)), static_cast<unsigned>(GemKey::ag(k)), v});
    laPrintList(nullptr, name.c_str(), title, kind, rows);
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
    if (sparse) {
        for (auto it = cells.begin(); it != cells.end();) {
            it->second *= factorOf(GemKey::gz(it->first));
            it = it->second == 0 ? cells.erase(it) : std::next(it);
        }
        return;
    }
    for (size_t z = 0; z < dense.size(); ++z) {
        double f = factorOf(z);
        for (auto& b : dense[z])
            for (auto& g : b)
                for (double& v : g) v *= f;
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
