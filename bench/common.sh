# Sourced by the office and printing benchmarks: timing, the reference receiver and the
# benchmark's own office helper. They set XDG_RUNTIME_DIR to a folder of their own first.

# Seconds a command takes, its output dropped.
seconds() { local start=$(date +%s.%N); "$@" >/dev/null 2>&1; echo "$(date +%s.%N) - $start" | bc; }
median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
ratio() { echo "scale=2; $1 / $2" | bc; }

# Starts the reference receiver storing into ROOT: RECEIVER is its pid, URL its address.
start_receiver() {
  "$BUILD/velmora-receiver" --root "$1" >"$1.log" 2>&1 &
  RECEIVER=$!
  for _ in $(seq 100); do grep -q "listening on" "$1.log" && break; sleep 0.05; done
  URL=$(sed -n 's/.*listening on //p' "$1.log" | head -1)
}

# The benchmark's office helper: its workers (whose runtime folder is the benchmark's) and
# the front process that is their parent.
stop_helper() {
  for worker in $(pgrep -f -- "worker $XDG_RUNTIME_DIR" || true); do
    kill "$(ps -o ppid= -p "$worker")" "$worker" 2>/dev/null || true
  done
}
