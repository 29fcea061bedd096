#!/usr/bin/env bash
# Proves the README's two commands on a bare Debian 12: makes a minimal
# system with debootstrap, installs only git and ca-certificates in it, clones
# this repository there and runs both commands. Needs root and debootstrap.
#   scripts/check_fresh_machine.sh [DIR]     (default /tmp/hostprobe-fresh)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
dir=${1:-/tmp/hostprobe-fresh}

cleanup() {
  umount "$dir/dev" 2>/dev/null || true
  umount "$dir/proc" 2>/dev/null || true
  umount "$dir/src" 2>/dev/null || true
}
trap cleanup EXIT

if [ ! -x "$dir/bin/bash" ]; then
  debootstrap --variant=minbase bookworm "$dir" >/dev/null
fi
mkdir -p "$dir/src"
mount -t proc proc "$dir/proc"
mount --bind /dev "$dir/dev"
mount --bind "$root" "$dir/src"
cp /etc/resolv.conf "$dir/etc/resolv.conf"

chroot "$dir" /bin/bash -euo pipefail -c '
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends git ca-certificates >/dev/null
  rm -rf /root/work && mkdir -p /root/work
  git clone -q /src /root/work/main
  cd /root/work/main
  echo "== run command";  time bash scripts/run.sh
  echo "== test command"; time bash scripts/test.sh | tail -5
  echo "== second run";   time bash scripts/run.sh
'
