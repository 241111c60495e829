#!/usr/bin/env python3
"""Sets a forecast of the canton against the FSO's own projection.

    python3 compare.py DIR [--years 2026,2035,2055] [--check] [--chart out.png --other DIR2]

DIR is the variant directory of make_canton.py (fso.csv) and the forecast's results in
DIR/aargau/. Prints per year the total, the largest difference of a group and sex, of a
five-year age band (95 and over the last) and of a cell. --check ends with status 1 when a year
lies outside 0.005 % in the total, 0.01 % in a group and sex, 0.1 % in an age band or one
person in a cell. --chart draws the totals of each year, the FSO's and the forecast's (and those
of a second forecast --other, labelled --labels), and the differences from the FSO in per cent
of the total and of ages 0-4, through gnuplot.
"""
import argparse
import os
import subprocess
import sys

BOUNDS = {"total": 0.005, "group": 0.01, "band": 0.1, "cell": 1.0}
GROUP = {1: "Swiss", 2: "foreign"}
SEX = {1: "m", 2: "f"}


def read_fso(path):
    by_year = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            if line.startswith("#") or not line.strip():
                continue
            y, b, g, a, n = line.strip().split(";")
            by_year.setdefault(int(y), {})[(int(b), int(g), int(a))] = float(n)
    return by_year


def read_gem(path):
    cells = {}
    with open(path, encoding="utf-8-sig") as f:
        for line in f:
            if line.startswith("#") or not line.strip():
                continue
            c = line.strip().split(";")
            key = (int(c[2]), int(c[3]), int(c[4]))
            cells[key] = cells.get(key, 0.0) + float(c[5].replace(",", "."))
    return cells


def band(age):
    return min(age // 5, 19)


def band_name(i):
    return f"{5 * i}-{5 * i + 4}" if i < 19 else "95+"


def pct(a, b):
    return (a - b) / b * 100 if b else 0.0


def compare(fso, gem):
    total = sum(gem.values()), sum(fso.values())
    groups, bands = {}, {}
    for k, v in fso.items():
        f = gem.get(k, 0.0)
        gs = groups.setdefault(k[:2], [0.0, 0.0])
        gs[0] += f
        gs[1] += v
        bs = bands.setdefault(band(k[2]), [0.0, 0.0])
        bs[0] += f
        bs[1] += v
    group = max(((pct(*v), k) for k, v in groups.items()), key=lambda x: abs(x[0]))
    worst_band = max(((pct(*v), k) for k, v in bands.items()), key=lambda x: abs(x[0]))
    young = pct(*bands[0])
    cell = max(((gem.get(k, 0.0) - v, k) for k, v in fso.items()), key=lambda x: abs(x[0]))
    return {"forecast": total[0], "fso": total[1], "total": pct(*total), "group": group, "band": worst_band,
            "young": young, "cell": cell}


def main(argv):
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("dir")
    p.add_argument("--variant", default="aargau")
    p.add_argument("--years", default="2026,2035,2055")
    p.add_argument("--check", action="store_true")
    p.add_argument("--chart")
    p.add_argument("--other", help="a second variant directory of the same scenario, drawn beside")
    p.add_argument("--labels", default="with the conventions,without them")
    a = p.parse_args(argv)

    fso = read_fso(os.path.join(a.dir, "fso.csv"))
    results = os.path.join(a.dir, a.variant)
    shown = {int(y) for y in a.years.split(",") if y}
    print(f"{'year':>4} {'forecast':>12} {'FSO':>10} {'total %':>9} {'group/sex %':>20} {'age band %':>17} "
          f"{'0-4 %':>8} {'cell':>18}")
    failures = []
    for year in sorted(fso):
        path = os.path.join(results, f"gem{year}.csv")
        if not os.path.exists(path):
            failures.append(f"{path}: missing")
            continue
        r = compare(fso[year], read_gem(path))
        (gp, gk), (bp, bk), (cd, ck) = r["group"], r["band"], r["cell"]
        if year in shown or a.check:
            print(f"{year:>4} {r['forecast']:>12.1f} {r['fso']:>10.0f} {r['total']:>+9.5f} "
                  f"{gp:>+9.5f} ({GROUP[gk[0]]:>7} {SEX[gk[1]]}) {bp:>+8.4f} ({band_name(bk):>5}) {r['young']:>+8.4f} "
                  f"{cd:>+7.3f} ({ck[0]},{ck[1]},{ck[2]:>3})")
        for name, value in (("total", r["total"]), ("group", gp), ("band", bp), ("cell", cd)):
            if abs(value) > BOUNDS[name]:
                failures.append(f"{year}: {name} {value:+.5f} outside ±{BOUNDS[name]}")
    if a.chart:
        draw(a, fso)
    if a.check:
        for f in failures:
            print("outside the bounds:", f)
        print("all years within the bounds" if not failures else f"{len(failures)} values outside the bounds")
        return 1 if failures else 0
    return 0


def draw(a, fso):
    """Two panels: the totals in thousands; the difference from the FSO in per cent, of the total
    and of the age band 0-4, for each forecast."""
    series = [(os.path.join(a.dir, a.variant), a.labels.split(",")[0])]
    if a.other:
        series.append((os.path.join(a.other, a.variant), a.labels.split(",")[1]))
    data = os.path.splitext(a.chart)[0] + ".dat"
    with open(data, "w", encoding="utf-8") as f:
        f.write("# year; FSO (thousands); per forecast: total (thousands), total %, 0-4 %\n")
        for year in sorted(fso):
            values = [sum(fso[year].values()) / 1000]
            for d, _ in series:
                r = compare(fso[year], read_gem(os.path.join(d, f"gem{year}.csv")))
                values += [r["forecast"] / 1000, r["total"], r["young"]]
            f.write(f"{year} " + " ".join(f"{v:.6f}" for v in values) + "\n")
    colours = ["#1f77b4", "#d62728"]
    totals = [f"'{data}' using 1:2 with points pt 7 ps 1.1 lc rgb '#000000' title 'FSO projection'"]
    diffs = ["0 with lines lc rgb '#000000' dt 2 notitle"]
    for i, (_, label) in enumerate(series):
        c = 3 + 3 * i
        totals.append(f"'{data}' using 1:{c} with lines lw 2 lc rgb '{colours[i]}' title '{label}'")
        diffs.append(f"'{data}' using 1:{c + 1} with lines lw 2 lc rgb '{colours[i]}' title 'total, {label}'")
        diffs.append(f"'{data}' using 1:{c + 2} with lines lw 2 dt 3 lc rgb '{colours[i]}' title 'age 0-4, {label}'")
    script = "\n".join([
        "set term pngcairo size 1100,480 font 'DejaVu Sans,9'",
        f"set output '{a.chart}'",
        "set multiplot layout 1,2 title 'Canton of Aargau, FSO reference scenario 2025-2055 (Source: Swiss Federal Statistical Office)'",
        "set grid",
        "set xlabel 'year'",
        "set key left top box opaque",
        "set title 'population on 31 December (thousands)'",
        "plot " + ", ".join(totals),
        "set title 'forecast minus FSO, per cent of the FSO figure'",
        "set key right center box opaque",
        "set yrange [-1.4:0.2]",
        "plot " + ", ".join(diffs),
        "unset multiplot",
    ])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    print(f"chart: {a.chart}")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
