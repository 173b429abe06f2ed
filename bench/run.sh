#!/usr/bin/env bash
# The benchmarks, each measured against a baseline taken in the same run:
#   upload  the program's firmware upload against a minimal stop-and-wait sender (16 and 64 MiB)
#   fleet   a full batch update of 10 and of 200 simulated devices with one 16 MiB firmware,
#           and the same uploads by bare stop-and-wait senders, one thread per device
#   scan    a single discovery pass over 100 simulated devices (needs network namespaces)
#   bench/run.sh [upload|fleet|scan ...]     (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${BUILD_DIR:-build}
[ -x "$build/app/orvane" ] || bash scripts/setup.sh
which=("$@")
[ ${#which[@]} -gt 0 ] || which=(upload fleet scan)

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
    local small large floor_small floor_large
    small=$(python3 bench/fleet.py "$build" 10 16)
    large=$(python3 bench/fleet.py "$build" 200 16)
    floor_small=$(python3 bench/fleet.py "$build" 10 16 --minimal)
    floor_large=$(python3 bench/fleet.py "$build" 200 16 --minimal)
    printf '%s\n' "$small" "$large" "$floor_small" "$floor_large"
    python3 - "$small" "$large" "$floor_small" "$floor_large" <<'PY'
import re, sys
def wall(line):
    return float(re.search(r"wall ([\d.]+) s", line).group(1))
def rss(line):
    return float(re.search(r"peak RSS ([\d.]+) MiB", line).group(1))
small, large, floor_small, floor_large = sys.argv[1:]
print(f"fleet: wall 200/10 = {wall(large) / wall(small):.2f} (target <= 3), "
      f"memory per added device = {(rss(large) - rss(small)) / 190 * 1024:.0f} KiB (target < 1024)")
print(f"fleet floor: minimal senders' wall 200/10 = {wall(floor_large) / wall(floor_small):.2f}; "
      f"program against minimal senders: {wall(small) / wall(floor_small):.2f} at 10, "
      f"{wall(large) / wall(floor_large):.2f} at 200")
PY
}

scan() {
    if [ -x bench/scan.sh ] || [ -f bench/scan.sh ]; then
        bash bench/scan.sh "$build"
    else
        echo "scan: no scan benchmark in this tree"
    fi
}

for b in "${which[@]}"; do
    echo "== $b =="
    "$b"
done
