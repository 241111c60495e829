#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite, then a smoke run of every fuzz target
# (a few seconds each, under AddressSanitizer; the long runs: bash scripts/fuzz.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
(cd build && ctest --output-on-failure -j "$(nproc)")
bash scripts/fuzz.sh --smoke
