#!/usr/bin/env bash
# The clipboard picture saver on a 3840x2160 screenshot-like picture, next to ImageMagick
# (/usr/bin/convert) encoding the same picture, on demand (not part of the tests):
# PNG, JPEG at quality 100 and GIF with 256 colours; median times, sizes and ratios.
#
#   bench/picture_bench.sh [BUILD_DIR]      (default: build)
#
# ROUNDS=N sets the rounds (default 5). Builds the picture_bench target first.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/summary.sh
BUILD=${1:-build}
ROUNDS=${ROUNDS:-5}
CONVERT=/usr/bin/convert  # ImageMagick itself; other convert programs may stand earlier in PATH
[ -x "$CONVERT" ] || { echo "missing: $CONVERT (apt-get install imagemagick)" >&2; exit 1; }
[ -f "$BUILD/build.ninja" ] || { echo "configure $BUILD first (see README.md)" >&2; exit 1; }
ninja -C "$BUILD" -j2 picture_bench >/dev/null

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
QT_QPA_PLATFORM=offscreen "$BUILD/picture_bench" "$WORK" "$ROUNDS" "$CONVERT" | tee "$WORK/out"
# format, ours ms, ours bytes, convert ms, convert bytes, ..., ours dB, convert dB
while read -r format rest; do
  read -r -a f <<<"$rest"
  [[ $format == GIF ]] && format="GIF 256" && f=("${f[@]:1}")
  [[ $format == JPEG ]] && format="JPEG q100" && f=("${f[@]:1}")
  summary "picture save, 4K, $format (ms; ${f[6]} dB vs ${f[7]}; size x$(awk -v a="${f[1]}" -v b="${f[3]}" \
    'BEGIN { printf "%.2f", a / b }'))" "ImageMagick convert" "${f[0]}" "${f[2]}"
done < <(grep -E '^(PNG|JPEG|GIF) ' "$WORK/out")
