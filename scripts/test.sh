#!/usr/bin/env bash
# Installs what is missing, builds Pixmill and runs every quality gate:
#   1. the test suite, built normally;
#   2. the test suite again, built with AddressSanitizer and UBSan (leaks
#      checked at exit);
#   3. the concurrency tests, built with ThreadSanitizer;
#   4. each libFuzzer target for a short time on its seed corpus.
# --quick runs the first gate only.
set -euo pipefail
cd "$(dirname "$0")/.."
quick=0
[ "${1:-}" = "--quick" ] && quick=1

start=$(date +%s)
stamp() { echo "== $1 ($(( $(date +%s) - start ))s since start)"; }

stamp "normal build and tests"
bash scripts/build.sh
ctest --test-dir build --output-on-failure -j "$(nproc)"
[ $quick -eq 1 ] && exit 0

stamp "sanitizer build and tests"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPIXMILL_SANITIZE=ON >/dev/null
cmake --build build-asan -j "$(nproc)" >/dev/null
ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1" UBSAN_OPTIONS="print_stacktrace=1" \
  ctest --test-dir build-asan --output-on-failure -j "$(nproc)"

stamp "thread sanitizer build and concurrency tests"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPIXMILL_TSAN=ON >/dev/null
cmake --build build-tsan -j "$(nproc)" --target pixmill_concurrency_tests >/dev/null
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1" \
  ctest --test-dir build-tsan --output-on-failure -L concurrency

stamp "short fuzz runs"
bash scripts/fuzz.sh "${PIXMILL_FUZZ_SECONDS:-30}"
stamp "all gates passed"
