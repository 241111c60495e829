#!/usr/bin/env python3
"""Independent check of the fit of flows inside one internal type.

Reads a problem from the file named by the first argument and writes the fitted tables to the
file named by the second. Regions n, cohorts m; flows F[v][w][c] between regions, stayers
S[v][c], arrivals from other types A[v][c]; lower and upper limit of each region's end
population. Columns (a region's end population: its column of flows plus stayers plus
arrivals) are scaled into their limits, then each origin's row (flows out plus stayers) and the
type's arrivals per cohort are scaled back to what they were, until no region needs a change of
eps or more, or niter passes have been made.

Input: "n m", "eps niter", then n*n*m flow values (v, w, c order), n*m stayers, n*m arrivals,
n lower limits, n upper limits ("inf" for none), whitespace separated.
Output: the number of passes, then flows, stayers and arrivals in the same order.
"""
import math
import sys


def fit(n, m, eps, niter, F, S, A, lo, hi):
    row_target = [[sum(F[v][w][c] for w in range(n)) + S[v][c] for c in range(m)] for v in range(n)]
    arr_target = [sum(A[v][c] for v in range(n)) for c in range(m)]
    k = 0
    while True:
        demand = [sum(F[v][w][c] for v in range(n) for c in range(m)) + sum(S[w]) + sum(A[w]) for w in range(n)]
        factor = []
        for w in range(n):
            f = 1.0
            if lo[w] > demand[w]:
                f = lo[w] / demand[w] if abs(demand[w]) >= 1e-30 else 1.0
            elif demand[w] > hi[w]:
                f = hi[w] / demand[w] if abs(demand[w]) >= 1e-30 else 1.0
            factor.append(f)
        norm = max([abs(f - 1) for f in factor] + [0.0])
        k += 1
        if eps > norm or k - 1 >= niter:
            return k
        for v in range(n):
            for w in range(n):
                for c in range(m):
                    F[v][w][c] *= factor[w]
            for c in range(m):
                S[v][c] *= factor[v]
                A[v][c] *= factor[v]
        for v in range(n):
            for c in range(m):
                now = sum(F[v][w][c] for w in range(n)) + S[v][c]
                r = row_target[v][c] / now if abs(now) >= 1e-30 else 1.0
                for w in range(n):
                    F[v][w][c] *= r
                S[v][c] *= r
        for c in range(m):
            now = sum(A[v][c] for v in range(n))
            r = arr_target[c] / now if abs(now) >= 1e-30 else 1.0
            for v in range(n):
                A[v][c] *= r


def main():
    words = open(sys.argv[1]).read().split()
    pos = 0

    def take(count, kind=float):
        nonlocal pos
        out = [kind(x) for x in words[pos:pos + count]]
        pos += count
        return out

    n, m = take(2, int)
    eps, niter = take(1)[0], take(1, int)[0]
    flat = take(n * n * m)
    F = [[[flat[(v * n + w) * m + c] for c in range(m)] for w in range(n)] for v in range(n)]
    flat = take(n * m)
    S = [[flat[v * m + c] for c in range(m)] for v in range(n)]
    flat = take(n * m)
    A = [[flat[v * m + c] for c in range(m)] for v in range(n)]
    lo, hi = take(n), take(n)
    k = fit(n, m, eps, niter, F, S, A, lo, hi)
    with open(sys.argv[2], "w") as out:
        out.write("%d\n" % k)
        values = [F[v][w][c] for v in range(n) for w in range(n) for c in range(m)]
        values += [S[v][c] for v in range(n) for c in range(m)] + [A[v][c] for v in range(n) for c in range(m)]
        out.write("\n".join(repr(x) for x in values) + "\n")


if __name__ == "__main__":
    main()
