#!/usr/bin/env python3
"""Independent calculation of the age measures of a few distributions, written without
looking at the program: numpy-free, straight from the textbook definitions (median by linear
interpolation within the year of age, variance of the ages as whole years, Billeter measure
(P0-14 - P50+) / P15-49). Its printed values stand in indicators_test.cpp."""

def measures(counts):
    n = sum(counts)
    ages = [a for a, c in enumerate(counts) for _ in range(c)]
    mean = sum(ages) / n + 0.5                 # ages in completed years, mid-year
    var = sum((a - (mean - 0.5)) ** 2 for a in ages) / n
    peak = max(counts)
    peaks = [a for a, c in enumerate(counts) if c == peak]
    mode = peaks[0] + 0.5 * (len(peaks) - 1)
    # the age at which half the persons are reached, persons spread evenly over their year
    half, below = n / 2, 0
    for a, c in enumerate(counts):
        if below + c >= half:
            median = a + (half - below) / c
            break
        below += c
    p1 = sum(counts[:15]); p2 = sum(counts[15:50]); p3 = sum(counts[50:])
    bil = (p1 - p3) / p2 if p2 else float("nan")
    return mean, mode, median, var, bil

cases = {
    "single age 30 x7": [0] * 30 + [7],
    "two peaks": [1, 4, 2, 4, 0, 1],
    "three peaks": [3, 0, 3, 1, 3],
    "town": [5] * 15 + [8] * 35 + [4] * 30 + [1] * 20,
}
for name, counts in cases.items():
    print(name, ["%.12g" % v for v in measures(counts)])
