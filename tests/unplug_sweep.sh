#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Unplugs cameras at random moments while they start to stream, stream, are stopped and deleted, by
# C and by C++, and tells what became of them: 0 when each call came back in time, and no process
# came to harm.
#
#   tests/unplug_sweep.sh [RUNS [SEED]]     400 runs without it; the same seed gives the same runs
set -eu
cd "$(dirname "$0")/.."

log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() {
    "$@" >"$log" 2>&1 || { tail -n 40 "$log" >&2; exit 1; }
}
quietly cmake --preset dev
quietly cmake --build --preset dev --target unplug_sweep
build/dev/bin/unplug_sweep "${1:-400}" "${2:-1}" "$(nproc)"
