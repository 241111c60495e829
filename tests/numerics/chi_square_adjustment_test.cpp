// The decomposition and the chi-square adjustment against independent references: LAPACK's
// dgesvd and dgelsd, and the Lagrange solution of the adjustment solved by elimination.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "numerics/chi_square_adjustment.h"

extern "C" {
void dgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, double* a, const int* lda, double* s,
             double* u, const int* ldu, double* vt, const int* ldvt, double* work, const int* lwork, int* info);
void dgelsd_(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b, const int* ldb,
             double* s, const double* rcond, int* rank, double* work, const int* lwork, int* iwork, int* info);
}

namespace {

using Matrix = std::vector<double>;   // row by row

// m x n with entries in [-1, 1]; rank r (< min(m, n)) when given, as a product of two factors
Matrix randomMatrix(int m, int n, std::mt19937& gen, int rank = 0)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    Matrix a(size_t(m) * n);
    if (rank == 0) {
        for (double& x : a) x = u(gen);
        return a;
    }
    Matrix l(size_t(m) * rank), r(size_t(rank) * n);
    for (double& x : l) x = u(gen);
    for (double& x : r) x = u(gen);
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
            for (int k = 0; k < rank; ++k) a[size_t(i) * n + j] += l[size_t(i) * rank + k] * r[size_t(k) * n + j];
    return a;
}

std::vector<double> lapackSingularValues(const Matrix& a, int m, int n)
{
    Matrix col(a.size());
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j) col[size_t(j) * m + i] = a[size_t(i) * n + j];
    std::vector<double> s(size_t(std::min(m, n)));
    int lwork = -1, info = 0, one = 1;
    double query;
    dgesvd_("N", "N", &m, &n, col.data(), &m, s.data(), nullptr, &one, nullptr, &one, &query, &lwork, &info);
    lwork = int(query);
    std::vector<double> work(static_cast<size_t>(lwork));
    dgesvd_("N", "N", &m, &n, col.data(), &m, s.data(), nullptr, &one, nullptr, &one, work.data(), &lwork, &info);
    EXPECT_EQ(info, 0);
    return s;
}

// minimum norm least squares solution of M x = b, M rows x cols row by row
std::vector<double> lapackMinimumNorm(const Matrix& mat, int rows, int cols, const std::vector<double>& b, double rcond)
{
    Matrix col(mat.size());
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) col[size_t(j) * rows + i] = mat[size_t(i) * cols + j];
    int ldb = std::max(rows, cols), nrhs = 1, rank = 0, info = 0, lwork = -1;
    std::vector<double> rhs(size_t(ldb), 0.0), s(size_t(std::min(rows, cols)));
    std::copy(b.begin(), b.end(), rhs.begin());
    double query;
    int iquery;
    dgelsd_(&rows, &cols, &nrhs, col.data(), &rows, rhs.data(), &ldb, s.data(), &rcond, &rank, &query, &lwork,
            &iquery, &info);
    lwork = int(query);
    std::vector<double> work(static_cast<size_t>(lwork));
    std::vector<int> iwork(size_t(std::max(1, iquery)));
    dgelsd_(&rows, &cols, &nrhs, col.data(), &rows, rhs.data(), &ldb, s.data(), &rcond, &rank, work.data(), &lwork,
            iwork.data(), &info);
    EXPECT_EQ(info, 0);
    rhs.resize(size_t(cols));
    return rhs;
}

struct Decomposition {
    int m, n;
    Matrix a, v;
    std::vector<double> s, u;
    std::vector<int> flag;
    SVD svd;
    Decomposition(const Matrix& matrix, int m_, int n_)
        : m(m_), n(n_), a(matrix), v(size_t(n_) * n_), s(size_t(n_)), u(size_t(n_)), flag(size_t(n_) + 1),
          svd(m_, n_, a.data(), v.data(), s.data(), u.data(), flag.data())
    {
    }
};

} // namespace

