#!/bin/sh
# One failing call of the C library at a time, on each road of a save and of a read: the run
# ends in its message, status 1 and the file as it was (a new one still missing), or, where
# there is another way, in status 0 with the new text; nothing is left beside the file.
# Usage: failing.sh <xpath binary> <preload>
set -u
xpath=$1 preload=$2 wrong=0
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
export ASAN_OPTIONS="${ASAN_OPTIONS:-}:verify_asan_link_order=0"
printf '<a><b>old</b></a>\n' > "$dir/plain"
gzip -c "$dir/plain" > "$dir/gzip"

run() {  # <kind> [preload]: a run on a fresh f.xml; the names and inode there before it
    rm -rf "$dir/w" "$dir/old" && mkdir "$dir/w" && cd "$dir/w" || exit 1
    case $1 in new) ;; gzip) cp ../gzip f.xml ;; *) cp ../plain f.xml ;; esac
    case $1 in linked) ln f.xml g.xml ;; owned) chown 1:1 f.xml ;; esac
    [ ! -e f.xml ] || cp f.xml ../old
    names=$(ls -A) inode=$(stat -c %i f.xml 2>/dev/null) with=${2:-}
    if [ "$1" = read ]; then set -- /a/b; else set -- /a/b new; fi
    LD_PRELOAD=$with "$xpath" f.xml "$@" > ../out 2> ../err
}

# function, nth call (-n: every one from the nth), error, kind of file (plain; linked: a second hard link, written in place;
# owned by another user; gzip; new: none yet; read: read mode), outcome: save or load (their
# message, the file as it was), swap (a new file in its place) or place (the same file).
while read -r function n code kind outcome; do
    run "$kind"
    mv ../out ../ok && after=$(ls -A) && rm -f ../new && { [ ! -e f.xml ] || cp f.xml ../new; }
    XPATH_FAIL=$function:$n:$code run "$kind" "$preload"
    got="$? $(tail -n 1 ../err)"
    case $outcome in
        save) want="1 Could not save file" file=../old ;;
        load) want="1 File not found or could not create: f.xml" file=../old ;;
        *) want="0 " file=../new names=$after; cmp -s ../out ../ok || got="$got, other output" ;;
    esac
    now=$(stat -c %i f.xml 2>/dev/null)
    case $outcome in swap) [ "$now" != "$inode" ] ;; place) [ "$now" = "${inode:-$now}" ] ;; esac ||
        got="$got, not by $outcome"
    if [ -e $file ]; then cmp -s f.xml $file; else [ ! -e f.xml ]; fi || got="$got, file changed"
    [ "$(ls -A)" = "$names" ] || got="$got, left $(ls -A | tr '\n' ' ')"
    [ "$got" = "$want" ] || { echo "$function:$n:$code on $kind: $got"; wrong=1; }
done <<'TABLE'
open 2 EIO plain load
read 2 EIO plain load
read 1 EINTR plain swap
read 2 EIO read load
read 2 EIO gzip load
open 3 EMFILE plain place
openat 1 EOPNOTSUPP plain swap
openat -1 EIO plain place
openat -1 EEXIST plain place
linkat -1 EPERM plain swap
linkat -1 EEXIST plain swap
open 1 ENOENT plain swap
flock 1 ENOLCK plain swap
flock 1 EAGAIN plain swap
fchown 1 EPERM owned place
write 1 ENOSPC plain save
write 1 EINTR plain swap
write 1 ENOSPC new save
write 1 EDQUOT gzip save
fchmod 1 EPERM plain save
fsync 1 EIO plain save
fsync 1 EIO new save
fsync 2 EIO new save
fsync 2 EINVAL plain swap
renameat 1 EIO plain save
renameat 1 EIO new save
close 2 EIO plain save
close 1 EIO new save
fallocate 1 ENOSPC linked save
fallocate 1 EOPNOTSUPP linked place
pwrite 1 EIO linked save
TABLE
[ $wrong = 0 ] && echo "every failing call ends in its message and the old file, or the new"
