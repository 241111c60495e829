#!/usr/bin/env bash
# Runs the demo study area in English, with the chart commands kept, and fails on any German
# word of the program's own texts in the protocol, the charts, the console or the result tables;
# then an ensemble of two members with one scenario beside it, whose pages are checked the same.
# usage: demo_english_check.sh source-dir build-dir
set -euo pipefail
src=$1 build=$2
root=$(mktemp -d /tmp/veldor-demoenXXXXXX)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/App" "$root/Data" "$root/en"
cp "$build/App/"* "$root/App/"
printf '[DEFAULTS]\nDirectory=\nVersion=\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n[GNUPLOT]\nsaveCmd=1\nsaveLog=1\n' \
    > "$root/Data/veldor.ini"
cp -r "$src/examples/." "$root/en/"
if ! (cd "$root" && ./App/orvane orvane -d en/ -v demo -l en >en.out 2>en.err); then
    echo "demo run (en) failed:"; cat "$root/en.err"; exit 1
fi
cat "$root/en.err" >> "$root/en.out"
ls "$root/en/demo/prot/"plt*.txt >/dev/null || { echo "no chart commands kept"; exit 1; }
test -s "$root/en/demo/prot/results.htm" || { echo "no results overview"; exit 1; }
python3 "$src/tests/platform/german_words_check.py" "$root/en/demo" "$root/en.out" \
    "$src/app/datadict_de.xml" "$src/app/datadict_en.xml" "$src/examples"

# the ensemble and the scenario pages, written after the protocol is closed
mkdir -p "$root/ens"
cp -r "$src/examples/." "$root/ens/"
cp "$root/ens/demo.ini" "$root/ens/other.ini"
printf '[SZENARIEN]\n1=other\n' >> "$root/ens/demo.ini"
if ! (cd "$root" && ./App/orvane orvane -d ens/ -v demo -l en -j 2 -o 'option($ENSEMBLE 2)' >ens.out 2>ens.err); then
    echo "ensemble run (en) failed:"; cat "$root/ens.out" "$root/ens.err"; exit 1
fi
cat "$root/ens.err" >> "$root/ens.out"
test -s "$root/ens/demo/prot/ensemble.html" || { echo "no ensemble page"; exit 1; }
test -s "$root/ens/demo/prot/scenarios.html" || { echo "no scenario page"; exit 1; }
# only these pages, their charts and the comparison table (the protocol of a run under -o holds
# the developer's line of the parallel loops, which stays as it is)
mkdir -p "$root/pages/prot"
cp "$root/ens/demo/prot/"{ensemble,scenarios}.html "$root/ens/demo/prot/"plt{ensemble,scenarios}*.txt "$root/pages/prot/"
cp "$root/ens/demo/scenarios.csv" "$root/pages/"
: > "$root/pages/prot.tmp"
python3 "$src/tests/platform/german_words_check.py" "$root/pages" "$root/ens.out" \
    "$src/app/datadict_de.xml" "$src/app/datadict_en.xml" "$src/examples"
