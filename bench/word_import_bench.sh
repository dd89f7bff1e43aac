#!/usr/bin/env bash
# ImportWord against what a user could run instead, on demand (not part of the tests):
#
#   bench/word_import_bench.sh [BUILD_DIR]      (default: build)
#
# - HTML route: `velmora call ImportWord DOC mode:html;optimizemode:1` into the reference
#   receiver (conversion, clean-up and upload of the pictures) on a warm office helper,
#   against a cold `soffice --headless --convert-to html` of the same file and against
#   `unoconv -f html` with an `unoconv --listener` already running (Debian's unoconv, run
#   by Debian's own Python, which has the uno module). Then the first call on a cold helper.
# - Picture route: `ImportWord DOC imgtype:png` (150 dpi) against `soffice --convert-to pdf`
#   followed by `pdftoppm -png -r 150`.
# - Memory: the office worker's peak resident size over 200 conversions of mixed documents,
#   sampled every 50 ms, with the recycling limit the helper runs with.
#
# ROUNDS=N sets the rounds for the medians (default 5); CONVERSIONS=N the memory run (200).
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/summary.sh
source bench/common.sh
BUILD=$(realpath "${1:-build}")
ROUNDS=${ROUNDS:-5}
CONVERSIONS=${CONVERSIONS:-200}
for tool in soffice pdftoppm /usr/bin/unoconv; do
  command -v "$tool" >/dev/null || { echo "missing: $tool (scripts/install-deps.sh installs it)" >&2; exit 1; }
done
ninja -C "$BUILD" -j2 velmora velmora-office velmora-receiver word_document >/dev/null
DOCUMENT=$BUILD/tests/word_document

WORK=$(mktemp -d)
export XDG_RUNTIME_DIR=$WORK/runtime TMPDIR=$WORK/tmp
mkdir -m 700 "$XDG_RUNTIME_DIR" && mkdir "$TMPDIR" "$WORK/out" "$WORK/root"
cleanup() {
  stop_helper
  kill "$RECEIVER" "$LISTENER" 2>/dev/null || true
  pkill -f "port=$UNOCONV_PORT" 2>/dev/null || true  # the office unoconv's listener started
  rm -rf "$WORK"
}
LISTENER=""
UNOCONV_PORT=2099  # not unoconv's default, so a listener the user runs is left alone
trap cleanup EXIT

"$DOCUMENT" "$WORK/doc.docx" 20 10
"$DOCUMENT" "$WORK/small.docx" 1 2 letter
"$DOCUMENT" "$WORK/medium.docx" 5 4
start_receiver "$WORK/root"

import() {
  "$BUILD/velmora" --set "SendUrl=$URL/upload?page=1" --set "LocalExt=png|jpg|gif" --set LocalSize=4096 \
    call ImportWord "$1" "$2"
}
soffice_html() {
  soffice -env:UserInstallation=file://$WORK/soffice-profile --headless --convert-to html --outdir "$WORK/out" "$1"
}
soffice_pages() {
  soffice -env:UserInstallation=file://$WORK/soffice-profile --headless --convert-to pdf --outdir "$WORK/out" "$1" &&
    pdftoppm -png -r 150 "$WORK/out/doc.pdf" "$WORK/out/page"
}
unoconv_html() { /usr/bin/python3 /usr/bin/unoconv --port "$UNOCONV_PORT" -f html -o "$WORK/out/unoconv.html" "$1"; }

pages=$(import "$WORK/doc.docx" imgtype:png | grep -o '<img' | wc -l)
soffice_html "$WORK/doc.docx" >/dev/null 2>&1  # the soffice profile is made once, outside the timings
/usr/bin/python3 /usr/bin/unoconv --listener --port "$UNOCONV_PORT" >/dev/null 2>&1 &
LISTENER=$!
sleep 3
unoconv_html "$WORK/doc.docx" >/dev/null 2>&1 || true
echo "document: 20 pages of text and 10 pictures ($pages pages as laid out), $ROUNDS rounds, medians in seconds"

