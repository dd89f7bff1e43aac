#!/usr/bin/env bash
# ImportWord with printimage:1 (through the virtual printer) against what a user could run
# instead, on demand (not part of the tests), on a print server of its own (the machine's
# CUPS is never touched; needs root, as the tests' private server does):
#
#   bench/print_bench.sh [BUILD_DIR]      (default: build)
#
# A 20-page document with 10 pictures to PNG pages at 150 dpi, on a warm office helper,
# against `soffice --convert-to pdf` followed by `pdftoppm -png -r 150`; and the printer's
# own times, from the print to "begin" and from "begin" to "end". ROUNDS=N (default 5).
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/summary.sh
source bench/common.sh
BUILD=$(realpath "${1:-build}")
ROUNDS=${ROUNDS:-5}
ninja -C "$BUILD" -j2 velmora velmora-office velmora-receiver velmora-printer-backend word_document >/dev/null

WORK=$(mktemp -d)
export XDG_RUNTIME_DIR=$WORK/runtime TMPDIR=$WORK/tmp HOME=$WORK/home
export CUPS_SERVER=$WORK/cups/cups.sock VELMORA_REGISTRY_DIR=$WORK/registry
mkdir -m 700 "$XDG_RUNTIME_DIR" && mkdir -p "$TMPDIR" "$HOME" "$WORK/out" "$WORK/root"
mkdir -p "$WORK"/cups/{conf,spool/tmp,cache,state,log,serverbin/backend,serverbin/daemon}
ln -s /usr/lib/cups/daemon/cups-exec "$WORK/cups/serverbin/daemon/cups-exec"
printf 'Listen %s\nLogLevel debug\nBrowsing No\nWebInterface No\nDefaultAuthType None\n<Location />\n  Order allow,deny\n  Allow all\n</Location>\n' \
  "$CUPS_SERVER" >"$WORK/cups/conf/cupsd.conf"
printf 'ServerRoot %s/conf\nRequestRoot %s/spool\nTempDir %s/spool/tmp\nCacheDir %s/cache\nStateDir %s/state\nErrorLog %s/log/error_log\nAccessLog %s/log/access_log\nServerBin %s/serverbin\nSetEnv VELMORA_REGISTRY_DIR %s\n' \
  "$WORK/cups" "$WORK/cups" "$WORK/cups" "$WORK/cups" "$WORK/cups" "$WORK/cups" "$WORK/cups" "$WORK/cups" \
  "$VELMORA_REGISTRY_DIR" >"$WORK/cups/conf/cups-files.conf"
/usr/sbin/cupsd -f -c "$WORK/cups/conf/cupsd.conf" -s "$WORK/cups/conf/cups-files.conf" &
CUPSD=$!
cleanup() {
  stop_helper
  kill "$RECEIVER" "$CUPSD" 2>/dev/null || true
  rm -rf "$WORK"
}
trap cleanup EXIT
for _ in $(seq 100); do lpstat -r 2>/dev/null | grep -q "is running" && break; sleep 0.1; done
"$BUILD/velmora" printer install --server-bin "$WORK/cups/serverbin" >/dev/null

"$BUILD/tests/word_document" "$WORK/doc.docx" 20 10
start_receiver "$WORK/root"

printed() {
  "$BUILD/velmora" --set "SendUrl=$URL/upload?page=1" --set "LocalExt=png|jpg|gif" --set LocalSize=8192 \
    call ImportWord "$WORK/doc.docx" "printimage:1;imgtype:png"
}
direct() {
  soffice -env:UserInstallation=file://$WORK/soffice-profile --headless --convert-to pdf --outdir "$WORK/out" \
    "$WORK/doc.docx" && pdftoppm -png -r 150 "$WORK/out/doc.pdf" "$WORK/out/page"
}
pages=$(printed | grep -o '<img' | wc -l)
direct >/dev/null 2>&1
echo "document: 20 pages of text and 10 pictures ($pages pages printed), $ROUNDS rounds, medians in seconds"
ours=() theirs=()
for _ in $(seq "$ROUNDS"); do
  ours+=("$(seconds printed)")
  theirs+=("$(seconds direct)")
done
m_ours=$(printf '%s\n' "${ours[@]}" | median)
m_theirs=$(printf '%s\n' "${theirs[@]}" | median)
printf '%-52s %8.3f %8.3f %6s\n' "ImportWord printimage:1 vs soffice pdf + pdftoppm" "$m_ours" "$m_theirs" \
  "$(ratio "$m_ours" "$m_theirs")"
summary "ImportWord printed pages, warm helper (s)" "soffice pdf + pdftoppm -r 150" "$m_ours" "$m_theirs"
# The printer's own part: from "begin" to "end", as the backend reports it to the print
# server (the log's clock counts whole seconds only, so the rest is the total's).
echo "printer, from begin to end: $(grep -o 'picture(s) in [0-9.]* s' "$WORK/cups/log/error_log" | tail -1)"
