#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# watch_test.sh NYXUS_SIM NYXUS CASE: one case of captures, log and state of running cameras.
set -u
sim=$1 nyxus=$2 case=$3
wait_for_text=$(dirname "$(realpath "$0")")/wait_for_text.sh
work=$(mktemp -d /tmp/nyxus-watch-test.XXXXXX) || exit 1 # short: sockets lie in it
trap 'rm -rf "$work"' EXIT
mkdir "$work/tmp"
TMPDIR=$work/tmp
export TMPDIR

fail() { echo "FAILED: $*" >&2; exit 1; }
expect_text() { grep -q -e "$2" "$1" || { cat "$1"; fail "no '$2' in $1"; }; }
expect_same() { # WHAT FOUND WANTED
    [ "$2" = "$3" ] || fail "$1 is '$2', not '$3'"
}
need_tshark() { command -v tshark >/dev/null || { echo "no tshark: skipped"; exit 77; }; }
# tshark tells root on standard error that it is root.
fields() { # FILTER FIELD...
    filter=$1; shift
    for field in "$@"; do set -- "$@" -e "$field"; shift; done
    tshark -r "$work/pcap" -Y "$filter" -T fields -E separator=/s "$@" 2>"$work/tshark" ||
        { cat "$work/tshark"; fail "tshark"; }
}
expect_sound() {
    expect_same "malformed records" "$(fields '_ws.malformed || _ws.expert.severity >= 6291456' frame.number)" ""
    expect_same "submissions" "$(fields "usb.urb_type == 'S'" frame.number | wc -l)" \
        "$(fields "usb.urb_type == 'C' || usb.urb_type == 'E'" frame.number | wc -l)"
}
make_image() { "$sim" image --model rowan-spi --version 0x0205 "$work/image"; }

captures_an_upgrade() {
    need_tshark
    make_image
    "$sim" run --speed fast --pcap "$work/pcap" -- "$nyxus" upgrade --reset "$work/image" \
        >"$work/out" 2>&1 || { cat "$work/out"; fail "upgrade"; }
    expect_sound
    # Two cameras, as the reset gives it a new address; each is enumerated.
    expect_same "device descriptors" "$(fields 'usb.idVendor' usb.idVendor usb.bus_id usb.device_address)" \
        "$(printf '0x1162 1 2\n0x1162 1 3')"
    expect_same "configurations" "$(fields 'usb.bConfigurationValue && usb.setup.bRequest == 9' \
        usb.device_address | tr '\n' ' ')" "2 3 "
    # Entity, selector and length of the control that programs: 32 bytes and a head of 3.
    rom="usbvideo.control.entity == 6 && usbvideo.control.selector == 3 && usb.urb_type == 'S'"
    expect_same "requests to the ROM" "$(fields "$rom" usb.bmRequestType usbvideo.setup.bRequest \
        usbvideo.setup.wLength | sort -u)" "$(printf '0x21 0x01 35\n0xa1 0x81 35\n0xa1 0x85 2')"
    expect_same "named requests" "$(fields "$rom" _ws.col.Info | sed 's/ *\[.*//' | sort -u)" \
        "$(printf 'GET CUR Request\nGET LEN Request\nSET CUR Request')"
    # Record: 8 and the length's bits, the address, the bytes. Sorted by address they are the image.
    fields "$rom && usbvideo.setup.bRequest == 1" usb.data_fragment |
        awk '/^[89ab]/ {
            digits = "0123456789abcdef"
            count = (index(digits, substr($0, 1, 1)) - 9) * 16 + index(digits, substr($0, 2, 1)) - 1
            print substr($0, 3, 4), substr($0, 7, 2 * count)
        }' |
        sort | awk '{ printf "%s", $2 }' >"$work/written"
    od -An -v -tx1 "$work/image" | tr -d ' \n' >"$work/wanted"
    [ "$(wc -c <"$work/wanted")" -gt 10000 ] || fail "the image is empty"
    cmp "$work/written" "$work/wanted" || fail "the capture's bytes are not the image's"
}

