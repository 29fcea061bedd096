#!/usr/bin/env bash
# The main job: set up, build, and run the reference host. With arguments they
# go to the host as they are; without, the host shows its engines, calls
# each method of the plug-in through the interface registry, and runs the
# example scripts examples/probe.js and examples/probe.lua.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" release
host="$root/build/release/host/hostprobe"
if [ "$#" -gt 0 ]; then
  exec "$host" "$@"
fi
"$host" version
echo "getMAC: $("$host" call getMAC)"
echo "mersenne_twister(5489): $("$host" call mersenne_twister 5489)"
echo "testfunction(21): $("$host" call testfunction 21)"
"$host" run "$root/examples/probe.js"
"$host" run "$root/examples/probe.lua"
