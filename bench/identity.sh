#!/bin/sh
# The store's parse against the library's plain parse, document by document (bench/identity.cpp
# says what is compared), or with --stream first, streamed reads against the tree's reads
# (bench/stream_identity.cpp):
#
#   bench/identity.sh [--stream] [FILE...]   the files given; by default every *.xml under
#                                            /usr/share (streamed: each with a set of
#                                            expressions that stream)
#   bench/identity.sh --fixtures             the repository's own documents: examples/*.xml,
#                                            the fuzz corpora (each input up to its first NUL,
#                                            as the targets read it) and the documents of
#                                            tests/store's store and delete tables (what
#                                            CTest runs, as bench.identity)
#   bench/identity.sh --stream --fixtures    the edge table bench/stream_edges.tsv and
#                                            examples/*.xml (CTest: bench.stream_identity)
#
# IDENTITY=path/to/identity (or STREAM_IDENTITY=path/to/stream_identity) uses that program;
# otherwise it is built (Release) in bench/out/build, or BUILD=dir. Exits non-zero when any
# document differs.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")

program=identity
if [ "${1:-}" = --stream ]; then
    shift
    program=stream_identity
    IDENTITY=${STREAM_IDENTITY:-}
fi
if [ -z "${IDENTITY:-}" ]; then
    build=${BUILD:-$here/out/build}
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DXPATH_BENCH=ON >/dev/null
    cmake --build "$build" -j2 --target $program >/dev/null
    IDENTITY=$build/bench/$program
fi

if [ "${1:-}" = --fixtures ] && [ $program = stream_identity ]; then
    # The examples also packed, cut short or in the trailer, and under names that are no URL.
    files=$(mktemp -d)
    trap 'rm -rf "$files"' EXIT
    for example in "$root"/examples/*.xml; do
        name=$(basename "$example")
        gzip -c "$example" >"$files/$name.gz"
        head -c $(($(wc -c <"$files/$name.gz") / 2)) "$files/$name.gz" >"$files/short-$name.gz"
        head -c -4 "$files/$name.gz" >"$files/trailer-$name.gz"
        if command -v xz >/dev/null; then xz -c "$example" >"$files/$name.xz"; fi
        cp "$example" "$files/%41 ?$name"
        mkdir -p "$files/file:" && cp "$example" "$files/file:/$name"
    done
    cd "$files"
    "$IDENTITY" --tsv "$here/stream_edges.tsv" "$root"/examples/*.xml ./*.*z ./%* file:/*
    exit
fi
if [ "${1:-}" = --fixtures ]; then
    set -- "$root"/examples/*.xml --upto-nul "$root"/fuzz/corpus/*/* \
        --tsv "$root"/tests/store/store.tsv "$root"/tests/store/delete.tsv
    exec "$IDENTITY" "$@"
fi
if [ $# -gt 0 ]; then
    exec "$IDENTITY" "$@"
fi
find /usr/share -name '*.xml' ! -type d | sort | "$IDENTITY"
