#!/usr/bin/env bash
# Configures and builds into build/ (Release, Ninja); the portable installation lands in build/App and build/Data.
# With targets as arguments (scripts/build.sh orvane appfiles) only those are built; without, the
# program and its files come first and the tests and benchmarks after them.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-Release} >/dev/null
if [ $# -gt 0 ]; then
  cmake --build build -j "$(nproc)" --target "$@"
else
  cmake --build build -j "$(nproc)" --target orvane appfiles
  cmake --build build -j "$(nproc)"
fi
