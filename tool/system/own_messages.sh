#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What the program says when it ends with an exit code, for 'nyxus explain': of each Failure in the
# sources the longest text without a varying part, as rows of OwnMessage.
#
#   own_messages.sh SOURCES... >own_messages.inc
set -euo pipefail

cat "$@" | tr -s '\n ' ' ' |
    grep -oE '(Failure\(|end_program\(|return \{) ?kExit[A-Za-z]+,([^;"]|"([^"\\]|\\.)*")*;' |
    awk '{
        match($0, /kExit[A-Za-z]+/)
        code = substr($0, RSTART, RLENGTH)
        gsub(/" "/, "") # one text on several lines
        texts = split($0, text, "\"")
        longest = ""
        for (i = 2; i <= texts; i += 2) {
            pieces = split(text[i], piece, /%[-0-9.*]*(ll|z)?[a-zA-Z]|\\./)
            for (j = 1; j <= pieces; j++)
                if (length(piece[j]) > length(longest))
                    longest = piece[j]
        }
        if (length(longest) >= 8) # fewer characters say too little
            print "{" code ", \"" longest "\"},"
    }' | sort -u
