#!/usr/bin/env bash
# Drives the window's menus with the mouse and keyboard under a virtual X server, against two
# simulated devices on loopback inside a network namespace of its own: screenshots of the
# Actions and Options menus and of the port dialog, then a custom HTTP port chosen through
# Actions > Change port, which must reach both devices.
#   tools/menus_session.sh [folder for the screenshots]    (default /tmp/orvane-menus)
# Exits non-zero when a device did not get the new port.
set -euo pipefail
if [ -z "${ORVANE_MENUS_NETNS:-}" ]; then
    # Nothing of this session may reach a real network.
    exec env ORVANE_MENUS_NETNS=1 unshare -n -- "$0" "$@"
fi
ip link set lo up
# The port change goes out as a broadcast: on loopback here.
ip route add broadcast 255.255.255.255 dev lo src 127.0.0.1
cd "$(dirname "$0")/.."
root=$PWD
shots=${1:-/tmp/orvane-menus}
mkdir -p "$shots"
build=${BUILD_DIR:-$root/build}
[ -x "$build/app/orvane" ] || { echo "build the program first ($build/app/orvane)" >&2; exit 1; }

source scripts/simulators.sh

client_id=$(openssl rand -hex 8)
client_key=$(openssl rand -hex 32)
cat > "$work/devices.json" <<JSON
{ "count": 2, "base": "127.0.0.71", "port": 34567,
  "devices": [ { "serial": "MENU00000001" }, { "serial": "MENU00000002" } ] }
JSON
cat > "$work/service.json" <<JSON
{ "client_id": "$client_id", "client_key": "$client_key", "address": "127.0.0.1", "port": 0,
  "fleet": { "MENU00000001": "updated", "MENU00000002": "updated" } }
JSON
start_simulators devices.json service.json
control_port=$(grep -o 'control_port=[0-9]*' "$work/devsim.out" | cut -d= -f2)
for i in 71 72; do echo "127.0.0.$i,34567,admin,"; done > "$work/devices.csv"
prepare_run < /dev/null
start_window 1100x700

# The rows come in through the console, which then moves out of the menus' way.
open_console
xdotool type --delay 8 "devices.import $work/devices.csv"
xdotool key Return
sleep 2
# A device's MAC comes with its identification; the change is addressed by it.
xdotool type --delay 8 "devices.check fetch all"
xdotool key Return
sleep 4
xdotool windowsize "$console" 400 200
xdotool windowmove "$console" 690 490
sleep 1

# Menu titles at this size in the default style: Actions at 177,10, Options at 241,10.
xdotool mousemove 177 10 click 1
sleep 1
import -window root "$shots/actions.png"
xdotool key Escape
sleep 0.5
xdotool mousemove 241 10 click 1
sleep 1
import -window root "$shots/options.png"
xdotool key Escape Escape
sleep 0.5

# Actions > Change port (the tenth entry) > HTTP port (the fourth), then Custom 8080 and OK.
xdotool mousemove 177 10 click 1
sleep 0.5
xdotool key Down Down Down Down Down Down Down Down Down Down Right
sleep 1
import -window root "$shots/change_port.png"
xdotool key Down Down Down Return
sleep 1
xdotool mousemove 470 329 click 1
xdotool mousemove 570 329 click --repeat 3 1
xdotool key ctrl+a
xdotool type 8080
sleep 0.3
import -window root "$shots/port_dialog.png"
xdotool mousemove 502 373 click 1
sleep 5
import -window root "$shots/port_changed.png"
echo "screenshots: $shots"

python3 - "$control_port" <<'PY'
import json, socket, sys
f = socket.create_connection(("127.0.0.1", int(sys.argv[1]))).makefile("rw")
bad = 0
for d in (0, 1):
    f.write(json.dumps({"cmd": "get_state", "device": d}) + "\n")
    f.flush()
    port = json.loads(f.readline())["state"]["net"]["HttpPort"]
    print("device %d: HTTP port %s" % (d, port))
    bad += port != 8080
sys.exit(1 if bad else 0)
PY
echo "menus session: the port change reached both devices"
