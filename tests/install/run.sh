#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# An installed tree, moved to where nobody expects it, serves those who build programs with it: one
# in C by pkg-config, one in C++ by CMake, both run on a camera of the installed simulator. The shell
# completes the command lines of the installed programs.
# usage: run.sh BUILD_DIR
set -euo pipefail
build=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "$*" >&2
  exit 1
}

# A space in a folder's name must not matter.
DESTDIR=$work/staged cmake --install "$build" --prefix /opt/nyxus >"$work/log"
grep -rqx prefix=/opt/nyxus "$work/staged" || fail "nyxus.pc does not name the prefix"
root=$work/"moved away"
mv "$work/staged/opt/nyxus" "$root"
libdir=$(dirname "$(find "$root" -name libNYXUS.so)")
export PATH=$root/bin:$PATH
unset LD_LIBRARY_PATH

! grep -rlI "$build" "$root" || fail "these files name the build folder"
for tree in "$root/bin/nyxus" "$libdir/libNYXUS.so"; do
  ! readelf -d "$tree" | grep -E 'R(UN)?PATH' | grep -v "ORIGIN" || fail "$tree has a foreign RPATH"
done

expect_probe() { # PROGRAM
  said=$(LD_LIBRARY_PATH=$libdir nyxus-sim run --camera cedar-spi --speed fast -- "$1")
  [[ $said == *"firmware 0x"* ]] || fail "$1 said '$said'"
}

export PKG_CONFIG_PATH=$libdir/pkgconfig
flags=()
eval "flags=($(pkg-config --define-prefix --cflags --libs nyxus))" # a space is quoted there
cc -std=c11 -Wall -Werror "$here/client.c" "${flags[@]}" -o "$work/c_client"
expect_probe "$work/c_client"
library_version=$(sed -n 's/^set(NYXUS_LIBRARY_VERSION \(.*\))/\1/p' "$here/../../CMakeLists.txt")
[ "$(pkg-config --modversion nyxus)" = "$library_version" ] ||
  fail "nyxus.pc has another version than the library"

mkdir "$work/project"
cp "$here/client.cpp" "$here/engine_client.cpp" "$here/careless_test.cpp" \
  "$here/CMakeLists.txt" "$work/project"
cmake -G Ninja -S "$work/project" -B "$work/project/build" -DCMAKE_PREFIX_PATH="$root" >"$work/log"
cmake --build "$work/project/build" >"$work/log" || fail "$(cat "$work/log")"
expect_probe "$work/project/build/cpp_client"
expect_probe "$work/project/build/engine_client"

# The tool, with nothing that helps it find its library, and the library its helper program.
nyxus-sim image --model rowan-spi --version 0x0205 "$work/image.bin" >"$work/log"
for which in --wait=5 --all; do
  XDG_STATE_HOME=$work nyxus-sim run --camera rowan-spi --speed fast -- \
    nyxus upgrade "$which" "$work/image.bin" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
done

"$here/test_suites.sh" "$root" "$work/project/build/careless_test"
"$here/completion.sh" "$root"
