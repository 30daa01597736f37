#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# 'nyxus explain' knows every status of the public header, every exit code of the program, and every
# message that the library or the program itself raises.
#
#   explained_test.sh NYXUS SOURCES
set -euo pipefail

nyxus=$1
sources=$2
checked=0
failed=0

expect() { # what is asked, what the answer has to hold
    checked=$((checked + 1))
    if ! "$nyxus" explain "$1" 2>&1 | grep -qF -- "$2"; then
        echo "'nyxus explain \"$1\"' does not say '$2'"
        failed=$((failed + 1))
    fi
}

while read -r name value; do
    expect "$name" "$value"
    expect "$value" "$name"
done < <(sed -nE 's/^    (NYXUS_[A-Z_]+) = (-?[0-9]+),.*/\1 \2/p' "$sources/include/nyxus/error.h")

while read -r value; do
    expect "exit $value" "exit code $value:"
done < <(sed -nE 's/^    kExit[A-Za-z]+ = ([0-9]+),/\1/p' "$sources/tool/terminal/exit_codes.h")

# NY_FAIL(CODE, "message"), whose arguments may stand on several lines.
while IFS='|' read -r code message; do
    expect "<ERROR_NYXUS> $message" "$code"
done < <(cat "$sources"/src/*/*.cpp | tr -s '\n ' ' ' |
    grep -oE 'NY_FAIL(_AT)?\([^;]*;' |
    sed -nE 's/.*(NYXUS_E_[A-Z_]+), "([^"]*)".*/\1|\2/p' | sed 's/%s/x/; s/%02X/0F/')

# What the program itself says, whatever it is: the exit code that it ends with.
while read -ra command; do
    code=0
    said=$("$nyxus" "${command[@]}" 2>&1 >/dev/null) || code=$?
    expect "$said" "exit code $code:"
done <<'COMMANDS'
explain
frob
info --camera no-such-camera
upgrade
snapshot shot.gif
snapshot shot.png --quality 5
dump - --json
reg read 0xFFFF 2
COMMANDS
expect "$("$nyxus" upgrade /no/such/file 2>&1)" "ENOENT"

echo "$checked questions, $failed of them not answered"
[ "$failed" -eq 0 ] && [ "$checked" -gt 50 ]
