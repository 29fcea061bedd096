#!/usr/bin/env bash
# Installs everything the project needs on a Debian 12 machine, as root.
# Idempotent: when all is in place it only checks, which takes a second or two.
#
# V8 comes from Debian's libnode108/libnode-dev. They conflict with a Node.js
# package that may already be installed, so they are downloaded and unpacked
# into .deps/v8 (git-ignored) instead of being installed.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
v8_dir="$root/.deps/v8"

packages=(
  g++ cmake ninja-build pkg-config git ca-certificates python3
  libluajit-5.1-dev libcurl4-openssl-dev libjsoncpp-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  # benchmark baselines: RE2 for the regex engine, spdlog for the logger
  libre2-dev libspdlog-dev
  # runtime libraries of libnode108 (V8)
  libuv1 libicu72 libc-ares2 libnghttp2-14 libbrotli1 libssl3 zlib1g
)

missing_packages() {
  local p
  for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q 'install ok installed' || echo "$p"
  done
}

apt_updated=0
apt_update_once() {
  if [ "$apt_updated" = 0 ]; then
    apt-get update -qq
    apt_updated=1
  fi
}

mapfile -t missing < <(missing_packages)
if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  apt_update_once
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

if [ ! -f "$v8_dir/usr/include/node/v8.h" ] || [ ! -e "$v8_dir/usr/lib/x86_64-linux-gnu/libnode.so.108" ]; then
  echo "setup: unpacking V8 (libnode108, libnode-dev) into .deps/v8"
  # apt-get download needs package lists; a fresh machine has none.
  apt-cache show libnode108 >/dev/null 2>&1 || apt_update_once
  tmp=$(mktemp -d)
  trap 'rm -rf "$tmp"' EXIT
  (cd "$tmp" && apt-get download -qq libnode108 libnode-dev 2>/dev/null)
  rm -rf "$v8_dir"
  mkdir -p "$v8_dir"
  for deb in "$tmp"/*.deb; do dpkg-deb -x "$deb" "$v8_dir"; done
fi
