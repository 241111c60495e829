#!/usr/bin/env bash
# Installs the program into a temporary prefix and runs the demo study area from another
# directory, without App/ there: the installed files are found, the settings and the log go to
# $XDG_CONFIG_HOME/veldor, the town reaches its target of 38,538 inhabitants in 2040, and the
# manual page is readable.
# usage: install_check.sh build-dir
set -euo pipefail
build=$1
root=$(mktemp -d /tmp/veldor-installXXXXXX)
trap 'rm -rf "$root"' EXIT
cmake --install "$build" --prefix "$root/prefix" >/dev/null
mkdir -p "$root/elsewhere"
cd "$root/elsewhere"
cp -r "$root/prefix/share/veldor/examples" demo
export XDG_CONFIG_HOME=$root/config
status=0
"$root/prefix/bin/orvane" orvane -d demo/ -v demo >run.out 2>run.err || { echo "installed run failed:"; cat run.err; exit 1; }
[ ! -e App ] || { echo "App/ appeared in the working directory"; status=1; }
for f in veldor.ini log.htm; do
    [ -s "$XDG_CONFIG_HOME/veldor/$f" ] || { echo "no $f in \$XDG_CONFIG_HOME/veldor"; status=1; }
done
total=$(sed '1s/^\xEF\xBB\xBF//' demo/demo/gem2040.csv | grep -v '^#' |
        awk -F';' '{ v = $6; gsub(",", ".", v); s += v } END { printf "%.0f", s }')
[ "$total" = 38538 ] || { echo "population 2040: $total, not 38538"; status=1; }
grep -q '<div id=toc>' demo/demo/prot/index.html || { echo "protocol not closed"; status=1; }
# a second run keeps the user's settings file as it is
echo '; kept' >>"$XDG_CONFIG_HOME/veldor/veldor.ini"
"$root/prefix/bin/orvane" orvane -d demo/ -v demo >/dev/null 2>&1 || { echo "second run failed"; status=1; }
grep -q '^; kept' "$XDG_CONFIG_HOME/veldor/veldor.ini" || { echo "settings file replaced"; status=1; }
"$root/prefix/bin/orvane" orvane --help | grep -q -- '-d directory' || { echo "no help"; status=1; }
if command -v man >/dev/null; then
    for section in 'VARIANT FILE' 'RESULT FILES' 'EXIT STATUS' 'dstmak list'; do
        MANWIDTH=100 man -l "$root/prefix/share/man/man1/orvane.1" 2>/dev/null | grep -q "$section" ||
            { echo "manual page without '$section'"; status=1; }
    done
fi
[ $status = 0 ] && echo "installed into $root/prefix, demo run from $root/elsewhere: ok"
exit $status
