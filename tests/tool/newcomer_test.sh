#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# docs/getting-started.md with the programs that have been built: newcomer_test.sh SOURCES BUILD
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/build"
ln -s "$2" "$work/build/dev"
ln -s "$1/include" "$work/include"
/usr/bin/python3 "$1/tests/newcomer.py" "$1/docs/getting-started.md" "$work" 2
