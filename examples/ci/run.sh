#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# What a CI job does without root: builds the C++ project beside this folder, runs its tests, and the Python ones.
#
#   run.sh [FOLDER]      FOLDER: where to build; a temporary one without it
set -eu
examples=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-}
if [ -z "$build" ]; then
    build=$(mktemp -d)
    trap 'rm -rf "$build"' EXIT
fi

cmake -G Ninja -S "$examples/test-suite" -B "$build"
cmake --build "$build"
ctest --test-dir "$build" -j4 --output-on-failure

cd "$examples/pytest"
python3 -B -m pytest -p no:cacheprovider
