// Shared helpers of the forecast kernel: safe division, rounding with carry, the relative
// comparison, the damped ratio, and the module switches _(X_n) and X_().
#pragma once
#include <cmath>
#include <initializer_list>

// a/b, or d when |b| is below 1e-30
inline double safe(double a, double b, double d) { return std::fabs(b) < 1e-30 ? d : a / b; }

// half away from zero
inline double roundHalfAway(double s) { return s >= 0 ? std::floor(s + 0.5) : std::ceil(s - 0.5); }

// Rounding of a stream of flows to whole numbers: what a rounding takes or gives is carried
// into the next value, so that the total of the stream survives. One object per stage.
struct RoundCarry {
    double carry = 0;
    double operator()(double v) {
        if (v == 0) return 0;
        double s = carry + v;
        double n = roundHalfAway(s);
        carry += v - n;
        return n;
    }
};

// 1 if a-b > d, -1 if a-b < -d, else 0, where d is tol scaled by the binary exponent
// of the larger of |a|, |b|.
int Compare(double a, double b, double tol);

// ratio of a to b damped by the exponent sce: 1 for |b| below 1e-30; r^sce for r > 0, else r
double dampedRatio(double a, double b, double sce);

// ---- module switches ----
// A module variant as written in conditions: A_0 is module A with variant 0. As a number
// it is the variant, so that K_() > K_1 reads as it is written.
struct ModuleVariant {
    char letter;
    int variant;
    constexpr operator int() const { return variant; }
};

// the variant of module letter in this run
int moduleOf(char letter);

// true when the module of m runs in the variant of m: _(D_0) is "no new building"
inline bool _(ModuleVariant m) { return moduleOf(m.letter) == m.variant; }

#define VELDOR_MODULE_LETTER(X)                                                                            \
    inline constexpr ModuleVariant X##_0{#X[0], 0}, X##_1{#X[0], 1}, X##_2{#X[0], 2}, X##_3{#X[0], 3},      \
        X##_4{#X[0], 4}, X##_5{#X[0], 5}, X##_6{#X[0], 6}, X##_7{#X[0], 7}, X##_8{#X[0], 8}, X##_9{#X[0], 9}; \
    inline int X##_() { return moduleOf(#X[0]); }

VELDOR_MODULE_LETTER(A)
VELDOR_MODULE_LETTER(B)
VELDOR_MODULE_LETTER(C)
VELDOR_MODULE_LETTER(D)
VELDOR_MODULE_LETTER(E)
VELDOR_MODULE_LETTER(G)
VELDOR_MODULE_LETTER(I)
VELDOR_MODULE_LETTER(K)
VELDOR_MODULE_LETTER(M)
VELDOR_MODULE_LETTER(N)
VELDOR_MODULE_LETTER(P)
VELDOR_MODULE_LETTER(R)
VELDOR_MODULE_LETTER(S)
VELDOR_MODULE_LETTER(T)
VELDOR_MODULE_LETTER(V)
VELDOR_MODULE_LETTER(W)
VELDOR_MODULE_LETTER(Y)

#undef VELDOR_MODULE_LETTER

// the seventeen module letters in the order of the settings
inline constexpr char moduleLetters[] = "ABCDEGIKMNPRSTVWY";

// The assertion of a combination of modules: a failure names, beside the condition, the module
// keys that the variant file lacked and that got their default, which may be why it failed:
// those of guard (the condition the check stands under) when there are any, else those of the
// condition.
void moduleCheck(bool condition, const char* source, int line, const char* text, const char* guard = "");
#define MODULE_CHECK(cond, source) moduleCheck((cond), (source), __LINE__, #cond)
#define MODULE_CHECK_UNDER(guard, cond, source)                                   \
    do {                                                                          \
        if (guard) moduleCheck((cond), (source), __LINE__, #cond, #guard);        \
    } while (0)

// inrange(lo, x, hi): lo <= x <= hi, as written in assertions
template <class L, class X, class H> constexpr bool inrange(L lo, X x, H hi) { return lo <= x && x <= hi; }
// isoneof(x, { a, b }): x is one of the list
template <class X> constexpr bool isoneof(X x, std::initializer_list<X> list) {
    for (const X& y : list)
        if (x == y) return true;
    return false;
}
