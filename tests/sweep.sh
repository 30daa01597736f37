#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Every chip with every extension unit and every ROM: described, plugged in, probed and upgraded,
# with a process per processor. All of it takes a few minutes.
#
#   tests/sweep.sh [BUILD-FOLDER [--every N]]     build/dev without one; only every Nth combination
set -u
folder=${1:-$(dirname "$0")/../build/dev}
[ $# -eq 0 ] || shift
sweep=$folder/bin/catalogue_sweep
work=$(mktemp -d /tmp/nyxus-sweep.XXXXXX) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
mkdir "$work/tmp"
TMPDIR=$work/tmp
export TMPDIR

# Each camera makes some hundred short-lived files, which cost least in memory. Where one may not
# mount, the disk has to do.
in_memory() { unshare -rm sh -c 'mount -t tmpfs none "$TMPDIR" && exec "$@"' in_memory "$@"; }
on_disk() { "$@"; }
if in_memory true 2>/dev/null; then place=in_memory; else place=on_disk; fi

processes=$(nproc)
shard=0
while [ $shard -lt "$processes" ]; do
    ($place "$sweep" --shard "$shard/$processes" "$@" >"$work/$shard.log" 2>&1
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
