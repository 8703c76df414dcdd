#!/usr/bin/env bash
# Streamed reads against their floor (floor_sax: the same parse with callbacks that do nothing),
# the same read through the tree, and `xmllint --stream --noout` (which only parses):
# bench/stream.sh [build-dir]
#
#   SIZES="100MB"   data sizes; SIZES="100MB 1GB" for the large files, made on demand by gen.py
#                   (about 4 GB of disk at 1GB; delete them after: they are never in CI)
#   REPS=3          repetitions of each run; the table shows the best (least disturbed) one
#   TREE=1          also time the tree (the same expression in parentheses, which doesn't
#                   stream); TREE=0 skips it, TREE=records only at that shape. At 1 GB the
#                   tree needs about 10 GB of memory and a minute and a half per run.
#   DATA=bench/data OUT=bench/out
#
# Before timing, each case checks that the streamed and the tree's output are the same bytes
# (when the tree is timed) and that the streamed read used no tree: its peak memory must stay
# under 32 MiB.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
sizes=${SIZES:-100MB}
reps=${REPS:-3}
tree=${TREE:-1}
data=${DATA:-$here/data}
out=${OUT:-$here/out}
build=${1:-$out/build}
mkdir -p "$out"
exec 9>"$out/.lock"
flock -n 9 || { echo "bench: another run is using $out" >&2; exit 1; }
command -v xmllint >/dev/null || { echo "xmllint is missing: apt-get install libxml2-utils" >&2; exit 1; }

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DXPATH_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target xpath floor_sax >/dev/null
# shellcheck disable=SC2086
python3 "$here/gen.py" --out "$data" --kind records $sizes
# shellcheck disable=SC2086
python3 "$here/gen.py" --out "$data" --kind root-children $sizes
# shellcheck disable=SC2086
python3 "$here/gen.py" --out "$data" --kind deep $sizes

# best <command...>: the least wall time of REPS runs, "seconds MiB status"
best() {
    local t rss rc cpu bt= brss=0 brc=0
    for ((r = 0; r < reps; r++)); do
        read -r t rss rc cpu < <(python3 "$here/measure.py" -- "$@")
        if [[ -z $bt ]] || (($(echo "$t < $bt" | bc))); then bt=$t brc=$rc; fi
        ((rss > brss)) && brss=$rss
    done
    echo "$bt $((brss / 1024)) $brc"
}
ratio() { echo "scale=2; $1 / $2" | bc; }

table=$out/stream.md
{
    echo "machine: $(uptime | sed 's/.*load/load/'), $(nproc) cores; best of $reps"
    echo
    echo "| case | size | stream s | MiB | floor_sax s | ÷ floor | tree s | MiB | tree ÷ stream | xmllint --stream s | ÷ xmllint |"
    echo "|---|---|---|---|---|---|---|---|---|---|---|"
} >"$table"
cat "$table"
for size in $sizes; do
    records=$data/records-$size.xml children=$data/root-children-$size.xml deep=$data/deep-$size.xml
    id=$(tail -c 200000 "$records" | grep -o 'record id="[^"]*"' | tail -1 | cut -d'"' -f2)
    n=$(tail -c 200000 "$children" | grep -o 'item n="[^"]*"' | tail -1 | cut -d'"' -f2)
    rec=$(tail -c 2000000 "$deep" | grep -o 'rec id="[^"]*"' | tail -1 | cut -d'"' -f2)
    cases=("records|$records|//record/@id" "records|$records|/records/record[@id=\"$id\"]/name"
        "root-children|$children|/root/item" "root-children|$children|/root"
        "root-children|$children|/root/item[@n=\"$n\"]"
        "deep|$deep|//leaf" "deep|$deep|/doc/rec[@id=\"$rec\"]//leaf")
    for c in "${cases[@]}"; do
        IFS='|' read -r shape file expr <<<"$c"
        python3 "$here/measure.py" --stdout "$out/stream.out" -- "$build/xpath" "$file" "$expr" >"$out/check.txt"
        read -r _ rss rc _ <"$out/check.txt"
        ((rc == 0 && rss < 32 * 1024)) || { echo "bench: $expr on $file: status $rc, $((rss / 1024)) MiB" >&2; exit 1; }
        read -r st srss _ < <(best "$build/xpath" "$file" "$expr")
        read -r ft _ _ < <(best "$build/bench/floor_sax" "$file")
        read -r xt _ _ < <(best xmllint --stream --noout "$file")
        tt=- trss=- tr=-
        if [[ $tree == 1 || $tree == "$shape" ]]; then
            python3 "$here/measure.py" --stdout "$out/tree.out" -- "$build/xpath" "$file" "($expr)" >"$out/check.txt"
            read -r tt trss rc _ <"$out/check.txt"
            trss=$((trss / 1024))
            if ((rc == 0)); then
                cmp -s "$out/stream.out" "$out/tree.out" || { echo "bench: $expr on $file: stream and tree differ" >&2; exit 1; }
                tr=$(ratio "$tt" "$st")
            else
                tt="status $rc"
            fi
        fi
        echo "| $shape \`$expr\` | $size | $st | $srss | $ft | $(ratio "$st" "$ft") | $tt | $trss | $tr | $xt | $(ratio "$st" "$xt") |" | tee -a "$table"
    done
done
rm -f "$out/stream.out" "$out/tree.out" "$out/check.txt"
echo "(also in $table)"
