#!/usr/bin/env bash
# Benchmark of the tool against floor programs (libxml2 alone): bench/run.sh [build-dir]
#
#   REPS=5            repetitions of each case (3 with QUICK=1)
#   SIZES="10MB 100MB" data sizes (10MB with QUICK=1)
#   QUICK=1           the quick run: 10 MB, 3 repetitions
#   DATA=bench/data   where the generated files are (made when missing)
#   OUT=bench/out     where the build, the raw measurements and results.md go
#   CASES=regex       only the cases whose name matches (grep -E), e.g. CASES=read
#
# Each case runs the tool and its floor alternately, REPS times each, and records the wall
# time and peak RSS of every run; bench/report.py turns them into the table.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
if [[ ${QUICK:-0} == 1 ]]; then
    reps=${REPS:-3}
    sizes=${SIZES:-10MB}
else
    reps=${REPS:-5}
    sizes=${SIZES:-10MB 100MB}
fi
data=${DATA:-$here/data}
out=${OUT:-$here/out}
build=${1:-$out/build}
mkdir -p "$out"
# One run at a time per output directory: a second one would overwrite the first's files,
# and two runs at once disturb each other's timings anyway.
exec 9>"$out/.lock"
flock -n 9 || { echo "bench: another run is using $out (wait for it, or set OUT=)" >&2; exit 1; }
raw=$out/raw.tsv
work=$(mktemp --suffix=.xml "$out/work.XXXXXX")
trap 'rm -f "$work"' EXIT
value=bench-value

echo "== build (Release) in $build"
built_at=$(git -C "$root" rev-parse --short HEAD 2>/dev/null || echo unknown)
git -C "$root" diff --quiet HEAD -- src 2>/dev/null || built_at+=" with src/ changed since"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DXPATH_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target xpath floor_read floor_set >/dev/null
xpath=$build/xpath
floor_read=$build/bench/floor_read
floor_set=$build/bench/floor_set

echo "== data in $data"
# shellcheck disable=SC2086
python3 "$here/gen.py" --out "$data" $sizes
: >"$out/sizes.txt"
for size in $sizes; do
    echo "$size $(stat -c %s "$data/records-$size.xml")" >>"$out/sizes.txt"
done

measure() {  # measure <case> <size> <prog> <rep> <command...>: one timed run into raw.tsv
    local case=$1 size=$2 prog=$3 rep=$4
    shift 4
    local t rss rc cpu
    read -r t rss rc cpu < <(python3 "$here/measure.py" -- "$@")
    printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$case" "$size" "$prog" "$rep" "$t" "$rss" "$rc" "$cpu" >>"$raw"
    printf '  %-6s %-5s #%s  %7.3f s (CPU %7.3f s)  %8.1f MiB%s\n' "$size" "$prog" "$rep" "$t" "$cpu" \
        "$(echo "$rss" | awk '{print $1 / 1024}')" "$([[ $rc == 0 ]] || echo "  exit $rc")"
}

# The last record's id: the selective read looks for it, so it scans every record.
last_id() {
    tail -c 4096 "$1" | grep -o 'id="[^"]*"' | tail -n 1 | cut -d'"' -f2
}

fail() {
    echo "bench: $*" >&2
    exit 1
}

selected() {
    grep -Eq -- "${CASES:-.}" <<<"$1"
}

read_case() {  # read_case <case> <file stem> <xpath; @LAST@ is the last record's id>
    local case=$1 stem=$2 expr
    selected "$case" || return 0
    for size in $sizes; do
        local file=$data/$stem-$size.xml
        expr=$3
        [[ $expr != *@LAST@* ]] || expr=${expr//@LAST@/$(last_id "$file")}
        echo "-- $case, $size: xpath $stem-$size.xml '$expr'"
        # Once, untimed: the tool must print something and succeed.
        local check rc
        check=$(python3 "$here/measure.py" --stdout "$out/check.txt" -- "$xpath" "$file" "$expr")
        rc=$(echo "$check" | cut -d' ' -f3)
        [[ $rc == 0 && -s $out/check.txt ]] || fail "xpath gave exit $rc or no output for $case $size"
        echo "   output: $(wc -l <"$out/check.txt") line(s), $(wc -c <"$out/check.txt") bytes," \
            "begins '$(head -c 60 "$out/check.txt" | head -n 1)'"
        "$floor_read" "$file" "$expr" || fail "floor_read failed for $case $size"
        for ((rep = 1; rep <= reps; rep++)); do
            local order=(xpath floor)
            ((rep % 2)) || order=(floor xpath)
            for prog in "${order[@]}"; do
                if [[ $prog == xpath ]]; then
                    measure "$case" "$size" xpath "$rep" "$xpath" "$file" "$expr"
                else
                    measure "$case" "$size" floor "$rep" "$floor_read" "$file" "$expr"
                fi
            done
        done
    done
}

# set_case <case> <file stem> <path to set> <path that reads the value back>
set_case() {
    local case=$1 stem=$2 path=$3 readback=$4 first=1
    selected "$case" || return 0
    for size in $sizes; do
        local file=$data/$stem-$size.xml
        echo "-- $case, $size: xpath $stem-$size.xml '$path' $value"
        if ((first)); then  # once, at the smallest size, untimed: both store the value
            first=0
            local prog got
            for prog in "$xpath" "$floor_set"; do
                cp "$file" "$work"
                "$prog" "$work" "$path" "$value" >/dev/null || fail "$(basename "$prog") failed: $case"
                got=$("$xpath" "$work" "$readback")
                [[ $got == "$value" ]] || fail "$(basename "$prog") stored '$got', not '$value': $case"
                mv "$work" "$out/saved-$(basename "$prog").xml"
            done
            echo "   both store '$value' at $readback; the saved files are" \
                "$(cmp -s "$out/saved-xpath.xml" "$out/saved-floor_set.xml" && echo identical || echo 'NOT identical')"
            rm -f "$out/saved-xpath.xml" "$out/saved-floor_set.xml"
        fi
        for ((rep = 1; rep <= reps; rep++)); do
            local order=(xpath floor)
            ((rep % 2)) || order=(floor xpath)
            for prog in "${order[@]}"; do
                cp "$file" "$work"  # restored before each run, outside the timing
                if [[ $prog == xpath ]]; then
                    measure "$case" "$size" xpath "$rep" "$xpath" "$work" "$path" "$value"
                else
                    measure "$case" "$size" floor "$rep" "$floor_set" "$work" "$path" "$value"
                fi
            done
        done
    done
}

: >"$raw"
echo "== runs: $reps repetitions, sizes $sizes"
read_case "read /root (all children)" root-children /root
read_case "read record by @id" records '/records/record[@id="@LAST@"]/name'
read_case "read //record/@id" records '//record/@id'
set_case "set existing last name" records '/records/record[last()]/name' '/records/record[last()]/name'
set_case "set new /records/extra/deep/leaf" records /records/extra/deep/leaf /records/extra/deep/leaf
set_case "set new @added on last record" records '/records/record[last()]/@added' \
    '/records/record[last()]/@added'

{
    echo "# Benchmark results"
    echo
    echo "Tool built at commit $built_at," \
        "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)," \
        "libxml2 $(xmllint --version 2>&1 | grep -o '[0-9]\{5\}' | head -n 1)," \
        "$reps repetitions, sizes $sizes. Ratios are xpath / floor; med = median, min = minimum."
    echo
    python3 "$here/report.py" "$raw" --sizes "$out/sizes.txt"
} >"$out/results.md"
echo
cat "$out/results.md"
echo
echo "(written to $out/results.md; raw runs in $raw)"
