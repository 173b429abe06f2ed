#!/usr/bin/env bash
# Builds the Debian packages of a built tree and checks their contents and dependencies; then runs
# the installed program (the packages laid over /usr in private mount and network namespaces) against the
# simulators of the tools package, writing into the user's folders and nothing under /usr.
#   tests/check_packages.sh <build dir>
set -euo pipefail

app_id=org.kelmar.orvane
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# The part that runs as if installed: called in the namespaces with the scratch folder.
run_installed() {
    local work=$1
    mount --make-rprivate /
    mkdir -p "$work/upper" "$work/overlay_work"
    mount -t overlay overlay -o "lowerdir=$work/root/usr:/usr,upperdir=$work/upper,workdir=$work/overlay_work" /usr \
        || { fail "can't lay the packages over /usr"; return; }
    ip link set lo up

    local pids=()
    trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done' EXIT
    unset XDG_DATA_HOME XDG_CACHE_HOME XDG_CONFIG_HOME XDG_DATA_DIRS XDG_CONFIG_DIRS LC_ALL LC_MESSAGES
    export HOME=$work/home XDG_RUNTIME_DIR=$work/runtime QT_QPA_PLATFORM=offscreen LANG=C.UTF-8
    mkdir -p "$HOME" "$work/run" && mkdir -m 700 "$XDG_RUNTIME_DIR"
    cd "$work/run"

    # Two devices: one gets a firmware, the other is up to date.
    head -c 200000 /dev/urandom > fw.bin
    local id key
    id=$(od -An -tx1 -N8 /dev/urandom | tr -d ' \n')
    key=$(od -An -tx1 -N32 /dev/urandom | tr -d ' \n')
    cat > devices.json <<JSON
{"count": 2, "base": "127.0.0.2", "port": 34567,
 "defaults": {"reboot_ms": 200, "upgrade_step_ms": 20},
 "devices": [{"serial": "PKGTEST0001"}, {"serial": "PKGTEST0002"}]}
JSON
    cat > service.json <<JSON
{"client_id": "$id", "client_key": "$key", "address": "127.0.0.1", "port": 0,
 "fleet": {"PKGTEST0001": {"verdict": "pending", "offers": ["fw.bin"]}, "PKGTEST0002": "updated"}}
JSON
    /usr/bin/orvane-devsim --config devices.json > devsim.out 2>&1 & pids+=($!)
    /usr/bin/orvane-svcsim --config service.json > svcsim.out 2>&1 & pids+=($!)
    for _ in $(seq 100); do
        grep -q '^ready' devsim.out && grep -q '^ready' svcsim.out && break
        sleep 0.1
    done
    local port
    port=$(grep -o ' port=[0-9]*' svcsim.out | head -1 | cut -d= -f2)
    [ -n "$port" ] || { fail "the simulators of the tools package did not start"; cat devsim.out svcsim.out; return; }

    local data=$HOME/.local/share/orvane
    mkdir -p "$data"
    printf '[Service]\nclient_id=%s\nclient_key=%s\naddress=127.0.0.1\nport=%s\n' "$id" "$key" "$port" > "$data/ov.config"
    printf '127.0.0.2,34567,admin,\n127.0.0.3,34567,admin,\n' > devices.csv
    local before
    before=$(ls)

    local rc=0
    timeout 60 /usr/bin/orvane --batch devices.csv > "$work/batch.out" 2>&1 || rc=$?
    [ "$rc" = 0 ] || fail "orvane --batch ended with $rc"
    [ "$(grep -c ': Done upgrading$' "$work/batch.out")" = 1 ] || fail "not exactly one device upgraded"
    tail -1 "$work/batch.out" | grep -q -- '-- all done --$' || fail "the batch log doesn't end with -- all done --"
    [ "$rc" = 0 ] && [ "$failures" = 0 ] || cat "$work/batch.out"

    [ -s "$data/blackbox.log" ] || fail "no log in $data"
    grep -q '^firmware_pack_functionality=' "$data/ov.config" || fail "the settings in $data were not written"
    local cache=$HOME/.cache/orvane/cache.ovpack
    [ "$(stat -c %s "$cache" 2>/dev/null || echo 0)" -gt 200000 ] || fail "the firmware is not in the cache $cache"
    # The updater beside the program finds nothing to install, and like it writes nothing under /usr.
    /usr/libexec/orvane/updater > /dev/null 2>&1 || fail "the installed updater ended with $?"
    [ "$(ls)" = "$before" ] || fail "files written into the working folder: $(ls)"
    local written
    written=$(cd "$work/upper" && find . -mindepth 1)
    [ -z "$written" ] || fail "written under /usr: $written"
}

