#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and a run need, if any is missing.
set -euo pipefail
pkgs=(g++ cmake ninja-build pkg-config libexpat1-dev libtbb-dev libsimpleini-dev liblnk-dev libbfio-dev
      libgtest-dev googletest gnuplot-nox locales perl python3 libshp-dev liblapack-dev
      dpkg-dev file libopenmpi-dev openmpi-bin
      clang libclang-rt-14-dev)   # clang and its sanitizer runtime: the fuzz smoke run of the tests
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
# German locale for the tests of the number formats
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO sed -i 's/^# *de_DE.UTF-8 UTF-8/de_DE.UTF-8 UTF-8/' /etc/locale.gen
  grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen || echo 'de_DE.UTF-8 UTF-8' | $SUDO tee -a /etc/locale.gen >/dev/null
  $SUDO locale-gen >/dev/null
fi
