#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Unplugs cameras at random moments while they start to stream, stream, are stopped and deleted, by
# C and C++, then by Python, and tells what became of them: 0 when each call came back in time, and
# no process came to harm.
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
quietly cmake --build --preset dev --target unplug_sweep nyxus-sim nyxus_python
build/dev/bin/unplug_sweep "${1:-400}" "${2:-1}" "$(nproc)"

# What a camera that has gone leaves open adds up, and umockdev keeps track of 50 descriptors.
export NYXUS_UNPLUG_RUNS=20 PYTHONPATH="$PWD/build/dev/python"
export NYXUS_SIM="$PWD/build/dev/bin/nyxus-sim"
runs=0
while [ $runs -lt "${1:-400}" ]; do
    runs=$((runs + NYXUS_UNPLUG_RUNS))
    NYXUS_UNPLUG_SEED=$((${2:-1} * 1000 + runs)) quietly build/dev/bin/nyxus-sim run --speed fast \
        --camera rowan-spi,serial=G1 -- /usr/bin/python3 -B -m pytest -q -p no:cacheprovider \
        -k at_any_moment python/tests/test_video.py
done
echo "Python       $runs runs, none failed"
