#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Every chip with every extension unit and every ROM: described, plugged in, probed and upgraded,
# with one process per processor. A few minutes. Needs a build of the preset.
#
#   tests/sweep.sh [PRESET]     PRESET: dev (without one), release, asan ...
set -u
sweep=$(dirname "$0")/../build/${1:-dev}/bin/catalogue_sweep
work=$(mktemp -d /tmp/nyxus-sweep.XXXXXX) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Each camera makes some hundred short-lived files, which cost nothing in memory. Where one may not
# mount, the disk has to do.
in_memory() {
    unshare -rm sh -c 'mount -t tmpfs none "$1" && shift && exec "$@"' in_memory "$@"
}
mkdir "$work/tmp"
if in_memory "$work/tmp" true 2>/dev/null; then run=in_memory; else run='env --'; fi
[ "$run" = in_memory ] && set -- "$work/tmp" || set --

processes=$(nproc)
shard=0
while [ $shard -lt "$processes" ]; do
    (export TMPDIR="$work/tmp"; $run "$@" "$sweep" --shard "$shard/$processes" >"$work/$shard.log" 2>&1
     echo $? >"$work/$shard.code") &
    shard=$((shard + 1))
done
wait
failed=0
for code in "$work"/*.code; do
    cat "${code%.code}.log"
    [ "$(cat "$code")" -eq 0 ] || failed=1
done
exit $failed
