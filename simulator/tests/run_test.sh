#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# run_test.sh NYXUS_SIM PROBE CASE: one case of nyxus-sim with programs that know nothing of it.
set -u
sim=$1 probe=$2 case=$3
wait_for_text=$(dirname "$(realpath "$0")")/wait_for_text.sh
work=$(mktemp -d /tmp/nyxus-run-test.XXXXXX) || exit 1 # short: sockets lie in it
trap 'rm -rf "$work"' EXIT
mkdir "$work/tmp"
TMPDIR=$work/tmp
export TMPDIR

fail() { echo "FAILED: $*" >&2; exit 1; }
expect_code() { # CODE COMMAND...
    wanted=$1; shift
    "$@" >"$work/out" 2>"$work/err"
    code=$?
    [ $code -eq "$wanted" ] || { cat "$work/out" "$work/err"; fail "$* gave $code, not $wanted"; }
}
expect_text() { grep -q -e "$2" "$1" || { cat "$1"; fail "no '$2'"; }; }
expect_clean() { [ -z "$(ls -A "$TMPDIR")" ] || fail "left behind: $(ls -A "$TMPDIR")"; }

decodes_descriptors() {
    expect_code 0 "$sim" run --camera rowan-spi,serial=A1 -- lsusb -v -d 1162:
    for text in 'iManufacturer.*NYXUS Simulator' 'iSerial.*A1' '68bbd0b0-61a4-4b83-90b7' \
        'a29e7641-de04-47e3-8b2b' 'wWidth *640' 'EP 3 IN' 'EP 1 IN'; do
        expect_text "$work/out" "$text"
    done
    expect_clean
}

exit_codes() {
    expect_code 7 "$sim" run -- sh -c 'exit 7'
    expect_code 143 "$sim" run -- sh -c 'kill -TERM $$'
    expect_code 127 "$sim" run -- "$work/none"
    expect_text "$work/err" "cannot run '$work/none'"
    expect_code 126 "$sim" run -- /etc/passwd
    expect_code 2 "$sim" run
    expect_code 2 "$sim" run --camera rowan-sip -- true
    expect_text "$work/err" "did you mean 'rowan-spi'"
    expect_code 2 "$sim" run --camera rowan-spi,bus=0 -- true
    expect_code 2 "$sim" run --camera rowan-spi,colour=red -- true
    expect_code 2 "$sim" run "$(printf -- '--\033[31m')" -- true
    expect_text "$work/err" 'not expected: --?\[31m$' # what an argument holds does not reach the terminal
    expect_clean
}

takes_description_files() {
    my=$work/my.toml
    printf '%s\n' 'internal_version = "RO2-1.0"' 'xu_version = 0x0002' '[flash]' \
        'id = [0xD5, 0x30, 0x12]' 'size_byte = 0x1000' >"$my"
    expect_code 2 "$sim" run --camera "$my" -- true
    expect_text "$work/err" "my.toml:5:1: there is no key 'size_byte' here; did you mean 'size_bytes'"
    expect_code 2 "$sim" run --camera "$work/none.toml" -- true
    expect_text "$work/err" 'none.toml: there is no such file'
    sed -i 's/size_byte.*/size_bytes = 0x1000/' "$my"
    expect_code 0 "$sim" describe "$my"
    expect_code 0 "$sim" run --camera "$my,rom=$work/my.rom" -- lsusb -v -d 1162:
    expect_text "$work/out" 'iProduct.*my'
    [ "$(stat -c %s "$work/my.rom")" -eq 4096 ] || fail "size of the ROM"
    sed -i '1i usb_latency_us = 300_000' "$my" # a transfer cannot be faster than that
    start=$(date +%s%N)
    expect_code 0 "$sim" run --camera "$my" -- lsusb -v -d 1162:
    [ $(($(date +%s%N) - start)) -gt 300000000 ] || fail "transfers take no time"
    expect_code 0 "$sim" image --model "$my" --version 2 --size 4096 "$work/new.bin"
    cd "$work" || fail "cd"
    expect_code 0 "$sim" describe rowan-iso
    cp out copy.toml
    expect_code 0 "$sim" run --camera copy.toml -- lsusb -v -d 1162:
    expect_text out 'iProduct.*rowan-iso'
    expect_clean
}

