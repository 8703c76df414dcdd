#!/usr/bin/env bash
# Benchmark of the tool against floor programs (libxml2 alone) and peer tools (xmllint,
# xmlstarlet): bench/run.sh [build-dir]
#
#   REPS=5              repetitions of each case (3 with QUICK=1)
#   BIG_REPS=3          repetitions at 100 MB and above (REPS when set lower)
#   SIZES="1MB 10MB 100MB" data sizes (10MB with QUICK=1)
#   QUICK=1             the quick run: 10 MB, 3 repetitions, 200 calls for the cost of a call
#   PEERS=0             time the tool and the floors only, without xmllint and xmlstarlet
#   CALLS=1000          calls in each timed loop of the cost of one call (0: not measured)
#   DATA=bench/data     where the generated files are (made when missing)
#   OUT=bench/out       where the build, the raw measurements and results.md go
#   CASES=regex         only the cases whose name matches (grep -E), e.g. CASES=read,
#                       CASES=deep or CASES='per call'
#
# Each case runs the tool, its floor and the peers in turn, the order rotating at each
# repetition, and records the wall time, CPU time and peak RSS of every run; bench/report.py
# turns them into the tables.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
if [[ ${QUICK:-0} == 1 ]]; then
    reps=${REPS:-3}
    sizes=${SIZES:-10MB}
    calls=${CALLS:-200}
else
    reps=${REPS:-5}
    sizes=${SIZES:-1MB 10MB 100MB}
    calls=${CALLS:-1000}
fi
big_reps=${BIG_REPS:-3}
((big_reps <= reps)) || big_reps=$reps
peers=${PEERS:-1}
data=${DATA:-$here/data}
out=${OUT:-$here/out}
build=${1:-$out/build}
mkdir -p "$out"
# One run at a time per output directory: a second one would overwrite the first's files,
# and two runs at once disturb each other's timings anyway.
exec 9>"$out/.lock"
flock -n 9 || { echo "bench: another run is using $out (wait for it, or set OUT=)" >&2; exit 1; }
raw=$out/raw.tsv
percall=$out/percall.tsv
work=$(mktemp --suffix=.xml "$out/work.XXXXXX")
trap 'rm -f "$work"' EXIT
value=bench-value

fail() {
    echo "bench: $*" >&2
    exit 1
}

if ((peers)); then
    command -v xmllint >/dev/null || fail "xmllint is missing: apt-get install libxml2-utils (or PEERS=0)"
    command -v xmlstarlet >/dev/null || fail "xmlstarlet is missing: apt-get install xmlstarlet (or PEERS=0)"
fi

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
python3 "$here/gen.py" --out "$data" --kind records 2KB
: >"$out/sizes.txt"  # "shape size bytes" lines, for the growth table
for size in $sizes; do
    for stem in records root-children deep text; do
        echo "$stem $size $(stat -c %s "$data/$stem-$size.xml")" >>"$out/sizes.txt"
    done
done
smallest=${sizes%% *}

measure() {  # measure <case> <size> <prog> <rep> <command...>: one timed run into raw.tsv
    local case=$1 size=$2 prog=$3 rep=$4
    shift 4
    local t rss rc cpu
    read -r t rss rc cpu < <(python3 "$here/measure.py" -- "$@")
    printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$case" "$size" "$prog" "$rep" "$t" "$rss" "$rc" "$cpu" >>"$raw"
    printf '  %-6s %-10s #%s  %7.3f s (CPU %7.3f s)  %8.1f MiB%s\n' "$size" "$prog" "$rep" "$t" "$cpu" \
        "$(echo "$rss" | awk '{print $1 / 1024}')" "$([[ $rc == 0 ]] || echo "  exit $rc")"
}

# The value of the last attribute name="..." in the file: the selective reads look for it,
# so they scan (nearly) every candidate.
last_value() {  # last_value <file> <attribute name>
    tail -c 65536 "$1" | grep -o "$2=\"[^\"]*\"" | tail -n 1 | cut -d'"' -f2
}

