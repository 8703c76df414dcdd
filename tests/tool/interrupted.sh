#!/bin/sh
# Saves of a large file ended by kill -9 or a polite signal at random moments, and by a polite
# signal the moment the save starts writing (a hidden file appears, or, on the in-place route
# of a file with a second hard link, the old bytes begin to change), leave the old file or the
# new one, whole, and nothing beside it. With the failing preload taking unnamed files away (as
# some file systems do), the save's hidden file is what the polite signals must remove (kill -9
# can't). Usage: interrupted.sh <xpath binary> <preload> [rounds]; without it, then with it.
set -u
xpath=$1 rounds=${3:-1} preload=${PRELOAD:-}
[ -n "$preload" ] || PRELOAD=$2 sh "$0" "$@" || exit 1
signals="KILL:9 TERM:15 INT:2 HUP:1"
[ -z "$preload" ] || { signals=${signals#KILL:9 }; export ASAN_OPTIONS="${ASAN_OPTIONS:-}:verify_asan_link_order=0"; }
export XPATH_FAIL=openat:1:EOPNOTSUPP  # the first openat asks for an unnamed file
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir "$dir/w"
awk 'BEGIN { printf "<a>"; for (i = 0; i < 100000; i++) printf "<b>%d</b>", i; print "</a>" }' > "$dir/old"
touch -d 2001-01-01 "$dir/ref"

start() {  # a save of f.xml, fresh from the old bytes, with the signals a shell's job would have
    cp "$dir/old" "$dir/w/f.xml"
    touch -d 2000-01-01 "$dir/w/f.xml"
    env --default-signal LD_PRELOAD="$preload" "$xpath" "$dir/w/f.xml" /a/c new &
}
check() {  # <what> <status> <statuses allowed> <names allowed>
    cmp -s "$dir/w/f.xml" "$dir/old" || cmp -s "$dir/w/f.xml" "$dir/new" ||
        { echo "$1: torn, $(wc -c < "$dir/w/f.xml") bytes"; exit 1; }
    case " $3 " in *" $2 "*) ;; *) echo "$1: status $2"; exit 1 ;; esac
    [ "$(ls -A "$dir/w" | tr '\n' ' ')" = "$4" ] || { echo "$1: left $(ls -A "$dir/w")"; exit 1; }
}
writing() {  # a hidden file is there, or f.xml has changed
    set -- "$dir"/w/.f.xml.*
    [ -e "$1" ] || [ "$dir/w/f.xml" -nt "$dir/ref" ]
}

cp "$dir/old" "$dir/w/f.xml"
begun=$(date +%s%N)
env LD_PRELOAD="$preload" "$xpath" "$dir/w/f.xml" /a/c new || exit 1
ms=$((($(date +%s%N) - begun) / 1000000))
cp "$dir/w/f.xml" "$dir/new"
for round in $(seq "$rounds"); do
    for signal in $signals; do
        start
        sleep "$(shuf -i 0-"$ms" -n 1 | awk '{ print $1 / 1000 }')"
        kill -s "${signal%:*}" $! 2>/dev/null; wait $!
        check "$signal at random, round $round" $? "0 $((128 + ${signal#*:}))" "f.xml "
    done
    for names in "f.xml " "f.xml g.xml " "f.xml g.xml " "f.xml g.xml "; do  # in place's moment is short
        [ "$names" = "f.xml " ] || ln "$dir/w/f.xml" "$dir/w/g.xml"
        start
        i=0
        while ! writing && [ $i -lt 1000000 ]; do i=$((i + 1)); done
        kill -s TERM $!; wait $!
        check "TERM as it writes $names, round $round" $? "0 143" "$names"
        rm -f "$dir/w/g.xml"
    done
done
echo "$rounds rounds of signals: old or new file, whole, nothing beside it"
