#!/bin/sh
# A save that can't fit (a full file system, a file size limit) fails before the old
# file's bytes change: "Could not save file", status 1, the old bytes intact; a compressed
# file's too.
# Usage: full_disk.sh <xpath binary>. Exits 77 (skipped) where no file system can be mounted.
set -u
xpath=$1
dir=$(mktemp -d)
trap 'umount "$dir/fs" 2>/dev/null; rm -rf "$dir"' EXIT
big=$(head -c 20000 /dev/zero | tr '\0' x)

expect_kept() {  # <file> <what> [the old bytes: before]
    status=$?
    if [ "$status" != 1 ] || [ "$(cat "$dir/err")" != "Could not save file" ] ||
        ! cmp -s "$1" "$dir/${3:-before}"; then
        echo "$2: status $status, stderr '$(cat "$dir/err")', file now: $(head -c 80 "$1")"
        exit 1
    fi
}

printf '<a><b>old</b></a>' > "$dir/before"
cp "$dir/before" "$dir/limited.xml"
(ulimit -f 4 && exec "$xpath" "$dir/limited.xml" /a/b "$big") 2> "$dir/err"
expect_kept "$dir/limited.xml" "file size limit"

mkdir "$dir/fs"
mount -t tmpfs -o size=256k none "$dir/fs" 2> /dev/null || { echo "no tmpfs here"; exit 77; }
cp "$dir/before" "$dir/fs/f.xml"
awk 'BEGIN { printf "<a><b>old</b>"; for (i = 0; i < 5000; i++) printf "<c>%d</c>", i; print "</a>" }' |
    gzip | tee "$dir/zipped" > "$dir/fs/z.xml.gz"  # large enough for the library to see it compressed
dd if=/dev/zero of="$dir/fs/filler" bs=4k 2> /dev/null  # until the file system is full
"$xpath" "$dir/fs/f.xml" /a/b "$big" 2> "$dir/err"
expect_kept "$dir/fs/f.xml" "full file system"
"$xpath" "$dir/fs/z.xml.gz" /a/b "$(head -c 15000 /dev/urandom | base64 -w0)" 2> "$dir/err"
expect_kept "$dir/fs/z.xml.gz" "full file system, compressed" zipped
# A second hard link keeps the save in place, where the space is reserved first.
ln "$dir/fs/f.xml" "$dir/fs/g.xml"
"$xpath" "$dir/fs/g.xml" /a/b "$big" 2> "$dir/err"
expect_kept "$dir/fs/g.xml" "full file system, in place"
(ulimit -f 4 && exec "$xpath" "$dir/fs/g.xml" /a/b "$big") 2> "$dir/err"
expect_kept "$dir/fs/g.xml" "file size limit, in place"
[ "$(ls -A "$dir/fs" | tr '\n' ' ')" = "f.xml filler g.xml z.xml.gz " ] || { echo "left: $(ls -A "$dir/fs")"; exit 1; }
echo "old bytes kept"
