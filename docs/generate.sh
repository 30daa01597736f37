#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the pages anew that follow from what the programs say of themselves: docs/errors.md, and those
# of docs/man that docs/man/generate.py names.
#
#   docs/generate.sh [--check] [BIN]     BIN: where the programs are; build/dev/bin without it
#                                        --check: changes nothing, fails when a page is out of date
set -euo pipefail
docs=$(cd "$(dirname "$0")" && pwd)

check=
[ "${1:-}" = --check ] && check=yes && shift
bin=$(cd "${1:-$docs/../build/dev/bin}" && pwd)

made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT
mkdir "$made/man"
{
    sed '/^<!-- nyxus explain/q' "$docs/errors.md"
    echo
    "$bin/nyxus" explain --all --markdown
} >"$made/errors.md"
python3 "$docs/man/generate.py" "$bin" "$made/man"

# Pages of commands that are gone.
obsolete=()
for page in "$docs"/man/*.[135]; do
    if grep -q '^\.\\" Made by docs/man/generate.py' "$page" && [ ! -e "$made/man/${page##*/}" ]; then
        obsolete+=("$page")
    fi
done

if [ -z "$check" ]; then
    cp -r "$made"/. "$docs/"
    rm -f "${obsolete[@]}"
    exit
fi
for page in "$made"/errors.md "$made"/man/*; do
    diff -u "$docs/${page#"$made/"}" "$page" || check=failed
done
if [ "$check" = failed ] || [ ${#obsolete[@]} -gt 0 ]; then
    echo "Out of date: run docs/generate.sh. No longer made: ${obsolete[*]-}"
    exit 1
fi
# What is installed is listed by name.
if ! diff <(sed -n 's|^  \(.*\.[135]\)$|./\1|p' "$docs/man/CMakeLists.txt" | sort) \
    <(cd "$docs/man" && printf '%s\n' ./*.[135] | sort); then
    echo "docs/man/CMakeLists.txt does not list the pages that there are."
    exit 1
fi
