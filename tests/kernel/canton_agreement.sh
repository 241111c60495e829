#!/bin/bash
# The canton of Aargau against the FSO's own projection: each scenario with births on the mean of
# the year and movers exposed for half the year lies within the bounds in every year; without the
# two conventions the forecast lies low by their known effect. The yearly movement tables balance
# the population from one year's end to the next. The conversion script names bad input.
# Usage: canton_agreement.sh <source dir> <build dir>
set -euo pipefail
src=$1
build=$2
work=$(mktemp -d "$build/canton-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/App" "$work/Data"
ln -s "$build/App/orvane" "$work/App/orvane"
cp "$build"/App/datadict_*.xml "$build"/App/constant.csv "$build"/App/style.css "$work/App/"
printf '[DEFAULTS]\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\nSpaltentrennzeichen=;\n' > "$work/Data/veldor.ini"
cd "$work"
export XDG_CONFIG_HOME="$work/cfg"
make=(python3 "$src/examples/canton/make_canton.py")
compare=(python3 "$src/examples/canton/compare.py")
options='option($MIDYEAR_BIRTHS 1) option($MIDYEAR_EXPOSURE 1)'

for scenario in reference high low; do
    "${make[@]}" --scenario "$scenario" --out "$scenario/" > /dev/null
    ./App/orvane orvane -d "$scenario/" -v aargau -o "$options" > /dev/null
    echo "== $scenario, with both conventions"
    "${compare[@]}" "$scenario" --check | tail -n 1
done
# the figures of the years shown, with both conventions
"${compare[@]}" reference

# the two options are reported with the settings
grep -q '<th class=l>$MIDYEAR_BIRTHS</th><td>1</td>' reference/aargau/prot/index.html
grep -q '<th class=l>$MIDYEAR_EXPOSURE</th><td>1</td>' reference/aargau/prot/index.html

# without them: the known effect of the conventions, low in the total and most in the youngest band
"${make[@]}" --out plain/ > /dev/null
./App/orvane orvane -d plain/ -v aargau > /dev/null
grep -q '<th class=l>$MIDYEAR_BIRTHS</th><td>0</td>' plain/aargau/prot/index.html
echo "== reference, without the conventions"
"${compare[@]}" plain | tee plain.txt
python3 - plain.txt <<'EOF'
import re, sys
# the signed figures of a line: total, group and sex, age band, 0-4, cell
rows = {int(l.split()[0]): re.findall(r"[+-]\d+\.\d+", l) for l in open(sys.argv[1]) if l[:1].isdigit()}
total, young = float(rows[2055][0]), float(rows[2055][3])
assert -0.3 < total < -0.15, f"total 2055 {total}"
assert -1.5 < young < -0.8, f"0-4 2055 {young}"
EOF

# the accounting of every year from the result files alone: end of the year before, aged, plus
# births, less deaths and outflows, plus inflows, is the end of the year, by group and sex
python3 - reference/aargau <<'EOF'
import sys, collections
d = sys.argv[1]
def rows(path):
    with open(path, encoding="utf-8-sig") as f:
        for line in f:
            if not line.startswith("#"):
                yield [c.replace(",", ".") for c in line.rstrip("\n").split(";")]
def gem(year):
    path = f"{d}/gem{year}.csv" if year > 2024 else f"{d}/../gem2024.csv"
    s = collections.Counter()
    with open(path, encoding="utf-8-sig") as f:
        for line in f:
            if not line.startswith("#"):
                c = line.strip().replace(",", ".").split(";")
                s[(int(c[2]), int(c[3]))] += float(c[5])
    return s
head = open(f"{d}/bew.csv", encoding="utf-8-sig").read().splitlines()[1].lstrip("#").split(";")
assert head[-1] == "Geburten", head
sign = [-1, -1, -1, -1, -1, -1, -1, +1, +1, +1, +1, +1, +1, -1, +1, +1]   # out, in, births
moves = collections.defaultdict(collections.Counter)
births = collections.Counter()
for c in rows(f"{d}/bew.csv"):
    y, key = int(c[0]), (int(c[2]), int(c[3]))
    for k, v in enumerate(c[5:]):
        if v:
            moves[y][key] += sign[k] * float(v)
            if k == 15:
                births[y] += float(v)
worst = 0
for y in range(2025, 2056):
    start, end = gem(y - 1), gem(y)
    for key in end:
        worst = max(worst, abs(start[key] + moves[y][key] - end[key]))
assert worst < 1e-6, f"the accounting is off by {worst}"
# bewgem holds the same births per region
bewgem = {int(c[0]): float(c[-1]) for c in rows(f"{d}/bewgem.csv")}
assert all(abs(bewgem[y] - births[y]) < 1e-6 for y in births)
print(f"accounting of 31 years by group and sex: largest gap {worst:.2e} persons; births 2055 {births[2055]:.1f}")
EOF

# bad input of the conversion script: the message names the scenario, the column, the year
expect() {
    local want=$1
    shift
    if out=$("${make[@]}" "$@" 2>&1); then echo "no failure for $*"; exit 1; fi
    grep -qF -- "$want" <<< "$out" || { echo "expected '$want', got: $out"; exit 1; }
}
expect "scenario 'middle' not in the data (it holds high, low, reference)" --scenario middle --out bad/
expect "--first 2020: year outside the data (2025 to 2055)" --first 2020 --out bad/
expect "--last 2056: year outside the data (2025 to 2055)" --last 2056 --out bad/
mkdir -p cut
zcat "$src/examples/canton/data/fso_parameters.csv.gz" | cut -d, -f1-9,11- | gzip > cut/fso_parameters.csv.gz
expect "fso_parameters.csv.gz: column mor missing" --data cut --out bad/
echo "the conversion script names a wrong scenario, a missing column, a year outside the data"
