#!/usr/bin/env bash
# Runs one test command on an X server of its own. Xvfb picks a free display number itself
# (-displayfd), so tests running side by side never share a display, a clipboard or a
# connection limit, and no test waits for another's windows.
set -uo pipefail

display_file=$(mktemp)
Xvfb -displayfd 3 -nolisten tcp -screen 0 1280x1024x24 3>"$display_file" 2>/dev/null &
xvfb=$!
cleanup() { kill "$xvfb" 2>/dev/null; wait "$xvfb" 2>/dev/null; rm -f "$display_file"; }
trap cleanup EXIT
trap 'exit 143' TERM INT

# Xvfb writes the display number once it accepts connections.
for _ in $(seq 200); do
  [[ -s "$display_file" ]] && break
  kill -0 "$xvfb" 2>/dev/null || { echo "run-on-xvfb: Xvfb did not start" >&2; exit 1; }
  sleep 0.05
done
[[ -s "$display_file" ]] || { echo "run-on-xvfb: Xvfb gave no display within 10 s" >&2; exit 1; }

export DISPLAY=":$(tr -d '[:space:]' <"$display_file")" QT_QPA_PLATFORM=xcb
"$@"
