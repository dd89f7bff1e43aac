#!/usr/bin/env bash
# The clean-up pipelines (Word and Excel, source "paste", mode 1 and mode 2 with every
# switch) over pages of 100 KB, 1 MB and 10 MB, against the same rule list replayed with
# Node's regular expressions in the same run. Prints MB/s for both, the ratio, whether the
# outputs are identical, and how time grows from 1 MB to 10 MB.
#   bench/cleanup_bench.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/summary.sh
build=${1:-build}
ninja -C "$build" cleanup_bench >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
declare -A velmora_ms node_ms
printf '%-12s %8s %12s %12s %7s %s\n' case size "velmora MB/s" "node MB/s" ratio identical
for size in 100000 1000000 10000000; do
  QT_QPA_PLATFORM=offscreen "$build/cleanup_bench" tests/data "$size" "$work" | while read -r name chars ms; do
    replay=$(node bench/cleanup_rules.mjs "$work/$name.jsonl")
    node=$(sed -E 's/.*"ms":([0-9.]+).*/\1/' <<<"$replay")
    identical=$(sed -E 's/.*"identical":(true|false).*/\1/' <<<"$replay")
    awk -v n="$name" -v c="$chars" -v v="$ms" -v j="$node" -v same="$identical" 'BEGIN {
      printf "%-12s %7.1fM %12.1f %12.1f %6.2fx %s\n", n, c/1e6, c/1e6/(v/1e3), c/1e6/(j/1e3), j/v, same }'
    echo "$name $size $ms $node" >>"$work/times"
    summary "clean-up $name, $(awk -v c="$chars" 'BEGIN { printf "%.1f MB", c / 1e6 }') (ms)" "the same rules in Node (V8)" "$ms" "$node"
    [[ $identical == true ]] || echo "  differs: $replay"
  done
  rm -f "$work"/*.jsonl
done
echo "growth from 1 MB to 10 MB (time ratio):"
awk '{ v[$1" "$2]=$3; j[$1" "$2]=$4; names[$1]=1 }
     END { for (n in names) printf "  %-12s velmora %5.1fx  node %5.1fx\n", n, v[n" 10000000"]/v[n" 1000000"], j[n" 10000000"]/j[n" 1000000"] }' "$work/times"
