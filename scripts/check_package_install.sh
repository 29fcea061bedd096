#!/usr/bin/env bash
# Proves the Debian package on a bare Debian 12: makes a minimal system with
# debootstrap, installs the package there with apt-get (which fetches what it
# depends on) and runs the installed host on the installed examples. Needs
# root and debootstrap; builds the package first when none is given.
#   scripts/check_package_install.sh [DEB] [DIR]   (default DIR /tmp/hostprobe-package)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
deb=${1:-$("$root/scripts/package.sh")}
dir=${2:-/tmp/hostprobe-package}

cleanup() {
  umount "$dir/dev" 2>/dev/null || true
  umount "$dir/proc" 2>/dev/null || true
}
trap cleanup EXIT

if [ ! -x "$dir/bin/bash" ]; then
  debootstrap --variant=minbase bookworm "$dir" >/dev/null
fi
mount -t proc proc "$dir/proc"
mount --bind /dev "$dir/dev"
cp /etc/resolv.conf "$dir/etc/resolv.conf"
cp "$deb" "$dir/root/"

chroot "$dir" /bin/bash -euo pipefail -c "
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq ./root/$(basename "$deb") >/dev/null
  cd /root
  echo '== dpkg -s';  dpkg -s hostprobe | grep -E '^(Status|Version|Depends):'
  echo '== hostprobe run /usr/share/hostprobe/examples/probe.lua'; hostprobe run /usr/share/hostprobe/examples/probe.lua
  echo '== hostprobe run /usr/share/hostprobe/examples/probe.js';  hostprobe run /usr/share/hostprobe/examples/probe.js
  echo '== hostprobe call mersenne_twister 5489';                  hostprobe call mersenne_twister 5489
"
