#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The library exports exactly what the export list names, and the public headers declare all of it.
# usage: exports_test.sh LIBRARY MAP INCLUDE_DIR
set -eu
export LC_ALL=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n 's/^ \{8\}\([A-Za-z_0-9]*\);$/\1/p' "$2" | sort > "$work/listed"
nm -D --defined-only "$1" | awk '{print $3}' |
  grep -vE '^(__asan|__ubsan|__odr_asan|__tsan|__gcov|__gcda|mangle_path|_init|_fini)' |
  sort > "$work/exported"
# Declarations: NYXUS_API type name(...); NYXUS_DATA type name[...]; comments taken out first.
cat "$3"/nyxus/*.h | sed 's@//.*@@' | tr '\n' ' ' | sed 's@/\*@\x01@g; s@\*/@\x02@g' |
  sed 's/\x01[^\x02]*\x02//g' | grep -oE 'NYXUS_(API|DATA) [^;(]*[;(]' | grep -v __attribute__ |
  sed 's/\[.*//; s/[;( ]*$//; s/.*[ *]//' | sort > "$work/declared"
test -s "$work/listed" || { echo "the export list is empty"; exit 1; }
diff -u "$work/listed" "$work/exported" || { echo "export list (-) and library (+) differ"; exit 1; }
diff -u "$work/listed" "$work/declared" || { echo "export list (-) and headers (+) differ"; exit 1; }
echo "$(wc -l < "$work/listed") names, all listed, exported and declared"
