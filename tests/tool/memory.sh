#!/bin/sh
# Set mode under memory pressure: under every limit of address space, a path that selects
# three nodes (whose values expand an entity) is never set, and the file stays as it was.
# Skipped (77) where the tool can't run under a limit at all, as with sanitizers.
xpath=$1
dir=$(mktemp -d) || exit 1
trap 'rm -rf "$dir"' EXIT
{
    printf '<!DOCTYPE a [<!ENTITY e "'
    head -c 1000000 /dev/zero | tr '\0' x
    printf '">]><a><b>&e;&e;&e;&e;&e;&e;&e;&e;&e;</b><b/><b/></a>'
} >"$dir/before.xml"
run() { (ulimit -v "$1" && exec "$xpath" "$dir/f.xml" /a/b v) 2>&1; }
cp "$dir/before.xml" "$dir/f.xml"
run 150000 | grep -q "more than one" || exit 77
for kb in $(seq 40000 2500 100000); do
    cp "$dir/before.xml" "$dir/f.xml"
    run "$kb" >/dev/null && { echo "set with status 0 under $kb KB"; exit 1; }
    cmp -s "$dir/before.xml" "$dir/f.xml" || { echo "file changed under $kb KB"; exit 1; }
done
exit 0