# The expression for one file: @ID@, @N@ stand for the last id="..." and n="..." values.
expression() {  # expression <file> <expression>
    local expr=$2
    [[ $expr != *@ID@* ]] || expr=${expr//@ID@/$(last_value "$1" id)}
    [[ $expr != *@N@* ]] || expr=${expr//@N@/$(last_value "$1" n)}
    printf '%s' "$expr"
}

selected() {
    grep -Eq -- "${CASES:-.}" <<<"$1"
}

repetitions() {  # repetitions <size>: fewer at 100 MB and above
    local bytes
    bytes=$(python3 -c 'import sys; sys.path.insert(0, sys.argv[1]); import gen; print(gen.parse_size(sys.argv[2])[1])' \
        "$here" "$1")
    ((bytes >= 100000000)) && echo "$big_reps" || echo "$reps"
}

# The command line of one program for a read of expr in file.
read_command() {  # read_command <prog> <file> <expr>: into the array cmd
    case $1 in
        xpath) cmd=("$xpath" "$2" "$3") ;;
        floor) cmd=("$floor_read" "$2" "$3") ;;
        xmllint) cmd=(xmllint --noblanks --xpath "$3" "$2") ;;
        xmlstarlet) cmd=(xmlstarlet sel -B -t -v "$3" "$2") ;;
    esac
}

# The programs of a case, rotated by the repetition so that each takes every place in turn.
rotated() {  # rotated <rep> <prog...>: into the array order
    local rep=$1
    shift
    local n=$# i
    order=()
    for ((i = 0; i < n; i++)); do
        local at=$(((i + rep - 1) % n + 1))
        order+=("${!at}")
    done
}

read_programs=(xpath floor)
set_programs=(xpath floor)
if ((peers)); then
    read_programs+=(xmllint xmlstarlet)
    set_programs+=(xmlstarlet)
fi

read_case() {  # read_case <case> <file stem> <xpath; @ID@ and @N@ as in expression>
    local case=$1 stem=$2
    selected "$case" || return 0
    local size cmd order
    for size in $sizes; do
        local file=$data/$stem-$size.xml expr
        expr=$(expression "$file" "$3")
        echo "-- $case, $size: $stem-$size.xml '$expr'"
        if [[ $size == "$smallest" ]]; then
            # Once, untimed, at the smallest size: each program must succeed, and each but
            # the floor (which prints nothing) must print something.
            local prog check rc
            for prog in "${read_programs[@]}"; do
                read_command "$prog" "$file" "$expr"
                check=$(python3 "$here/measure.py" --stdout "$out/check.txt" -- "${cmd[@]}")
                rc=$(echo "$check" | cut -d' ' -f3)
                [[ $rc == 0 ]] || fail "$prog gave exit $rc for $case $size"
                [[ $prog == floor || -s $out/check.txt ]] || fail "$prog printed nothing for $case $size"
                [[ $prog == floor ]] || echo "   $prog: $(wc -l <"$out/check.txt") line(s)," \
                    "$(wc -c <"$out/check.txt") bytes, begins '$(head -c 50 "$out/check.txt" | head -n 1)'"
            done
        fi
        local rep n
        n=$(repetitions "$size")
        for ((rep = 1; rep <= n; rep++)); do
            rotated "$rep" "${read_programs[@]}"
            for prog in "${order[@]}"; do
                read_command "$prog" "$file" "$expr"
                measure "$case" "$size" "$prog" "$rep" "${cmd[@]}"
            done
        done
    done
}

