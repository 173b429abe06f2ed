# Sourced by the scripts that run the program against simulated devices and a simulated
# update service: a scratch folder removed on exit with every process started here, and
# the simulators started from their JSON files.
#   source scripts/simulators.sh; start_simulators devices.json service.json
# sets $work, and $service_port once the service is up.
work=$(mktemp -d /tmp/orvane-run.XXXXXX)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# Waits for a simulator's "ready ..." line.
wait_ready() {
    for _ in $(seq 100); do
        grep -q '^ready' "$1" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "simulator did not start:" >&2; cat "$1" "$1.err" >&2 2>/dev/null; return 1
}

# Starts a process in the background, remembered for the clean-up.
run_in_background() {
    "$@" &
    pids+=($!)
}

# start_simulators <devices.json> <service.json>, both in $work.
start_simulators() {
    run_in_background "$build/tools/devsim/orvane-devsim" --config "$work/$1" > "$work/devsim.out" 2> "$work/devsim.out.err"
    run_in_background "$build/tools/svcsim/orvane-svcsim" --config "$work/$2" > "$work/svcsim.out" 2> "$work/svcsim.out.err"
    wait_ready "$work/devsim.out"
    wait_ready "$work/svcsim.out"
    service_port=$(grep -o ' port=[0-9]*' "$work/svcsim.out" | head -1 | cut -d= -f2)
}

# prepare_run: the program in a folder of its own ($work/run), talking to the service of
# start_simulators ($client_id, $client_key); more settings lines come on standard input.
prepare_run() {
    mkdir "$work/run"
    cp "$build/app/orvane" "$work/run/"
    {
        printf '[General]\nusage_warning_accepted=true\n[Service]\nclient_id=%s\nclient_key=%s\naddress=127.0.0.1\nport=%s\n' \
            "$client_id" "$client_key" "$service_port"
        cat
    } > "$work/run/ov.config"
}

# start_window <width>x<height>: a virtual X server of that size, and the program of
# $work/run started in it; sets $window once the main window shows, at the top left,
# and DISPLAY for xdotool.
start_window() {
    local display=:$((90 + RANDOM % 100))
    run_in_background Xvfb "$display" -screen 0 "$1x24" -nolisten tcp > "$work/xvfb.log" 2>&1
    export DISPLAY=$display XDG_RUNTIME_DIR=$work/xdg
    mkdir -m 700 "$XDG_RUNTIME_DIR"
    sleep 1
    pushd "$work/run" > /dev/null
    run_in_background ./orvane > "$work/orvane.log" 2>&1
    popd > /dev/null
    window=""
    for _ in $(seq 50); do
        # The title is translated; its first word isn't.
        window=$(xdotool search --name "^Kelmar" 2>/dev/null | head -1) && [ -n "$window" ] && break
        sleep 0.2
    done
    [ -n "$window" ] || { echo "the window did not appear" >&2; return 1; }
    xdotool windowsize "$window" "${1%x*}" "${1#*x}"
    xdotool windowmove "$window" 0 0
}

# open_console: F4 in the main window of start_window; sets $console once the console shows,
# with the keyboard's focus.
open_console() {
    xdotool windowfocus --sync "$window"
    sleep 1
    xdotool key F4
    console=""
    for _ in $(seq 50); do
        console=$(xdotool search --onlyvisible --name "^Command line$" 2>/dev/null | head -1) && [ -n "$console" ] && break
        sleep 0.2
    done
    [ -n "$console" ] || { echo "the console did not open" >&2; return 1; }
    xdotool windowfocus --sync "$console"
    sleep 0.5
}