captures_video() {
    need_tshark
    frame=$((320 * 240 * 2 + 12))
    "$sim" run --speed fast --pcap "$work/pcap" -- "$nyxus" stream --size 320x240 --count 3 >/dev/null ||
        fail "bulk stream"
    expect_sound
    bulk="usb.transfer_type == 3 && usb.endpoint_address == 0x81 && usb.urb_type == 'C'"
    expect_same "bulk frames" "$(fields "$bulk && usb.urb_len > 0" usb.urb_len | sort -u)" $frame
    expect_same "header of a frame" "$(fields "$bulk && usb.urb_len > 0" usb.capdata | cut -c1-2 | sort -u)" 0c
    "$sim" run --speed fast --camera rowan-iso --pcap "$work/pcap" -- \
        "$nyxus" stream --size 320x240 --count 3 >/dev/null || fail "isochronous stream"
    expect_sound
    iso="usb.transfer_type == 0 && usb.endpoint_address == 0x81 && usb.urb_type == 'C' && usb.urb_len > 0"
    expect_same "isochronous packets" "$(fields "$iso" usb.iso.error_count usb.iso.iso_off |
        cut -d, -f1-3 | sort -u)" "0 0,1024,2048"
    expect_same "headers of packets" "$(fields "$iso" usb.iso.data | tr ',' '\n' | cut -c1-2 | sort -u)" 0c
    # A frame that is larger than Wireshark reads is cut, and says so.
    "$sim" run --speed fast --pcap "$work/pcap" -- "$nyxus" stream --size 640x480 --count 1 >/dev/null ||
        fail "large stream"
    expect_same "cut frames" "$(fields "$bulk && usb.urb_len > 0" frame.len frame.cap_len | sort -u)" \
        "$((640 * 480 * 2 + 12 + 64)) 262144"
}

captures_to_wherever_asked() {
    need_tshark
    # The program's standard output makes room.
    "$sim" run --pcap - -- sh -c 'echo said' >"$work/pcap" 2>"$work/err" || fail "standard output"
    expect_text "$work/err" '^said$'
    expect_sound
    mkfifo "$work/fifo"
    cat "$work/fifo" >"$work/pcap" &
    "$sim" run --pcap "$work/fifo" --camera rowan-spi --camera rowan-spi,bus=2 -- \
        "$nyxus" list >/dev/null || fail "fifo"
    wait $!
    expect_sound
    expect_same "buses" "$(fields 'usb.idVendor' usb.bus_id | tr '\n' ' ')" "1 2 "
    "$sim" run --pcap /dev/full -- sh -c 'exit 0' 2>"$work/err" && fail "a full disk is no success"
    expect_text "$work/err" 'is incomplete: No space left'
    "$sim" run --pcap "$work/no/such/folder" -- true 2>"$work/err"
    expect_same "code" $? 125
}

log_tells_an_upgrade() {
    make_image
    "$sim" run --speed fast --log="$work/log" -- "$nyxus" upgrade --reset "$work/image" >/dev/null 2>&1 ||
        fail upgrade
    for text in 'plugged in at bus 1, address 2: rowan-spi' 'INT_FW_VERSION: "RO2-1.0.12"' \
        'EXT_ROM: erase the whole ROM' 'SPI_STATUS: status 03, busy' \
        'EXT_ROM: write 32 bytes at 0x0040' 'more like it, written on to 0x5A3B' \
        'more like it, read on to 0x5A3B' 'REG: write 1 byte at 0x0026: 10' \
        'restarts: leaves the bus' 'plugged in at bus 1, address 3'; do
        expect_text "$work/log" "$text"
    done
    [ "$(wc -l <"$work/log")" -lt 250 ] || fail "too long to read"
    "$sim" run --speed fast --log-all --log="$work/log" -- "$nyxus" upgrade "$work/image" >/dev/null 2>&1
    [ "$(grep -c 'EXT_ROM: write 32 bytes' "$work/log")" -gt 700 ] || fail "not every request"
    echo 'fault = [{when = {unit = 6, request = "GET_CUR"}, do = "stall", times = 1}]' >"$work/faults"
    "$sim" run --faults "$work/faults" --log="$work/log" -- "$nyxus" info >/dev/null 2>&1
    expect_same "what follows a fault" "$(grep -c -A 1 'fault 1 ("stall", line 1) strikes' "$work/log")" 1
    grep -A 1 'strikes$' "$work/log" | grep -q 'GET_CUR unit 6 .*-> ' || fail "the stalled request"
    "$sim" run --camera rowan-iso,serial=A --camera rowan-spi,serial=B --log -- \
        "$nyxus" -c A stream --size 320x240 --count 2 >/dev/null 2>"$work/log"
    expect_text "$work/log" '  A  SET_CUR video COMMIT: 01 00 01 01'
    expect_text "$work/log" '  A  video begins: YUYV 320x240, 30 frames per second'
    expect_text "$work/log" '  A  video ends after'
}