# set_case <case> <file stem> <path to set> <path that reads the value back> <xmlstarlet ed
# operations doing the same, before -v value>: @ID@ and @N@ as in expression.
set_case() {
    local case=$1 stem=$2 path_template=$3 readback_template=$4 path readback
    shift 4
    local peer_ops=("$@")
    selected "$case" || return 0
    local size cmd order
    set_command() {  # set_command <prog> <file>: into the array cmd
        case $1 in
            xpath) cmd=("$xpath" "$2" "$path" "$value") ;;
            floor) cmd=("$floor_set" "$2" "$path" "$value") ;;
            xmlstarlet) cmd=(xmlstarlet ed -L "${peer_ops[@]}" -v "$value" "$2") ;;
        esac
    }
    for size in $sizes; do
        local file=$data/$stem-$size.xml
        path=$(expression "$file" "$path_template")
        readback=$(expression "$file" "$readback_template")
        echo "-- $case, $size: $stem-$size.xml '$path' $value; xmlstarlet ed ${peer_ops[*]} -v $value"
        if [[ $size == "$smallest" ]]; then
            # Once, untimed, at the smallest size: each program stores the value (read back
            # with the tool), and the saved files are compared with the tool's.
            local prog got
            for prog in "${set_programs[@]}"; do
                cp "$file" "$work"
                set_command "$prog" "$work"
                "${cmd[@]}" >/dev/null || fail "$prog failed: $case"
                got=$("$xpath" "$work" "$readback")
                [[ $got == "$value" ]] || fail "$prog stored '$got', not '$value': $case"
                mv "$work" "$out/saved-$prog.xml"
            done
            for prog in "${set_programs[@]:1}"; do
                local same="NOT identical"
                if cmp -s "$out/saved-xpath.xml" "$out/saved-$prog.xml"; then
                    same=identical
                elif cmp -s <(tail -n +2 "$out/saved-xpath.xml") <(tail -n +2 "$out/saved-$prog.xml"); then
                    same="identical but for the XML declaration"
                fi
                echo "   all store '$value' at $readback; $prog's saved file and the tool's are $same"
            done
            for prog in "${set_programs[@]}"; do rm -f "$out/saved-$prog.xml"; done
        fi
        local rep n
        n=$(repetitions "$size")
        for ((rep = 1; rep <= n; rep++)); do
            rotated "$rep" "${set_programs[@]}"
            for prog in "${order[@]}"; do
                cp "$file" "$work"  # restored before each run, outside the timing
                set_command "$prog" "$work"
                measure "$case" "$size" "$prog" "$rep" "${cmd[@]}"
            done
        done
    done
}

# The cost of one call: CALLS calls of each program in a shell loop, timed as a whole, on a
# 2 KB file, the programs interleaved over 3 repetitions; then the instructions of one call.
per_call() {
    local case="per call: read record by @id, 2KB"
    selected "$case" && ((calls > 0)) || return 0
    local file=$data/records-2KB.xml expr prog rep cmd order
    expr=$(expression "$file" '/records/record[@id="@ID@"]/name')
    echo "-- $case: $calls calls of each, '$expr' (baseline: /bin/true)"
    : >"$percall"
    local programs=(true "${read_programs[@]}")
    for ((rep = 1; rep <= 3; rep++)); do
        rotated "$rep" "${programs[@]}"
        for prog in "${order[@]}"; do
            if [[ $prog == true ]]; then cmd=(/bin/true); else read_command "$prog" "$file" "$expr"; fi
            local t rss rc cpu
            read -r t rss rc cpu < <(python3 "$here/measure.py" -- bash -c \
                'n=$1; shift; for ((i = 0; i < n; i++)); do "$@" || exit 1; done' loop "$calls" "${cmd[@]}")
            [[ $rc == 0 ]] || fail "a call of $prog failed in the loop"
            printf 'time\t%s\t%s\t%s\t%s\n' "$prog" "$rep" "$t" "$calls" >>"$percall"
            printf '  %-10s #%s  %7.3f s for %s calls: %6.3f ms a call\n' "$prog" "$rep" "$t" "$calls" \
                "$(awk -v t="$t" -v n="$calls" 'BEGIN {print t * 1000 / n}')"
        done
    done
    # Instructions of one call: perf when the machine counts them, else callgrind.
    local counter=
    if perf stat -x, -e instructions:u -o "$out/perf.txt" true 2>/dev/null &&
        grep -q '^[0-9]' "$out/perf.txt"; then
        counter=perf
    elif command -v valgrind >/dev/null; then
        counter=callgrind
    fi
    [[ -n $counter ]] || { echo "   (no perf counters and no valgrind: no instruction counts)"; return 0; }
    for prog in "${programs[@]}"; do
        if [[ $prog == true ]]; then cmd=(/bin/true); else read_command "$prog" "$file" "$expr"; fi
        local count
        if [[ $counter == perf ]]; then
            perf stat -x, -e instructions:u -o "$out/perf.txt" -- "${cmd[@]}" >/dev/null
            count=$(grep '^[0-9]' "$out/perf.txt" | head -n 1 | cut -d, -f1)
        else
            valgrind --tool=callgrind --callgrind-out-file="$out/callgrind.out" "${cmd[@]}" \
                >/dev/null 2>"$out/callgrind.log"
            count=$(grep -m1 -E '^(summary|totals):' "$out/callgrind.out" | awk '{print $2}')
        fi
        printf 'instructions\t%s\t%s\t%s\n' "$prog" "$counter" "$count" >>"$percall"
        printf '  %-10s %s instructions (%s)\n' "$prog" "$count" "$counter"
    done
    rm -f "$out/perf.txt" "$out/callgrind.out" "$out/callgrind.log"
}

