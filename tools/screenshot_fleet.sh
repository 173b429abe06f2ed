#!/usr/bin/env bash
# Pictures of a fleet run as an installer sees it: 60 simulated devices of which 5 refuse
# the upload, in the window of a virtual X server, inside a network namespace of its own.
# After the run: the whole table, the table sorted by the Operation column, and the
# failure filter; beside them the handover report the run wrote, as CSV, as a page and
# as a picture of the page.
#   tools/screenshot_fleet.sh [language] [output folder]   (default en_US, /tmp/orvane-fleet)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -z "${ORVANE_OWN_NETNS:-}" ]; then
    exec unshare -n env ORVANE_OWN_NETNS=1 bash "$0" "$@"
fi
ip link set lo up
root=$PWD
language=${1:-en_US}
out=${2:-/tmp/orvane-fleet}
mkdir -p "$out"
build=$root/build
[ -x "$build/app/orvane" ] || bash scripts/setup.sh

source scripts/simulators.sh

openssl rand -out "$work/fw.bin" $((256 * 1024))
client_id=$(openssl rand -hex 8)
client_key=$(openssl rand -hex 32)
failing=(7 19 31 43 55)
{
    echo '{ "count": 60, "base": "127.0.0.101", "port": 34567,'
    echo '  "defaults": { "reboot_ms": 500, "upgrade_step_ms": 50 }, "devices": ['
    for i in $(seq 0 59); do
        entry="{ \"serial\": \"FLEET$(printf %07d "$i")\" }"
        [[ " ${failing[*]} " == *" $i "* ]] \
            && entry="{ \"serial\": \"FLEET$(printf %07d "$i")\", \"faults\": { \"close_at\": [1520] } }"
        [ "$i" -lt 59 ] && entry+=","
        echo "    $entry"
    done
    echo '] }'
} > "$work/devices.json"
pending='{"verdict": "pending", "offers": [{"file": "fw.bin", "type": 1, "sdk_type": "legacy"}]}'
{
    echo "{ \"client_id\": \"$client_id\", \"client_key\": \"$client_key\", \"address\": \"127.0.0.1\", \"port\": 0,"
    echo '  "fleet": {'
    for i in $(seq 0 59); do
        sep=","; [ "$i" -eq 59 ] && sep=""
        echo "    \"FLEET$(printf %07d "$i")\": $pending$sep"
    done
    echo '} }'
} > "$work/service.json"
start_simulators devices.json service.json

mkdir "$work/run"
cp "$build/app/orvane" "$work/run/"
cat > "$work/run/ov.config" <<INI
[General]
usage_warning_accepted=true
language=$language
[Service]
client_id=$client_id
client_key=$client_key
address=127.0.0.1
port=$service_port
[Window]
columns="{\"fields\":[{\"id\":0,\"width\":150},{\"id\":1,\"width\":130},{\"id\":2,\"width\":130},{\"id\":3,\"width\":330},{\"id\":4,\"width\":320}],\"order\":\"\"}"
[Autorun]
enabled=true
list="start.ovscript;1;0"
INI
for i in $(seq 101 160); do echo "127.0.0.$i,34567,admin,"; done > "$work/run/devices.csv"
# The run starts by itself: the import and the launch are what the window's actions do.
printf 'devices.import devices.csv\ndevices.check full all\nreport.export handover.csv\nreport.export handover.html\n' \
    > "$work/run/start.ovscript"

start_window 1100x720
# The script writes the report once every flow has ended.
for _ in $(seq 600); do [ -f "$work/run/handover.html" ] && break; sleep 0.2; done
[ -f "$work/run/handover.html" ] || { echo "the run did not end" >&2; exit 1; }
sleep 1
for problems in $(xdotool search --name "Issues report" 2>/dev/null) $(xdotool search --name "Отчёт о проблемах" 2>/dev/null); do
    xdotool windowunmap "$problems" || true
done
xdotool windowfocus --sync "$window" || true
sleep 0.5
grep -E '\[core\]: (Done|Готово): ' "$work/orvane.log" | tail -1
import -window root "$out/fleet_$language.png"

# Sort by the Operation column: its header, the fifth, where the stored layout put it.
header_y=${SHOT_HEADER_Y:-82}
xdotool mousemove 900 "$header_y" click 1
sleep 0.7
import -window root "$out/fleet_sorted_$language.png"
xdotool mousemove 900 "$header_y" click 1 # the other way round
sleep 0.3

# The failure filter: the combo box in the status bar.
xdotool mousemove "${SHOT_FILTER_X:-1040}" "${SHOT_FILTER_Y:-705}" click 1
sleep 0.5
xdotool key Down Return
sleep 0.7
import -window root "$out/fleet_failures_$language.png"
cp "$work/run/handover.csv" "$out/handover_$language.csv"
cp "$work/run/handover.html" "$out/handover_$language.html"
"$build/tools/render_page/orvane-render-page" "$out/handover_$language.html" "$out/handover_$language.png"
echo "screenshots and reports in $out"
