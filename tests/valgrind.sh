#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the test programs under valgrind's memcheck, and the tool and the simulator that they start.
# Prints a line per program: how many tests passed, and what memcheck found. Exit code 1: memcheck
# found an error, or memory that is definitely lost. Reports and outputs lie in build/valgrind.
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
    # One share of the tests for each processor. Death tests abort on purpose, and a batch kills
    # helpers that take too long. What a forked child leaves behind until it executes another
    # program is its parent's, and tools of the system are none of our business.
    shares=()
    for ((share = 0; share < $(nproc); share++)); do
        GTEST_TOTAL_SHARDS=$(nproc) GTEST_SHARD_INDEX=$share \
            valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite \
            --show-leak-kinds=definite --num-callers=30 --child-silent-after-fork=yes \
            --trace-children=yes --trace-children-skip='/bin/*,/usr/bin/*' \
            --suppressions=tests/valgrind.supp --log-file="$out/$program/%p" \
            "build/dev/bin/$program" --gtest_filter='-*DeathTest*:Batch.*' \
            >"$out/$program.$share.out" 2>&1 &
        shares+=($!)
    done
    status=0
    for share in "${shares[@]}"; do wait "$share" || status=$?; done
    find "$out/$program" -type f -empty -delete
    errors=$(cat /dev/null "$out/$program"/* 2>/dev/null | grep -E '^==[0-9]+== [A-Z]' |
        grep -cv 'unhandled ioctl' || true) # of a pseudo-terminal, which is no finding
    passed=$(cat "$out/$program".*.out | awk '/^\[  PASSED  \]/ { sum += $4 } END { print sum + 0 }')
    printf '%-15s exit code %d, %s tests passed; %d findings of memcheck\n' "$program" "$status" \
        "$passed" "$errors"
    cat "$out/$program".*.out | grep -aE '^\[  FAILED  \] [A-Z].* \(' | sed 's/^/    /' || true
    [ "$errors" -eq 0 ] || failed=1
done
exit "$failed"