: >"$raw"
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
echo "== runs: $reps repetitions ($big_reps at 100 MB and above), sizes $sizes," \
    "programs ${read_programs[*]} (reads), ${set_programs[*]} (sets)"
# Records with attributes.
read_case "records: read //record/@id (many)" records '//record/@id'
read_case "records: read record by @id (selective)" records '/records/record[@id="@ID@"]/name'
set_case "records: set existing last name" records '/records/record[last()]/name' \
    '/records/record[last()]/name' -u '/records/record[last()]/name'
set_case "records: set new /records/extra/deep/leaf" records /records/extra/deep/leaf \
    /records/extra/deep/leaf -s /records -t elem -n extra -v '' -s /records/extra -t elem -n deep \
    -v '' -s /records/extra/deep -t elem -n leaf
set_case "records: set new @added on last record" records '/records/record[last()]/@added' \
    '/records/record[last()]/@added' -s '/records/record[last()]' -t attr -n added
# A root with millions of small children.
read_case "root-children: read /root (one value of all)" root-children /root
read_case "root-children: read /root/item (many)" root-children /root/item
read_case "root-children: read item by @n (selective)" root-children '/root/item[@n="@N@"]'
set_case "root-children: set existing last item" root-children '/root/item[last()]' \
    '/root/item[last()]' -u '/root/item[last()]'
# Deep nesting.
read_case "deep: read //leaf (many)" deep //leaf
read_case "deep: read leaf by @id (selective)" deep '/doc/rec[@id="@ID@"]//leaf'
set_case "deep: set existing last leaf" deep '/doc/rec[last()]//leaf' '/doc/rec[last()]//leaf' \
    -u '/doc/rec[last()]//leaf'
# Text with entities, character references and CDATA.
read_case "text: read //para (many)" text //para
read_case "text: read title by @id (selective)" text '/book/chapter[@id="@ID@"]/title'
set_case "text: set existing last title" text '/book/chapter[last()]/title' \
    '/book/chapter[last()]/title' -u '/book/chapter[last()]/title'
per_call

versions="libxml2 $(xmllint --version 2>&1 | grep -o '[0-9]\{5\}' | head -n 1)"
((peers)) && versions+=", xmlstarlet $(xmlstarlet --version | head -n 1)"
{
    echo "# Benchmark results"
    echo
    echo "Tool built at commit $built_at," \
        "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, load $load_before before the runs" \
        "and $(cut -d' ' -f1-3 /proc/loadavg) at the end, $versions," \
        "$reps repetitions ($big_reps at 100 MB and above), sizes $sizes."
    echo
    python3 "$here/report.py" "$raw" --sizes "$out/sizes.txt" \
        $([[ -s $percall ]] && echo "--percall $percall")
} >"$out/results.md"
echo
cat "$out/results.md"
echo
echo "(written to $out/results.md; raw runs in $raw)"
