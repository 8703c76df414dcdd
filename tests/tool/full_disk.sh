#!/bin/sh
# A save that can't fit on a full file system fails before the old file's bytes change:
# "Could not save file", status 1, the old bytes intact and nothing left beside them, by a new
# file swapped in and, for a file with a second hard link, in place.
# Usage: full_disk.sh <xpath binary>. Exits 77 (skipped) where no file system can be mounted.
set -u
dir=$(mktemp -d)
trap 'umount "$dir/fs" 2>/dev/null; rm -rf "$dir"' EXIT
mkdir "$dir/fs"
mount -t tmpfs -o size=256k none "$dir/fs" 2> /dev/null || { echo "no tmpfs here"; exit 77; }
printf '<a><b>old</b></a>' > "$dir/fs/f.xml"
cp "$dir/fs/f.xml" "$dir/before"
dd if=/dev/zero of="$dir/fs/filler" bs=4k 2> /dev/null  # until the file system is full
big=$(head -c 20000 /dev/zero | tr '\0' x)
for file in f.xml g.xml; do
    [ "$file" = g.xml ] && ln "$dir/fs/f.xml" "$dir/fs/g.xml"
    "$1" "$dir/fs/$file" /a/b "$big" 2> "$dir/err"
    status=$?
    if [ "$status" != 1 ] || [ "$(cat "$dir/err")" != "Could not save file" ] ||
        ! cmp -s "$dir/fs/$file" "$dir/before"; then
        echo "$file: status $status, stderr '$(cat "$dir/err")', now: $(head -c 80 "$dir/fs/$file")"
        exit 1
    fi
done
[ "$(ls -A "$dir/fs" | tr '\n' ' ')" = "f.xml filler g.xml " ] || { echo "left: $(ls -A "$dir/fs")"; exit 1; }
