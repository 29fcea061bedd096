#!/usr/bin/env bash
# The test job: set up, build, run the whole suite through CTest, then run every
# benchmark once with a minimal time so that none of them can rot.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" release

echo "== benchmarks (one short pass each)"
for b in "$root"/build/release/bench/*_bench; do
  "$b" --benchmark_min_time=0.001 >"$b.log" 2>&1 || { cat "$b.log"; echo "benchmark failed: $b"; exit 1; }
done

echo "== tests"
cd "$root/build/release"
ctest --output-on-failure -j"$(nproc)" --timeout 600
