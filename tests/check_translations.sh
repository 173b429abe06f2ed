#!/usr/bin/env bash
# Fails when a user-visible text in the sources has no Russian translation.
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for d in scripts resources app tasks netip sdk delivery firmware_pack scripting plugins ui diagnostics; do
    [ -d "$src/$d" ] && cp -r "$src/$d" "$work/"
done
bash "$work/scripts/update_translations.sh"
ts="$work/resources/langs/ru_RU.ts"
missing=$(grep -c 'type="unfinished"' "$ts" || true)
total=$(grep -c '<message' "$ts" || true)
if [ "$missing" -gt 0 ]; then
    echo "Texts without a Russian translation ($missing of $total):"
    grep -B3 'type="unfinished"' "$ts" | grep '<source>' | sed 's/^ */  /'
    exit 1
fi
echo "All $total texts are translated."
