#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# wait_for_text.sh TEXT FILE PID: waits until a line of the file, which the process PID writes, has the
# text, a basic regular expression. Exit code 1: the process has ended without.
tail -F -n +1 -s 0.1 --pid="$3" "$2" 2>/dev/null | grep -q -e "$1"
