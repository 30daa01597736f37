#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The version is the CMake project's; what else has to name it agrees. Prints it.
set -eu
cd "$(dirname "$0")/.."

version=$(sed -n 's/^project(nyxus VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
[ -n "$version" ] || { echo "CMakeLists.txt: no version found" >&2; exit 1; }

agree() { # FILE, and the version that it names
    [ "$2" = "$version" ] && return
    echo "$1 says version '$2', but CMakeLists.txt '$version'" >&2
    exit 1
}

agree packaging/debian/changelog "$(sed -n '1s/^nyxus (\([^)]*\)).*/\1/p' packaging/debian/changelog)"
if [ -f python/pyproject.toml ] && grep -q '^version *=' python/pyproject.toml; then
    agree python/pyproject.toml \
        "$(sed -n 's/^version *= *"\([^"]*\)".*/\1/p' python/pyproject.toml)"
fi
echo "$version"
