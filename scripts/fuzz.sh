#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each for a while:
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]     (default: 60 s, every target)
#   JOBS=2 scripts/fuzz.sh 600                (two targets at once)
#
# Each target runs on a copy of its committed corpus (fuzz/corpus/NAME):
# the inputs it finds go to build/fuzz/runs/NAME/corpus, which is git-ignored
# and kept for the next run, so a run leaves the tree clean. Its log is
# build/fuzz/runs/NAME/log and a crash, leak or timeout lands in
# build/fuzz/runs/NAME/artifacts. One summary line per target follows the
# runs; the status is 1 when any target crashed.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tree="$root/build/fuzz"
runs="$tree/runs"
all_targets=(key path include_path regex number metastream from_lua lua_script js_script)

duration=60
if [ $# -gt 0 ] && [[ $1 =~ ^[0-9]+$ ]]; then
  duration=$1
  shift
fi
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${all_targets[@]}")
jobs=${JOBS:-1}
for t in "${targets[@]}"; do
  [ -d "$root/fuzz/corpus/$t" ] || { echo "fuzz: no target '$t' (one of: ${all_targets[*]})" >&2; exit 2; }
done

# clang and its libFuzzer, installed as scripts/setup.sh installs its packages.
need=()
command -v clang++ >/dev/null || need+=(clang)
ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-14-dev)
if [ ${#need[@]} -gt 0 ]; then
  echo "fuzz: installing ${need[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi
bash "$root/scripts/setup.sh"

if [ ! -f "$tree/build.ninja" ]; then
  cmake -S "$root" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELK_FUZZ=ON \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >"$tree.configure.log" 2>&1 \
    || { cat "$tree.configure.log"; exit 1; }
fi
nice -n 10 cmake --build "$tree" -j2 --target $(printf '%s_fuzz ' "${targets[@]}") >"$tree.build.log" 2>&1 \
  || { tail -50 "$tree.build.log"; exit 1; }

# Options of one target. V8 keeps its heap's bookkeeping in pages of its own,
# which the leak checker doesn't scan: with its isolate kept for the whole
# run, every input would look like a leak, so the JavaScript target runs
# without the leak check. The script targets limit each script to 1 s
# themselves; libFuzzer's timeout is the last resort.
options() {
  case $1 in
    js_script) echo "-detect_leaks=0 -timeout=20 -rss_limit_mb=4096" ;;
    lua_script) echo "-timeout=20 -rss_limit_mb=4096" ;;
    *) echo "-timeout=10" ;;
  esac
}

run_one() {
  local t=$1 dir="$runs/$1" rc=0
  rm -rf "$dir/artifacts"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  # shellcheck disable=SC2046
  (cd "$dir" && "$tree/fuzz/${t}_fuzz" $(options "$t") -max_total_time="$duration" -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/" "$dir/corpus" "$root/fuzz/corpus/$t" >"$dir/log" 2>&1) || rc=$?
  echo "$rc" >"$dir/status"
}

# One line: target, executions, exec/s, cov, ft, corpus, and the crash.
summary() {
  local t=$1 dir="$runs/$1" last status crash
  last=$(grep -a '^#[0-9]' "$dir/log" | tail -1 || true)
  status=$(cat "$dir/status" 2>/dev/null || echo 1)
  field() { sed -n "s|.*$1 \([^ ]*\).*|\1|p" <<<"$last"; }
  crash=$(find "$dir/artifacts" -type f | head -1)
  printf '%-12s execs %-9s exec/s %-6s cov %-6s ft %-6s corpus %-5s %s\n' "$t" \
    "$(sed -n 's/^#\([0-9]*\).*/\1/p' <<<"$last")" "$(field 'exec/s:')" "$(field 'cov:')" "$(field 'ft:')" \
    "$(find "$dir/corpus" -type f | wc -l)" \
    "$([ "$status" = 0 ] && echo ok || echo "CRASHED (status $status) ${crash:-see $dir/log}")"
}

mkdir -p "$runs"
running=0
for t in "${targets[@]}"; do
  echo "fuzz: $t for ${duration}s"
  run_one "$t" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait || true

failed=0
for t in "${targets[@]}"; do
  summary "$t"
  [ "$(cat "$runs/$t/status" 2>/dev/null || echo 1)" = 0 ] || failed=1
done
exit $failed
