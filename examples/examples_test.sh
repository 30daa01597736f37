#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs an example against simulated cameras and looks at what it prints and leaves behind.
# usage: examples_test.sh EXAMPLE FOLDER_OF_PROGRAMS NYXUS_SIM PYTHON; no PYTHON: without it
set -eu
example=$1
programs=$2
sim=$3
python=$4
sources=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

run() { "$sim" run --speed fast "$@" >out 2>err || fail "exit code $?"; }
fail() { echo "$example: $1" >&2; cat out err >&2; exit 1; }
says() { grep -q -- "$1" out || fail "it does not say '$1'"; }
image() { "$sim" image --model rowan-spi --version 0x0205 new.bin; }
# The image without its trailing 0xFF bytes is what the ROM begins with.
holds_image() { cmp -n 16384 new.bin "$1" >/dev/null || fail "the ROM does not hold the image"; }

case $example in
list)
    run --camera rowan-spi --camera hawthorn-eeprom -- "$programs/list"
    says 'NY6410 (ROWAN).*external firmware 0x0100.*SPI flash'
    says 'HAWTHORN.*EEPROM of 32768 bytes'
    ;;
backup)
    run --camera rowan-spi,serial=A1,rom=rom --camera willow-eeprom,serial=B1,rom=rom2 -- \
        "$programs/backup" file A1
    says '^the picture is upside down'
    cmp -n 32768 rom file || fail "that is not what the ROM holds"
    run --camera rowan-spi,serial=A1 --camera willow-eeprom,serial=B1,rom=rom2 -- \
        "$programs/backup" file2 B1
    cmp rom2 file2 || fail "that is not what the EEPROM holds"
    # The probe has some 30 transfers, so that the first fault strikes before it; the second, in the
    # dump. Each has its reason.
    for fault in '1:No such device' '500:No such device'; do
        printf '[[fault]]\nwhen = { transfer = %s }\ndo = "unplug"\n' "${fault%%:*}" >faults
        if "$sim" run --speed fast --faults faults -- "$programs/backup" lost >out 2>err; then
            fail "it did not notice an unplug"
        fi
        grep -q "${fault#*:}" err || fail "no reason"
        [ ! -e lost ] || fail "it kept half a file"
    done
    if "$sim" run --speed fast -- "$programs/backup" lost NONE >out 2>err; then
        fail "it took another camera"
    fi
    grep -q 'no such camera' err || fail "no reason"
    ;;
upgrade)
    image
    run --camera rowan-spi,rom=rom -- "$programs/upgrade" new.bin
    says 'verifying 100%'
    grep -q '<INFO> Upgrade firmware OK' err || fail "no milestones"
    holds_image rom
    "$sim" image --model larch-spi --version 0x0205 other.bin
    if "$sim" run --speed fast --camera rowan-spi -- "$programs/upgrade" other.bin >out 2>err; then
        fail "it took another chip's image"
    fi
    grep -q 'signature not match' err || fail "no reason"
    ;;
serial_number)
    image
    "$sim" image --mfi --serial VELKA_0001_LINK mfi.bin
    run --camera rowan-spi,rom=rom -- "$programs/serial_number" new.bin mfi.bin VELKA_0009_LINK
    says 'VELKA_0009_LINK'
    holds_image rom
    tail -c +24577 rom | grep -aq VELKA_0009_LINK || fail "the ROM does not hold the number"
    ;;
osd_clock)
    run -- sh -c '"$0" "Front door" && "$1" state >state && [ -z "$2" ] ||
        "$2" -c "import nyxus; print(nyxus.open().osd.time)"' "$programs/osd_clock" "$sim" "$python"
    grep -q 'Front door' state || fail "the display does not show the text"
    [ -z "$python" ] || says "^$(date +%Y-)"
    ;;
