#!/usr/bin/env bash
# Builds the Debian package of the runtime from a build tree:
#   scripts/package.sh [BUILD_DIR]      (default build/release)
# It carries the host, the locate tool, the plug-in and the example scripts
# (cmake --install's runtime component, stripped, under /usr), and depends on
# the Debian package of every shared library that they name, found from
# their dynamic sections. Prints the path of the .deb it made.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tree=$(cd "${1:-$root/build/release}" && pwd)
v8_libdir="$root/.deps/v8/usr/lib/x86_64-linux-gnu"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$tree/CMakeCache.txt")
arch=$(dpkg --print-architecture)
stage="$tree/package/stage"
deb="$tree/package/hostprobe_${version}_${arch}.deb"

rm -rf "$stage"
mkdir -p "$stage/DEBIAN"
cmake --install "$tree" --prefix "$stage/usr" --component runtime --strip >/dev/null

# The Debian package that holds a shared library, by the path the loader
# finds it at. V8 is unpacked here, not installed: its package is named.
package_of() {
  local path=$1
  case "$path" in
    "$v8_libdir"/*) echo libnode108; return ;;
  esac
  # With /lib a link to /usr/lib, the package lists either spelling.
  local real candidate owner
  real=$(realpath "$path")
  for candidate in "$path" "$real" "${path#/usr}" "/usr${path#/usr}" "${real#/usr}" "/usr${real#/usr}"; do
    owner=$(dpkg-query -S "$candidate" 2>/dev/null | head -1 | cut -d: -f1)
    if [[ -n "$owner" ]]; then
      echo "$owner"
      return
    fi
  done
}

depends=()
while IFS= read -r elf; do
  while read -r name _ path _; do
    [[ "$path" == /* ]] || { echo "package: $elf needs $name, which the loader can't find" >&2; exit 1; }
    pkg=$(package_of "$path")
    [[ -n "$pkg" ]] || { echo "package: no Debian package holds $path ($name)" >&2; exit 1; }
    depends+=("$pkg")
  done < <(LD_LIBRARY_PATH="$v8_libdir" ldd "$elf" | grep '=>' | grep -E "^\s*($(readelf -d "$elf" |
             sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sed 's/[.+]/\\&/g' | paste -sd'|')) ")
done < <(find "$stage/usr/bin" "$stage/usr/lib" -type f -exec sh -c 'head -c4 "$1" | grep -q ELF' _ {} \; -print)

mapfile -t depends < <(printf '%s\n' "${depends[@]}" | sort -u)
size=$(du -sk "$stage/usr" | cut -f1)
cat >"$stage/DEBIAN/control" <<EOF
Package: hostprobe
Version: $version
Architecture: $arch
Maintainer: hostprobe developers <hostprobe@localhost>
Installed-Size: $size
Depends: $(printf '%s\n' "${depends[@]}" | paste -sd, | sed 's/,/, /g')
Section: utils
Priority: optional
Description: reference host and plug-in of the hostprobe interface
 hostprobe runs JavaScript and Lua scripts against the hostprobe plug-in
 (getMAC, mersenne_twister, testfunction); hostprobe-locate looks up the
 machine's public address and location. Example scripts are in
 /usr/share/hostprobe/examples.
EOF
dpkg-deb --root-owner-group --build "$stage" "$deb" >/dev/null
echo "$deb"
