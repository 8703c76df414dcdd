#!/bin/sh
# Builds the project with plain flags and installs it into a scratch prefix, then builds the
# examples out of tree against it, through find_package and through pkg-config, and runs them.
# Usage: install_test.sh <source dir> <work dir> <cmake> <c++ compiler> <version>
set -eu
src=$1 work=$2 cmake=$3 cxx=$4 version=$5
prefix=$work/prefix out=$work/out
rm -rf "$prefix" "$work/consumer" "$out"
mkdir -p "$out"

"$cmake" -S "$src" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS= \
  -DCMAKE_CXX_COMPILER="$cxx" -DBUILD_TESTING=OFF
"$cmake" --build "$work/build" -j2 --target xpath
"$cmake" --install "$work/build" --prefix "$prefix"

test -f "$prefix/share/man/man1/xpath.1"
ids=$("$prefix/bin/xpath" "$src/examples/garden.xml" //bed/@id)
[ "$ids" = "1
2" ] || { echo "installed xpath printed: $ids"; exit 1; }

"$cmake" -S "$src/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS= -DCMAKE_CXX_COMPILER="$cxx" -DEXAMPLES="$src/examples" \
  -DXPATH_VERSION="$version"
"$cmake" --build "$work/consumer"
"$cmake" -DDEMO="$work/consumer/store_demo" -DOUT="$out/store.xml" \
  -P "$src/examples/check_store_demo.cmake"
"$cmake" -DDEMO="$work/consumer/log_demo" -DLOG="$out/demo.log" \
  -P "$src/examples/check_log_demo.cmake"

command -v pkg-config >/dev/null || { echo "pkg-config is not installed"; exit 1; }
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name xpath-store.pc)")
export PKG_CONFIG_PATH
"$cxx" -std=c++17 -o "$out/store_demo_pc" "$src/examples/store_demo.cpp" \
  $(pkg-config --cflags --libs xpath-store)
"$cmake" -DDEMO="$out/store_demo_pc" -DOUT="$out/store_pc.xml" \
  -P "$src/examples/check_store_demo.cmake"
