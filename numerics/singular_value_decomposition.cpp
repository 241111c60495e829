#include "numerics/singular_value_decomposition.h"

#include <cmath>

namespace {

// |a| with the sign of b
double withSign(double a, double b) { return b >= 0.0 ? std::fabs(a) : -std::fabs(a); }

// sqrt(a^2 + b^2) without overflow or destructive underflow
double pythagoras(double a, double b)
{
    double x = std::fabs(a), y = std::fabs(b);
    if (x > y) return x * std::sqrt(1.0 + (y / x) * (y / x));
    return y == 0.0 ? 0.0 : y * std::sqrt(1.0 + (x / y) * (x / y));
}

} // namespace

SVD::SVD(int m, int n, double* a, double* v, double* s, double* work, int* flag, bool leftVectors)
    : m_(m), n_(n), rows_(m), cols_(n), a_(a), v_(v), s_(s), e_(work), flag_(flag), left_(leftVectors)
{
}

int SVD::decompose()
{
    if (state_ != Created) return -1;
    const int m = m_, n = n_;
    double g = 0.0, scale = 0.0, norm = 0.0;
    int l = 0;

    // Householder reduction to bidiagonal form: s holds the diagonal, e the superdiagonal
    for (int i = 0; i < n; ++i) {
        l = i + 1;
        e_[i] = scale * g;
        g = scale = 0.0;
        if (i < m) {
            // column transformation below the diagonal
            for (int k = i; k < m; ++k) scale += std::fabs(A(k, i));
            if (scale != 0.0) {
                double sum = 0.0;
                for (int k = i; k < m; ++k) {
                    A(k, i) /= scale;
                    sum += A(k, i) * A(k, i);
                }
                double f = A(i, i);
                g = -withSign(std::sqrt(sum), f);
                double h = f * g - sum;
                A(i, i) = f - g;
                for (int j = l; j < n; ++j) {
                    double dot = 0.0;
                    for (int k = i; k < m; ++k) dot += A(k, i) * A(k, j);
                    double factor = dot / h;
                    for (int k = i; k < m; ++k) A(k, j) += factor * A(k, i);
                }
                for (int k = i; k < m; ++k) A(k, i) *= scale;
            }
        }
        s_[i] = scale * g;
        g = scale = 0.0;
        if (i < m && i != n - 1) {
            // row transformation right of the superdiagonal
            for (int k = l; k < n; ++k) scale += std::fabs(A(i, k));
            if (scale != 0.0) {
                double sum = 0.0;
                for (int k = l; k < n; ++k) {
                    A(i, k) /= scale;
                    sum += A(i, k) * A(i, k);
                }
                double f = A(i, l);
                g = -withSign(std::sqrt(sum), f);
                double h = f * g - sum;
                A(i, l) = f - g;
                for (int k = l; k < n; ++k) e_[k] = A(i, k) / h;
                for (int j = l; j < m; ++j) {
                    double dot = 0.0;
                    for (int k = l; k < n; ++k) dot += A(j, k) * A(i, k);
                    for (int k = l; k < n; ++k) A(j, k) += dot * e_[k];
                }
                for (int k = l; k < n; ++k) A(i, k) *= scale;
            }
        }
        norm = std::fmax(norm, std::fabs(s_[i]) + std::fabs(e_[i]));
    }

    // accumulation of the right transformations into V
    for (int i = n - 1; i >= 0; --i) {
        if (i < n - 1) {
            if (g != 0.0) {
                // the double division avoids an underflow
                for (int j = l; j < n; ++j) V(j, i) = (A(i, j) / A(i, l)) / g;
                for (int j = l; j < n; ++j) {
                    double dot = 0.0;
                    for (int k = l; k < n; ++k) dot += A(i, k) * V(k, j);
                    for (int k = l; k < n; ++k) V(k, j) += dot * V(k, i);
                }
            }
            for (int j = l; j < n; ++j) V(i, j) = V(j, i) = 0.0;
        }
        V(i, i) = 1.0;
        g = e_[i];
        l = i;
    }

    // accumulation of the left transformations in place
    for (int i = (m < n ? m : n) - 1; left_ && i >= 0; --i) {
        l = i + 1;
        g = s_[i];
        for (int j = l; j < n; ++j) A(i, j) = 0.0;
        if (g != 0.0) {
            g = 1.0 / g;
            for (int j = l; j < n; ++j) {
                double dot = 0.0;
                for (int k = l; k < m; ++k) dot += A(k, i) * A(k, j);
                double factor = (dot / A(i, i)) * g;
                for (int k = i; k < m; ++k) A(k, j) += factor * A(k, i);
            }
            for (int j = i; j < m; ++j) A(j, i) *= g;
        } else {
            for (int j = i; j < m; ++j) A(j, i) = 0.0;
        }
        A(i, i) += 1.0;
    }

    // diagonalisation of the bidiagonal form by implicit shifted QR, from the last value up
    for (int k = n - 1; k >= 0; --k) {
        for (int iteration = 1;; ++iteration) {
            // look for a negligible superdiagonal element (split) or diagonal element (cancel)
            bool cancel = true;
            int nm = 0;
            for (l = k; l >= 0; --l) {
                nm = l - 1;
                if (std::fabs(e_[l]) + norm == norm) {
                    cancel = false;
                    break;
                }
                if (std::fabs(s_[nm]) + norm == norm) break;   // e_[0] is 0, so nm >= 0 here
            }
            if (cancel) {
                // a zero on the diagonal: rotate the superdiagonal element of row l away
                double c = 0.0, sn = 1.0;
                for (int i = l; i <= k; ++i) {
                    double f = sn * e_[i];
                    e_[i] = c * e_[i];
                    if (std::fabs(f) + norm == norm) break;
                    g = s_[i];
                    double h = pythagoras(f, g);
                    s_[i] = h;
                    h = 1.0 / h;
                    c = g * h;
                    sn = -f * h;
                    for (int j = 0; left_ && j < m; ++j) {
                        double y = A(j, nm), z = A(j, i);
                        A(j, nm) = y * c + z * sn;
                        A(j, i) = z * c - y * sn;
                    }
                }
            }
            double z = s_[k];
            if (l == k) {
                // converged: make the singular value non-negative
                if (z < 0.0) {
                    s_[k] = -z;
                    for (int j = 0; j < n; ++j) V(j, k) = -V(j, k);
                }
                break;
            }
            if (iteration == 30) return k + 1;
            // shift from the bottom 2 x 2 minor
            double x = s_[l];
            nm = k - 1;
            double y = s_[nm];
            g = e_[nm];
            double h = e_[k];
            double f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0 * h * y);
            g = pythagoras(f, 1.0);
            f = ((x - z) * (x + z) + h * ((y / (f + withSign(g, f))) - h)) / x;
            // next QR transformation
            double c = 1.0, sn = 1.0;
            for (int j = l; j <= nm; ++j) {
                int i = j + 1;
                g = e_[i];
                y = s_[i];
                h = sn * g;
                g = c * g;
                z = pythagoras(f, h);
                e_[j] = z;
                c = f / z;
                sn = h / z;
                f = x * c + g * sn;
                g = g * c - x * sn;
                h = y * sn;
                y *= c;
                for (int r = 0; r < n; ++r) {
                    double vx = V(r, j), vz = V(r, i);
                    V(r, j) = vx * c + vz * sn;
                    V(r, i) = vz * c - vx * sn;
                }
                z = pythagoras(f, h);
                s_[j] = z;
                if (z != 0.0) {
                    z = 1.0 / z;
                    c = f * z;
                    sn = h * z;
                }
                f = c * g + sn * y;
                x = c * y - sn * g;
                for (int r = 0; left_ && r < m; ++r) {
                    double ay = A(r, j), az = A(r, i);
                    A(r, j) = ay * c + az * sn;
                    A(r, i) = az * c - ay * sn;
                }
            }
            e_[l] = 0.0;
            e_[k] = f;
            s_[k] = x;
        }
    }
    kept_ = n;
    state_ = Decomposed;
    return 0;
}

