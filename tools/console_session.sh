#!/usr/bin/env bash
# Types a session into the command console of the running program and checks what it shows:
# a virtual X server, a fleet of simulated devices and a simulated update service on loopback,
# all inside a network namespace of its own. A screenshot is taken while "devices.check fetch
# all" waits, so the animated line can be seen, and one of a script widget the user changed.
#   tools/console_session.sh [screenshot.png]    (default /tmp/orvane-console.png)
# Exits non-zero, with the console's text, when a line's output is missing.
set -euo pipefail
if [ -z "${ORVANE_CONSOLE_NETNS:-}" ]; then
    # Nothing of this session may reach a real network.
    exec env ORVANE_CONSOLE_NETNS=1 unshare -n -- "$0" "$@"
fi
ip link set lo up
cd "$(dirname "$0")/.."
root=$PWD
out=${1:-/tmp/orvane-console.png}
build=${BUILD_DIR:-$root/build}
[ -x "$build/app/orvane" ] || { echo "build the program first ($build/app/orvane)" >&2; exit 1; }

source scripts/simulators.sh

openssl rand -out "$work/fw.bin" $((1024 * 1024))
client_id=$(openssl rand -hex 8)
client_key=$(openssl rand -hex 32)
cat > "$work/devices.json" <<JSON
{ "count": 4, "base": "127.0.0.61", "port": 34567,
  "defaults": { "reboot_ms": 1000 },
  "devices": [ { "serial": "CONS00000001" }, { "serial": "CONS00000002" }, { "serial": "CONS00000003" },
               { "serial": "CONS00000004" } ] }
JSON
pending='{"verdict": "pending", "offers": [{"file": "fw.bin", "type": 1, "sdk_type": "legacy"}]}'
cat > "$work/service.json" <<JSON
{ "client_id": "$client_id", "client_key": "$client_key", "address": "127.0.0.1", "port": 0,
  "fleet": { "CONS00000001": $pending, "CONS00000002": $pending, "CONS00000003": "updated",
             "CONS00000004": $pending },
  "faults": { "update": { "delay_ms": 3000 }, "file": { "delay_ms": 2000 } } }
JSON
start_simulators devices.json service.json

for i in 61 62 63 64; do echo "127.0.0.$i,34567,admin,"; done > "$work/devices.csv"
prepare_run <<INI
[Console]
script_type=0
INI
start_window 1100x700

open_console
xdotool windowsize "$console" 900 600
xdotool windowmove "$console" 100 50
xdotool windowfocus --sync "$console"
sleep 0.5

say() {
    xdotool type --delay 8 "$1"
    xdotool key Return
    sleep "${2:-0.8}"
}

# The console's text as "Copy output" gives it.
console_text() {
    xdotool key ctrl+shift+c
    sleep 0.3
    xclip -selection clipboard -o 2>/dev/null || true
}

# Until the console's text holds this many lines equal to $1, for at most 30 s.
await_lines() {
    for _ in $(seq 60); do
        [ "$(console_text | grep -cx -- "$1")" -ge "$2" ] && return 0
        sleep 0.5
    done
    echo "gave up waiting for \"$1\"" >&2
}

say "devices.import $work/devices.csv"
say "devices.check fetch all" 1.5
import -window root "$out"
echo "screenshot: $out"
await_lines "Done" 1
say "task.list"
# A line typed while recording is shown as recorded only once the recording has begun.
say "macro.record m" 1.5
say "print hi"
say "macro.stop" 1.5
say "macro.run m"
await_lines "hi" 1
# Tab to the language buttons, Right to Lua; the input has the keys again after that.
xdotool key Tab Right
sleep 0.3
say "print('lua says ' .. 6 * 7)" 1.5

await_lines "Done" 2
xdotool key Tab Left
sleep 0.3

# A script widget on its own toolbar, changed by the user: the attached macro runs once the
# spin box reaches 7. In the default style at this size its up arrow sits at 661,37.
say "macro.record port" 1.5
say 'print fired port ${$widget/widget1/value}'
say "macro.stop" 1.5
say "display.toolbar.x add --type=numeric --label=Port --value=5 --min=1 --max=9" 1.5
say "events.attach widget_changed widget1 7 --macro=port"
for _ in 1 2; do
    xdotool mousemove 661 37 click 1
    sleep 0.3
done
xdotool windowfocus --sync "$console"
await_lines "fired port 7" 1
import -window root "${out%.png}-widget.png"
echo "screenshot: ${out%.png}-widget.png"
console_text > "$work/console.txt"

expected=(
    "$ devices.import"
    "$ devices.check fetch all"
    "$ task.list"
    "Total tasks: 4"
    "Macro> print hi"
    "lua says 42"
    "Done"
    "fired port 7"
)
missing=0
for text in "${expected[@]}"; do
    grep -qF -- "$text" "$work/console.txt" || { echo "missing from the console: $text" >&2; missing=1; }
done
# A recorded line runs only when the macro plays back.
[ "$(grep -cx 'hi' "$work/console.txt")" -eq 1 ] || { echo "the macro did not play back once" >&2; missing=1; }
if [ "$missing" -ne 0 ]; then
    echo "--- console ---" >&2; cat "$work/console.txt" >&2
    exit 1
fi
echo "console session: all expected output seen"
