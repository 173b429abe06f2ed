#!/usr/bin/env bash
# Sets up the machine, builds and runs every test.
#   scripts/test.sh             the regular build (g++) and its tests
#   scripts/test.sh --sanitize  a clang build with AddressSanitizer and UBSan: the tests
#                               again, then each fuzz target for a short, bounded time
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" = "--sanitize" ]; then
    export CC=clang CXX=clang++
    BUILD_DIR=build-asan bash scripts/setup.sh -DCMAKE_BUILD_TYPE=Debug -DORVANE_SANITIZE=ON -DORVANE_FUZZ=ON
    build=build-asan
else
    bash scripts/setup.sh
    build=build
fi

export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$(mktemp -d)}
chmod 700 "$XDG_RUNTIME_DIR"
ctest --test-dir "$build" --output-on-failure -j 2 --timeout 600

if [ "${1:-}" = "--sanitize" ] && [ -x tests/fuzz/run_fuzzers.sh ]; then
    bash tests/fuzz/run_fuzzers.sh "$build" "${FUZZ_SECONDS:-20}"
fi
