#!/usr/bin/env bash
# Sets up the machine, builds, and shows what the program offers.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
./build/app/orvane --help
