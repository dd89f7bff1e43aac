#!/usr/bin/env bash
# Installs every Debian and npm package Velmora needs to build, run and test.
# Safe to run again: apt and npm skip what is already there.
set -euo pipefail
cd "$(dirname "$0")/.."

DEBIAN_PACKAGES=(
  build-essential cmake ninja-build pkg-config clang-format-14
  qt6-base-dev qt6-base-dev-tools qt6-websockets-dev qt6-webchannel-dev
  qt6-image-formats-plugins libqt6svg6
  libpcre2-dev libicu-dev libgif-dev zlib1g-dev libcups2-dev libxcb1-dev libpoppler-qt6-dev
  libcpp-httplib-dev libssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  xvfb xauth xclip x11-utils xdotool
  cups-daemon cups-client
  chromium curl ca-certificates time
  imagemagick fonts-noto-cjk
  libreoffice-writer-nogui libreoffice-calc-nogui libreoffice-impress-nogui libreoffice-math-nogui
  libreofficekit-dev libreoffice-dev
  python3-uno poppler-utils unoconv
)

missing=()
# Node.js may come from another source already; Debian's own is the fallback.
command -v node >/dev/null || DEBIAN_PACKAGES+=(nodejs)
command -v npm >/dev/null || DEBIAN_PACKAGES+=(npm)
for p in "${DEBIAN_PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The demo page's editor and the browser-test driver.
if [ ! -d web/node_modules/playwright-core ] || [ ! -d web/node_modules/quill ] \
   || [ web/package-lock.json -nt web/node_modules/.package-lock.json ]; then
  (cd web && npm ci --no-audit --no-fund --loglevel=error)
fi