int SVD::reduce(double threshold)
{
    if (state_ != Decomposed) return -1;
    int k = 0;
    for (int j = 0; j < n_; ++j) {
        flag_[j] = s_[j] > threshold;
        if (!flag_[j]) continue;
        if (k != j) {
            s_[k] = s_[j];
            if (left_)
                for (int i = 0; i < m_; ++i) A(i, k) = A(i, j);
            for (int i = 0; i < n_; ++i) V(i, k) = V(i, j);
        }
        ++k;
    }
    flag_[n_] = k;
    kept_ = cols_ = k;
    state_ = Reduced;
    return k;
}

int SVD::range(double& largest, double& smallest) const
{
    largest = 0.0;
    smallest = 1e99;
    if (state_ == Created) return -1;
    int count = 0;
    for (int k = 0; k < kept_; ++k) {
        if (!(s_[k] > 0.0)) continue;
        ++count;
        if (s_[k] > largest) largest = s_[k];
        if (s_[k] < smallest) smallest = s_[k];
    }
    return count;
}

int SVD::coefficients(const double* rhs)
{
    if (state_ != Reduced) return -1;
    // A^T = V S U^T, so y = U S^-1 V^T rhs
    for (int k = 0; k < kept_; ++k) {
        if (s_[k] == 0.0) return 1;
        double dot = 0.0;
        for (int l = 0; l < n_; ++l) dot += rhs[l] * v_[static_cast<long>(l) * n_ + k];
        e_[k] = dot / s_[k];
    }
    return 0;
}

double SVD::combine(int c) const
{
    const double* row = a_ + static_cast<long>(c) * n_;
    double sum = 0.0;
    for (int k = 0; k < kept_; ++k) sum += e_[k] * row[k];
    return sum;
}

int SVD::solveNormal(const double* rhs, double* h)
{
    int status = coefficients(rhs);
    if (status != 0) return status;
    for (int k = 0; k < kept_; ++k) e_[k] /= s_[k];
    for (int l = 0; l < n_; ++l) {
        double sum = 0.0;
        const double* row = v_ + static_cast<long>(l) * n_;
        for (int k = 0; k < kept_; ++k) sum += row[k] * e_[k];
        h[l] = sum;
    }
    return 0;
}

int SVD::solveTransposed(const double* rhs, double* y)
{
    int status = coefficients(rhs);
    if (status != 0) return status;
    for (int c = 0; c < rows_; ++c) y[c] = combine(c);
    return 0;
}
