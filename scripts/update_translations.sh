#!/usr/bin/env bash
# Refreshes resources/langs/ru_RU.ts from the sources; new texts come in unfinished.
set -euo pipefail
cd "$(dirname "$0")/.."
dirs=()
for d in app tasks netip sdk delivery firmware_pack scripting plugins ui diagnostics; do
    [ -d "$d" ] && dirs+=("$d")
done
lupdate -silent -no-obsolete -locations none -I . "${dirs[@]}" -ts resources/langs/ru_RU.ts "$@"
