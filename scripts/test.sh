#!/usr/bin/env bash
# The test job: set up, check that every include looks down the layers,
# build, run every benchmark once with a minimal time so that none of them
# can rot, run the whole suite through CTest, check the installed SDK and the
# Debian package (scripts/check_sdk.sh), then build the
# suite again with AddressSanitizer and UndefinedBehaviorSanitizer and run it
# there too, then the threaded suites with ThreadSanitizer
# (scripts/test_tsan.sh), and last the Windows build of the tree, cross-built
# with MinGW-w64, with its suites under wine (scripts/test_windows.sh).
# Any failure or sanitizer report fails the job.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
"$root/scripts/setup.sh"

echo "== include check"
"$root/scripts/check_includes.sh"

echo "== build"
"$root/scripts/build.sh" release

echo "== benchmarks (one short pass each)"
for b in "$root"/build/release/bench/*_bench; do
  "$b" --benchmark_min_time=0.001 >"$b.log" 2>&1 || { cat "$b.log"; echo "benchmark failed: $b"; exit 1; }
done

echo "== tests"
(cd "$root/build/release" && ctest --output-on-failure -j"$jobs" --timeout 600 | grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed)')

echo "== SDK and package"
"$root/scripts/check_sdk.sh" "$root/build/release"

echo "== build with sanitizers"
"$root/scripts/build.sh" sanitize -DVELK_SANITIZE=ON

echo "== tests with sanitizers"
cd "$root/build/sanitize"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --output-on-failure -j"$jobs" --timeout 900 | grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed)'

echo "== threaded suites with ThreadSanitizer"
"$root/scripts/test_tsan.sh"

echo "== Windows build and its suites under wine"
"$root/scripts/test_windows.sh"
