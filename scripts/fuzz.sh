#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ with clang and libFuzzer into build-fuzz/ and runs each for
# SECONDS seconds (default 60) on its seed corpus; findings land in build-fuzz/findings/.
#   bash scripts/fuzz.sh [SECONDS]   the long runs, by hand
#   bash scripts/fuzz.sh --smoke     what scripts/test.sh runs: every seed once under
#                                    AddressSanitizer, the recursions that reach themselves
#                                    checked to end in the depth error, then 2,000 inputs per target (at most 30 s)
# It needs clang and its runtime (scripts/setup.sh installs them).
set -euo pipefail
cd "$(dirname "$0")/.."
smoke=0
if [ "${1:-}" = "--smoke" ]; then smoke=1; shift; fi
seconds=${1:-60}
[ $smoke -eq 1 ] && seconds=${1:-30}
bash scripts/setup.sh
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O1" \
  -DCMAKE_CXX_COMPILER=clang++ -DVELDOR_FUZZ=ON "${launcher[@]}" >/dev/null
if ! cmake --build build-fuzz -j "$(nproc)" > build-fuzz/build.log 2>&1; then
  tail -40 build-fuzz/build.log >&2; exit 1
fi
[ -x build-fuzz/fuzz/fuzz_self_reference ] || { echo "fuzz targets not built" >&2; exit 1; }
mkdir -p build-fuzz/findings
status=0
export ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1

if [ $smoke -eq 1 ]; then
  # a text evaluating itself through a variable (let($s 'eval($s)') eval($s)) or a statement
  # file that runs itself (eval_file('rec') in rec.txt) ends in the depth error
  for seed in fuzz/corpus/self_reference/variable fuzz/corpus/self_reference/file; do
    log=build-fuzz/findings/self_reference_$(basename "$seed").log
    if ! VELDOR_FUZZ_ECHO=1 build-fuzz/fuzz/fuzz_self_reference "$seed" > "$log" 2>&1; then
      status=1; echo "   self reference $(basename "$seed"): crashed, see $log"
    elif ! grep -q "nested deeper than 64" "$log"; then
      status=1; echo "   self reference $(basename "$seed"): no depth error, see $log"
    else
      echo "== self reference $(basename "$seed"): $(grep -m1 -o "statements nested deeper than 64[^:]*" "$log")"
    fi
  done
fi

for exe in build-fuzz/fuzz/fuzz_*; do
  name=$(basename "$exe"); name=${name#fuzz_}
  corpus=build-fuzz/corpus/$name
  mkdir -p "$corpus" "build-fuzz/findings/$name"
  # the seeds of the project, and what earlier runs found worth keeping
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/$name/* "$corpus"/ 2>/dev/null || true
  if [ $smoke -eq 1 ]; then echo "== $name: 2000 inputs"; else echo "== $name: $seconds s"; fi
  # the smoke run of the test command tries a fixed number of inputs drawn from a fixed seed,
  # so that it tries the same inputs on every machine (the time is only a bound)
  smokeOptions=()
  [ $smoke -eq 1 ] && smokeOptions=(-seed=1 -runs=2000)
  if ! "$exe" "$corpus" "${smokeOptions[@]}" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="build-fuzz/findings/$name/" \
       > "build-fuzz/findings/$name.log" 2>&1; then
    status=1
    echo "   finding: see build-fuzz/findings/$name.log"
    grep -m3 -E "ERROR: |SUMMARY: |runtime error" "build-fuzz/findings/$name.log" | sed 's/^/   /' || true
  fi
  grep -E "stat::number_of_executed_units|stat::new_units_added" "build-fuzz/findings/$name.log" | sed 's/^/   /' || true
done
exit $status
