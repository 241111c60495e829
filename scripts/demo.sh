#!/usr/bin/env bash
# Sets up, builds and runs a forecast of the demo study area in examples/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
work=build/demo
rm -rf "$work"; mkdir -p "$work"
cp -r examples/. "$work/"
cd build
./App/orvane orvane -d "demo/" -v demo
echo "protocol: $(pwd)/demo/demo/prot/index.html"
./App/orvane shp2plt -d demo/ -r demo/gem2024.csv,demo/gem2040.csv -s 2024:2040 -c -l \
    -t 'Bevölkerungsänderung 2024 bis 2040' -g demo/aenderung.png gebiete
echo "map: $(pwd)/demo/demo/aenderung.png"
