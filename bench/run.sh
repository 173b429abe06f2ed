#!/usr/bin/env bash
# The benchmarks, each measured against a baseline taken in the same run:
#   upload  the program's firmware upload against a minimal stop-and-wait sender (16 and 64 MiB)
#   fleet   a full batch update of 10 and of 200 simulated devices with one 16 MiB firmware
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
    local small large
    small=$(python3 bench/fleet.py "$build" 10 16)
    large=$(python3 bench/fleet.py "$build" 200 16)
    echo "$small"
    echo "$large"
    python3 - "$small" "$large" <<'PY'
import re, sys
def figures(line):
    wall = float(re.search(r"wall ([\d.]+) s", line).group(1))
    rss = float(re.search(r"peak RSS ([\d.]+) MiB", line).group(1))
    return wall, rss
(w10, r10), (w200, r200) = figures(sys.argv[1]), figures(sys.argv[2])
print(f"fleet: wall 200/10 = {w200 / w10:.2f} (target <= 3), "
      f"memory per added device = {(r200 - r10) / 190 * 1024:.0f} KiB (target < 1024)")
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