# What the program says of each key has a place in the manual as well.
documents_every_key() {
    expect_code 0 "$sim" describe
    manual=$(dirname "$0")/../../docs/simulator.md
    sed -n 's/^  \([a-z0-9_]*\): .*/\1/p' "$work/out" | sort -u >"$work/keys"
    [ "$(wc -l <"$work/keys")" -gt 25 ] || fail "there are more keys than that"
    while read -r key; do
        grep -q "^|.*\`$key\`" "$manual" || fail "'$key' is not in docs/simulator.md"
    done <"$work/keys"
    expect_code 0 "$sim" describe --flash-parts
    [ "$(wc -l <"$work/out")" -eq 43 ] || fail "42 parts and a heading"
    expect_code 0 "$sim" describe --eeprom-parts
    expect_code 2 "$sim" describe rowan-sip
}

# Whatever a supervisor ignores; and nothing that we ignore ourselves.
passes_dispositions_on() {
    expect_code 7 timeout -s KILL 50 env --ignore-signal=CHLD "$sim" run -- sh -c 'exit 7'
    ignored='s/^SigIgn:.*\(....\)$/\1/p' # of the first 16 signals
    for disposition in default ignore; do
        env --$disposition-signal=PIPE sed -n "$ignored" /proc/self/status >"$work/outside"
        env --$disposition-signal=PIPE "$sim" run -- sed -n "$ignored" /proc/self/status >"$work/inside"
        cmp "$work/outside" "$work/inside" || fail "$disposition: $(cat "$work/inside")"
    done
}

forwards_signals() {
    mkfifo "$work/never"
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run -- sh -c 'exec 3<>"$1"; cat <&3 & trap "kill \$!; exit 5" TERM; echo ready; wait' sh "$work/never" \
        >"$work/out" &
    launcher=$!
    "$wait_for_text" ready "$work/out" $launcher || fail "not ready"
    kill -TERM $launcher
    wait $launcher
    code=$?
    [ $code -eq 5 ] || fail "code $code"
    expect_clean
}

keeps_the_rom() {
    rom=$work/camera.rom
    expect_code 0 "$sim" run --camera hawthorn-eeprom,blank --rom "$rom" -- "$probe" write-rom
    [ "$(stat -c %s "$rom")" -eq 32768 ] || fail "size"
    [ "$(od -An -tx1 -j $((0x1233)) -N 3 "$rom" | tr -d ' ')" = ff42ff ] || fail "contents"
    cp "$rom" "$work/before"
    expect_code 137 "$sim" run --camera "hawthorn-eeprom,rom=$rom" -- sh -c 'kill -KILL $$'
    cmp "$rom" "$work/before" || fail "a killed program changed the ROM"
    expect_code 137 "$sim" run --rom "$work/new" -- sh -c 'kill -KILL $$'
    [ -s "$work/new" ] || fail "the ROM of a killed program is lost"
    expect_code 2 "$sim" run --camera rowan-spi --rom "$rom" -- true
    expect_text "$work/err" 'has 32768 bytes'
    expect_code 2 "$sim" run --camera "hawthorn-eeprom,blank,rom=$rom" -- true
    expect_text "$work/err" "holds a ROM already"
    cmp "$rom" "$work/before" || fail "a refused run changed the ROM"
    cd "$work" || fail "cd"
    for other in "$work/one.rom" ./one.rom ../"${work##*/}"/one.rom; do
        expect_code 2 "$sim" run --camera rowan-spi --camera rowan-spi --rom one.rom --rom "$other" -- true
        expect_text "$work/err" 'in one file'
    done
    expect_clean
}

