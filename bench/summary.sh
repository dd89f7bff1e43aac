# Sourced by the benchmarks: `summary WORK REFERENCE OURS THEIRS [MEMORY]` adds one row to
# the table bench/all.sh prints (a tab-separated line in $BENCH_SUMMARY; nothing when a
# benchmark runs alone). OURS and THEIRS are seconds or milliseconds, the same unit.
summary() {
  [ -n "${BENCH_SUMMARY:-}" ] || return 0
  awk -v work="$1" -v reference="$2" -v a="$3" -v b="$4" -v memory="${5:-}" \
    'BEGIN { printf "%s\t%s\t%.4g\t%.4g\t%.2f\t%s\n", work, reference, a, b, a / b, memory }' >>"$BENCH_SUMMARY"
}
