#!/usr/bin/env bash
# The threaded suites under ThreadSanitizer, in build/tsan: configures the
# tree once, builds only the programs it runs and runs each of them; any
# report ends the run with a failure. Lazily made statics that may race by
# design carry a narrow suppression each in tests/support/tsan.supp.
# V8 and LuaJIT aren't instrumented, so the script suites stay out.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tree="$root/build/tsan"
jobs=${TSAN_JOBS:-2}

# program [gtest arguments...]: what runs, in this order.
runs=(
  "registry_concurrency_test"
  "registry_stress_test"
  "registrar_test"
  "singleton_test"
  "singleton_modules_test"
  "singleton_fallback_test"
  "thread_test"
  "pthreadx_test"
  "logger_test"
  "logger_load_test"
  "pool_test"
  "mspace_test --gtest_filter=-MspaceTorture.*"
  "regex_test"
  "net_socket_test"
)
targets=()
for r in "${runs[@]}"; do targets+=("${r%% *}"); done

mkdir -p "$tree"
if [ ! -f "$tree/build.ninja" ]; then
  if ! cmake -S "$root" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELK_TSAN=ON \
       >"$tree/configure.log" 2>&1; then
    cat "$tree/configure.log"; exit 1
  fi
fi
if ! cmake --build "$tree" -j"$jobs" --target "${targets[@]}" >"$tree/build.log" 2>&1; then
  cat "$tree/build.log"; exit 1
fi

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/support/tsan.supp"
# The load tests' defaults (200,000 lines per producer, 150,000 allocations
# per thread) are sized for the plain build; instrumented, a tenth and less.
export LOGGER_LOAD_MESSAGES=${LOGGER_LOAD_MESSAGES:-5000}
export MSPACE_THREAD_OPS=${MSPACE_THREAD_OPS:-15000}
cd "$tree/tests"
failed=0
for r in "${runs[@]}"; do
  read -r -a cmd <<<"$r"
  log="$tree/${cmd[0]}.log"
  start=$SECONDS
  if "./${cmd[0]}" "${cmd[@]:1}" >"$log" 2>&1; then
    echo "tsan: ${cmd[0]} passed ($((SECONDS - start)) s)"
  else
    cat "$log"; echo "tsan: ${cmd[0]} FAILED"; failed=1
  fi
done
echo "tsan: build and runs took $SECONDS s"
exit $failed
