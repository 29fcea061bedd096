#!/usr/bin/env bash
# The layers look only down: each folder may include its own layer and those
# below it, never one above or beside it. Reads every quoted #include of the
# source tree and fails, naming each offending line, when one points the wrong
# way. System includes (<...>) are not looked at.
#
#   comm (foundation) < interface (registry) < plugin < bindings/js, bindings/lua
#                     < module (the plug-in module) < host
#   tests may include everything; bench everything but tests; fuzz everything,
#   since its metastream targets read the tests' types through their text format.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

# The folders a file of each layer may include from.
allowed_for() {
  case "$1" in
    comm/*)         echo "comm" ;;
    interface/*)    echo "comm interface" ;;
    plugin/*)       echo "comm interface plugin" ;;
    bindings/js/*)  echo "comm interface plugin bindings/js" ;;
    bindings/lua/*) echo "comm interface plugin bindings/lua" ;;
    module/*)       echo "comm interface plugin bindings/js bindings/lua module" ;;
    host/*)         echo "comm interface plugin bindings/js bindings/lua module host" ;;
    bench/*)        echo "comm interface plugin bindings/js bindings/lua module host bench" ;;
    fuzz/*)         echo "comm interface plugin bindings/js bindings/lua module host fuzz tests" ;;
    tests/*)        echo "comm interface plugin bindings/js bindings/lua module host tests" ;;
    examples/*)     echo "comm interface plugin bindings/js bindings/lua" ;;
    *)              echo "" ;;
  esac
}

# The layer folder that an include path names, or nothing for a path outside
# the tree's layers (a library's own header, a header beside the file).
layer_of() {
  case "$1" in
    bindings/js/*)  echo "bindings/js" ;;
    bindings/lua/*) echo "bindings/lua" ;;
    comm/*|interface/*|plugin/*|module/*|host/*|bench/*|fuzz/*|tests/*) echo "${1%%/*}" ;;
    *)              echo "" ;;
  esac
}

files=0 includes=0 bad=0
while IFS= read -r file; do
  files=$((files + 1))
  allowed=" $(allowed_for "$file") "
  while IFS=: read -r line path; do
    includes=$((includes + 1))
    target=$(layer_of "$path")
    if [[ -z "$target" ]]; then
      # A bare name must be a file beside this one.
      if [[ "$path" == */* || ! -e "$(dirname "$file")/$path" ]]; then
        echo "$file:$line: includes \"$path\", which is not a path from the tree's root"
        bad=$((bad + 1))
      fi
    elif [[ "$allowed" != *" $target "* ]]; then
      echo "$file:$line: includes \"$path\" from $target, above or beside its own layer"
      bad=$((bad + 1))
    fi
  done < <(grep -n '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" \
             | sed -E 's/^([0-9]+):[^"]*"([^"]*)".*/\1:\2/')
done < <(git ls-files -- '*.h' '*.cpp' '*.hpp' '*.cc' | grep -E '^(comm|interface|plugin|bindings|module|host|bench|fuzz|tests|examples)/')

if ((bad > 0)); then
  echo "include check failed: $bad include(s) point the wrong way"
  exit 1
fi
echo "include check passed: $files files, $includes includes, every one looking down"
