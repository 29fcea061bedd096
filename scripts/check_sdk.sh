#!/usr/bin/env bash
# Checks the SDK and the package as a host developer and a user meet them:
#   scripts/check_sdk.sh [BUILD_DIR]      (default build/release, built)
# Installs the build into a temporary prefix; compiles every installed header
# on its own; builds and runs a program from the pkg-config files; builds
# examples/embed out of tree with find_package and checks its output; runs
# the installed host on an installed example; builds the Debian package and
# checks its files and dependencies. Any difference fails.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tree=$(cd "${1:-$root/build/release}" && pwd)
v8_root="$root/.deps/v8/usr"
# V8 is unpacked, not installed: the loader and the compiler are told where.
export LD_LIBRARY_PATH="$v8_root/lib/x86_64-linux-gnu${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

fail() { echo "SDK check failed: $*"; exit 1; }

echo "-- install into a temporary prefix"
cmake --install "$tree" --prefix "$prefix" >/dev/null

echo "-- installed headers: the public ones, each complete on its own"
for private in comm/os/file.h comm/os/vmem.h comm/alloc/mspace_core.h comm/regex/regex_dfa.h plugin/os/adapters.h; do
  [[ ! -e "$prefix/include/hostprobe/$private" ]] || fail "private header $private was installed"
done
for public in comm/charstr.h interface/registrar.h plugin/hostprobe_plugin.h plugin/host_interface.h \
              bindings/js/hostprobe_plugin_js_dispatcher.h bindings/lua/lua_state.h; do
  [[ -e "$prefix/include/hostprobe/$public" ]] || fail "public header $public is missing"
done
stray=$(cd "$prefix/include/hostprobe" && ls | grep -vxE 'comm|interface|plugin|bindings' || true)
[[ -z "$stray" ]] || fail "unexpected folders under include/hostprobe: $stray"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# The flags that the pkg-config files give, with V8's headers where they lie here.
cflags="-fsyntax-only $(pkg-config --cflags hostprobe-js hostprobe-lua) -I$v8_root/include/node"
headers=$(cd "$prefix/include/hostprobe" && find . -name '*.h' | sed 's#^\./##' | sort)
count=$(echo "$headers" | wc -l)
compile_alone() { # header: compiles it as the only include of a file
  local log
  log=$(echo "#include \"$1\"" | g++ $cflags -x c++ - 2>&1) || { printf '%s:\n%s\n' "$1" "$log" | head -20; return 255; }
}
export -f compile_alone
export cflags
if ! echo "$headers" | xargs -P "$(nproc)" -I{} bash -c 'compile_alone "$1"' _ {}; then
  fail "an installed header does not compile on its own"
fi
echo "   $count headers"

echo "-- a program built from the pkg-config files"
cat >"$work/pc.cpp" <<'EOF'
#include "bindings/lua/lua_state.h"
#include "comm/charstr.h"
#include <cstdio>
int main()
{
    lua_State* L = velk::lua::new_state();
    luaL_dostring(L, "return 6 * 7");
    velk::charstr text;
    text << "lua says " << int(lua_tointeger(L, -1));
    lua_close(L);
    puts(text.c_str());
}
EOF
g++ -o "$work/pc" "$work/pc.cpp" $(pkg-config --cflags --libs hostprobe-lua)
[[ "$("$work/pc")" == "lua says 42" ]] || fail "the pkg-config program printed '$("$work/pc")'"

echo "-- examples/embed against the installed package"
cmake -S "$root/examples/embed" -B "$work/embed" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -Dhostprobe_V8_ROOT="$v8_root" >"$work/embed.log" 2>&1 || { cat "$work/embed.log"; fail "embed did not configure"; }
cmake --build "$work/embed" >>"$work/embed.log" 2>&1 || { cat "$work/embed.log"; fail "embed did not build"; }
expected="native: mersenne_twister(5489) = 3499211612
js: probe.testfunction(21) = 42
lua: probe:testfunction(50) = 100"
output=$("$work/embed/embed")
echo "$output" | sed 's/^/   /'
[[ "$output" == "$expected" ]] || fail "embed printed something else"

echo "-- the installed host runs an installed example"
out=$("$prefix/bin/hostprobe" run "$prefix/share/hostprobe/examples/probe.lua")
[[ "$out" == *"mersenne_twister(5489): 3499211612"* ]] || fail "the installed host printed '$out'"

echo "-- the Debian package"
deb=$("$root/scripts/package.sh" "$tree")
files=$(dpkg-deb --contents "$deb" | awk '{print $6}' | grep -v '/$' | sort)
expected_files=$(printf '%s\n' ./usr/bin/hostprobe ./usr/bin/hostprobe-locate ./usr/lib/hostprobe/hostprobe_plugin.so \
  $(cd "$root/examples" && git ls-files | sed 's#^#./usr/share/hostprobe/examples/#') | sort)
[[ "$files" == "$expected_files" ]] || { diff <(echo "$expected_files") <(echo "$files") || true; fail "the package's files differ"; }
depends=$(dpkg-deb -f "$deb" Depends)
for need in libnode108 libluajit-5.1-2 libcurl4 libjsoncpp25; do
  [[ ", $depends," == *", $need,"* ]] || fail "the package does not depend on $need ($depends)"
done
echo "   $(basename "$deb"): $(echo "$files" | wc -l) files; Depends: $depends"

echo "SDK check passed"
