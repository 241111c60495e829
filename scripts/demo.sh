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
./App/orvane dstmak makro >/dev/null
cp demo/bestand_2023.csv demo/gem2023.csv
./App/orvane orvane -d "demo/" -v demo
echo
echo "results:   $(pwd)/demo/demo/ (gem2024.csv .. gem2040.csv population by region, group, sex and age;"
echo "           bew.csv, bewgem.csv population movements; README.md tells their columns)"
echo "protocol:  $(pwd)/demo/demo/prot/index.html"
echo "statistics preparation: $(pwd)/demo/prot.htm"
./App/orvane shp2plt -d demo/ -r demo/gem2024.csv,demo/gem2040.csv -s 2024:2040 -c -l \
    -t 'Bevölkerungsänderung 2024 bis 2040' -g demo/aenderung.png gebiete
echo "map: $(pwd)/demo/demo/aenderung.png"
