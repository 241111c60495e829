#!/usr/bin/env bash
# Sets up, builds and runs a forecast of the demo study area in examples/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# only the program and its files: the tests and benchmarks are built by scripts/test.sh
bash scripts/build.sh orvane appfiles
work=build/demo
rm -rf "$work"; mkdir -p "$work"
cp -r examples/. "$work/"
# the start population comes from synthetic stock records, counted by dstmak
python3 examples/records/generate_records.py "$work" >/dev/null
cd build
grep -q '^\[RATEN\]' Data/veldor.ini || printf '[RATEN]\ndirDSTmak=demo/\nR02DST=3\n' >> Data/veldor.ini
# the long tables population_long.csv and movements_long.csv for R and pandas
if grep -q '^LangeTabellen=' Data/veldor.ini; then sed -i 's/^LangeTabellen=.*/LangeTabellen=1/' Data/veldor.ini
else sed -i '/^\[CSV\]/a LangeTabellen=1' Data/veldor.ini; fi
./App/orvane dstmak makro >/dev/null
cp demo/bestand_2023.csv demo/gem2023.csv
./App/orvane orvane -d "demo/" -v demo
echo
echo "results:   $(pwd)/demo/demo/ (gem2024.csv .. gem2040.csv population by region, group, sex and age;"
echo "           bew.csv, bewgem.csv population movements; README.md tells their columns;"
echo "           population_long.csv, movements_long.csv all years for R and pandas)"
echo "overview:  $(pwd)/demo/demo/prot/results.htm (population chart, districts, components of change)"
echo "protocol:  $(pwd)/demo/demo/prot/index.html"
echo "statistics preparation: $(pwd)/demo/prot.htm"
./App/orvane shp2plt -d demo/ -r demo/gem2024.csv,demo/gem2040.csv -s 2024:2040 -c -l \
    -t 'Bevölkerungsänderung 2024 bis 2040' -g demo/aenderung.png gebiete
echo "map: $(pwd)/demo/demo/aenderung.png"
# households: quotas from the stock records, then the forecast of households on the yearly results
hh=demo/hh
mkdir -p "$hh"
cp demo/dstbest2023.txt "$hh/dstbest.txt"
awk -F';' 'BEGIN { OFS = ";" } /^#/ { print; next } { if (index($1, "..")) { split($1, r, "[.][.]"); for (k = r[1]; k <= r[2]; k++) { $1 = k; print } } else print }' \
    demo/reftyp.csv > "$hh/reftyp.csv"
printf '[HHPROG]\nR02map=3\nQtypCol=11\n' > "$hh/hhprog.ini"
grep -q '^\[HHPROG\]' Data/veldor.ini || printf '[HHPROG]\nDirectory=demo/hh/\n' >> Data/veldor.ini
# -M 1: the stock records with their PDO and HDO, from which the assumptions are measured
./App/orvane hhprog -P 0 -M 1 >/dev/null
# the household tool's oldest age is 99 and more: the forecast's 100 is added to 99
for f in demo/demo/gem20*.csv; do sed '1s/^\xEF\xBB\xBF//' "$f" | grep -v '^#'; done |
    awk -F';' 'BEGIN { OFS = ";" } $5 + 0 < 99 { print; next } { v = $6; gsub(",", ".", v); old[$1 OFS $2 OFS $3 OFS $4] += v }
        END { for (k in old) printf "%s;99;%.15g\n", k, old[k] }' > "$hh/gem.csv"
# the assumptions: the shares of the stock, each measured on the persons it is applied to, kept for every year
years=$(awk -F';' '/^[0-9]/ { if (!lo || $1 < lo) lo = $1; if ($1 > hi) hi = $1 } END { print lo, hi }' "$hh/gem.csv")
python3 ../examples/records/household_assumptions.py "$hh" $years
./App/orvane hhprog -Q 0 -P 1 >/dev/null
echo "household quotas: $(pwd)/$hh/Quoten/index.html"
echo "household forecast: $(pwd)/$hh/Prognose/index.html (haushalt.csv, person.csv, hdo2.csv, kinder.csv)"
