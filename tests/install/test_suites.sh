#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Test suites of somebody else's, with the installed nyxus::simulator: that of the example project, and one of
# careless people, of which neither a process nor a folder may be left.
# usage: test_suites.sh INSTALLED_ROOT CARELESS_TEST     the root's bin/ is on the PATH
set -euo pipefail
root=$1
program=$2
here=$(cd "$(dirname "$0")" && pwd)
examples=$(cd "$here/../../examples" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/tmp"
export TMPDIR=$work/tmp # short, and nobody else's

fail() {
  echo "$*" >&2
  exit 1
}

nothing_is_left() {
  ! pgrep -f "(nyxus-sim run .*|^)$program" >&2 || fail "$1: a process is left"
  [ -z "$(ls "$TMPDIR")" ] || fail "$1: left in TMPDIR: $(ls "$TMPDIR")"
}

cp -r "$examples/test-suite" "$work/gate"
cmake -G Ninja -S "$work/gate" -B "$work/gate/build" -DCMAKE_PREFIX_PATH="$root" >"$work/log"
cmake --build "$work/gate/build" >"$work/log" || fail "$(cat "$work/log")"
ctest --test-dir "$work/gate/build" -j4 --output-on-failure >"$work/log" 2>&1 || fail "$(cat "$work/log")"
grep -q '100% tests passed, 0 tests failed out of [1-9]' "$work/log" || fail "$(cat "$work/log")"

careless() { # FILTER EXPECTED_CODE WHAT_IT_SAYS
  local code=0
  "$program" --gtest_filter="Careless.$1" >"$work/log" 2>&1 || code=$?
  [ "$code" -eq "$2" ] || fail "$1 ended with $code: $(cat "$work/log")"
  grep -q -- "$3" "$work/log" || fail "$1 does not say '$3': $(cat "$work/log")"
  nothing_is_left "$1"
}
careless 'ForgetsItsCameras:*.FindsNothingOfTheTestBefore:*.WritesNonsense' 0 'PASSED.* 3 tests'
careless PlugsInOneAfterTheOther 0 PASSED
careless ClosesAllDescriptors 0 PASSED
careless LetsNothingHappen 1 'never happened'
careless Crashes $((128 + 11)) RUN
NYXUS_SIM=/nonexistent careless WritesNonsense 1 "no simulated bus: NYXUS_SIM says '/nonexistent'"

said=$(nyxus-sim run -- "$program" --gtest_filter='*Nonsense' 2>&1) && fail "it passed"
[[ $said == *"is not for tests"* ]] || fail "without --test-bus it said '$said'"

# Two at once, of which the simulation of one is killed: its test ends with it.
"$program" --gtest_filter='*Hangs*' >"$work/hanging" 2>&1 &
simulation=$!
until grep -q hangs "$work/hanging"; do
  kill -0 "$simulation" || fail "$(cat "$work/hanging")"
  sleep 0.1
done
"$program" --gtest_filter='*FindsNothing*' >"$work/log" 2>&1 || fail "$(cat "$work/log")"
kill -KILL "$simulation"
{ wait "$simulation" || true; } 2>"$work/log" # the shell tells of its end
for _ in {1..100}; do
  pgrep -f "(nyxus-sim run .*|^)$program" >"$work/log" || break
  sleep 0.1
done
careless FindsNothingOfTheTestBefore 0 PASSED # and the next one removes the folder
