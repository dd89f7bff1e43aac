#!/usr/bin/env bash
# Every benchmark of the project in one go, on demand: each one's own output goes to
# WORK/<name>.log, and one table gathers them: the work, the reference it is measured
# against in the same run, both times, their ratio (below 1: ours is faster) and memory.
#   bench/all.sh [BUILD_DIR]      (about 10 minutes on 2 cores)
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
LOGS=$(mktemp -d)
export BENCH_SUMMARY=$LOGS/summary.tsv
: >"$BENCH_SUMMARY"
for bench in cleanup_bench picture_bench upload_bench word_import_bench office_import_bench print_bench; do
  echo "running $bench (its output: $LOGS/$bench.log)" >&2
  if ! "bench/$bench.sh" "$BUILD" >"$LOGS/$bench.log" 2>&1; then
    echo "  $bench failed; see its log" >&2
  fi
done
{
  printf 'work\treference\tours\ttheirs\tratio\tmemory\n'
  cat "$BENCH_SUMMARY"
} | column -t -s $'\t'
echo "logs: $LOGS"
