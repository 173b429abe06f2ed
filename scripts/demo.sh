#!/usr/bin/env bash
# Sets up and builds, then updates a small fleet end to end: eight simulated devices on
# 127.0.0.11 .. 127.0.0.18 (two hardware kinds, one already up to date, one with a wrong
# password) and a simulated update service, all on this machine's loopback.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
bash scripts/setup.sh
build=$root/build

source scripts/simulators.sh

# Two firmware images, one per hardware kind.
openssl rand -out "$work/ipc.bin" $((3 * 1024 * 1024))
openssl rand -out "$work/nvr.bin" $((5 * 1024 * 1024))
client_id=$(openssl rand -hex 8)
client_key=$(openssl rand -hex 32)

serial() { printf 'DEMO%08d' "$1"; }
cat > "$work/devices.json" <<JSON
{
  "count": 8, "base": "127.0.0.11", "port": 34567,
  "defaults": { "reboot_ms": 1500, "password": "" },
  "devices": [
    { "serial": "$(serial 1)", "hardware": "HI3516EV300_85H50AI", "device_type": "IPC" },
    { "serial": "$(serial 2)", "hardware": "HI3516EV300_85H50AI", "device_type": "IPC" },
    { "serial": "$(serial 3)", "hardware": "HI3516EV300_85H50AI", "device_type": "IPC" },
    { "serial": "$(serial 4)", "hardware": "HI3520DV400_NVR", "device_type": "NVR", "channels": 8 },
    { "serial": "$(serial 5)", "hardware": "HI3520DV400_NVR", "device_type": "NVR", "channels": 8 },
    { "serial": "$(serial 6)", "hardware": "HI3520DV400_NVR", "device_type": "NVR", "channels": 8 },
    { "serial": "$(serial 7)", "hardware": "HI3516EV300_85H50AI", "device_type": "IPC" },
    { "serial": "$(serial 8)", "hardware": "HI3516EV300_85H50AI", "device_type": "IPC", "password": "not-the-one" }
  ]
}
JSON
ipc='{"verdict": "pending", "offers": [{"file": "ipc.bin", "type": 1, "sdk_type": "legacy"}]}'
nvr='{"verdict": "pending", "offers": [{"file": "nvr.bin", "type": 2, "sdk_type": null}]}'
cat > "$work/service.json" <<JSON
{
  "client_id": "$client_id", "client_key": "$client_key",
  "address": "127.0.0.1", "port": 0,
  "fleet": {
    "$(serial 1)": $ipc, "$(serial 2)": $ipc, "$(serial 3)": $ipc,
    "$(serial 4)": $nvr, "$(serial 5)": $nvr, "$(serial 6)": $nvr,
    "$(serial 7)": "updated", "$(serial 8)": $ipc
  }
}
JSON

start_simulators devices.json service.json
port=$service_port

# A portable installation: the program beside its settings, cache and log.
mkdir "$work/run"
cp "$build/app/orvane" "$work/run/"
cat > "$work/run/ov.config" <<INI
[Service]
client_id=$client_id
client_key=$client_key
address=127.0.0.1
port=$port
INI
for i in $(seq 11 18); do echo "127.0.0.$i,34567,admin,"; done > "$work/run/devices.csv"

echo "== orvane --batch devices.csv =="
start=$(date +%s)
(cd "$work/run" && ./orvane --batch devices.csv) | tee "$work/run.log"
echo "== summary ($(( $(date +%s) - start )) s) =="
grep -E ': (Done upgrading|No updates for the|Error [0-9]+:)' "$work/run.log" | sed 's/^[^|]*| //'
printf 'Done upgrading: %s, Updates not found: %s, errors: %s\n' \
    "$(grep -c ': Done upgrading$' "$work/run.log" || true)" \
    "$(grep -c 'updates not found' "$work/run.log" || true)" \
    "$(grep -cE ': Error [0-9]+: ' "$work/run.log" || true)"
