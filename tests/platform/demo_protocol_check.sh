#!/usr/bin/env bash
# Runs the demo study area in German and in English in a fresh installation and checks the
# protocol pages of both runs: valid nesting, every link resolves, no dictionary key in brackets;
# the English result tables carry English column names.
# usage: demo_protocol_check.sh source-dir build-dir
set -euo pipefail
src=$1 build=$2
root=$(mktemp -d /tmp/veldor-demoprotXXXXXX)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/App" "$root/Data"
cp "$build/App/"* "$root/App/"
printf '[DEFAULTS]\nDirectory=\nVersion=\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\nSpaltentrennzeichen=;\n[TRACE]\nlogfile=1\n[GNUPLOT]\nsaveCmd=0\nsaveLog=1\n' \
    > "$root/Data/veldor.ini"
status=0
for lang in de en; do
    mkdir -p "$root/$lang"
    cp -r "$src/examples/." "$root/$lang/"
    if ! (cd "$root" && ./App/orvane orvane -d "$lang/" -v demo -l "$lang" >"$lang.out" 2>"$lang.err"); then
        echo "demo run ($lang) failed:"; cat "$root/$lang.err"; status=1; continue
    fi
    echo "== $lang"
    python3 "$src/tests/platform/html_pages_check.py" "$root/$lang/demo/prot" "$src/app/datadict_$lang.xml" "[CSV]" || status=1
    if grep -E '\[[A-Za-z_][A-Za-z_0-9?]*\]' "$root/$lang.out" "$root/$lang.err"; then
        echo "the console of the $lang run shows dictionary keys"; status=1
    fi
    # the table of contents of the protocol links every side page: none stands inside another link
    grep -q '<div id=toc>' "$root/$lang/demo/prot/index.html" || { echo "$lang: protocol not closed"; status=1; }
done
# the column names of the result tables follow the language
head -2 "$root/de/demo/gem2040.csv" | grep -q 'Gebietskennzeichen' || { echo "de: gem2040.csv without German column names"; status=1; }
head -2 "$root/en/demo/gem2040.csv" | grep -q 'Region key' || { echo "en: gem2040.csv without English column names"; head -2 "$root/en/demo/gem2040.csv"; status=1; }
if grep -l 'Gebietskennzeichen\|Bevölkerungsgruppe\|Altersgruppe' "$root/en/demo/"*.csv; then
    echo "en: result tables with German column names"; status=1
fi
exit $status