TEST(SingularValueDecomposition, ValuesMatchLapackAndFactorsRebuildTheMatrix)
{
    std::mt19937 gen(12345);
    // tall, square, wide, and rank-deficient shapes, as the adjustment builds them
    struct Shape { int m, n, rank; };
    for (Shape shape : {Shape{8, 3, 0}, Shape{5, 5, 0}, Shape{3, 7, 0}, Shape{104, 27, 0}, Shape{40, 12, 5},
                        Shape{6, 9, 2}}) {
        Matrix a = randomMatrix(shape.m, shape.n, gen, shape.rank);
        Decomposition d(a, shape.m, shape.n);
        ASSERT_EQ(d.svd.decompose(), 0);
        EXPECT_EQ(d.svd.decompose(), -1);   // only once
        std::vector<double> ours(d.s), theirs = lapackSingularValues(a, shape.m, shape.n);
        std::sort(ours.rbegin(), ours.rend());
        for (size_t k = 0; k < ours.size(); ++k) {
            EXPECT_GE(ours[k], 0.0);
            double expected = k < theirs.size() ? theirs[k] : 0.0;
            EXPECT_NEAR(ours[k], expected, 1e-12 * theirs[0]) << shape.m << "x" << shape.n << " value " << k;
        }
        // U S V^T gives A back, V is orthogonal
        for (int i = 0; i < shape.m; ++i)
            for (int j = 0; j < shape.n; ++j) {
                double sum = 0;
                for (int k = 0; k < shape.n; ++k) sum += d.svd.u(i, k) * d.svd.value(k) * d.svd.v(j, k);
                EXPECT_NEAR(sum, a[size_t(i) * shape.n + j], 1e-12);
            }
        for (int i = 0; i < shape.n; ++i)
            for (int j = 0; j < shape.n; ++j) {
                double dot = 0;
                for (int k = 0; k < shape.n; ++k) dot += d.svd.v(k, i) * d.svd.v(k, j);
                EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, 1e-12);
            }
    }
}

TEST(SingularValueDecomposition, MinimumNormSolutionMatchesLapackAlsoWithoutFullRank)
{
    std::mt19937 gen(777);
    std::uniform_real_distribution<double> u(-5.0, 5.0);
    struct Shape { int m, n, rank; };
    for (Shape shape : {Shape{10, 4, 0}, Shape{30, 8, 3}, Shape{4, 6, 0}, Shape{12, 12, 7}}) {
        Matrix a = randomMatrix(shape.m, shape.n, gen, shape.rank);
        std::vector<double> rhs(size_t(shape.n));
        for (double& x : rhs) x = u(gen);
        Decomposition d(a, shape.m, shape.n);
        ASSERT_EQ(d.svd.decompose(), 0);
        double largest, smallest;
        ASSERT_GE(d.svd.range(largest, smallest), std::min(shape.m, shape.n));
        int kept = d.svd.reduce(largest * 1e-10);
        EXPECT_EQ(kept, shape.rank ? shape.rank : std::min(shape.m, shape.n));
        EXPECT_EQ(d.svd.range(largest, smallest), kept);
        std::vector<double> y(size_t(shape.m));
        ASSERT_EQ(d.svd.solveTransposed(rhs.data(), y.data()), 0);

        // the same problem for LAPACK: A^T y = rhs, A^T being n x m
        Matrix at(a.size());
        for (int i = 0; i < shape.m; ++i)
            for (int j = 0; j < shape.n; ++j) at[size_t(j) * shape.m + i] = a[size_t(i) * shape.n + j];
        std::vector<double> expected = lapackMinimumNorm(at, shape.n, shape.m, rhs, 1e-10);
        for (int c = 0; c < shape.m; ++c) EXPECT_NEAR(y[size_t(c)], expected[size_t(c)], 1e-9) << c;
    }
}

