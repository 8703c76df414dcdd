#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each for FUZZ_SECONDS seconds (default 60) from
# its seed corpus, with a 1 s limit per input, as many at a time as there are cores. Fails
# when any target finds a crash, a sanitizer report, a broken invariant, a leak or a slow
# input; what it found is kept in <build>/fuzz/artifacts.
# Usage: fuzz/run.sh [build directory, default build-fuzz]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
build=${1:-build-fuzz}
targets=(fuzz_split fuzz_read fuzz_set fuzz_delete)

cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DXPATH_FUZZ=ON -DBUILD_TESTING=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target "${targets[@]}"

artifacts=$build/fuzz/artifacts
mkdir -p "$artifacts"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# One target per core at a time. New inputs go to a scratch corpus; the seeds stay as they are.
fuzz() {
  mkdir -p "$work/$1"
  "$build/fuzz/$1" -max_total_time="$seconds" -timeout=1 -rss_limit_mb=2048 \
    -print_final_stats=1 -dict=fuzz/xpath.dict -artifact_prefix="$artifacts/$1-" \
    "$work/$1" "fuzz/corpus/$1" > "$work/$1.log" 2>&1 || touch "$work/$1.failed"
}
cores=$(nproc 2> /dev/null || echo 1)
echo "== fuzzing ${targets[*]}, ${seconds}s each, $cores at a time"
running=0
for target in "${targets[@]}"; do
  fuzz "$target" &
  if [ $((++running % cores)) -eq 0 ]; then wait; fi
done
wait
failed=()
for target in "${targets[@]}"; do
  echo "== $target"
  if [ -e "$work/$target.failed" ]; then
    failed+=("$target")
    grep -a -B2 -A30 -m1 -E 'ERROR|INVARIANT|runtime error' "$work/$target.log" || tail -40 "$work/$target.log"
  fi
  grep -a 'cov: ' "$work/$target.log" | tail -1 || true
  grep -aE '^stat::(number_of_executed_units|peak_rss_mb)' "$work/$target.log" || true
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found problems in: ${failed[*]} (inputs in $artifacts)" >&2
  exit 1
fi
echo "== fuzzing: nothing found"
