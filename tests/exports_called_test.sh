#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Every function that the library exports is called by the tests: the test program refers to it.
# usage: exports_called_test.sh LIBRARY TEST_PROGRAM
set -eu
export LC_ALL=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
nm -D --defined-only "$1" | awk '$2 == "T" {print $3}' |
  grep -vE '^(__asan|__ubsan|__odr_asan|__tsan|__gcov|_init|_fini)' | sort > "$work/exported"
nm -D --undefined-only "$2" | awk '{print $2}' | sed 's/@.*//' | sort > "$work/called"
test -s "$work/exported" || { echo "the library exports no function"; exit 1; }
comm -23 "$work/exported" "$work/called" > "$work/missed"
if [ -s "$work/missed" ]; then
  echo "no test calls:"
  cat "$work/missed"
  exit 1
fi
echo "$(wc -l < "$work/exported") functions, all called"