TEST(SingularValueDecomposition, OperationsInTheWrongStateAreRefused)
{
    Matrix a = {1, 2, 3, 4};
    Decomposition d(a, 2, 2);
    double y[2], rhs[2] = {1, 1};
    EXPECT_EQ(d.svd.reduce(0), -1);
    EXPECT_EQ(d.svd.solveTransposed(rhs, y), -1);
    ASSERT_EQ(d.svd.decompose(), 0);
    EXPECT_EQ(d.svd.solveTransposed(rhs, y), -1);
    EXPECT_EQ(d.svd.reduce(0), 2);
    EXPECT_EQ(d.svd.state(), SVD::Reduced);
    EXPECT_EQ(d.svd.solveTransposed(rhs, y), 0);
}

namespace {

// Lagrange: x = b + diag(b) M^T l with (M diag(b) M^T) l = c - M b, solved by Gaussian
// elimination with pivoting; M holds the row sums and the weighted total
std::vector<double> lagrange(int R, int C, const std::vector<double>& b, const std::vector<double>& z, double H,
                             const std::vector<double>& w, bool withTotal = true)
{
    int n = withTotal ? R + 1 : R;
    auto coefficient = [&](int restriction, int i, int j) {
        return restriction < R ? (restriction == i ? 1.0 : 0.0) : w[size_t(j)];
    };
    std::vector<std::vector<double>> sys(size_t(n), std::vector<double>(size_t(n) + 1, 0.0));
    for (int p = 0; p < n; ++p) {
        double mb = 0;
        for (int i = 0; i < R; ++i)
            for (int j = 0; j < C; ++j) {
                double bij = b[size_t(i * C + j)];
                mb += coefficient(p, i, j) * bij;
                for (int q = 0; q < n; ++q) sys[size_t(p)][size_t(q)] += coefficient(p, i, j) * bij * coefficient(q, i, j);
            }
        sys[size_t(p)][size_t(n)] = (p < R ? z[size_t(p)] : H) - mb;
    }
    for (int col = 0; col < n; ++col) {
        int pivot = col;
        for (int r = col + 1; r < n; ++r)
            if (std::fabs(sys[size_t(r)][size_t(col)]) > std::fabs(sys[size_t(pivot)][size_t(col)])) pivot = r;
        std::swap(sys[size_t(col)], sys[size_t(pivot)]);
        for (int r = 0; r < n; ++r) {
            if (r == col) continue;
            double f = sys[size_t(r)][size_t(col)] / sys[size_t(col)][size_t(col)];
            for (int k = col; k <= n; ++k) sys[size_t(r)][size_t(k)] -= f * sys[size_t(col)][size_t(k)];
        }
    }
    std::vector<double> x(b);
    for (int i = 0; i < R; ++i)
        for (int j = 0; j < C; ++j) {
            double lm = 0;
            for (int q = 0; q < n; ++q) lm += coefficient(q, i, j) * sys[size_t(q)][size_t(n)] / sys[size_t(q)][size_t(q)];
            x[size_t(i * C + j)] += b[size_t(i * C + j)] * lm;
        }
    return x;
}

struct Filled {
    AdjustmentProblem problem;
    AdjustmentTable table;
    Filled(int R, int C, const std::vector<double>& b, const std::vector<double>& z, double H, const std::vector<double>& w)
        : problem(R, C)
    {
        EXPECT_EQ(createTable(problem, table), 0);
        std::copy(b.begin(), b.end(), table.b.data());
        std::copy(z.begin(), z.end(), table.z.data());
        std::copy(w.begin(), w.end(), table.w.data());
        table.H = H;
    }
    std::vector<double> cells() const { return {table.b.data(), table.b.data() + problem.cells}; }
};

} // namespace

