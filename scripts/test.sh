#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Tests that need windows or the
# clipboard each start an X server of their own (Xvfb, see tests/run-on-xvfb.sh); the
# browser tests drive headless Chromium.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/check-format.sh
scripts/build.sh
ctest --test-dir build --output-on-failure --parallel "$(nproc)" --timeout 300
