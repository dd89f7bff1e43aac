#!/usr/bin/env bash
# Installs what is missing, builds, and starts the agent with its demo page.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
if [[ -z ${DISPLAY:-} && -z ${WAYLAND_DISPLAY:-} ]]; then
  echo "No desktop display here (DISPLAY is not set): the page works, but paste, the clipboard, the dialogs and"
  echo "capture will say they cannot run. Start this from your desktop session, or on a virtual X server:"
  echo "  xvfb-run -a scripts/demo.sh"
fi
echo "Open http://127.0.0.1:8766/ in a browser on this machine (Ctrl+C stops the agent)."
exec build/velmora-agent --demo "$@"
