#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages of these sources into build/packages, out of the tree, and has lintian
# look at them.
#
#   packaging/build-packages.sh [OPTION ...]   OPTION of dpkg-buildpackage: -B leaves the
#                                              documentation out
set -euo pipefail
cd "$(dirname "$0")/.."

packaging/install-packages.sh build package doc
version=$(packaging/check-version.sh)
out=build/packages
stage=$out/nyxus-$version
rm -rf "$out"
mkdir -p "$stage"

# What is, or will be, under version control; of an unpacked archive, everything.
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git ls-files -z --cached --others --exclude-standard
else
  find . -path ./build -prune -o -type f -print0
fi | tar -c --null --files-from=- | tar -x -C "$stage"
cp -r "$stage/packaging/debian" "$stage/debian"

# Debian's own programs, whatever else the user has in front of them.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
log=$out/build.log
echo "Building; the log is $log."
if ! (cd "$stage" && dpkg-buildpackage -us -uc "${@:--b}") >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  echo "dpkg-buildpackage failed; the end of its output is above." >&2
  exit 1
fi
rm -r "$stage"
lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$out"/*.changes
ls -1 "$out"/*.deb
