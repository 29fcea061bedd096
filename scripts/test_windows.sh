#!/usr/bin/env bash
# The Windows build and its suites: sets up the cross build (once), configures
# and builds build/windows with the MinGW-w64 toolchain, then runs every test
# program under wine. Any failing program fails the script.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build/windows"
jobs=${JOBS:-2}

bash "$root/scripts/setup_windows.sh"

# Built for the tests alone: -O1 without debug information compiles much
# faster than the release flags and still runs the suites' loads in time.
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    "-DCMAKE_C_FLAGS_RELEASE=-O1 -DNDEBUG" "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" >/dev/null
fi
start=$SECONDS
if ! ninja -C "$build" -j"$jobs" >"$build/ninja.log" 2>&1; then
  grep -vE '^\[[0-9]+/[0-9]+\] (Building|Linking)' "$build/ninja.log" | tail -80
  echo "test_windows: build failed"
  exit 1
fi
echo "test_windows: built in $((SECONDS - start)) s"
start=$SECONDS

export WINEDEBUG=-all
# The first start of wine makes its prefix; done here so that no test's time
# limit pays for it.
wine64 cmd /c exit >/dev/null 2>&1 || true

# The tests' programs, as CTest lists them: one per program.
mapfile -t programs < <(cd "$build" && ctest -N | sed -n 's/^ *Test *#[0-9]*: //p')
failed=()
for name in "${programs[@]}"; do
  exe="$build/tests/$name.exe"
  log="$build/tests/$name.log"
  if [ ! -f "$exe" ]; then
    # A check that is no program of its own (a module's exports): CTest runs it.
    if (cd "$build" && ctest -R "^$name\$" --output-on-failure >"$log" 2>&1); then
      echo "test_windows: $name passed"
    else
      echo "test_windows: $name FAILED (see $log)"
      tail -20 "$log"
      failed+=("$name")
    fi
    continue
  fi
  # Each test starts in the tests' folder, where the modules are built.
  if (cd "$build/tests" && timeout 600 wine64 "$exe" >"$log" 2>&1); then
    # A skipped case is listed as it runs and again in the summary; its
    # reason stands on the line after "Skipped".
    skipped=$(tr -d '\r' <"$log" | { grep '^\[  SKIPPED \] [A-Za-z]' || true; } | sed 's/ ([0-9]* ms)$//' | sort -u | wc -l || true)
    if [ "$skipped" -gt 0 ]; then
      echo "test_windows: $name passed, $skipped skipped:"
      tr -d '\r' <"$log" | grep '^\[  SKIPPED \] [A-Za-z]' | sed 's/ ([0-9]* ms)$//' | sort -u | sed 's/^/    /'
      tr -d '\r' <"$log" | grep -A1 ': Skipped$' | grep -v ': Skipped$\|^--$' | sort -u | sed 's/^/    because: /'
    else
      echo "test_windows: $name passed"
    fi
  else
    echo "test_windows: $name FAILED (see $log)"
    grep -E '^\[  FAILED  \]|Failure' "$log" | head -20 || true
    failed+=("$name")
  fi
done

# The host as a user runs it: a call, and the Lua example.
host="$build/host/hostprobe.exe"
value=$(timeout 60 wine64 "$host" call mersenne_twister 5489 2>&1 | tr -d '\r' || true)
if [ "$value" = "3499211612" ]; then
  echo "test_windows: hostprobe.exe call mersenne_twister 5489 gives 3499211612"
else
  echo "test_windows: hostprobe.exe call mersenne_twister 5489 FAILED: '$value'"
  failed+=("hostprobe.exe call")
fi
if example=$(cd "$root" && timeout 60 wine64 "$host" run examples/probe.lua 2>&1 | tr -d '\r') &&
   [ "$(grep -c '^\[probe.lua\] ' <<<"$example")" = 3 ]; then
  echo "test_windows: hostprobe.exe run examples/probe.lua:"
  sed 's/^/    /' <<<"$example"
else
  echo "test_windows: hostprobe.exe run examples/probe.lua FAILED:"
  sed 's/^/    /' <<<"$example"
  failed+=("hostprobe.exe run")
fi

echo "test_windows: ran under wine in $((SECONDS - start)) s"
if [ "${#failed[@]}" -gt 0 ]; then
  echo "test_windows: ${#failed[@]} failed: ${failed[*]}"
  exit 1
fi
echo "test_windows: all ${#programs[@]} programs passed"