TEST(ChiSquareAdjustment, EqualsTheLagrangeSolutionOnSmallTables)
{
    std::mt19937 gen(4242);
    std::uniform_real_distribution<double> cell(1.0, 50.0), change(0.8, 1.25);
    // the shapes of the household estimation: 26, 19, 13 and 1 rows of 4 sizes, and a 3 x 5 table
    for (auto [R, C] : {std::pair{26, 4}, std::pair{19, 4}, std::pair{13, 4}, std::pair{1, 4}, std::pair{3, 5}}) {
        std::vector<double> b(static_cast<size_t>(R * C)), z(static_cast<size_t>(R)), w(static_cast<size_t>(C));
        double H = 0;
        for (double& x : b) x = cell(gen);
        for (int i = 0; i < R; ++i) {
            for (int j = 0; j < C; ++j) z[size_t(i)] += b[size_t(i * C + j)];
            z[size_t(i)] *= change(gen);
        }
        for (int j = 0; j < C; ++j) w[size_t(j)] = 1.0 / (j + 2);
        for (int i = 0; i < R; ++i)
            for (int j = 0; j < C; ++j) H += w[size_t(j)] * b[size_t(i * C + j)] * change(gen);
        Filled f(R, C, b, z, H, w);
        AdjustmentResult r = adjustTable(f.problem, f.table);
        ASSERT_EQ(r.outcome, Adjustment::Done);
        EXPECT_EQ(r.kept, R + 1);
        std::vector<double> expected = lagrange(R, C, b, z, H, w), x = f.cells();
        for (size_t k = 0; k < x.size(); ++k) EXPECT_NEAR(x[k], expected[k], 1e-9 * std::fabs(expected[k]) + 1e-9);
        // the restrictions hold
        double total = 0;
        for (int i = 0; i < R; ++i) {
            double row = 0;
            for (int j = 0; j < C; ++j) {
                row += x[size_t(i * C + j)];
                total += w[size_t(j)] * x[size_t(i * C + j)];
            }
            EXPECT_NEAR(row, z[size_t(i)], 1e-9 * z[size_t(i)]);
        }
        EXPECT_NEAR(total, H, 1e-9 * H);
    }
}

TEST(ChiSquareAdjustment, DependentRestrictionsGiveTheMinimumNormSolution)
{
    // equal weights make the total the sum of the row restrictions: one singular value is 0,
    // and with consistent targets the result is that of the row restrictions alone
    std::vector<double> b = {4, 9, 1, 16, 25, 4}, z = {20, 40}, w = {1, 1, 1};
    Filled f(2, 3, b, z, 60, w);
    AdjustmentResult r = adjustTable(f.problem, f.table);
    ASSERT_EQ(r.outcome, Adjustment::Done);
    EXPECT_EQ(r.kept, 2);
    std::vector<double> expected = lagrange(2, 3, b, z, 60, w, false), x = f.cells();
    for (size_t k = 0; k < x.size(); ++k) EXPECT_NEAR(x[k], expected[k], 1e-12 * 40);
    // by hand: each row is scaled to its target
    EXPECT_NEAR(x[0], 4 * 20.0 / 14, 1e-12);
    EXPECT_NEAR(x[3], 16 * 40.0 / 45, 1e-12);
}

TEST(ChiSquareAdjustment, ZerosSingleRowsAndNegativeResults)
{
    // a table of zeros keeps no singular value
    Filled zeros(2, 2, {0, 0, 0, 0}, {1, 1}, 1, {0.5, 0.5});
    EXPECT_EQ(adjustTable(zeros.problem, zeros.table).outcome, Adjustment::NullMatrix);

    // one row: two restrictions; x = b + b (l1 + w l2) by hand
    Filled single(1, 2, {10, 10}, {30}, 10, {0.5, 0.25});
    AdjustmentResult r = adjustTable(single.problem, single.table);
    ASSERT_EQ(r.outcome, Adjustment::Done);
    EXPECT_EQ(r.kept, 2);
    // x1 + x2 = 30 and x1/2 + x2/4 = 10 give x1 = 10, x2 = 20
    EXPECT_NEAR(single.table.b[0], 10, 1e-12);
    EXPECT_NEAR(single.table.b[1], 20, 1e-12);

    // a strong cut goes below zero and stays there
    Filled cut(1, 2, {10, 10}, {2}, 10, {1, 0});
    ASSERT_EQ(adjustTable(cut.problem, cut.table).outcome, Adjustment::Done);
    EXPECT_NEAR(cut.table.b[0], 10, 1e-12);
    EXPECT_NEAR(cut.table.b[1], -8, 1e-12);
}

