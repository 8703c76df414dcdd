#!/bin/sh
# What this build installs, in three steps on one tree under <work>/prefix:
#   tree       installs it and runs the installed tool;
#   consumers  builds the examples against it through find_package and through pkg-config;
#   deb        packs the Debian packages, checks their fields (and lintian's verdict, when it
#              is installed) and that together they hold just what the tree holds.
# Usage: install_test.sh <step> <cmake> <build dir> <work dir> <c++ compiler> "<c++ flags>" <version>
set -eu
step=$1 cmake=$2 build=$3 work=$4 cxx=$5 flags=$6 version=$7
cpack=$(dirname "$cmake")/cpack src=$(cd "$(dirname "$0")/../.." && pwd) prefix=$work/prefix
fail() { echo "$*"; exit 1; }
runs() {
  ids=$("$1" "$src/examples/garden.xml" //bed/@id | tr '\n' ' ')
  [ "$ids" = "1 2 " ] || fail "$1 printed: $ids"
}

case $step in
tree)
  rm -rf "$prefix"
  "$cmake" --install "$build" --prefix "$prefix"
  runs "$prefix/bin/xpath"
  ;;
consumers)
  rm -rf "$work/consumer"
  "$cmake" -S "$src/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" -DEXAMPLES="$src/examples" \
    -DXPATH_VERSION="$version"
  "$cmake" --build "$work/consumer" -j2
  "$cmake" -DDEMO="$work/consumer/store_demo" -DOUT="$work/consumer/store.xml" \
    -P "$src/examples/check_store_demo.cmake"
  "$cmake" -DDEMO="$work/consumer/log_demo" -DLOG="$work/consumer/demo.log" \
    -P "$src/examples/check_log_demo.cmake"

  PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name xpath-store.pc)") && export PKG_CONFIG_PATH
  cflags=$(pkg-config --cflags xpath-store)
  case "$cflags " in */include/xpath" "*) fail "the include path names xpath/: $cflags" ;; esac
  # shellcheck disable=SC2086 # the flags are words
  "$cxx" $flags -std=c++17 -o "$work/consumer/store_demo_pc" "$src/examples/store_demo.cpp" \
    $cflags $(pkg-config --libs xpath-store)
  "$cmake" -DDEMO="$work/consumer/store_demo_pc" -DOUT="$work/consumer/store_pc.xml" \
    -P "$src/examples/check_store_demo.cmake"
  ;;
deb)
  for tool in "$cpack" dpkg-deb dpkg; do
    command -v "$tool" >/dev/null || { echo "$tool is not installed: skipped"; exit 77; }
  done
  rm -rf "$work/packages" "$work/root"
  "$cpack" --config "$build/CPackConfig.cmake" -B "$work/packages"
  arch=$(dpkg --print-architecture)
  tool=$work/packages/xpath_${version}_$arch.deb dev=$work/packages/libxpath-dev_${version}_$arch.deb
  dpkg-deb -f "$tool" Package Version Maintainer Depends Conflicts
  [ "$(dpkg-deb -f "$tool" Version)" = "$version" ] || fail "wrong version"
  dpkg-deb -f "$tool" Depends | grep -q '\blibxml2\b' || fail "no libxml2 dependency"
  [ "$(dpkg-deb -f "$tool" Conflicts)" = libxml-xpath-perl ] || fail "no conflict with the other xpath"
  [ "$(dpkg-deb -f "$dev" Depends)" = "libxml2-dev, zlib1g-dev, liblzma-dev" ] ||
    fail "libxpath-dev: not the development packages it builds with"
  command -v lintian >/dev/null || echo "lintian is not installed: not run"
  command -v lintian >/dev/null && lintian --fail-on error,warning "$tool" "$dev"

  dpkg -x "$tool" "$work/root" && dpkg -x "$dev" "$work/root"
  (cd "$prefix" && find . ! -type d | sort) > "$work/installed.txt"
  (cd "$work/root/usr" && find . ! -type d | sort) > "$work/packed.txt"
  diff "$work/installed.txt" "$work/packed.txt" || fail "the packages don't hold what the tree holds"
  zcat "$work/root/usr/share/doc/xpath/changelog.gz" | head -n1 | grep -qF "xpath ($version)" ||
    fail "the change log has no entry for $version"
  runs "$work/root/usr/bin/xpath"
  ;;
esac
