#!/usr/bin/env bash
# Installs what is missing, builds, and starts the agent with its demo page.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
echo "Open http://127.0.0.1:8766/ in a browser on this machine (Ctrl+C stops the agent)."
exec build/velmora-agent --demo "$@"
