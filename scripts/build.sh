#!/usr/bin/env bash
# Configures and builds into build/ (Release, Ninja); the portable installation lands in build/App and build/Data.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-Release} >/dev/null
cmake --build build -j "$(nproc)"
