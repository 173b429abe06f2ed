#!/usr/bin/env bash
# Installs what the build, its tests and its packages need (Debian 12, as root) and
# builds into build/.
# Idempotent: packages already present are not fetched again.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(qtbase5-dev qtmultimedia5-dev libqt5multimedia5-plugins libqt5svg5 qttranslations5-l10n qttools5-dev qttools5-dev-tools
          liblua5.4-dev libssl-dev pkg-config cmake ninja-build g++ clang openssl
          xvfb xauth fonts-dejavu-core xdotool xclip imagemagick iproute2 python3
          librsvg2-bin dpkg-dev lintian desktop-file-utils appstream man-db
          gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-tools)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

build_dir=${BUILD_DIR:-build}
if [ ! -f "$build_dir/build.ninja" ]; then
    cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
fi
cmake --build "$build_dir" -j "$(nproc)"
