// Singular value decomposition of a dense matrix held row by row, in place: the left
// vectors overwrite the matrix, the right vectors go to V.
#pragma once

class SVD {
public:
    enum State { Created = 0, Decomposed = 1, Reduced = 2 };

    // a: m x n row by row (becomes U), v: n x n, s: n values, work: n doubles, flag: n + 1 ints;
    // the arrays belong to the caller and must outlive the object
    // leftVectors false: U is not formed (a holds no useful values afterwards), which saves
    // most of the work when only the singular values and V are needed
    SVD(int m, int n, double* a, double* v, double* s, double* work, int* flag, bool leftVectors = true);

    // Householder bidiagonalisation, accumulation of both transformations and implicit QR
    // on the bidiagonal; 0 on success, the number of the singular value that did not
    // converge in 30 iterations plus 1 on failure, -1 in the wrong state
    int decompose();
    // keeps the singular values above threshold, moved forward in their order with their
    // columns of U and V; their number, -1 in the wrong state
    int reduce(double threshold);
    // the largest and the smallest positive singular value (start values 0 and 1e99);
    // returns how many are positive, -1 before the decomposition
    int range(double& largest, double& smallest) const;
    // minimum norm least squares solution y (m values) of A^T y = rhs (n values) over the
    // kept singular values; 1 when a kept value is 0, -1 before the reduction
    int solveTransposed(const double* rhs, double* y);
    // the two halves of that solution: the coefficients S^-1 V^T rhs into the work vector
    // (same results), then y[c] of one row of U
    int coefficients(const double* rhs);
    double combine(int c) const;
    // h = V S^-2 V^T rhs over the kept values (n values into h), the solution of the normal
    // equations A^T A h = rhs of least norm; then y = A h is the solution above without U.
    // 1 when a kept value is 0, -1 before the reduction
    int solveNormal(const double* rhs, double* h);

    int kept() const { return kept_; }
    int state() const { return state_; }
    int rows() const { return rows_; }
    int columns() const { return cols_; }
    // U[i][k], V[i][k] and s[k]
    double u(int i, int k) const { return a_[static_cast<long>(i) * n_ + k]; }
    double v(int i, int k) const { return v_[static_cast<long>(i) * n_ + k]; }
    double value(int k) const { return s_[k]; }

private:
    double& A(int i, int j) { return a_[static_cast<long>(i) * n_ + j]; }
    double& V(int i, int j) { return v_[static_cast<long>(i) * n_ + j]; }

    int m_, n_;
    int rows_, cols_;         // active part of U (rows) and number of singular values in use
    double* a_;
    double* v_;
    double* s_;
    double* e_;               // superdiagonal of the bidiagonal form, then the work vector
    int* flag_;
    bool left_;
    int kept_ = 0;
    int state_ = Created;
};