state_and_acts() {
    make_image
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run --camera fi2-board -- sh -c '
        sim=$1 nyxus=$2
        set -x
        test "$("$nyxus" sg touch)" = "touch: 0" || exit 10
        "$sim" do touch 010 || exit 11
        test "$("$nyxus" sg touch)" = "touch: 10" || exit 12
        "$sim" do register 0x0B00 0xA5 || exit 13
        "$nyxus" reg read 0x0B00 | grep -q A5 || exit 14
        "$sim" state --registers 0x0AFF-0x0B00 | grep -q "\"00 A5\"" || exit 15
        "$nyxus" motion poll | grep -q "motion: no" || exit 16
        "$sim" do motion-alarm || exit 17
        "$nyxus" motion poll | grep -q "motion: yes" || exit 18
        "$sim" do unplug || exit 20
        "$nyxus" info && exit 21
        "$sim" state | grep -q "\"plugged\": false" || exit 22
        "$sim" do unplug && exit 23
        "$sim" do replug --port 16 && exit 24
        "$sim" do replug --port 3 || exit 24
        "$nyxus" info | grep -q "1:3" || exit 25
        "$nyxus" -c 1-3 info >/dev/null || exit 25
        "$sim" do unplug --silent && "$nyxus" list | grep -q 1:3 || exit 26
        "$nyxus" info && exit 27
        "$sim" do fly && exit 28
        "$sim" state --camera 2 && exit 29
        exit 0
    ' sh "$sim" "$nyxus" >"$work/out" 2>&1
    code=$?
    [ $code -eq 0 ] || { cat "$work/out"; fail "step $code"; }
    # shellcheck disable=SC2016
    "$sim" run --camera rowan-spi,serial=A --camera rowan-spi,serial=B,rom="$work/rom" -- sh -c '
        "$2" -c B upgrade "$3" >/dev/null 2>&1 && "$1" state --camera B --rom "$4"' \
        sh "$sim" "$nyxus" "$work/image" "$work/saved" >"$work/state" || fail "state of B"
    cmp "$work/rom" "$work/saved" || fail "the saved ROM differs"
    expect_text "$work/state" "\"sha256\": \"$(sha256sum "$work/rom" | cut -d' ' -f1)\""
    expect_text "$work/state" '"serial": "B"'
}

faults_while_it_runs() {
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run --strict --camera rowan-spi,serial=A --camera rowan-spi,serial=B -- sh -c '
        sim=$1 nyxus=$2
        set -x
        "$sim" do fault stall request=GET_CUR times=1 || exit 10
        "$nyxus" -c A info && exit 11
        "$nyxus" -c A info >/dev/null || exit 12
        "$sim" do clear || exit 13
        "$sim" do fault --camera B io-error unit=6 || exit 14
        "$nyxus" -c A info >/dev/null || exit 15
        "$nyxus" -c B info && exit 16
        "$sim" do fault "[[fault]]
when.frame = 3 # which never comes, and is forgotten
do = \"error-bit\"" || exit 17
        "$sim" do clear && "$nyxus" -c B info >/dev/null || exit 18
        "$sim" do fault --camera B unplug time_ms=1 replug_ms=1 || exit 19 # from now on, not from the start
        until "$sim" state --camera B | grep -q "\"address\": 4"; do :; done
        for wrong in stal "stall colour=1" "stall unit=300" "late" "stall camera=3" "stall unit=\"]}"; do
            "$sim" do fault $wrong && exit 20
        done
        exit 0
    ' sh "$sim" "$nyxus" >"$work/out" 2>&1
    code=$?
    [ $code -eq 0 ] || { cat "$work/out"; fail "step $code"; }
    # The longest that a fault file may be is armed as well.
    { printf '[[fault]]\nwhen.frame = 1\ndo = "stall"\n'; head -c 1000000 /dev/zero | tr '\0' '#'; } >"$work/long.toml"
    # shellcheck disable=SC2016
    "$sim" run --strict -- sh -c '"$1" do fault "$2"' sh "$sim" "$work/long.toml" 2>"$work/err"
    expect_same "code of a fault that never happened" $? 124
    expect_text "$work/err" 'never happened'
}

another_terminal_connects() {
    mkfifo "$work/never"
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run --state-socket "$work/socket" -- sh -c 'exec 3<>"$1"; echo ready; exec cat <&3' \
        sh "$work/never" >"$work/out" &
    launcher=$!
    "$wait_for_text" ready "$work/out" $launcher || fail "not ready"
    "$sim" state --socket "$work/socket" >"$work/state" || fail "state"
    expect_text "$work/state" '"model": "rowan-spi"'
    "$sim" run --state-socket "$work/socket" -- true 2>"$work/err"
    expect_same "code" $? 125
    expect_text "$work/err" 'cannot listen at'
    kill -TERM $launcher
    wait $launcher
    [ ! -e "$work/socket" ] || fail "the socket stays behind"
    "$sim" state --socket "$work/socket" 2>"$work/err" && fail "nobody is there"
    expect_text "$work/err" 'no simulation listens at'
    "$sim" state 2>"$work/err" && fail "no simulation is around"
    expect_text "$work/err" 'inside .nyxus-sim run'
}

$case
