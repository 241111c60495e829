#include "numerics/chi_square_adjustment.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

template <class T>
bool ZeroedArray<T>::allocate(size_t count)
{
    release();
    if (count == 0) count = 1;
    p_ = static_cast<T*>(std::calloc(count, sizeof(T)));
    n_ = p_ ? count : 0;
    return p_ != nullptr;
}

template <class T>
void ZeroedArray<T>::release()
{
    std::free(p_);
    p_ = nullptr;
    n_ = 0;
}

template class ZeroedArray<double>;
template class ZeroedArray<int>;

namespace {

// a product of sizes; one that overflows is too large for any allocation
size_t product(size_t a, size_t b)
{
    size_t r;
    return __builtin_mul_overflow(a, b, &r) ? static_cast<size_t>(-1) / 2 : r;
}

bool validProblem(const AdjustmentProblem& p) { return p.rows > 0 && p.columns > 0; }

} // namespace

int createTable(const AdjustmentProblem& problem, AdjustmentTable& table)
{
    if (!validProblem(problem)) return 1;
    size_t m = product(size_t(problem.rows), size_t(problem.columns));
    if (table.b.allocate(m) && table.z.allocate(size_t(problem.rows)) && table.w.allocate(size_t(problem.columns))) {
        table.H = 0.0;
        return 0;
    }
    freeTable(table);
    return 1;
}

int createWork(const AdjustmentProblem& problem, AdjustmentWork& work)
{
    if (!validProblem(problem)) return 1;
    size_t n = size_t(problem.restrictions);
    if (work.T.allocate(product(n, n)) && work.V.allocate(product(n, n)) && work.s.allocate(n) &&
        work.u.allocate(n) && work.d.allocate(n + 1) && work.h.allocate(n) && work.flag.allocate(n + 1)) {
        work.mean = 0.0;
        return 0;
    }
    freeWork(work);
    return 1;
}

int copyTable(const AdjustmentProblem& problem, const AdjustmentTable& from, AdjustmentTable& to)
{
    if (createTable(problem, to) != 0) return 1;
    std::memcpy(to.b.data(), from.b.data(), sizeof(double) * size_t(problem.cells));
    std::memcpy(to.z.data(), from.z.data(), sizeof(double) * size_t(problem.rows));
    std::memcpy(to.w.data(), from.w.data(), sizeof(double) * size_t(problem.columns));
    to.H = from.H;
    return 0;
}

void freeTable(AdjustmentTable& table)
{
    table.b.release();
    table.z.release();
    table.w.release();
}

void freeWork(AdjustmentWork& work)
{
    work.T.release();
    work.V.release();
    work.h.release();
    work.s.release();
    work.u.release();
    work.d.release();
    work.flag.release();
}

void buildSystem(const AdjustmentProblem& problem, const AdjustmentTable& table, AdjustmentWork& work)
{
    const int R = problem.rows, C = problem.columns, n = problem.restrictions;
    const size_t m = size_t(problem.cells);
    double* T = work.T.data();
    std::memset(T, 0, sizeof(double) * size_t(n) * size_t(n));
    double cellSum = 0.0, weightSum = 0.0, weighted = 0.0, outside = 0.0;
    for (int i = 0; i < R; ++i) {
        // column i of A: sqrt(b) on the cells of row i, its norm the root of the row sum
        double rowSum = 0.0, rowWeighted = 0.0;
        for (int j = 0; j < C; ++j) {
            double b = table.b[size_t(i) * size_t(C) + size_t(j)];
            rowSum += b;
            rowWeighted += table.w[size_t(j)] * b;
            weightSum += std::fabs(table.w[size_t(j)] * std::sqrt(b));
        }
        double norm = std::sqrt(rowSum);
        double projection = norm > 0.0 ? rowWeighted / norm : 0.0;   // of the weighted column on column i
        T[size_t(i) * size_t(n) + size_t(i)] = norm;
        T[size_t(i) * size_t(n) + size_t(R)] = projection;
        // what the weighted column keeps outside column i, cell by cell, so that a column
        // that depends on the others gives a zero without cancellation
        double mean = rowSum > 0.0 ? rowWeighted / rowSum : 0.0;
        for (int j = 0; j < C; ++j) {
            size_t k = size_t(i) * size_t(C) + size_t(j);
            double r = std::sqrt(table.b[k]) * (table.w[size_t(j)] - mean);
            outside += r * r;
        }
        work.d[size_t(i)] = table.z[size_t(i)] - rowSum;
        cellSum += rowSum;
        weighted += rowWeighted;
    }
    T[size_t(R) * size_t(n) + size_t(R)] = std::sqrt(outside);
    work.d[size_t(R)] = table.H - weighted;
    // the cells themselves and the weighted roots: it only scales the threshold
    work.mean = (cellSum + weightSum) / (2.0 * double(m));
}

SVD makeSVD(const AdjustmentProblem& problem, AdjustmentWork& work)
{
    return SVD(problem.restrictions, problem.restrictions, work.T.data(), work.V.data(), work.s.data(),
               work.u.data(), work.flag.data(), false);
}

double nullThreshold(const AdjustmentWork& work) { return work.mean * 1e-12; }

int applySolution(const AdjustmentProblem& problem, AdjustmentTable& table, AdjustmentWork& work, SVD& svd)
{
    // y = A h with h = V S^-2 V^T d, A taken from b and w: y[k] = sqrt(b[k]) (h[i] + w[j] h[R])
    int status = svd.solveNormal(work.d.data(), work.h.data());
    if (status != 0) return status;
    const int R = problem.rows, C = problem.columns;
    const double hLast = work.h[size_t(R)];
    for (int i = 0; i < R; ++i)
        for (int j = 0; j < C; ++j) {
            size_t k = size_t(i) * size_t(C) + size_t(j);
            double root = std::sqrt(table.b[k]);
            table.b[k] += root * root * (work.h[size_t(i)] + table.w[size_t(j)] * hLast);
        }
    return 0;
}

AdjustmentResult adjustTable(const AdjustmentProblem& problem, AdjustmentTable& table)
{
    AdjustmentResult result;
    AdjustmentWork work;
    if (createWork(problem, work) != 0) {
        result.outcome = Adjustment::NoMemoryForWork;
        return result;
    }
    buildSystem(problem, table, work);
    SVD svd = makeSVD(problem, work);
    result.decomposition = svd.decompose();
    if (result.decomposition != 0) {
        result.outcome = Adjustment::DecompositionFailed;
        return result;
    }
    result.kept = svd.reduce(nullThreshold(work));
    if (result.kept <= 0) {
        result.outcome = Adjustment::NullMatrix;
        return result;
    }
    if (applySolution(problem, table, work, svd) != 0) result.outcome = Adjustment::NullMatrix;
    return result;
}
