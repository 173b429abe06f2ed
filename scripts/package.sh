#!/usr/bin/env bash
# Builds the Debian packages from scratch: a Release build of its own in build-package/
# with Debian's hardening flags, then orvane, orvane-tools and (when there are plugin
# headers) orvane-dev in build-package/packages/, checked by tests/check_packages.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-package

export DEB_BUILD_MAINT_OPTIONS=hardening=+all
cppflags=$(dpkg-buildflags --get CPPFLAGS)
export CFLAGS="$(dpkg-buildflags --get CFLAGS) $cppflags"
export CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $cppflags"
export LDFLAGS=$(dpkg-buildflags --get LDFLAGS)

rm -rf "$build"
BUILD_DIR=$build bash scripts/setup.sh -DCMAKE_BUILD_TYPE=Release -DORVANE_TESTS=OFF
cpack --config "$build/CPackConfig.cmake" -B "$build/packages"
rm -rf "$build/packages/_CPack_Packages"

bash tests/check_packages.sh "$build"
ls -l "$build"/packages/*.deb
