#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Writes the ABI of the built library down as what it is compared with from now on.
#
#   src/abi/update.sh [LIBRARY]     LIBRARY: build/dev/lib/libNYXUS.so.2 without it
set -eu
here=$(dirname "$0")
library=${1:-$here/../../build/dev/lib/libNYXUS.so.2}
new=$(mktemp)
trap 'rm -f "$new"' EXIT

# Nothing of the machine that it is built on: where its sources lie, say, or what it links with.
abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --type-id-style hash \
    --exported-interfaces-only --drop-undefined-syms --out-file "$new" "$library"
grep -q '<data-member' "$new" || { echo "$library has no debug information" >&2; exit 1; }
sed "s@ path='[^']*/src/@ path='src/@" "$new" >"$here/libNYXUS.so.2.abi"
