#!/usr/bin/env bash
# The local-file upload against the reference receiver on loopback, on demand (not part
# of the tests), in two stages:
#  - Upload speed: 200 pictures of 100 KB through `velmora call LocalUpload`, and the
#    same 200 multipart bodies posted one after the other by one curl process: both
#    times and their ratio (goal: at most 1.2).
#  - Peak memory of a batch of 20 files of 50 MB (1 GB in all): it should stay near the
#    largest file plus a constant, not grow with the batch.
#
#   bench/upload_bench.sh [BUILD_DIR [BASELINE_BUILD_DIR]]     (default: build)
#
# A baseline (another checkout's build folder) runs in the same rounds of the upload
# speed stage, so a change can be judged on a shared machine. ROUNDS=N sets the rounds
# (default 5); SPEED_ONLY=1 skips the peak memory stage.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/summary.sh
BUILD=${1:-build}
BASELINE=${2:-}
ROUNDS=${ROUNDS:-5}
SPEED_ONLY=${SPEED_ONLY:-}
VELMORA=$BUILD/velmora
RECEIVER=$BUILD/velmora-receiver
for tool in "$VELMORA" "$RECEIVER" ${BASELINE:+"$BASELINE/velmora" "$BASELINE/velmora-receiver"} /usr/bin/time curl; do
  [ -x "$(command -v "$tool")" ] || { echo "missing: $tool (build first; scripts/install-deps.sh)" >&2; exit 1; }
done

WORK=$(mktemp -d)
RECEIVER_PID=""
cleanup() {
  [ -n "$RECEIVER_PID" ] && kill "$RECEIVER_PID" 2>/dev/null && wait "$RECEIVER_PID" 2>/dev/null
  rm -rf "$WORK"
}
trap cleanup EXIT

start_receiver() {  # a fresh $RECEIVER storing under $WORK/stored; sets URL
  rm -rf "$WORK/stored" && mkdir -p "$WORK/stored"
  : >"$WORK/receiver.log"  # there before the receiver writes to it, since it is read at once
  "$RECEIVER" --root "$WORK/stored" >"$WORK/receiver.log" &
  RECEIVER_PID=$!
  for _ in $(seq 100); do
    URL=$(sed -n 's/^velmora-receiver: listening on //p' "$WORK/receiver.log")
    [ -n "$URL" ] && return
    sleep 0.05
  done
  echo "the receiver did not start" >&2
  exit 1
}
stop_receiver() {
  kill "$RECEIVER_PID" && wait "$RECEIVER_PID" || true
  RECEIVER_PID=""
}

make_pictures() {  # COUNT SIZE_KB DIR: writes DIR/p001.png ... and DIR/page.html
  local count=$1 kb=$2 dir=$3
  mkdir -p "$dir"
  : >"$dir/page.html"
  for i in $(seq -f '%03g' "$count"); do
    # a PNG signature, then noise: the upload sends only files that look like pictures
    { printf '\x89PNG\r\n\x1a\n'; head -c "$((kb * 1024 - 8))" /dev/urandom; } >"$dir/p$i.png"
    printf '<p><img src="file://%s"></p>\n' "$dir/p$i.png" >>"$dir/page.html"
  done
}

seconds() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f\n", b - a }'; }

uploaded() { grep -c ' stored=' "$WORK/receiver.log" || true; }

# ---- Upload speed: 200 x 100 KB, the control against curl ---------------------------
make_pictures 200 100 "$WORK/small"

# The same bodies as the control sends (its layout, one boundary), posted by one curl.
boundary="---------------------------7d510428399071"
: >"$WORK/curl.config"
for i in $(seq -f '%03g' 200); do
  path="$WORK/small/p$i.png"
  {
    printf '\r\n--%s\r\nContent-Disposition: form-data; name="originalfile"\r\n\r\n%s' "$boundary" "$path"
    printf '\r\n--%s\r\nContent-Disposition: form-data; name="uploadfile"; filename="%s"\r\n' "$boundary" "$path"
    printf 'Content-Type: application/octet-stream\r\n\r\n'
    cat "$path"
    printf '\r\n--%s--\r\n' "$boundary"
  } >"$WORK/small/body$i"
  [ "$i" = 001 ] || echo next >>"$WORK/curl.config"
  cat >>"$WORK/curl.config" <<EOF
