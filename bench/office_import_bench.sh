#!/usr/bin/env bash
# ImportExcelSheet and ImportPPT against what a user could run instead, on demand (not part
# of the tests):
#
#   bench/office_import_bench.sh [BUILD_DIR]      (default: build)
#
# - Workbook: `velmora call ImportExcelSheet BOOK 0 optimizemode:1` (every visible sheet:
#   conversion, split, clean-up and the upload of the picture into the reference receiver)
#   on a warm office helper, against a cold `soffice --headless --convert-to html`.
# - Slides: `ImportPPT DECK imgtype:png` (every slide at its own size) on a warm helper,
#   against `soffice --convert-to pdf` followed by `pdftoppm -png` at the same size.
# The samples are the tests' (tests/data/office): a workbook of four sheets (one hidden,
# one empty) and twelve 16:9 slides. ROUNDS=N sets the rounds for the medians (default 5).
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/summary.sh
source bench/common.sh
BUILD=$(realpath "${1:-build}")
ROUNDS=${ROUNDS:-5}
for tool in soffice pdftoppm; do
  command -v "$tool" >/dev/null || { echo "missing: $tool (scripts/install-deps.sh installs it)" >&2; exit 1; }
done
ninja -C "$BUILD" -j2 velmora velmora-office velmora-receiver >/dev/null

WORK=$(mktemp -d)
export XDG_RUNTIME_DIR=$WORK/runtime TMPDIR=$WORK/tmp
mkdir -m 700 "$XDG_RUNTIME_DIR" && mkdir "$TMPDIR" "$WORK/out" "$WORK/root"
cleanup() {
  stop_helper
  kill "$RECEIVER" 2>/dev/null || true
  rm -rf "$WORK"
}
trap cleanup EXIT

cp tests/data/office/workbook.xlsx "$WORK/book.xlsx"
cp tests/data/office/slides.pptx "$WORK/deck.pptx"
start_receiver "$WORK/root"

velmora() {
  "$BUILD/velmora" --set "SendUrl=$URL/upload?page=1" --set "LocalExt=png|jpg|gif" --set LocalSize=4096 call "$@"
}
soffice_cold() {
  soffice -env:UserInstallation=file://$WORK/soffice-profile --headless --convert-to "$1" --outdir "$WORK/out" "$2"
}
# A slide of 28 x 15.75 cm is 1058 x 595 pixels at 96 per inch, the size ImportPPT gives.
soffice_slides() { soffice_cold pdf "$WORK/deck.pptx" && pdftoppm -png -r 96 "$WORK/out/deck.pdf" "$WORK/out/slide"; }

# Warm both offices and make soffice's profile once, outside the timings.
velmora ImportExcelSheet "$WORK/book.xlsx" 0 optimizemode:1 >/dev/null 2>&1
velmora ImportPPT "$WORK/deck.pptx" imgtype:png >/dev/null 2>&1
soffice_cold html "$WORK/book.xlsx" >/dev/null 2>&1
echo "workbook of four sheets (two shown), twelve slides; $ROUNDS rounds, medians in seconds"

book=() book_cold=() deck=() deck_cold=()
for _ in $(seq "$ROUNDS"); do
  book+=("$(seconds velmora ImportExcelSheet "$WORK/book.xlsx" 0 optimizemode:1)")
  book_cold+=("$(seconds soffice_cold html "$WORK/book.xlsx")")
  deck+=("$(seconds velmora ImportPPT "$WORK/deck.pptx" imgtype:png)")
  deck_cold+=("$(seconds soffice_slides)")
done
m_book=$(printf '%s\n' "${book[@]}" | median)
m_book_cold=$(printf '%s\n' "${book_cold[@]}" | median)
m_deck=$(printf '%s\n' "${deck[@]}" | median)
m_deck_cold=$(printf '%s\n' "${deck_cold[@]}" | median)

printf '%-52s %8s %8s %6s\n' "work" "ours" "theirs" "ratio"
printf '%-52s %8.3f %8.3f %6s\n' "ImportExcelSheet all, warm vs cold soffice html" "$m_book" "$m_book_cold" \
  "$(ratio "$m_book" "$m_book_cold")"
printf '%-52s %8.3f %8.3f %6s\n' "ImportPPT png, warm vs soffice pdf + pdftoppm" "$m_deck" "$m_deck_cold" \
  "$(ratio "$m_deck" "$m_deck_cold")"
summary "ImportExcelSheet all sheets, warm helper (s)" "cold soffice --convert-to html" "$m_book" "$m_book_cold"
summary "ImportPPT 12 slides png, warm helper (s)" "soffice pdf + pdftoppm -r 96" "$m_deck" "$m_deck_cold"
