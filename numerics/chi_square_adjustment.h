// Adjustment of a two-dimensional table of counts b to row targets z and one weighted
// total H, changing it as little as possible in the chi-square sense (the sum of
// (x - b)^2 / b): with x = b + sqrt(b) y the problem is the minimum norm solution y of
// A^T y = d, found through the singular value decomposition, so that restrictions that
// depend on each other are met in the least squares sense.
#pragma once
#include <cstddef>

#include "numerics/singular_value_decomposition.h"

// an array of doubles or ints allocated with calloc, so that a failed allocation is a
// return code and not the end of the process
template <class T>
class ZeroedArray {
public:
    ZeroedArray() = default;
    ZeroedArray(const ZeroedArray&) = delete;
    ZeroedArray& operator=(const ZeroedArray&) = delete;
    ~ZeroedArray() { release(); }
    bool allocate(size_t count);
    void release();
    T* data() { return p_; }
    const T* data() const { return p_; }
    T& operator[](size_t i) { return p_[i]; }
    const T& operator[](size_t i) const { return p_[i]; }
    size_t size() const { return n_; }

private:
    T* p_ = nullptr;
    size_t n_ = 0;
};

// the problem: R rows, C columns, m = R * C cells, n = R + 1 restrictions
struct AdjustmentProblem {
    int rows = 0, columns = 0, cells = 0, restrictions = 0;
    AdjustmentProblem() = default;
    AdjustmentProblem(int r, int c) : rows(r), columns(c), cells(r * c), restrictions(r + 1) {}
};

// the caller's table: cells b row by row, row targets z, household target H, column weights w
struct AdjustmentTable {
    ZeroedArray<double> b, z, w;
    double H = 0.0;
};

// The work record. The system matrix A (m x n) has A[k][i] = sqrt(b[k]) for the row i of
// cell k and A[k][R] = w[j] sqrt(b[k]): its first R columns have disjoint supports, so its
// QR factorisation A = Q T is known in closed form, and the decomposition runs on the n x n
// factor T, which has the same singular values and right vectors as A. The solution
// y = A V S^-2 V^T d needs no left vectors. T (n x n), V (n x n), the singular values, the
// work vector u, the right side d (n + 1), h = V S^-2 V^T d (n), the flags (n + 1) and the
// mean size value.
// T is upper triangular with only its diagonal and its last column filled: the diagonal
// (R + 1, the roots of the row sums and the part of the weighted column outside the rows)
// and the last column above the diagonal (R) are kept apart as well, so that a system of full
// rank is solved directly in O(n) without T.
struct AdjustmentWork {
    ZeroedArray<double> T, V, s, u, d, h;
    ZeroedArray<double> diagonal, lastColumn;
    ZeroedArray<int> flag;
    double mean = 0.0;
};

// 0 on success, 1 when the memory could not be had (nothing is left allocated then);
// createWork makes the whole record, createVectors only the parts of size n for the direct
// solution (T, V and the flags stay empty)
int createTable(const AdjustmentProblem& problem, AdjustmentTable& table);
int createWork(const AdjustmentProblem& problem, AdjustmentWork& work);
int createVectors(const AdjustmentProblem& problem, AdjustmentWork& work);
// a copy of the table, 1 when the memory could not be had
int copyTable(const AdjustmentProblem& problem, const AdjustmentTable& from, AdjustmentTable& to);
void freeTable(AdjustmentTable& table);
void freeWork(AdjustmentWork& work);

// the diagonal and last column of T, the right side and the mean size value of the system
void buildVectors(const AdjustmentProblem& problem, const AdjustmentTable& table, AdjustmentWork& work);
// the same and the factor T itself
void buildSystem(const AdjustmentProblem& problem, const AdjustmentTable& table, AdjustmentWork& work);
// The direct solution h = (T^T T)^-1 d over the rows that hold anything, when the reduction
// would keep every singular value of T but those of the empty rows: the smallest one is
// bounded from below through the norm of T^-1 and must lie far above the threshold. Returns
// the number of singular values the reduction would keep (n less the empty rows), or 0 when
// the system needs the decomposition. h of an empty row is 0; it changes no cell.
int solveDirectly(const AdjustmentProblem& problem, AdjustmentWork& work);
// the decomposition of T over the arrays of the work record
SVD makeSVD(const AdjustmentProblem& problem, AdjustmentWork& work);
// the threshold below which a singular value counts as 0
double nullThreshold(const AdjustmentWork& work);
// replaces b by the adjusted table x = b + sqrt(b) y; x may be negative. 0 on success,
// else the result of the solution
int applySolution(const AdjustmentProblem& problem, AdjustmentTable& table, AdjustmentWork& work, SVD& svd);

// The whole sequence on a filled table: work record, build, decomposition, reduction,
// application. The outcome names the step that failed, so that each caller can say it
// in its own words.
enum class Adjustment { Done, NoMemoryForWork, DecompositionFailed, NullMatrix };
struct AdjustmentResult {
    Adjustment outcome = Adjustment::Done;
    int kept = 0;             // singular values kept
    int decomposition = 0;    // the decomposition's result
};
// adjustTable solves a system of full rank directly and leaves the decomposition to the
// others; adjustTableByDecomposition always decomposes. Both give the same table.
AdjustmentResult adjustTable(const AdjustmentProblem& problem, AdjustmentTable& table);
AdjustmentResult adjustTableByDecomposition(const AdjustmentProblem& problem, AdjustmentTable& table);