if [ "${2:-}" = --installed ]; then
    run_installed "$3"
    exit $((failures > 0))
fi

build=$(cd "$1" && pwd)
[ "$(id -u)" = 0 ] || { echo "needs root for the mount namespace"; exit 77; }
work=$(mktemp -d /tmp/orvane-packages.XXXXXX)
trap 'rm -rf "$work"' EXIT

if ! cpack --config "$build/CPackConfig.cmake" -B "$work/out" > "$work/cpack.log" 2>&1; then
    cat "$work/cpack.log"; exit 1
fi
declare -A deb
for f in "$work"/out/*.deb; do
    deb[$(dpkg-deb -f "$f" Package)]=$f
    dpkg-deb -c "$f" | awk '{ print $6 }' > "$work/$(dpkg-deb -f "$f" Package).list"
done

# Where each file belongs: in its package, and in no other.
expected=(
    orvane:/usr/bin/orvane orvane:/usr/libexec/orvane/orvane orvane:/usr/libexec/orvane/updater
    orvane:/usr/share/applications/$app_id.desktop orvane:/usr/share/metainfo/$app_id.metainfo.xml
    orvane:/usr/share/icons/hicolor/scalable/apps/$app_id.svg orvane:/usr/share/man/man1/orvane.1.gz
)
for tool in devsim svcsim packtool; do
    expected+=(orvane-tools:/usr/bin/orvane-$tool orvane-tools:/usr/share/man/man1/orvane-$tool.1.gz)
done
for header in $(cat "$build/public_headers.txt"); do
    expected+=(orvane-dev:/usr/include/orvane/$header)
done
for package in "${!deb[@]}"; do
    expected+=("$package:/usr/share/doc/$package/copyright" "$package:/usr/share/doc/$package/changelog.gz")
done
for entry in "${expected[@]}"; do
    package=${entry%%:*} path=.${entry#*:}
    owners=$(grep -lxF "$path" "$work"/*.list | xargs -rn1 basename | sed 's/\.list$//' | tr '\n' ' ') || true
    [ "$owners" = "$package " ] || fail "$path is in '$owners', not in $package alone"
done
for package in "${!deb[@]}"; do
    stray=$(grep -v -e '^\./$' -e '^\./usr/' "$work/$package.list"; grep '^\./usr/local/' "$work/$package.list") || true
    [ -z "$stray" ] || fail "$package installs outside /usr or under /usr/local: $stray"
done

mkdir "$work/root"
for package in "${!deb[@]}"; do dpkg-deb -x "${deb[$package]}" "$work/root"; done
usr=$work/root/usr

# Every library a program links is in its package's dependencies (computed, not listed
# by hand); the SVG support that Qt loads as a plugin is declared.
depends() { dpkg-deb -f "${deb[$1]}" Depends | sed 's/ *([^)]*)//g; s/ *| */\n/g; s/, */\n/g'; }
depends orvane | grep -qx libqt5svg5 || fail "orvane doesn't depend on libqt5svg5"
depends orvane | grep -qx qttranslations5-l10n || fail "orvane doesn't depend on qttranslations5-l10n"
for package in "${!deb[@]}"; do
    for program in $(grep -E '^\./usr/(bin|libexec)/.*[^/]$' "$work/$package.list"); do
        [ -L "$work/root/$program" ] && continue
        for soname in $(readelf -d "$work/root/$program" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p'); do
            owners=$(dpkg -S "*/$soname" 2>/dev/null | sed 's/: .*//; s/, */\n/g; s/:[a-z0-9]*$//mg')
            grep -qxF -f <(depends "$package") <<< "$owners" \
                || fail "$package: ${program#.} links $soname (${owners//$'\n'/ }), not in its dependencies"
        done
    done
done
[ "$(readlink -f "$usr/bin/orvane")" = "$usr/libexec/orvane/orvane" ] || fail "/usr/bin/orvane doesn't lead to the program"
lintian --fail-on error "${deb[@]}" > "$work/lintian.out" 2>&1 || { fail "lintian reports errors"; cat "$work/lintian.out"; }

unshare -mn bash "$0" "$build" --installed "$work" || failures=$((failures + 1))

[ "$failures" = 0 ] || { echo "$failures check(s) failed"; exit 1; }
echo "packages checked: ${!deb[*]}"
