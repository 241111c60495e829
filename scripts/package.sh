#!/usr/bin/env bash
# Builds the Debian package build/veldor_<version>_<arch>.deb with CPack: the program in
# /usr/bin, its files and the demo study area in /usr/share/veldor, the manual page. Its
# dependencies are the runtime libraries the program links (found by dpkg-shlibdeps) and gnuplot.
#   bash scripts/package.sh && sudo apt-get install ./build/veldor_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh orvane appfiles
rm -f build/veldor_*.deb
(cd build && cpack -G DEB >/dev/null)
deb=$(ls build/veldor_*.deb)
echo "package: $(pwd)/$deb"
dpkg-deb -f "$deb" Package Version Depends
