#!/usr/bin/env bash
# The benchmarks, each measured against a baseline taken in the same run:
#   upload  the program's firmware upload against a minimal stop-and-wait sender (16 and 64 MiB)
#   fleet   a full batch update of 10, 200 and 1000 simulated devices with one 16 MiB firmware,
#           and the same uploads by bare stop-and-wait senders, one thread per device; then
#           the window's longest main-thread stall with 1000 devices under Xvfb
#   scan    a single discovery pass over 250 simulated devices (needs network namespaces)
#   console one re-render of a console holding 5000 lines, as each frame of a wait costs
#   bench/run.sh [--profile] [upload|fleet|scan|console ...]     (default: all)
# --profile adds to fleet where the program's CPU goes in a run of 200 devices.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${BUILD_DIR:-build}
[ -x "$build/app/orvane" ] || bash scripts/setup.sh
profile=
if [ "${1:-}" = --profile ]; then
    profile=1
    shift
fi
which=("$@")
[ ${#which[@]} -gt 0 ] || which=(upload fleet scan console)

upload() {
    local work pid
    work=$(mktemp -d /tmp/orvane-bench.XXXXXX)
    # One device, no pause between its progress messages, back quickly after the reboot.
    "$build/tools/devsim/orvane-devsim" --count 1 --base 127.0.3.1 --port 34567 --udp-port 0 \
        --set '*.upgrade_step_ms=0' --set '*.reboot_ms=100' --set '*.password=' --exit-on-stdin-eof \
        > "$work/devsim.out" 2>&1 < <(sleep 100000) &
    pid=$!
    for _ in $(seq 100); do grep -q '^ready' "$work/devsim.out" && break; sleep 0.1; done
    for mib in 16 64; do
        "$build/bench/bench_upload" 127.0.3.1 34567 "$mib" 5
    done
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    rm -rf "$work"
}

fleet() {
    # Loopback only, in a network namespace of its own when one can be made.
    local isolate=()
    unshare -n true 2>/dev/null && isolate=(unshare -n bash -c 'ip link set lo up; exec "$@"' fleet)
    "${isolate[@]}" python3 bench/fleet.py "$build" --sizes 10,200,1000
    "${isolate[@]}" python3 bench/fleet.py "$build" --stall 1000
    if [ -n "$profile" ]; then
        "${isolate[@]}" python3 bench/fleet.py "$build" --sizes 200 --profile
    fi
}

scan() {
    if [ -x bench/scan.sh ] || [ -f bench/scan.sh ]; then
        bash bench/scan.sh "$build"
    else
        echo "scan: no scan benchmark in this tree"
    fi
}

console() {
    "$build/bench/bench_console_render" 5000
}

for b in "${which[@]}"; do
    echo "== $b =="
    "$b"
done
