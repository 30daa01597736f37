#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds everything and passes all tests. Needs nothing but a Debian 12 machine: it installs what is
# missing first.
#
#   ./test.sh [PRESET [REGEX]]     PRESET: dev (without one), release, asan, tsan or coverage
#                                  REGEX: only the tests whose names match
set -eu
cd "$(dirname "$0")"

preset=${1:-dev}
build=build/$preset
jobs=$(($(nproc) + 2)) # many tests wait for a camera most of their time
log=$(mktemp)
trap 'rm -f "$log"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

quietly() {
    if ! "$@" >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        echo "'$*' failed; the end of its output is above." >&2
        exit 1
    fi
}

packaging/install-packages.sh build run test "$preset"
[ -d "$build/bin" ] || echo "Building preset '$preset'; this happens only once."
quietly cmake --preset "$preset"
quietly cmake --build --preset "$preset"
# What failed and how, and the closing lines.
if ctest --preset "$preset" -j "$jobs" -R "${2:-.}" >"$log" 2>&1; then
    grep -A 99 'tests passed' "$log"
else
    grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test +#.* Passed )' "$log"
    exit 1
fi
