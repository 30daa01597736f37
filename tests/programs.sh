#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Programs that nobody here wrote, each with simulated cameras: they end by themselves, in time, with
# the code and the words that they have for a real bus. As root it installs what is missing; otherwise
# it skips that, and says so.
#
#   tests/programs.sh [BIN]     BIN: where nyxus-sim is; build/dev/bin without it
set -u
cd "$(dirname "$0")/.." || exit 1
sim=$(realpath "${1:-build/dev/bin}/nyxus-sim")
work=$(mktemp -d /tmp/nyxus-programs.XXXXXX) || exit 1
trap 'rm -rf "$work"' EXIT
failures=0
skipped=0

# No program, once it is there, takes longer than this, and nothing that is fetched.
limit_s=60
fetch() { timeout 300 "$@" >"$work/fetched" 2>&1; }

updated=
has() { # PROGRAM PACKAGE
    command -v "$1" >/dev/null && return
    [ "$(id -u)" -eq 0 ] || return
    [ -n "$updated" ] || { fetch apt-get -q update; updated=yes; }
    fetch apt-get -q -y --no-install-recommends install "$2" && command -v "$1" >/dev/null
}
skip() { # NAME WHY
    echo "skipped  $1: $2"
    skipped=$((skipped + 1))
}
# CODE TEXT NAME COMMAND...: the code that the program ends with, and a text of what it prints.
try() {
    wanted=$1 text=$2 name=$3
    shift 3
    start=$(date +%s%N)
    timeout -k 5 "$limit_s" "$sim" run --camera rowan-spi,serial=A1 --camera rowan-iso,bus=2 -- "$@" >"$work/out" 2>&1
    code=$?
    ms=$((($(date +%s%N) - start) / 1000000))
    if [ "$code" -eq "$wanted" ] && grep -q -e "$text" "$work/out"; then
        echo "passed   $name ($ms ms)"
    else
        echo "FAILED   $name: code $code, not $wanted, or no '$text'"
        tail -5 "$work/out" | sed 's/^/         /'
        failures=$((failures + 1))
    fi
}

if has lsusb usbutils; then
    try 0 'iSerial.*A1' "lsusb -v" lsusb -v
    try 0 'Port 1: 0000.0503 highspeed power enable connect' "lsusb -v, of hubs" lsusb -v -d 1d6b:
    try 0 'Class=root_hub' "lsusb -t" lsusb -t
    try 0 'SerialNumber=A1' "usb-devices" usb-devices
    try 1 'No matching HID' "usbhid-dump" usbhid-dump
else
    skip "lsusb, usb-devices, usbhid-dump" "no package usbutils"
fi
if has openocd openocd; then
    try 1 'unable to find a matching CMSIS-DAP device' "openocd" openocd -f interface/cmsis-dap.cfg -c init -c shutdown
else
    skip openocd "no package openocd"
fi
if has dfu-util dfu-util; then
    try 0 'dfu-util' "dfu-util -l" dfu-util -l
else
    skip dfu-util "no package dfu-util"
fi
if has gphoto2 gphoto2; then
    try 0 'Model' "gphoto2 --auto-detect" gphoto2 --auto-detect
else
    skip gphoto2 "no package gphoto2"
fi

# The distribution's own python3, whose packages these are.
has_pyusb() { /usr/bin/python3 -c 'import usb' 2>/dev/null; }
has_pyusb || { [ "$(id -u)" -eq 0 ] && fetch apt-get -q -y --no-install-recommends install python3-usb; }
if has_pyusb; then
    try 0 '^halted b.\\x01' "pyusb" /usr/bin/python3 simulator/tests/pyusb_probe.py
else
    skip pyusb "no package python3-usb"
fi

# Of libusb no package has the examples and the stress test; its source has.
get_libusb_source() {
    [ "$(id -u)" -eq 0 ] && has gcc gcc && has dpkg-source dpkg-dev || return
    mkdir -p "$work/source/parts" "$work/source/lists"
    for list in /etc/apt/sources.list.d/*.sources; do
        [ -e "$list" ] && sed 's/^Types:.*/Types: deb-src/' "$list" >"$work/source/parts/${list##*/}"
    done
    cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null | sed -n 's/^deb /deb-src /p' \
        >"$work/source/parts/old.list"
    options=(-q -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$work/source/parts"
        -o Dir::State::lists="$work/source/lists")
    (cd "$work/source" && fetch apt-get "${options[@]}" update &&
        fetch apt-get "${options[@]}" source libusb-1.0)
}
if get_libusb_source && cd "$work"/source/libusb-1.0-*/; then
    flags=$(pkg-config --cflags --libs libusb-1.0 2>/dev/null || echo "-I/usr/include/libusb-1.0 -lusb-1.0")
    printf '#define %s\n' 'DEFAULT_VISIBILITY' 'PRINTF_FORMAT(a, b)' 'NULL_PATH "/dev/null"' >config.h
    build() { # PROGRAM SOURCE...
        program=$1
        shift
        # shellcheck disable=SC2086 # several flags
        gcc -w -o "$work/$program" "$@" -I. -Ilibusb $flags -lpthread >"$work/compiled" 2>&1 ||
            { cat "$work/compiled"; echo "FAILED   $program does not compile"; failures=$((failures + 1)); false; }
    }
    build listdevs examples/listdevs.c && try 0 '^1162:' "listdevs of libusb" "$work/listdevs"
    build testlibusb examples/testlibusb.c && try 0 'Dev (bus 2, device 2)' "testlibusb of libusb" "$work/testlibusb"
    build xusb examples/xusb.c && try 0 'String (0x02): "rowan-spi"' "xusb of libusb" "$work/xusb" 1162:0601
    build stress tests/stress.c tests/testlib.c && {
        # Its fourth test starts libusb 10,000 times, at 10 to 20 ms each: minutes.
        try 0 'Passed 3 tests' "stress of libusb" "$work/stress" get_device_list many_device_lists default_context_change
    }
    cd - >/dev/null || exit 1
else
    skip "examples and stress test of libusb" "no source package, or not root"
fi

echo "$failures failed, $skipped skipped"
[ "$failures" -eq 0 ]