shares_a_camera() {
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run -- sh -c '
        mkfifo "$2/input"
        "$1" hold <"$2/input" >"$2/held" & holder=$!
        exec 3>"$2/input"
        "$3" "claim: ok" "$2/held" $holder
        "$1" claim >"$2/second"
        kill -KILL $holder
        wait $holder
        "$1" claim >"$2/third"
    ' sh "$probe" "$work" "$wait_for_text" || fail "claim after the first user died"
    expect_text "$work/second" BUSY
    expect_text "$work/third" 'claim: ok'
    expect_code 0 "$sim" run --camera rowan-spi --camera rowan-spi,bus=2 -- \
        sh -c 'lsusb -v >/dev/null 2>&1 & lsusb -v >/dev/null 2>&1 & wait; lsusb -d 1162: | wc -l | grep -qx 2'
    expect_clean
}

restarts_with_a_new_address() {
    expect_code 0 "$sim" run -- "$probe" restart
    expect_text "$work/out" moved
    expect_code 0 "$sim" run --speed fast -- "$probe" restart
}

# Programs of one kind, which give the socket for it the same file descriptor.
tells_everybody_of_hot_plugging() {
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run -- sh -c '
        for i in 1 2 3 4 5 6; do "$1" watch >"$2/watch.$i" & watchers="$watchers $!"; done
        i=0
        for watcher in $watchers; do i=$((i + 1)); "$3" ok "$2/watch.$i" "$watcher"; done
        "$1" restart || exit 1
        for watcher in $watchers; do wait "$watcher" || exit 2; done
    ' sh "$probe" "$work" "$wait_for_text" || fail "not everybody heard of it: $?"
}

survives_a_fork() { expect_code 0 "$sim" run -- "$probe" fork; }

completes_in_order() { expect_code 0 "$sim" run --speed fast -- "$probe" queue; }

does_not_sleep_when_fast() { expect_code 0 "$sim" run --speed fast -- "$probe" sleep; }

runs_under_valgrind() {
    command -v valgrind >/dev/null || { echo "no valgrind: skipped"; exit 77; }
    expect_code 0 "$sim" run -- valgrind -q --error-exitcode=9 --leak-check=full "$probe" claim
}

cleans_up_after_crashes() {
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run -- sh -c 'kill -KILL $PPID' 2>/dev/null
    [ -n "$(ls -A "$TMPDIR")" ] || fail "the crash left nothing to clean"
    expect_code 0 "$sim" run -- true
    expect_clean
    TMPDIR=$work/$(printf 'long%.0s' 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20)
    mkdir "$TMPDIR"
    expect_code 0 "$sim" run -- "$probe" claim
}

runs_lsusb() {
    expect_code 0 "$sim" run -- lsusb -v
    for text in 'Hub Descriptor:' 'nNbrPorts  *15' 'Port 1: 0000.0503 highspeed power enable connect' \
        'Device Qualifier' 'iProduct .* rowan-spi'; do
        expect_text "$work/out" "$text"
    done
    grep -q 'Resource temporarily unavailable' "$work/out" && fail "lsusb complains"
    expect_code 0 "$sim" run -- usb-devices
    [ ! -s "$work/err" ] || fail "usb-devices complains: $(cat "$work/err")"
}

runs_pyusb() {
    /usr/bin/python3 -c 'import usb' 2>/dev/null || { echo "no python3-usb: skipped"; exit 77; }
    expect_code 0 "$sim" run -- /usr/bin/python3 "$(dirname "$0")/pyusb_probe.py"
}

