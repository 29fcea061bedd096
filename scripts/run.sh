#!/usr/bin/env bash
# The main job: set up, build, and run the reference host.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" release
exec "$root/build/release/host/hostprobe" "${@:-version}"
