#!/bin/sh
# The store's parse against the library's plain parse, document by document (bench/identity.cpp
# says what is compared):
#
#   bench/identity.sh [FILE...]     the files given; by default every *.xml under /usr/share
#   bench/identity.sh --fixtures    the repository's own documents: examples/*.xml, the fuzz
#                                   corpora (each input up to its first NUL, as the targets
#                                   read it) and the documents of tests/store's store and
#                                   delete tables (what CTest runs, as bench.identity)
#
# IDENTITY=path/to/identity uses that program; otherwise it is built (Release) in
# bench/out/build, or BUILD=dir. Exits non-zero when any document differs.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")

if [ -z "${IDENTITY:-}" ]; then
    build=${BUILD:-$here/out/build}
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DXPATH_BENCH=ON >/dev/null
    cmake --build "$build" -j2 --target identity >/dev/null
    IDENTITY=$build/bench/identity
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
