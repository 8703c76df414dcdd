#!/bin/sh
# Values that can't be written (a full device, a file system that fills on the way) end with
# "Could not write values: " and the reason, status 1, for a path that streams and for one
# that needs the tree, also for a value long enough to be held in a temporary file first, which
# otherwise comes out whole and as the tree prints it. Usage: write_errors.sh <xpath binary>
set -u
xpath=$1
dir=$(mktemp -d)
trap 'umount "$dir/fs" 2>/dev/null; rm -rf "$dir"' EXIT
printf '<a>%s</a>' "$(printf '<b>%0200d</b>' $(seq 2000))" > "$dir/f.xml"
{ printf '<a><b>'; head -c 9000000 /dev/zero | tr '\0' x; printf '</b></a>'; } > "$dir/big.xml"
"$xpath" "$dir/big.xml" /a/b > "$dir/streamed" && "$xpath" "$dir/big.xml" '/a/b[position() > 0]' > "$dir/tree" &&
    [ "$(wc -c < "$dir/streamed")" = 9000001 ] && cmp -s "$dir/streamed" "$dir/tree" ||
    { echo "a long value: not whole"; exit 1; }

mkdir "$dir/fs" && outs=/dev/full  # a full device, and a file system that fills where one can be made
mount -t tmpfs -o size=128k none "$dir/fs" 2> /dev/null && outs="$outs $dir/fs/out"
for out in $outs; do
    for file in f.xml big.xml; do
        for path in /a/b '/a/b[position() > 0]'; do
            "$xpath" "$dir/$file" "$path" > "$out" 2> "$dir/err"
            status=$? error=$(cat "$dir/err")
            [ $status = 1 ] && [ "$error" = "Could not write values: No space left on device" ] ||
                { echo "$file $path to $out: status $status, stderr '$error'"; exit 1; }
        done
    done
done
echo "write errors reported"
