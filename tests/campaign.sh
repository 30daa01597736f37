#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# A hostile trial: random cameras, operations and troubles, a process per processor. After each run the
# ROM, the backups and every statement of the tool are compared with what is really there, and the
# unit is brought back. Prints what was found and the number of each such run; 0 when there is none.
#
#   tests/campaign.sh RUNS SEED [BUILD-FOLDER]     build/dev without one
set -eu
cd "$(dirname "$0")/.."
runs=$1
seed=$2
folder=${3:-build/dev}

processes=$(nproc)
work=$(mktemp -d "${TMPDIR:-/tmp}/nyxus-campaign.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
export TMPDIR="$work"

share=0
while [ $share -lt "$processes" ]; do
    (python3 tests/campaign/campaign.py --programs "$folder/bin" --share "$share/$processes" "$runs" "$seed"
     echo $? >"$work/$share.code") &
    share=$((share + 1))
done
wait
failed=0
for code in "$work"/*.code; do
    [ "$(cat "$code")" -eq 0 ] || failed=1
done
exit $failed
