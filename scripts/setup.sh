#!/usr/bin/env bash
# Installs the Debian 12 packages Quillfern needs to build, test and run. Safe to run again.
set -euo pipefail
packages=(
    build-essential cmake ninja-build pkg-config ccache git clang libclang-rt-14-dev
    qt6-base-dev qt6-base-dev-tools libqt6sql6-sqlite libqt6opengl6-dev
    libspdlog-dev libfmt-dev libplist-dev
    libgtest-dev libgmock-dev googletest libbenchmark-dev
    adb xvfb xdotool imagemagick xauth
)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    sudo_cmd=()
    [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
    "${sudo_cmd[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
