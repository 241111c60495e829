#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ with clang and libFuzzer into build-fuzz/ and runs each for
# SECONDS seconds (default 60) on its seed corpus; findings land in build-fuzz/findings/.
# Not part of CI: it needs clang and its runtime, which it installs here if they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
pkgs=(clang libclang-rt-14-dev)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
bash scripts/setup.sh
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O1" \
  -DCMAKE_CXX_COMPILER=clang++ -DVELDOR_FUZZ=ON >/dev/null
cmake --build build-fuzz -j "$(nproc)"
mkdir -p build-fuzz/findings
status=0
for exe in build-fuzz/fuzz/fuzz_*; do
  name=$(basename "$exe"); name=${name#fuzz_}
  corpus=build-fuzz/corpus/$name
  mkdir -p "$corpus" "build-fuzz/findings/$name"
  # the seeds of the project, and what earlier runs found worth keeping
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/$name/* "$corpus"/ 2>/dev/null || true
  echo "== $name: $seconds s"
  if ! ASAN_OPTIONS=detect_leaks=0 "$exe" "$corpus" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="build-fuzz/findings/$name/" \
       > "build-fuzz/findings/$name.log" 2>&1; then
    status=1
    echo "   finding: see build-fuzz/findings/$name.log"
  fi
  grep -E "stat::number_of_executed_units|stat::new_units_added" "build-fuzz/findings/$name.log" | sed 's/^/   /' || true
done
exit $status
