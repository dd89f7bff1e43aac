#!/usr/bin/env bash
# Builds the libFuzzer program with clang (the whole model instrumented, with address and
# undefined-behaviour checks) and fuzzes every entry point for SECONDS each (default 60).
# Corpora grow in build-fuzz/corpus/<target>; a crash leaves its input in build-fuzz/.
#   fuzz/run.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DVELMORA_FUZZ=ON -DBUILD_TESTING=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build-fuzz velmora-fuzz
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
  mapfile -t targets < <(VELMORA_FUZZ_TARGET=? build-fuzz/velmora-fuzz -runs=1 2>&1 |
                         sed -n 's/.*one of: //p' | tr ' ' '\n')
fi
export QT_QPA_PLATFORM=offscreen
for target in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$target"
  echo "== $target (${seconds}s)"
  (cd build-fuzz && VELMORA_FUZZ_TARGET=$target ./velmora-fuzz "corpus/$target" \
     -max_total_time="$seconds" -max_len=65536 -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 2>&1 |
     grep -E "^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::peak_rss_mb)|ERROR|SUMMARY|Test unit written" || true)
done
