#!/usr/bin/env bash
# Sets up and builds, then runs the example scripts of examples/scripts headless against
# four simulated devices on 127.0.0.21 .. 127.0.0.24 and a simulated update service, all on
# this machine's loopback: the autorun script at start, then fleet_update.ovscript.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
bash scripts/setup.sh
build=$root/build

source scripts/simulators.sh

openssl rand -out "$work/ipc.bin" $((1024 * 1024))
client_id=$(openssl rand -hex 8)
client_key=$(openssl rand -hex 32)

serial() { printf 'SCRIPT%06d' "$1"; }
cat > "$work/devices.json" <<JSON
{
  "count": 4, "base": "127.0.0.21", "port": 34567,
  "defaults": { "reboot_ms": 1000, "password": "", "hardware": "HI3516EV300_85H50AI", "device_type": "IPC" },
  "devices": [
    { "serial": "$(serial 1)" }, { "serial": "$(serial 2)" }, { "serial": "$(serial 3)" }, { "serial": "$(serial 4)" }
  ]
}
JSON
offer='{"verdict": "pending", "offers": [{"file": "ipc.bin", "type": 1, "sdk_type": "legacy"}]}'
cat > "$work/service.json" <<JSON
{
  "client_id": "$client_id", "client_key": "$client_key",
  "address": "127.0.0.1", "port": 0,
  "fleet": { "$(serial 1)": $offer, "$(serial 2)": $offer, "$(serial 3)": $offer, "$(serial 4)": "updated" }
}
JSON

start_simulators devices.json service.json

# A portable installation: the program beside its settings and scripts. The autorun list is
# quoted: unquoted, QSettings would read everything after the first ";" as a comment.
mkdir "$work/run"
cp "$build/app/orvane" examples/scripts/*.ovscript "$work/run/"
cat > "$work/run/ov.config" <<INI
[Service]
client_id=$client_id
client_key=$client_key
address=127.0.0.1
port=$service_port

[Autorun]
enabled=true
list="setup.ovscript;1;0"
INI
for i in $(seq 21 24); do echo "127.0.0.$i,34567,admin,"; done > "$work/run/devices.csv"

echo "== orvane --batch --script fleet_update.ovscript =="
(cd "$work/run" && ./orvane --batch --script fleet_update.ovscript) | tee "$work/run.log"
echo "== updated.csv =="
cat "$work/run/updated.csv"
