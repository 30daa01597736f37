#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what is missing of packaging/debian-packages.txt; without anything missing it does
# nothing and needs no network.
#
#   packaging/install-packages.sh [KIND ...]      KIND: build run test lint; all of them without one
set -eu

list=$(dirname "$0")/debian-packages.txt
kinds=${*:-build run test lint}

wanted() {
    for kind in $kinds; do
        sed -n "s/^\([^# ][^ ]*\) *# \[$kind\].*/\1/p" "$list"
    done
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing=
for package in $(wanted); do
    is_installed "$package" || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=
elif command -v sudo >/dev/null; then
    as_root=sudo
else
    echo "These Debian packages are missing, and only root (or sudo) can install them:$missing" >&2
    exit 1
fi

echo "Installing the missing Debian packages:$missing"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
run_quietly() {
    if ! $as_root env DEBIAN_FRONTEND=noninteractive "$@" >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "'$*' failed; its last lines are above." >&2
        exit 1
    fi
}
run_quietly apt-get -q update
# shellcheck disable=SC2086 # a list of names
run_quietly apt-get -q -y --no-install-recommends install $missing
