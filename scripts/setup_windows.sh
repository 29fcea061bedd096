#!/usr/bin/env bash
# Prepares the Windows cross build, as root: the MinGW-w64 compilers and
# wine, and LuaJIT, libcurl, jsoncpp and GoogleTest built from Debian's own
# sources with the cross compiler into .deps/windows (git-ignored).
# Each library is built once; a second run only checks, in a second or two.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
deps="$root/.deps/windows"
prefix="$deps/usr"
src="$deps/src"
toolchain="$root/cmake/toolchain-mingw64.cmake"
triple=x86_64-w64-mingw32
jobs=${JOBS:-2}

# gcc and libc6-dev build LuaJIT's own generator, which runs on this
# machine; googletest carries GoogleTest's sources; dpkg-dev unpacks source
# packages.
packages=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64 wine
  gcc libc6-dev dpkg-dev googletest debian-archive-keyring cmake ninja-build make)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
apt_updated=0
apt_update_once() {
  if [ "$apt_updated" = 0 ]; then
    apt-get update -qq >&2
    apt_updated=1
  fi
}
if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup_windows: installing ${missing[*]}"
  apt_update_once
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Debian runs 64-bit programs with /usr/lib/wine/wine64 but puts no wine64 on
# the path when 32-bit wine is missing.
if ! command -v wine64 >/dev/null && [ -x /usr/lib/wine/wine64 ]; then
  ln -sf /usr/lib/wine/wine64 /usr/local/bin/wine64
fi

# Source packages need a deb-src entry for the archive the machine installs
# from: its own deb entries, copied as deb-src into a sources file of ours.
src_list=/etc/apt/sources.list.d/hostprobe-deb-src.sources
need_source() {
  [ -f "$src_list" ] || [ -f "${src_list%.sources}.list" ] && return
  echo "setup_windows: enabling deb-src in $src_list" >&2
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    sed -e 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources >"$src_list"
  elif grep -qs '^deb ' /etc/apt/sources.list; then
    # A one-line list: its deb lines as deb-src, in a list file of the same form.
    src_list=/etc/apt/sources.list.d/hostprobe-deb-src.list
    sed -n 's/^deb /deb-src /p' /etc/apt/sources.list >"$src_list"
  else
    cat >"$src_list" <<'SRC'
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg

Types: deb-src
URIs: http://deb.debian.org/debian-security
Suites: bookworm-security
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
  fi
  apt_updated=0
}

# fetch PACKAGE: unpacks Debian's source of PACKAGE under $src once and
# prints its folder.
fetch() {
  local pkg=$1 dir
  dir=$(find "$src" -maxdepth 1 -type d -name "$pkg-*" 2>/dev/null | head -n1)
  if [ -z "$dir" ]; then
    need_source
    apt_update_once
    mkdir -p "$src"
    (cd "$src" && apt-get source -qq "$pkg" >"$src/$pkg.log" 2>&1) ||
      { cat "$src/$pkg.log" >&2; echo "setup_windows: apt-get source $pkg failed" >&2; exit 1; }
    dir=$(find "$src" -maxdepth 1 -type d -name "$pkg-*" | head -n1)
  fi
  echo "$dir"
}

mkdir -p "$prefix" "$deps/build"

# quietly NAME COMMAND...: runs COMMAND with all its output in
# $deps/build/NAME.log (the libraries' own builds warn a lot); on a failure
# the end of that log is shown and the set-up ends.
quietly() {
  local log="$deps/build/$1.log"
  shift
  "$@" >>"$log" 2>&1 || { tail -40 "$log" >&2; echo "setup_windows: failed: $*" >&2; exit 1; }
}

# -- LuaJIT: its own makefile, static --------------------------------------
if [ ! -f "$prefix/lib/libluajit-5.1.a" ]; then
  echo "setup_windows: building LuaJIT"
  rm -f "$deps/build/luajit.log"
  dir=$(fetch luajit) || exit 1
  make -C "$dir" -s clean >/dev/null 2>&1 || true
  quietly luajit make -C "$dir/src" -s -j"$jobs" HOST_CC=gcc CROSS=$triple- TARGET_SYS=Windows \
    BUILDMODE=static amalg
  mkdir -p "$prefix/include/luajit-2.1" "$prefix/lib"
  cp "$dir"/src/{lua.h,lualib.h,lauxlib.h,luaconf.h,lua.hpp,luajit.h} "$prefix/include/luajit-2.1/"
  cp "$dir/src/libluajit.a" "$prefix/lib/libluajit-5.1.a"
fi

# -- jsoncpp: its CMake, static ---------------------------------------------
if [ ! -f "$prefix/lib/libjsoncpp.a" ]; then
  echo "setup_windows: building jsoncpp"
  rm -f "$deps/build/jsoncpp.log"
  dir=$(fetch libjsoncpp) || exit 1
  rm -rf "$deps/build/jsoncpp"
  quietly jsoncpp cmake -S "$dir" -B "$deps/build/jsoncpp" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_OBJECT_LIBS=OFF \
    -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF \
    -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF -DJSONCPP_WITH_CMAKE_PACKAGE=ON
  quietly jsoncpp cmake --build "$deps/build/jsoncpp" -j"$jobs"
  quietly jsoncpp cmake --install "$deps/build/jsoncpp"
fi

# -- libcurl: its CMake, static, HTTP only, TLS through Schannel ------------
if [ ! -f "$prefix/lib/libcurl.a" ]; then
  echo "setup_windows: building libcurl"
  rm -f "$deps/build/curl.log"
  dir=$(fetch curl) || exit 1
  rm -rf "$deps/build/curl"
  quietly curl cmake -S "$dir" -B "$deps/build/curl" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_CURL_EXE=OFF -DBUILD_TESTING=OFF -DBUILD_LIBCURL_DOCS=OFF \
    -DCURL_USE_SCHANNEL=ON -DCURL_USE_OPENSSL=OFF -DCURL_ZLIB=OFF -DCURL_BROTLI=OFF -DCURL_ZSTD=OFF \
    -DUSE_NGHTTP2=OFF -DUSE_LIBIDN2=OFF -DUSE_WIN32_IDN=OFF -DCURL_USE_LIBSSH2=OFF -DCURL_USE_LIBPSL=OFF \
    -DENABLE_UNIX_SOCKETS=OFF -DCURL_DISABLE_LDAP=ON -DCURL_DISABLE_LDAPS=ON \
    -DHTTP_ONLY=ON -DENABLE_MANUAL=OFF
  quietly curl cmake --build "$deps/build/curl" -j"$jobs"
  quietly curl cmake --install "$deps/build/curl"
fi

# -- GoogleTest: the sources of libgtest-dev ---------------------------------
if [ ! -f "$prefix/lib/libgtest.a" ]; then
  echo "setup_windows: building GoogleTest"
  rm -f "$deps/build/googletest.log"
  rm -rf "$deps/build/googletest"
  quietly googletest cmake -S /usr/src/googletest -B "$deps/build/googletest" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF \
    -Dgtest_disable_pthreads=OFF
  quietly googletest cmake --build "$deps/build/googletest" -j"$jobs"
  quietly googletest cmake --install "$deps/build/googletest"
fi

echo "setup_windows: .deps/windows ready"
