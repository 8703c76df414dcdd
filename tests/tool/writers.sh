#!/bin/sh
# Writers at once on one file, each adding elements of its own: every one of them is there
# afterwards, the file is well-formed, and nothing is left beside it.
# Usage: writers.sh <xpath binary>
set -u
xpath=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir "$dir/w"
printf '<a/>' > "$dir/w/f.xml"
for w in 1 2 3 4; do
    for i in $(seq 10); do
        "$xpath" "$dir/w/f.xml" "/a/x[@n=\"$w-$i\"]" v || echo "writer $w, run $i: status $?"
    done > "$dir/out$w" 2>&1 &
done
wait
! grep . "$dir"/out* || exit 1
for w in 1 2 3 4; do seq 10 | sed "s/^/$w-/"; done | sort > "$dir/expected"
"$xpath" "$dir/w/f.xml" /a/x/@n | sort | diff "$dir/expected" - || exit 1
[ "$(ls -A "$dir/w")" = f.xml ] || { echo "left: $(ls -A "$dir/w")"; exit 1; }
