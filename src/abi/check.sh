#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Programs that were built with the last version of the library must run with this one: compares
# functions, variables and records with src/abi/libNYXUS.so.2.abi.
# usage: check.sh LIBRARY      (with debug information)
set -eu
baseline=$(dirname "$0")/libNYXUS.so.2.abi
readonly kError=3 kIncompatible=8 # bits of abidiff's exit code

code=0
abidiff "$baseline" "$1" || code=$?
[ $code -eq 0 ] && exit 0
if [ $((code & kError)) -ne 0 ]; then
    echo "abidiff could not compare $baseline and $1"
elif [ $((code & kIncompatible)) -ne 0 ]; then
    echo "This breaks programs that use libNYXUS.so.2. Take it back; what cannot be had without it" \
        "needs a new SONAME."
else
    echo "If a published record or function has changed, take it back: that breaks programs, too." \
        "If something is meant to be added, run src/abi/update.sh, add the name with the version to" \
        "packaging/debian/libnyxus2.symbols, and commit both with it."
fi
exit 1
