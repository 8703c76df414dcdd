#!/bin/sh
# Builds the Debian package with plain flags, checks its control fields, unpacks it into a
# scratch root and runs the tool from there.
# Usage: package_test.sh <source dir> <work dir> <cmake> <cpack> <c++ compiler> <version>
set -eu
src=$1 work=$2 cmake=$3 cpack=$4 cxx=$5 version=$6
for tool in "$cpack" dpkg-deb dpkg; do
  command -v "$tool" >/dev/null || { echo "$tool is not installed: skipped"; exit 77; }
done
rm -rf "$work/packages" "$work/root"

"$cmake" -S "$src" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS= \
  -DCMAKE_CXX_COMPILER="$cxx" -DBUILD_TESTING=OFF
"$cmake" --build "$work/build" -j2
(cd "$work/build" && "$cpack" -G DEB -B "$work/packages")

deb=$work/packages/xpath_${version}_$(dpkg --print-architecture).deb
dpkg-deb -f "$deb" Package Version Maintainer Depends
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || { echo "wrong version"; exit 1; }
dpkg-deb -f "$deb" Depends | grep -q '\blibxml2\b' || { echo "no libxml2 dependency"; exit 1; }

dpkg -x "$deb" "$work/root"
test -f "$work/root/usr/share/man/man1/xpath.1"
plants=$("$work/root/usr/bin/xpath" "$src/examples/garden.xml" /garden/bed/plant)
[ "$plants" = "Basil
Tomato
Pepper
Mint
Fern & Moss" ] || { echo "packaged xpath printed: $plants"; exit 1; }
