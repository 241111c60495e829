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
    size_t m = product(size_t(problem.rows), size_t(problem.columns)), n = size_t(problem.restrictions);
    if (work.A.allocate(product(m, n)) && work.V.allocate(n * n) && work.s.allocate(n) && work.u.allocate(n) &&
        work.d.allocate(n + 1) && work.flag.allocate(n + 1)) {
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
    work.A.release();
    work.V.release();
    work.s.release();
    work.u.release();
    work.d.release();
    work.flag.release();
}

void buildSystem(const AdjustmentProblem& problem, const AdjustmentTable& table, AdjustmentWork& work)
{
    const int R = problem.rows, C = problem.columns, n = problem.restrictions;
    const size_t m = size_t(problem.cells);
    std::memset(work.A.data(), 0, sizeof(double) * m * size_t(n));
    double cellSum = 0.0, weightSum = 0.0, weighted = 0.0;
    for (int i = 0; i < R; ++i) {
        double rowSum = 0.0;
        for (int j = 0; j < C; ++j) {
            size_t k = size_t(i) * size_t(C) + size_t(j);
            double b = table.b[k];
            double root = std::sqrt(b);
            double* row = work.A.data() + k * size_t(n);
            row[i] = root;
            row[R] = table.w[size_t(j)] * root;
            rowSum += b;
            cellSum += b;
            weightSum += std::fabs(row[R]);
            weighted += table.w[size_t(j)] * b;
        }
        work.d[size_t(i)] = table.z[size_t(i)] - rowSum;
    }
    work.d[size_t(R)] = table.H - weighted;
    // the cells themselves and the roots of the weighted column: it only scales the threshold
    work.mean = (cellSum + weightSum) / (2.0 * double(m));
}

SVD makeSVD(const AdjustmentProblem& problem, AdjustmentWork& work)
{
    return SVD(problem.cells, problem.restrictions, work.A.data(), work.V.data(), work.s.data(), work.u.data(),
               work.flag.data());
}

double nullThreshold(const AdjustmentWork& work) { return work.mean * 1e-12; }

int applySolution(const AdjustmentProblem& problem, AdjustmentTable& table, AdjustmentWork& work, SVD& svd)
{
    int status = svd.coefficients(work.d.data());
    if (status != 0) return status;
    // y of a cell needs only its own row of U, so x can take the place of b at once
    for (int c = 0; c < problem.cells; ++c) table.b[size_t(c)] += std::sqrt(table.b[size_t(c)]) * svd.combine(c);
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
