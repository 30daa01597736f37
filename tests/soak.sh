#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Creates, probes and deletes 10,000 device objects, lets 1,000 probes fail in each of several ways,
# and tells what has grown: 1 when files or threads have.
#
#   tests/soak.sh [ROUNDS [FAILURES]]
set -eu
cd "$(dirname "$0")/.."

log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() {
    "$@" >"$log" 2>&1 || { tail -n 40 "$log" >&2; exit 1; }
}
quietly cmake --preset dev
quietly cmake --build --preset dev --target soak
build/dev/bin/soak "$@"
