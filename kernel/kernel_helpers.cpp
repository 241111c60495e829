// The comparison rules shared by all stages.
#include "kernel/kernel_helpers.h"

#include <cmath>


int Compare(double a, double b, double tol) {
    double m = std::fabs(a) > std::fabs(b) ? a : b;
    int e = 0;
    std::frexp(m, &e);
    double d = std::ldexp(tol, e);
    double diff = a - b;
    if (diff > d) return 1;
    if (diff < -d) return -1;
    return 0;
}

double dampedRatio(double a, double b, double sce) {
    if (std::fabs(b) < 1e-30) return 1.0;
    double r = a / b;
    // the undamped ratio needs no power: pow(r, 1) is r exactly
    if (sce == 1.0 || r <= 0) return r;
    return std::pow(r, sce);
}

