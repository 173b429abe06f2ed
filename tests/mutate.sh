#!/usr/bin/env bash
# Breaks one line on purpose and tells whether the named tests notice.
#
#   tests/mutate.sh [--baseline] FILE:LINE 'sed expression' TEST...
#
# The change is made in a scratch copy of the current tree (uncommitted edits included), built
# there and the named ctest tests run. The copy and its build are kept under
# ${ORVANE_MUTATE_DIR:-/tmp/orvane-mutate} so that every later run is incremental; the line is
# put back when the run ends. --baseline first runs the tests on the unchanged copy and refuses
# to judge when they fail there already.
#
# The last line printed is the verdict: "killed", "survived" or "build failed".
# Exit status: 0 killed, 1 survived, 2 build failed, 3 refused.
set -euo pipefail

refuse() {
    echo "mutate: $*" >&2
    exit 3
}

baseline=0
if [ "${1:-}" = "--baseline" ]; then
    baseline=1
    shift
fi
[ $# -ge 3 ] || refuse "usage: $0 [--baseline] FILE:LINE 'sed expression' TEST..."
where=$1
expression=$2
shift 2
tests=("$@")

root=$(git -C "$(dirname "$0")" rev-parse --show-toplevel)
file=${where%:*}
line=${where##*:}
file=${file#"$root"/}
[[ $line =~ ^[1-9][0-9]*$ ]] || refuse "no line number in \"$where\""
[ -f "$root/$file" ] || refuse "no file \"$file\" in $root"
lines=$(wc -l <"$root/$file")
[ "$line" -le "$lines" ] || refuse "$file has $lines lines"

original=$(sed -n "${line}p" "$root/$file")
mutant=$(printf '%s\n' "$original" | sed -e "$expression") || refuse "sed refused \"$expression\""
[ "$mutant" != "$original" ] || refuse "\"$expression\" changes nothing on $file:$line"

scratch=${ORVANE_MUTATE_DIR:-/tmp/orvane-mutate}/$(basename "$root")-$(printf '%s' "$root" | md5sum | cut -c1-8)
src=$scratch/src
build=$scratch/build
mkdir -p "$src"
exec 9>"$scratch/lock"
flock 9 # one run at a time per tree

# Only files whose content differs are copied, with a fresh time, so ninja rebuilds just those.
(cd "$root" && git ls-files --cached --others --exclude-standard) | sort -u >"$scratch/files"
while IFS= read -r f; do
    [ -f "$root/$f" ] || continue
    if ! cmp -s "$root/$f" "$src/$f"; then
        mkdir -p "$(dirname "$src/$f")"
        cp "$root/$f" "$src/$f"
    fi
done <"$scratch/files"
(cd "$src" && find . -type f | sed 's|^\./||' | sort) | comm -23 - "$scratch/files" | while IFS= read -r f; do
    rm -f "$src/$f"
done

# Paths relative to the scratch folder: copies of other trees share the compiler cache.
export CCACHE_BASEDIR=$scratch CCACHE_NOHASHDIR=1
if [ ! -f "$build/build.ninja" ]; then
    cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >"$scratch/configure.log" 2>&1 ||
        refuse "configuring failed, see $scratch/configure.log"
fi
known=$(ctest --test-dir "$build" -N | sed -n 's/^ *Test *#[0-9]*: //p')
targets=()
for t in "${tests[@]}"; do
    grep -qx -- "$t" <<<"$known" || refuse "no test named \"$t\""
    if ninja -C "$build" -t query "$t" >/dev/null 2>&1; then
        targets+=("$t")
    else
        targets=() # a test that isn't a target of its own (a script) may need anything
        break
    fi
done
pattern="^($(IFS='|'; echo "${tests[*]}"))\$"

# Status 0 when every named test passes; the failing ones are in $scratch/test.log.
build_and_test() {
    ninja -C "$build" -j"${ORVANE_MUTATE_JOBS:-2}" "${targets[@]}" >"$scratch/build.log" 2>&1 || return 2
    QT_QPA_PLATFORM=offscreen ctest --test-dir "$build" -R "$pattern" --timeout "${ORVANE_MUTATE_TIMEOUT:-300}" \
        >"$scratch/test.log" 2>&1 || return 1
}

if [ $baseline = 1 ]; then
    status=0
    build_and_test || status=$?
    [ $status = 0 ] || refuse "the tests fail before any change, see $scratch/build.log and $scratch/test.log"
fi

restore() { cp "$root/$file" "$src/$file"; }
trap restore EXIT
{
    head -n $((line - 1)) "$root/$file"
    printf '%s\n' "$mutant"
    tail -n +$((line + 1)) "$root/$file"
} >"$src/$file"

echo "$file:$line"
echo "- $original"
echo "+ $mutant"
status=0
build_and_test || status=$?
case $status in
0)
    echo "survived"
    exit 1
    ;;
1)
    sed -n 's/^[[:space:]]*[0-9]* - \(.*\)$/failed: \1/p' "$scratch/test.log"
    grep -h -m 5 '^FAIL!' "$build/Testing/Temporary/LastTest.log" || true
    echo "killed"
    exit 0
    ;;
*)
    grep -m 5 -E 'error|Error' "$scratch/build.log" || tail -n 5 "$scratch/build.log"
    echo "build failed"
    exit 2
    ;;
esac
