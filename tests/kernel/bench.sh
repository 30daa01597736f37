# SPDX-License-Identifier: Apache-2.0
# Measures inside the virtual machine and prints JSON.
# shellcheck shell=sh
if grep -q quick /proc/cmdline; then export NYXUS_BENCH_QUICK=1; fi
nyxus-sim attach --camera rowan-spi >/tmp/server 2>&1 &
server=$!
rest=100
until [ -e /dev/video0 ]; do
    rest=$((rest - 1))
    [ $rest -gt 0 ] || { cat /tmp/server; exit 1; }
    sleep 0.1
done
timeout -k 5 400 bench_kernel_query --benchmark_format=json 2>/tmp/said || { cat /tmp/said; exit 1; }
kill $server
