#!/usr/bin/env bash
# Runs every libFuzzer target of a build for a bounded time; fails when any of them crashes,
# hangs or runs out of memory. Inputs that did are kept in <build-dir>/fuzz_artifacts/<target>/.
#   tests/fuzz/run_fuzzers.sh <build-dir> <seconds-per-target>
set -euo pipefail
if [ $# -ne 2 ]; then
    echo "usage: $0 <build-dir> <seconds-per-target>" >&2
    exit 2
fi
build=$(cd "$1" && pwd)
seconds=$2
here=$(cd "$(dirname "$0")" && pwd)

targets=()
if [ -d "$build/tests/fuzz" ]; then
    while IFS= read -r t; do targets+=("$t"); done \
        < <(find "$build/tests/fuzz" -maxdepth 1 -type f -name 'fuzz_*' -perm -u+x | sort)
fi
if [ ${#targets[@]} -eq 0 ]; then
    echo "No fuzz targets in $build/tests/fuzz: configure with clang and -DORVANE_FUZZ=ON, then build them." >&2
    exit 1
fi

# New corpus entries go to a scratch folder, so that the committed seeds stay as they are.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LSAN_OPTIONS="suppressions=$here/../lsan.supp${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"

failed=()
for target in "${targets[@]}"; do
    name=$(basename "$target")
    artifacts="$build/fuzz_artifacts/$name"
    mkdir -p "$work/$name" "$artifacts"
    corpora=("$work/$name")
    [ -d "$here/corpus/$name" ] && corpora+=("$here/corpus/$name")
    echo "== $name for ${seconds}s"
    if "$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$artifacts/" "${corpora[@]}" >"$work/$name.log" 2>&1; then
        grep -E '^stat::number_of_executed_units|^Done ' "$work/$name.log" || true
    else
        failed+=("$name")
        tail -n 60 "$work/$name.log"
        echo "-- $name failed; the input is in $artifacts"
    fi
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "Fuzz targets that failed: ${failed[*]}"
    exit 1
fi
echo "All ${#targets[@]} fuzz targets ran ${seconds}s each without a failure."
