#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UBSan on) and
# runs each for the given number of seconds (default 45) on its seed corpus.
# Prints the executions per second of each; exits non-zero on a finding.
#   scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-45}"
shift || true
bash scripts/setup.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DPIXMILL_FUZZ=ON -DPIXMILL_BUILD_TESTS=OFF >/dev/null
cmake --build build-fuzz -j "$(nproc)" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/fuzz_*.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi

export ASAN_OPTIONS="detect_leaks=1:allocator_may_return_null=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
status=0
for t in "${targets[@]}"; do
  corpus="fuzz/corpus/$t"
  work="build-fuzz/work/$t"
  artifacts="build-fuzz/artifacts/$t"
  mkdir -p "$work" "$corpus" "$artifacts"
  log="build-fuzz/$t.log"
  # New inputs go to a scratch folder; the seeds in the repository stay as
  # they are.
  if ./build-fuzz/fuzz/"$t" "$work" "$corpus" -max_total_time="$seconds" -timeout=5 \
       -rss_limit_mb=4096 -max_len=16384 -print_final_stats=1 \
       -artifact_prefix="$artifacts/" >"$log" 2>&1; then
    runs=$(grep -m1 'stat::number_of_executed_units' "$log" | awk '{print $2}')
    echo "$t: ${runs:-?} executions in ${seconds}s ($(( ${runs:-0} / seconds ))/s), no finding"
  else
    echo "$t: FINDING, see $log and $artifacts"
    grep -m5 -E 'ERROR|SUMMARY|runtime error' "$log" || true
    status=1
  fi
done
exit $status
