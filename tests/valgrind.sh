#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the test programs under valgrind's memcheck, and the tool and the simulator that they start.
# Prints a line per program: its last words, and what memcheck found. Exit code 1: memcheck found an
# error, or memory that is definitely lost. Reports and outputs lie in build/valgrind.
#
#   tests/valgrind.sh [PROGRAM ...]     all of them without one
set -euo pipefail
cd "$(dirname "$0")/.."

programs=("$@")
[ ${#programs[@]} -gt 0 ] ||
    programs=(chip_test usb_test usbip_test faults_test streaming_test watch_test nyxus_test tool_test)
packaging/install-packages.sh build run test
cmake --preset dev >/dev/null
cmake --build --preset dev >/dev/null

out=$PWD/build/valgrind
rm -rf "$out"
failed=0
for program in "${programs[@]}"; do
    mkdir -p "$out/$program"
    # Death tests abort on purpose, and a gang starts /proc/self/exe, which is valgrind. What a forked child leaves behind until it executes another
    # program is its parent's, and tools of the system are none of our business.
    status=0
    valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite --show-leak-kinds=definite \
        --num-callers=30 --child-silent-after-fork=yes --trace-children=yes \
        --trace-children-skip='/bin/*,/usr/bin/*' --suppressions=tests/valgrind.supp \
        --log-file="$out/$program/%p" \
        "build/dev/bin/$program" --gtest_filter='-*DeathTest*:Gang.*' >"$out/$program.out" 2>&1 || status=$?
    find "$out/$program" -type f -empty -delete
    errors=$(cat /dev/null "$out/$program"/* 2>/dev/null | grep -cE '^==[0-9]+== [A-Z]' || true)
    printf '%-15s exit code %d, %s; %d findings of memcheck\n' "$program" "$status" \
        "$(grep -aE '^\[  PASSED  \]' "$out/$program.out" | tail -n 1 || echo 'no result')" "$errors"
    grep -aE '^\[  FAILED  \] [A-Z]' "$out/$program.out" | sort -u | sed 's/^/    /' || true
    [ "$errors" -eq 0 ] || failed=1
done
exit "$failed"
