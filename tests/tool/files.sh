#!/bin/sh
# What a file is: a name is a path ("-", "file:/x.xml", "%" and "?" in it), read and written as
# such; gzip and xz content is read, and written back compressed as it was; only a regular file is
# written; a set-user and set-group file of a normal user keeps its bits.
# Usage: files.sh <xpath binary>
set -u
xpath=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir" && mkdir file: || exit 1
fail() { echo "$*"; exit 1; }
new='<?xml version="1.0" encoding="UTF-8"?>
<a>new</a>'
for name in - file:/x.xml x%41.xml 'q?x=1.xml'; do
    printf '<a>old</a>' > "$name"
    [ "$(echo '<a>in</a>' | "$xpath" "$name" /a)" = old ] || fail "$name: not read"
    echo '<a>in</a>' | "$xpath" "$name" /a new && [ "$(cat < "$name")" = "$new" ] || fail "$name: not written"
done
[ "$(ls -A | tr '\n' ' ')" = "- file: q?x=1.xml x%41.xml " ] || fail "made: $(ls -A)"

printf '<a>old</a>' | gzip > z.gz
! command -v xz > /dev/null || printf '<a>old</a>' | xz > z.xz
for name in z.gz z.xz; do
    [ -e $name ] || continue
    unpack="gzip -dc"; [ $name = z.gz ] || unpack="xz -dc"
    [ "$("$xpath" $name /a)" = old ] && "$xpath" $name /a new && [ "$($unpack $name)" = "$new" ] ||
        fail "$name: not read, or not written back compressed"
done

mkfifo fifo  # nobody writes into it: refused, not waited on
for name in fifo /dev/stdin; do
    echo '<a/>' | timeout 10 "$xpath" $name /a v 2> err
    [ $? = 1 ] && [ "$(cat err)" = "Could not save file" ] || fail "$name: written, status $?"
done

printf '<a/>' > s.xml
as=
if [ "$(id -u)" = 0 ]; then
    chown nobody:nogroup . s.xml && as="setpriv --reuid=nobody --regid=nogroup --clear-groups" || exit 77
fi
chmod 6750 s.xml
$as "$xpath" s.xml /a v && [ "$(stat -c %a s.xml)" = 6750 ] || fail "set-user file: now $(stat -c %a s.xml)"
echo "names, compressed files, pipes and modes as they should be"
