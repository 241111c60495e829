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
    if (createVectors(problem, work) != 0) return 1;
    size_t n = size_t(problem.restrictions);
    if (work.T.allocate(product(n, n)) && work.V.allocate(product(n, n)) && work.s.allocate(n) &&
        work.u.allocate(n) && work.flag.allocate(n + 1))
        return 0;
    freeWork(work);
    return 1;
}

int createVectors(const AdjustmentProblem& problem, AdjustmentWork& work)
{
    if (!validProblem(problem)) return 1;
    size_t n = size_t(problem.restrictions);
    if (work.d.allocate(n + 1) && work.h.allocate(n) && work.diagonal.allocate(n) &&
        work.lastColumn.allocate(size_t(problem.rows))) {
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
    work.diagonal.release();
    work.lastColumn.release();
    work.flag.release();
}

void buildVectors(const AdjustmentProblem& problem, const AdjustmentTable& table, AdjustmentWork& work)
{
    const int R = problem.rows, C = problem.columns;
    const size_t m = size_t(problem.cells);
    double* diagonal = work.diagonal.data();
    double* lastColumn = work.lastColumn.data();
    const double* w = table.w.data();
    double cellSum = 0.0, weightSum = 0.0, weighted = 0.0, outside = 0.0;
    for (int i = 0; i < R; ++i) {
        // column i of A: sqrt(b) on the cells of row i, its norm the root of the row sum
        const double* b = table.b.data() + size_t(i) * size_t(C);
        double rowSum = 0.0, rowWeighted = 0.0;
        for (int j = 0; j < C; ++j) {
            rowSum += b[j];
            rowWeighted += w[j] * b[j];
            weightSum += std::fabs(w[j] * std::sqrt(b[j]));
        }
        double norm = std::sqrt(rowSum);
        diagonal[i] = norm;
        lastColumn[i] = norm > 0.0 ? rowWeighted / norm : 0.0;   // the weighted column on column i
        // what the weighted column keeps outside column i, cell by cell, so that a column
        // that depends on the others gives a zero without cancellation
        double mean = rowSum > 0.0 ? rowWeighted / rowSum : 0.0;
        for (int j = 0; j < C; ++j) {
            double r = std::sqrt(b[j]) * (w[j] - mean);
            outside += r * r;
        }
        work.d[size_t(i)] = table.z[size_t(i)] - rowSum;
        cellSum += rowSum;
        weighted += rowWeighted;
    }
    diagonal[R] = std::sqrt(outside);
    work.d[size_t(R)] = table.H - weighted;
    // the cells themselves and the weighted roots: it only scales the threshold
    work.mean = (cellSum + weightSum) / (2.0 * double(m));
}

void buildSystem(const AdjustmentProblem& problem, const AdjustmentTable& table, AdjustmentWork& work)
{
    buildVectors(problem, table, work);
    const int R = problem.rows, n = problem.restrictions;
    double* T = work.T.data();
    std::memset(T, 0, sizeof(double) * size_t(n) * size_t(n));
    for (int i = 0; i < R; ++i) {
        T[size_t(i) * size_t(n) + size_t(i)] = work.diagonal[size_t(i)];
        T[size_t(i) * size_t(n) + size_t(R)] = work.lastColumn[size_t(i)];
    }
    T[size_t(R) * size_t(n) + size_t(R)] = work.diagonal[size_t(R)];
}

int solveDirectly(const AdjustmentProblem& problem, AdjustmentWork& work)
{
    const int R = problem.rows;
    const double* g = work.diagonal.data();
    const double* p = work.lastColumn.data();
    const double t = g[R];
    if (!(t > 0.0) || !std::isfinite(t)) return 0;   // the weighted column depends on the rows
    // T^-1 = [[G^-1, -G^-1 p / t], [0, 1 / t]] over the rows that hold anything: the square of
    // its Frobenius norm, and that of T
    double inverse = 1.0 / (t * t), norm = t * t;
    int empty = 0;
    for (int i = 0; i < R; ++i) {
        if (g[i] == 0.0) {
            ++empty;
            continue;
        }
        double q = p[i] / t;
        inverse += (1.0 + q * q) / (g[i] * g[i]);
        norm += g[i] * g[i] + p[i] * p[i];
    }
    if (!std::isfinite(inverse) || !std::isfinite(norm)) return 0;
    // the smallest singular value is at least 1 / |T^-1|; far above the threshold, and with
    // T not so badly conditioned that rounding could bring its computed value down to it
    double lowest = 1.0 / std::sqrt(inverse);
    if (!(lowest > 1e3 * nullThreshold(work)) || !(lowest > 1e-10 * std::sqrt(norm))) return 0;
    // T^T u = d, then T h = u
    double* h = work.h.data();
    double dot = 0.0;
    for (int i = 0; i < R; ++i) {
        if (g[i] == 0.0) continue;
        h[i] = work.d[size_t(i)] / g[i];
        dot += p[i] * h[i];
    }
    double last = (work.d[size_t(R)] - dot) / t / t;
    h[R] = last;
    for (int i = 0; i < R; ++i) h[i] = g[i] == 0.0 ? 0.0 : (h[i] - p[i] * last) / g[i];
    return problem.restrictions - empty;
}

SVD makeSVD(const AdjustmentProblem& problem, AdjustmentWork& work)
{
    return SVD(problem.restrictions, problem.restrictions, work.T.data(), work.V.data(), work.s.data(),
               work.u.data(), work.flag.data(), false);
}

double nullThreshold(const AdjustmentWork& work) { return work.mean * 1e-12; }

namespace {

// x = b + sqrt(b) y with y = A h: y[k] = sqrt(b[k]) (h[i] + w[j] h[R])
void correctCells(const AdjustmentProblem& problem, AdjustmentTable& table, const double* h)
{
    const int R = problem.rows, C = problem.columns;
    const double hLast = h[R];
    const double* w = table.w.data();
    for (int i = 0; i < R; ++i) {
        double* b = table.b.data() + size_t(i) * size_t(C);
        for (int j = 0; j < C; ++j) {
            double root = std::sqrt(b[j]);
            b[j] += root * root * (h[i] + w[j] * hLast);
        }
    }
}

} // namespace

int applySolution(const AdjustmentProblem& problem, AdjustmentTable& table, AdjustmentWork& work, SVD& svd)
{
    // h = V S^-2 V^T d, the solution of the normal equations of least norm
    int status = svd.solveNormal(work.d.data(), work.h.data());
    if (status != 0) return status;
    correctCells(problem, table, work.h.data());
    return 0;
}

AdjustmentResult adjustTableByDecomposition(const AdjustmentProblem& problem, AdjustmentTable& table)
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

AdjustmentResult adjustTable(const AdjustmentProblem& problem, AdjustmentTable& table)
{
    AdjustmentResult result;
    AdjustmentWork work;
    if (createVectors(problem, work) != 0) {
        result.outcome = Adjustment::NoMemoryForWork;
        return result;
    }
    buildVectors(problem, table, work);
    result.kept = solveDirectly(problem, work);
    if (result.kept == 0) return adjustTableByDecomposition(problem, table);
    correctCells(problem, table, work.h.data());
    return result;
}