has_any_number_of_cameras() {
    set --
    while [ $# -lt 80 ]; do set -- "$@" --camera rowan-spi; done
    expect_code 0 "$sim" run "$@" -- lsusb -d 1162:
    [ "$(wc -l <"$work/out")" -eq 40 ] || fail "not 40 cameras"
    [ "$(cut -c1-7 "$work/out" | sort | uniq -c | tr -s ' \n' ' ')" = " 15 Bus 001 15 Bus 002 10 Bus 003 " ] ||
        fail "$(cat "$work/out")"
}

opens_files_first() {
    mkdir "$work/folder"
    mkfifo "$work/fifo"
    for file in folder fifo; do
        expect_code 2 "$sim" run --rom "$work/$file" -- touch "$work/ran"
        expect_text "$work/err" 'cannot be kept'
    done
    expect_code 2 "$sim" run --rom "$work/no/such.rom" -- touch "$work/ran"
    if [ "$(id -u)" -ne 0 ]; then
        chmod 555 "$work/folder"
        expect_code 2 "$sim" run --rom "$work/folder/new.rom" -- touch "$work/ran"
    fi
    [ ! -e "$work/ran" ] || fail "the program was started"
    printf 'internal_version = "ZZ-1.0"\nflash = "MXIC MX25L1006E"\n' >"$work/z.toml"
    expect_code 0 "$sim" describe "$work/z.toml"
    expect_text "$work/err" 'holds the signature of no chip'
}

survives_nothing_of_a_termination() {
    mkfifo "$work/never"
    # shellcheck disable=SC2016 # the inner shell expands
    "$sim" run -- sh -c 'exec 3<>"$1"; cat <&3 & setsid sh -c "trap \"\" TERM; exec cat <&3" & echo ready; wait' \
        sh "$work/never" >"$work/out" &
    launcher=$!
    "$wait_for_text" ready "$work/out" $launcher || fail "not ready"
    kill -TERM $launcher
    wait $launcher
    [ $? -eq 143 ] || fail "code"
    # Nobody holds the FIFO any more, so that nobody can be written to.
    ! timeout 5 dd if=/dev/null of="$work/never" oflag=nonblock 2>/dev/null || fail "a process is left"
    expect_clean
}

says_who_is_blind() {
    command -v cc >/dev/null || { echo "no compiler: skipped"; exit 77; }
    echo 'int main(void) { return 3; }' | cc -static -x c -o "$work/blind" - || { echo "no static libc: skipped"; exit 77; }
    expect_code 3 "$sim" run -- "$work/blind"
    expect_text "$work/err" "has not loaded the simulator's library"
    for program in "env -i true" "sh -c 'exec env -i true'"; do
        eval "expect_code 0 \"\$sim\" run -- $program"
        expect_text "$work/err" "its environment was emptied"
    done
    for program in true "env LANG=C true" "sh -c 'env -i true; true'"; do
        eval "expect_code 0 \"\$sim\" run -- $program"
        [ ! -s "$work/err" ] || fail "$(cat "$work/err")"
    done
}

makes_images() {
    expect_code 0 "$sim" image --model rowan-spi --version 0x0205 --seed 3 "$work/one"
    expect_code 0 "$sim" image --model rowan-spi --version 0x0205 --seed 3 "$work/two"
    cmp "$work/one" "$work/two" || fail "images differ"
    expect_code 0 "$sim" image --model rowan-spi --version 0x0205 --size 4096 "$work/small"
    [ "$(stat -c %s "$work/small")" -eq 4096 ] || fail "size"
    expect_code 0 "$sim" image --mfi --serial ABC "$work/mfi"
    expect_code 2 "$sim" image --model rowan-spi --version many "$work/bad"
    expect_code 1 "$sim" image --mfi "$work/none/file"
    [ ! -e "$work/bad" ] || fail "a file was made"
    expect_code 0 "$sim" models
    expect_text "$work/out" '^rowan-spi  '
}

serves_hosts() {
    "$sim" serve --listen 127.0.0.1:0 --rom "$work/served.rom" >"$work/out" 2>"$work/err" &
    server=$!
    "$wait_for_text" 'attach -r 127.0.0.1 -b 1-1' "$work/out" $server || fail "$(cat "$work/err")"
    kill -TERM $server
    wait $server || fail "the server ended with $?"
    [ -s "$work/served.rom" ] || fail "the ROM is not kept"
    [ ! -s "$work/err" ] || fail "$(cat "$work/err")"
    expect_code 2 "$sim" serve --listen somewhere
    expect_text "$work/err" "no address to listen on"
    expect_code 1 "$sim" serve --listen 192.0.2.1:0
    expect_text "$work/err" 'cannot listen on 192.0.2.1:0'
    if [ ! -e /sys/devices/platform/vhci_hcd.0 ]; then
        expect_code 1 "$sim" attach
        expect_text "$work/err" 'modprobe vhci_hcd'
    fi
    expect_clean
}

$case
