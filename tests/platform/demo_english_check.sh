#!/usr/bin/env bash
# Runs the demo study area in English, with the chart commands kept, and fails on any German
# word of the program's own texts in the protocol, the charts, the console or the result tables.
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