production*)
    program=$programs/$example
    [ "$example" != production_py ] || program="$python $sources/production.py"
    image
    export XDG_STATE_HOME="$PWD/state"
    # shellcheck disable=SC2086 # a program and its argument
    run --camera rowan-spi,serial=A1,rom=rom --camera rowan-spi,serial=B1,blank,rom=rom2 -- \
        $program new.bin
    says '^PASS A1: from 0x0100 to 0x0205'
    says '^PASS B1: from mask ROM to 0x0205'
    holds_image rom
    holds_image rom2
    # shellcheck disable=SC2086
    if "$sim" run --speed fast --camera rowan-spi --camera larch-spi -- \
        $program new.bin >out 2>err; then
        fail "a camera of another chip has passed"
    fi
    says '^FAIL .*signature'
    ;;
motion_alarm_cpp | motion_alarm_py)
    program=$programs/$example
    [ "$example" != motion_alarm_py ] || program="$python $sources/motion_alarm.py"
    run -- sh -c '"$1" do motion-alarm && $0 shot.pgm' "$program" "$sim"
    says 'motion!'
    [ "$(wc -c <shot.pgm)" -eq $((15 + 640 * 480)) ] || fail "the picture is incomplete"
    ;;
focus_aid*)
    program=$programs/$example
    [ "$example" != focus_aid_py ] || program="$python $sources/focus_aid.py"
    # shellcheck disable=SC2086
    run -- $program 5
    [ "$(grep -c '^ *[0-9.]* of' out)" -eq 5 ] || fail "that is not five measurements"
    says '####'
    ;;
recorder*)
    program=$programs/$example
    [ "$example" != recorder_py ] || program="$python $sources/recorder.py"
    # shellcheck disable=SC2086
    run --camera maple-mjpeg,serial=A1 --camera maple-mjpeg,serial=B1 --camera maple-mjpeg,serial=C1 \
        --camera rowan-spi,serial=D1 -- $program 5 640x480
    for camera in A1 B1 C1; do
        says "^$camera.mjpeg: 5 frames"
        head -c 3 "$camera.mjpeg" | cmp -s - "$(printf '\377\330\377' >jpeg; echo jpeg)" || fail "no JPEG"
    done
    [ "$(wc -c <D1.yuyv)" -eq $((5 * 640 * 480 * 2)) ] || fail "frames are incomplete"
    ;;
motion_alarm)
    run -- sh -c '"$1" do motion-alarm && "$0" 5' "$programs/motion_alarm" "$sim"
    says 'motion!'
    ;;
snapshot)
    run -- "$programs/snapshot" shot.pgm
    head -c 15 shot.pgm | grep -aq 'P5' || fail "no grey map"
    [ "$(wc -c <shot.pgm)" -eq $((15 + 640 * 480)) ] || fail "the picture is incomplete"
    ;;
every_size*)
    program=$programs/$example
    [ "$example" != every_size_py ] || program="$python $sources/every_size.py"
    # shellcheck disable=SC2086 # a program and its argument
    run --camera maple-mjpeg -- $program
    says '^YUYV 1280x720: 1843200 bytes'
    says '^MJPG 1920x1080: '
    [ "$(wc -l <out)" -eq 7 ] || fail "that is not every size"
    ;;
backup_and_upgrade)
    image
    run --camera rowan-spi,serial=A1,rom=rom --camera rowan-spi,serial=B1 -- \
        env XDG_STATE_HOME="$PWD/state" "$programs/backup_and_upgrade" new.bin A1
    says 'NY6410, firmware 0x0100'
    says 'verifying 100%'
    holds_image rom
    [ "$(cat state/nyxus/units/A1-*/000001.rom | wc -c)" -eq 65536 ] || fail "the backup is incomplete"
    ;;
door_camera)
    run --camera rowan-spi,serial=A1 --camera rowan-spi,serial=C1 -- \
        sh -c '"$2" do motion-alarm --camera A1 && "$0" "$1" 5' \
        "$python" "$sources/door_camera.py" "$sim"
    says 'A1: NY6410, firmware 0x0100, brightness'
    says "C1: NY6410"
    says '^motion'
    ;;
*)
    fail "there is no such example"
    ;;
esac
