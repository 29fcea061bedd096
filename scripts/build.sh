#!/usr/bin/env bash
# Configures (once) and builds one build tree: build.sh NAME [cmake options...]
# The tree lives in build/NAME; later runs only rebuild what changed.
# The compiler's output is shown only when the build fails.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
name=$1; shift
tree="$root/build/$name"

mkdir -p "$tree"
if [ ! -f "$tree/build.ninja" ]; then
  if ! cmake -S "$root" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >"$tree/configure.log" 2>&1; then
    cat "$tree/configure.log"; exit 1
  fi
fi
if ! cmake --build "$tree" >"$tree/build.log" 2>&1; then
  cat "$tree/build.log"; exit 1
fi
