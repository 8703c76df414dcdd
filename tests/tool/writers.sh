#!/bin/sh
# Writers at once on one file, each adding elements of its own: every one of them is there
# afterwards, the file is well-formed, and nothing is left beside it.
# Usage: writers.sh <xpath binary>
set -u
xpath=$1 writers=4 runs=10
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir "$dir/w"
printf '<a/>' > "$dir/w/f.xml"
for w in $(seq "$writers"); do
    for i in $(seq "$runs"); do
        "$xpath" "$dir/w/f.xml" "/a/x[@n=\"$w-$i\"]" v || echo "writer $w, run $i: status $?"
    done > "$dir/out$w" 2>&1 &
done
wait
! grep . "$dir"/out* || exit 1
for w in $(seq "$writers"); do seq "$runs" | sed "s/^/$w-/"; done | sort > "$dir/expected"
"$xpath" "$dir/w/f.xml" /a/x/@n | sort | diff "$dir/expected" - > /dev/null ||
    { echo "missing: $("$xpath" "$dir/w/f.xml" /a/x/@n | sort | comm -23 "$dir/expected" - | wc -l)"; exit 1; }
[ "$(ls -A "$dir/w")" = f.xml ] || { echo "left: $(ls -A "$dir/w")"; exit 1; }
echo "$writers writers x $runs runs: all $((writers * runs)) elements there"
