#!/usr/bin/env bash
# One discovery pass over a test network of simulated devices: devices found, the time
# of the last reply, the end of the pass and the gap between them. Needs root (network
# namespaces, torn down afterwards); nothing is broadcast outside them.
#   bench/scan.sh [build dir, build] [devices, 250]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
count=${2:-250}
cmake --build "$build" --target bench_scan orvane-devsim >/dev/null
ORVANE_TOOLS_DIR="$PWD/$build/tools" exec "$build/bench/bench_scan" "$count"
