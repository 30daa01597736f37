# SPDX-License-Identifier: Apache-2.0
# Measures inside the virtual machine and prints JSON, a document for each program that it runs.
# shellcheck shell=sh
if grep -q quick /proc/cmdline; then export NYXUS_BENCH_QUICK=1; fi

fail() { cat "$1"; exit 1; }

# with_camera CAMERA PROGRAM [ARGUMENT]
with_camera() {
    nyxus-sim attach --camera "$1" >/tmp/server 2>&1 &
    server=$!
    shift
    rest=100
    until [ -e /dev/video0 ]; do
        rest=$((rest - 1))
        [ $rest -gt 0 ] || fail /tmp/server
        sleep 0.1
    done
    timeout -k 5 400 "$@" --benchmark_format=json 2>/tmp/said || fail /tmp/said
    kill $server
    wait $server
}

with_camera rowan-spi bench_kernel_query
with_camera rowan-spi bench_kernel_dump 32
with_camera hawthorn-eeprom bench_kernel_dump 8