url = "URL/upload?bench=speed&action=local&type=local&rnd=$i"
data-binary = "@$WORK/small/body$i"
header = "Content-Type: multipart/form-data; boundary=$boundary"
output = "/dev/null"
EOF
done

velmora_round() {  # BUILD: one LocalUpload of the 200 files against that build's receiver; prints seconds
  RECEIVER=$1/velmora-receiver start_receiver
  local t0 t1 stored
  t0=$(seconds)
  "$1/velmora" --set "SendUrl=$URL/upload?bench=speed" --set "LocalExt=png" --set "LocalSize=2048" \
    call LocalUpload - <"$WORK/small/page.html" >"$WORK/velmora.json" 2>"$WORK/velmora.err"
  t1=$(seconds)
  stored=$(uploaded)
  stop_receiver
  grep -q '"Status": "ok"' "$WORK/velmora.json" && grep -q '"Error": ""' "$WORK/velmora.json" && [ "$stored" = 200 ] \
    || { echo "LocalUpload failed ($stored stored):" >&2; cat "$WORK/velmora.json" "$WORK/velmora.err" >&2; exit 1; }
  elapsed "$t0" "$t1"
}
curl_round() {  # the same 200 bodies posted by one curl to a fresh receiver; prints seconds
  start_receiver
  sed "s|URL/|$URL/|" "$WORK/curl.config" >"$WORK/curl.run"
  local t0 t1 stored
  t0=$(seconds)
  curl --silent --show-error --fail --config "$WORK/curl.run"
  t1=$(seconds)
  stored=$(uploaded)
  stop_receiver
  [ "$stored" = 200 ] || { echo "curl stored $stored files" >&2; exit 1; }
  elapsed "$t0" "$t1"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

# The machine may be shared: the rounds alternate, so that all see the same load, and
# their medians are compared.
echo "upload speed: 200 files of 100 KB on loopback, $ROUNDS rounds (seconds; velmora's include its start)"
for round in $(seq "$ROUNDS"); do
  line="  curl $(curl_round | tee -a "$WORK/curl.times")"
  line+="  velmora $(velmora_round "$BUILD" | tee -a "$WORK/velmora.times")"
  [ -z "$BASELINE" ] || line+="  baseline $(velmora_round "$BASELINE" | tee -a "$WORK/baseline.times")"
  echo "$line"
done
curl_time=$(median <"$WORK/curl.times")
velmora_time=$(median <"$WORK/velmora.times")
echo "  median curl, one process:   $curl_time s"
echo "  median velmora LocalUpload: $velmora_time s, ratio $(ratio "$velmora_time" "$curl_time") (goal <= 1.2)"
summary "LocalUpload, 200 x 100 KB (s)" "one curl process" "$velmora_time" "$curl_time"
if [ -n "$BASELINE" ]; then
  baseline_time=$(median <"$WORK/baseline.times")
  echo "  median baseline:            $baseline_time s, ratio $(ratio "$baseline_time" "$curl_time") ($BASELINE)"
fi
[ -z "$SPEED_ONLY" ] || exit 0

# ---- Peak memory: 20 x 50 MB against 1 x 50 MB and against no file -------------------
peak_kb() {  # COUNT SIZE_KB: max RSS of LocalUpload over that batch
  rm -rf "$WORK/big"
  make_pictures "$1" "$2" "$WORK/big"
  start_receiver
  /usr/bin/time -f '%M' -o "$WORK/rss" "$VELMORA" --set "SendUrl=$URL/upload?bench=memory" --set "LocalExt=png" \
    --set "LocalSize=60000" call LocalUpload - <"$WORK/big/page.html" >"$WORK/big.json"
  stop_receiver
  grep -q '"Error": ""' "$WORK/big.json" || { echo "LocalUpload failed" >&2; cat "$WORK/big.json" >&2; exit 1; }
  rm -rf "$WORK/stored"
  cat "$WORK/rss"
}
baseline=$(peak_kb 1 1)
one=$(peak_kb 1 51200)
twenty=$(peak_kb 20 51200)
echo "peak memory (max RSS) of LocalUpload"
echo "  1 file of 1 KB:           $((baseline / 1024)) MB"
echo "  1 file of 50 MB:          $((one / 1024)) MB"
echo "  20 files of 50 MB (1 GB): $((twenty / 1024)) MB"
summary "LocalUpload, 20 x 50 MB, peak memory (MB)" "1 file of 50 MB" "$((twenty / 1024))" "$((one / 1024))" "$((twenty / 1024)) MB"
