#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the library with gcov, passes all tests, and prints how much of src/ they run and the lines
# that they do not. Exit code 1: a test failed, or less than 95 % of the lines are run.
#
#   tests/coverage.sh            everything
#   tests/coverage.sh --report   the report of the latest run only
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" != --report ]; then
    find build/coverage -name '*.gcda' -delete 2>/dev/null || true
    ./test.sh coverage
fi
gcovr --root . --filter 'src/' --fail-under-line 95 build/coverage/src