TEST(ChiSquareAdjustment, DirectSolutionEqualsTheDecomposition)
{
    // random margin tables of the household and the migration shapes, some with empty rows
    // or empty cells, some with weights so close together that the total hardly depends on
    // anything but the rows (its target then that of the rows scaled to their targets, else
    // the cells would run off to millions): the result and the number of kept values must
    // not depend on the way of solving
    std::mt19937 gen(9001);
    std::uniform_real_distribution<double> cell(0.0, 80.0), change(0.7, 1.3), unit(0.0, 1.0);
    struct Shape { int R, C; double emptyRows, emptyCells, spread; };
    for (Shape shape : {Shape{59, 4, 0, 0, 1}, Shape{59, 4, 0.2, 0.3, 1}, Shape{1, 3, 0, 0, 1}, Shape{120, 6, 0.1, 0.5, 1},
                        Shape{30, 4, 0, 0, 1e-5}, Shape{30, 4, 0.3, 0, 1e-14}, Shape{8, 2, 0.5, 0.5, 1}}) {
        for (int round = 0; round < 4; ++round) {
            const int R = shape.R, C = shape.C;
            std::vector<double> b(static_cast<size_t>(R * C)), z(static_cast<size_t>(R)), w(static_cast<size_t>(C));
            double H = 0;
            for (int i = 0; i < R; ++i) {
                bool empty = unit(gen) < shape.emptyRows;
                for (int j = 0; j < C; ++j) b[size_t(i * C + j)] = empty || unit(gen) < shape.emptyCells ? 0 : cell(gen);
                for (int j = 0; j < C; ++j) z[size_t(i)] += b[size_t(i * C + j)];
                z[size_t(i)] = empty ? 5 : z[size_t(i)] * change(gen);
            }
            for (int j = 0; j < C; ++j) w[size_t(j)] = 1.0 + shape.spread * j / (j + 2.0);
            for (int i = 0; i < R; ++i) {
                double row = 0;
                for (int j = 0; j < C; ++j) row += b[size_t(i * C + j)];
                for (int j = 0; j < C; ++j)
                    H += w[size_t(j)] * b[size_t(i * C + j)] * (shape.spread >= 1e-3 ? change(gen) : row > 0 ? z[size_t(i)] / row : 0.0);
            }
            Filled fast(R, C, b, z, H, w), general(R, C, b, z, H, w);
            AdjustmentResult r = adjustTable(fast.problem, fast.table);
            AdjustmentResult g = adjustTableByDecomposition(general.problem, general.table);
            ASSERT_EQ(r.outcome, g.outcome) << R << "x" << C << " round " << round;
            EXPECT_EQ(r.kept, g.kept) << R << "x" << C << " round " << round;
            std::vector<double> x = fast.cells(), expected = general.cells();
            double largest = 0;
            for (double e : expected) largest = std::max(largest, std::fabs(e));
            for (size_t k = 0; k < x.size(); ++k)
                EXPECT_NEAR(x[k], expected[k], 1e-10 * largest) << R << "x" << C << " round " << round << " cell " << k;

            AdjustmentWork work;
            ASSERT_EQ(createVectors(fast.problem, work), 0);
            Filled again(R, C, b, z, H, w);
            buildVectors(again.problem, again.table, work);
            // without empty cells only the total that depends on the rows needs the decomposition
            if (shape.emptyCells == 0) {
                EXPECT_EQ(solveDirectly(again.problem, work) > 0, shape.spread > 1e-10) << R << "x" << C;
            }
            freeWork(work);
        }
    }
}
