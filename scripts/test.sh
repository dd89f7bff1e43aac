#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Tests that need windows or the
# clipboard run on a private X server (Xvfb); the browser tests drive headless Chromium.
# A failed test runs again (up to three times): now and then Xvfb turns a connection away
# as a test program starts.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
export QT_QPA_PLATFORM=xcb
xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" \
  ctest --test-dir build --output-on-failure --parallel "$(nproc)" --timeout 300 --repeat until-pass:3