ours=() cold=() warm=() pictures=() pdf=()
for _ in $(seq "$ROUNDS"); do
  ours+=("$(seconds import "$WORK/doc.docx" "mode:html;optimizemode:1")")
  cold+=("$(seconds soffice_html "$WORK/doc.docx")")
  warm+=("$(seconds unoconv_html "$WORK/doc.docx")")
  pictures+=("$(seconds import "$WORK/doc.docx" imgtype:png)")
  pdf+=("$(seconds soffice_pages "$WORK/doc.docx")")
done
m_ours=$(printf '%s\n' "${ours[@]}" | median)
m_cold=$(printf '%s\n' "${cold[@]}" | median)
m_warm=$(printf '%s\n' "${warm[@]}" | median)
m_pictures=$(printf '%s\n' "${pictures[@]}" | median)
m_pdf=$(printf '%s\n' "${pdf[@]}" | median)

stop_helper
sleep 1
first=$(seconds import "$WORK/doc.docx" "mode:html;optimizemode:1")

printf '%-48s %8s %8s %6s\n' "work" "ours" "theirs" "ratio"
printf '%-48s %8.3f %8.3f %6s\n' "HTML, warm helper vs cold soffice" "$m_ours" "$m_cold" "$(ratio "$m_ours" "$m_cold")"
printf '%-48s %8.3f %8.3f %6s\n' "HTML, warm helper vs unoconv with a listener" "$m_ours" "$m_warm" "$(ratio "$m_ours" "$m_warm")"
printf '%-48s %8.3f %8.3f %6s\n' "HTML, first call on a cold helper vs cold soffice" "$first" "$m_cold" "$(ratio "$first" "$m_cold")"
printf '%-48s %8.3f %8.3f %6s\n' "pictures, warm helper vs soffice pdf + pdftoppm" "$m_pictures" "$m_pdf" "$(ratio "$m_pictures" "$m_pdf")"
summary "ImportWord HTML, warm helper (s)" "cold soffice --convert-to html" "$m_ours" "$m_cold"
summary "ImportWord HTML, warm helper (s)" "unoconv with a listener" "$m_ours" "$m_warm"
summary "ImportWord HTML, first call, cold helper (s)" "cold soffice --convert-to html" "$first" "$m_cold"
summary "ImportWord pictures, warm helper (s)" "soffice pdf + pdftoppm" "$m_pictures" "$m_pdf"

# Memory: mixed documents through both routes, the worker's peak sampled meanwhile.
peak_file=$WORK/peak
(
  peak=0 workers=""
  while :; do
    for pid in $(pgrep -f -- "--worker $XDG_RUNTIME_DIR" || true); do
      rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status" 2>/dev/null || echo 0)
      ((rss > peak)) && peak=$rss
      [[ " $workers " == *" $pid "* ]] || workers="$workers $pid"
    done
    echo "$peak $(wc -w <<<"$workers")" >"$peak_file"
    sleep 0.05
  done
) &
SAMPLER=$!
docs=("$WORK/doc.docx" "$WORK/small.docx" "$WORK/medium.docx")
for i in $(seq "$CONVERSIONS"); do
  doc=${docs[$((i % 3))]}
  if ((i % 2)); then import "$doc" "mode:html;optimizemode:1" >/dev/null; else import "$doc" imgtype:jpg >/dev/null; fi
done
kill $SAMPLER
read -r peak workers <"$peak_file"
echo "memory: $CONVERSIONS conversions, worker peak $((peak / 1024)) MB (recycled past 600 MB or 50 documents; $workers workers in all)"
[ -z "${BENCH_SUMMARY:-}" ] || printf 'office worker, %s conversions\t\t\t\t\tpeak %s MB\n' "$CONVERSIONS" "$((peak / 1024))" >>"$BENCH_SUMMARY"
