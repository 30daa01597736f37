#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Cuts every operation that changes the ROM at every control transfer, in every way that a camera
# can fail, on every camera model. Prints a line per operation and kind of cut; 0 when all checks
# have passed. docs/architecture.md explains the columns.
#
#   tests/cut_sweep.sh [EVERY]     EVERY: only every so many-th transfer, 1 without it
set -eu
cd "$(dirname "$0")/.."

every=${1:-1}
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() {
    "$@" >"$log" 2>&1 || { tail -n 40 "$log" >&2; exit 1; }
}
quietly cmake --preset dev
quietly cmake --build --preset dev --target cut_sweep

failed=0
sweep() {
    build/dev/bin/cut_sweep --operation "$@" || failed=1
}
for operation in upgrade mfi-upgrade erase reserved-area eeprom-window; do
    sweep "$operation" --every "$every"
done
# Six times as many points as all others together: a smaller share of them takes
# the whole path through libusb.
sweep range-erase --every "$every" --every-whole 320
exit "$failed"
