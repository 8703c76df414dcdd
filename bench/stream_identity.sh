#!/bin/sh
# Streamed reads against the tree's, document by document (bench/stream_identity.cpp says what is
# compared):
#
#   bench/stream_identity.sh [FILE...]   the files given, each with a set of expressions that
#                                        stream; by default every *.xml under /usr/share
#   bench/stream_identity.sh --fixtures  the edge table bench/stream_edges.tsv and the repository's
#                                        examples (what CTest runs, as bench.stream_identity)
#
# STREAM_IDENTITY=path/to/stream_identity uses that program; otherwise it is built (Release) in
# bench/out/build, or BUILD=dir. Exits non-zero when any run differs.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")

if [ -z "${STREAM_IDENTITY:-}" ]; then
    build=${BUILD:-$here/out/build}
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DXPATH_BENCH=ON >/dev/null
    cmake --build "$build" -j2 --target stream_identity >/dev/null
    STREAM_IDENTITY=$build/bench/stream_identity
fi

if [ "${1:-}" = --fixtures ]; then
    exec "$STREAM_IDENTITY" --tsv "$here/stream_edges.tsv" "$root"/examples/*.xml
fi
if [ $# -gt 0 ]; then
    exec "$STREAM_IDENTITY" "$@"
fi
find /usr/share -name '*.xml' ! -type d | sort | "$STREAM_IDENTITY"
