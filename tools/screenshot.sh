#!/usr/bin/env bash
# Takes a picture of the running program without a display: a virtual X server, a few
# simulated devices and a simulated update service on loopback, a task list imported
# through the window and a run started with Ctrl+R.
#   tools/screenshot.sh [output.png]     (default /tmp/orvane-window.png)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
out=${1:-/tmp/orvane-window.png}
build=$root/build
[ -x "$build/app/orvane" ] || bash scripts/setup.sh

source scripts/simulators.sh

openssl rand -out "$work/fw.bin" $((2 * 1024 * 1024))
client_id=$(openssl rand -hex 8)
client_key=$(openssl rand -hex 32)
cat > "$work/devices.json" <<JSON
{ "count": 5, "base": "127.0.0.41", "port": 34567,
  "defaults": { "reboot_ms": 1500 },
  "devices": [ { "serial": "SHOT00000001" }, { "serial": "SHOT00000002" }, { "serial": "SHOT00000003" },
               { "serial": "SHOT00000004" }, { "serial": "SHOT00000005", "device_type": "NVR" } ] }
JSON
pending='{"verdict": "pending", "offers": [{"file": "fw.bin", "type": 1, "sdk_type": "legacy"}]}'
cat > "$work/service.json" <<JSON
{ "client_id": "$client_id", "client_key": "$client_key", "address": "127.0.0.1", "port": 0,
  "fleet": { "SHOT00000001": $pending, "SHOT00000002": $pending, "SHOT00000003": "updated",
             "SHOT00000004": "denied", "SHOT00000005": $pending },
  "faults": { "file": { "delay_ms": 4000 } } }
JSON
start_simulators devices.json service.json

{ for i in 41 42 43 44 45; do echo "127.0.0.$i,34567,admin,"; done; echo "127.0.0.1,1,admin,"; } > "$work/devices.csv"
prepare_run < /dev/null
start_window 1100x700
xdotool windowfocus --sync "$window"
sleep 1
# Import the task list through the file dialog, then Run.
xdotool key ctrl+i
sleep 1
xdotool type --delay 5 "$work/devices.csv"
xdotool key Return
sleep 1
xdotool windowfocus --sync "$window"
xdotool key ctrl+r
sleep "${SHOT_DELAY:-6}"
# The problems window opens over the table at the first failure; the table is the subject here.
for problems in $(xdotool search --name "Issues report" 2>/dev/null); do xdotool windowunmap "$problems"; done
sleep 0.3
import -window root "$out"
echo "screenshot: $out"
