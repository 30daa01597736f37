# SPDX-License-Identifier: Apache-2.0
# What users and programs do with a camera, inside the virtual machine.
# shellcheck shell=sh disable=SC2094 # a command's output goes to a file of its name
. /common.sh

# --- what a user does

describes_itself() {
    expect 0 20 lsusb -v -d 1162: >list 2>complaints || { cat complaints; return 1; }
    # lsusb takes every processing unit for one of UVC 1.1, which has a byte more.
    [ "$(grep -c 'Warning: Descriptor too short' list)" -le 1 ] || { cat list; return 1; }
    if grep -v 'Warning: Descriptor too short' list | grep -iE 'warning|error|unrecognized|unknown|invalid|can.t|junk' ||
        [ -s complaints ]; then
        cat complaints
        return 1
    fi
    for text in 'iManufacturer *1 NYXUS Simulator' 'iProduct *2 rowan-spi' 'iSerial *3 K1' \
        '{68bbd0b0-61a4-4b83-90b7-a6215f3c4f70}' '{a29e7641-de04-47e3-8b2b-f4341aff003b}' \
        'bUnitID *6' 'bUnitID *12' '{32595559-0000-0010-8000-00aa00389b71}' 'wWidth *1280' \
        'EP 1 IN' 'EP 3 IN'; do
        says "$text" list || return 1
    done
}

offers_sizes() {
    expect 0 20 v4l2-ctl -d /dev/video0 --list-formats-ext >formats || { cat formats; return 1; }
    for text in "'YUYV'" 'Discrete 320x240' 'Discrete 640x480' 'Discrete 1280x720' '30.000 fps' \
        '2.000 fps'; do
        says "$text" formats || return 1
    done
}

sets_brightness() {
    expect 0 10 v4l2-ctl -d /dev/video0 --get-ctrl brightness >usual &&
        expect 0 10 v4l2-ctl -d /dev/video0 --set-ctrl brightness=200 &&
        expect 0 10 v4l2-ctl -d /dev/video0 --get-ctrl brightness >value && says 'brightness: 200' value &&
        # The picture shows it, and is compared from here on.
        expect 0 10 v4l2-ctl -d /dev/video0 --set-ctrl "brightness=$(sed 's/.* //' usual)"
}

streams_with_the_tool() { # WIDTH HEIGHT COUNT
    rm -f raw
    expect 0 60 nyxus stream --size "$1x$2" --count "$3" --raw raw && check_frames raw "$1" "$2" "$3"
}

tells_about() { # SERIAL
    expect 0 20 nyxus info >info || { cat info; return 1; }
    says "$1" info && eventually 5 has_video
}

takes_a_snapshot() {
    expect 0 30 nyxus snapshot --size 320x240 shot.png && [ "$(head -c 4 shot.png | tail -c 3)" = PNG ] &&
        eventually 5 has_video
}

upgrades() { expect 0 90 nyxus upgrade /image.bin --allow-downgrade; }

resets() {
    before=$(cat /sys/bus/usb/devices/1-1/devnum)
    expect 0 30 nyxus reset >reset || { cat reset; return 1; }
    eventually 5 has_video || return 1
    [ "$(cat /sys/bus/usb/devices/1-1/devnum)" != "$before" ] || { echo "the address stayed $before"; return 1; }
    expect 0 20 nyxus info >info && says 0x0205 info
}

compares() {
    expect 0 30 nyxus compare /image.bin
    expect 8 30 nyxus compare /other.bin
}

dumps() {
    size=$(stat -c %s /image.bin)
    expect 0 60 nyxus dump rom.bin && head -c "$size" rom.bin | cmp - /image.bin
}

upgrades_and_resets_at_once() {
    expect 0 120 nyxus upgrade /other.bin --reset >upgrade || { cat upgrade; return 1; }
    says 0x0206 upgrade && eventually 5 has_video
}

# The tool takes the camera away from whoever streams; that one ends with an error.
takes_over_a_running_stream() {
    limited 60 v4l2-ctl -d /dev/video0 --stream-mmap --stream-count=100000 --stream-to=/dev/null >stream 2>&1 &
    streaming=$!
    eventually 10 grep -q '<' stream || return 1
    expect 0 20 nyxus info
    wait $streaming
    echo "v4l2-ctl: $?"
    cat stream
    eventually 5 has_video
}

is_busy_for_others() {
    rm -f flowing
    nyxus stream --size 320x240 --seconds 600 --raw flowing >stream 2>&1 &
    streaming=$!
    eventually 20 test -s flowing || { cat stream; return 1; }
    expect 6 20 nyxus info
    code=$?
    kill $streaming
    wait $streaming
    [ $code -eq 0 ] && eventually 5 has_video
}

# A program dies on the spot: the kernel's driver comes back with the next user.
survives_a_killed_user() {
    rm -f flowing
    nyxus stream --size 320x240 --seconds 60 --raw flowing >stream 2>&1 &
    streaming=$!
    eventually 20 test -s flowing
    is_bound_to usbfs
    kill -KILL $streaming
    wait $streaming
    [ -s flowing ] || { cat stream; return 1; }
    expect 0 20 nyxus info && eventually 5 has_video
}

# What ends the program lets the kernel's driver have the camera at once. A shell without job control has its
# background jobs ignore SIGINT.
hands_back_when_interrupted() {
    for signal in TERM HUP; do
        rm -f flowing
        nyxus stream --size 640x480 --seconds 60 --raw flowing >stream 2>&1 &
        streaming=$!
        eventually 20 test -s flowing
        kill -$signal $streaming
        wait $streaming
        [ -s flowing ] && is_bound_to uvcvideo || { echo "$signal"; cat stream; return 1; }
    done
}

loses_the_camera_in() { # SIGNAL TEXT COMMAND...: pulled when the command has said TEXT
    signal=$1
    text=$2
    shift 2
    rm -f doing
    limited 60 "$@" >doing 2>&1 &
    doing=$!
    eventually 30 grep -q -e "$text" doing || { cat doing; return 1; }
    stop_server "$signal"
    wait $doing
    code=$?
    cat doing
    eventually 5 has_cameras 0 && [ $code -lt 124 ]
}

upgrade_loses_the_camera() { # SIGNAL
    loses_the_camera_in "$1" 'rogram' nyxus upgrade /image.bin --allow-downgrade || return 1
    [ "$code" -eq 11 ] || { echo "ended with $code instead of 11"; return 1; }
    says 'nyxus: .*unplugged\|nyxus: .*lost\|nyxus: .*gone' doing
}

stream_loses_the_camera() { # SIGNAL
    rm -f flowing doing
    nyxus stream --size 320x240 --seconds 60 --raw flowing >doing 2>&1 &
    doing=$!
    eventually 20 test -s flowing || { cat doing; return 1; }
    stop_server "$1"
    eventually 20 test ! -d /proc/$doing
    kill -KILL $doing 2>/dev/null && echo "it did not end"
    wait $doing
    code=$?
    cat doing
    [ $code -eq 11 ] || { echo "ended with $code instead of 11"; return 1; }
    says 'nyxus: .*unplugged' doing
    eventually 5 has_cameras 0
}

capture_loses_the_camera() {
    loses_the_camera_in TERM '<' v4l2-ctl -d /dev/video0 --stream-mmap --stream-count=100000 \
        --stream-to=/dev/null
}

plug_fast_camera() {
    rm -f kept.rom
    start attach --camera rowan-spi,serial=K1 --rom kept.rom --speed fast
    eventually 10 has_video
}

keeps_the_rom() {
    upgrades && unplug && head -c "$(stat -c %s /image.bin)" kept.rom | cmp - /image.bin
}

# The machine's wish is respected: the camera is not plugged in again.
ends_when_detached() {
    expect 0 20 usbip detach -p 0 && eventually 5 has_cameras 0
    wait "$server" || { cat /tmp/server; return 1; }
    server=
    says 'was detached' /tmp/server
}

sets_features() {
    expect 0 20 nyxus flip on && expect 0 20 nyxus flip >flip && says 'on' flip &&
        expect 0 20 nyxus flip off && expect 0 20 nyxus h264 bitrate 4000000 2000000 &&
        expect 0 20 nyxus reg read 0x0100 4 && expect 0 20 nyxus osd string 0 'Front door'
}

erases() { expect 0 60 nyxus erase --yes && expect 8 30 nyxus compare /image.bin; }

lists_both() {
    expect 0 20 nyxus list >list || { cat list; return 1; }
    says K1 list && says K2 list && expect 4 20 nyxus info && expect 0 20 nyxus info -c K2
}

imports_over_tcp() {
    start serve --camera rowan-spi,serial=T1
    eventually 10 grep -q 'usbip attach' /tmp/server || { cat /tmp/server; return 1; }
    expect 0 20 usbip list -r 127.0.0.1 >exports || return 1
    says '1-1: .*1162:' exports
    expect 0 20 usbip attach -r 127.0.0.1 -b 1-1 && eventually 10 has_video && usbip port
}

refuses_a_second_import() {
    limited 20 usbip attach -r 127.0.0.1 -b 1-1 >second 2>&1 && return 1
    says 'busy\|exported' second
}

is_detached() { expect 0 20 usbip detach -p 0 && eventually 5 has_cameras 0; }

# Nobody attaches it again but the user.
is_gone_after_a_reset() {
    limited 30 nyxus reset --wait 1
    eventually 5 has_cameras 0
}

imports_again() {
    expect 0 20 usbip attach -r 127.0.0.1 -b 1-1 && eventually 10 has_video
}

# Neither a hang nor a camera that stays without its driver, in any of 20 rounds.
soak() { # COMMAND...
    round=0
    while [ $round -lt 20 ]; do
        round=$((round + 1))
        "$@" >doing 2>&1 && eventually 5 is_bound_to uvcvideo || { echo "round $round"; cat doing; return 1; }
        [ $((round % 5)) -ne 0 ] || echo "      $round rounds, $(cut -d. -f1 /proc/uptime) s" >&3
    done
}

streams_every_size() {
    expect 0 20 nyxus formats >formats || { cat formats; return 1; }
    while read -r format size rest; do
        expect 0 60 nyxus stream --format "$format" --size "$size" --count 2 </dev/null &&
            eventually 5 is_bound_to uvcvideo || { echo "$format $size $rest"; return 1; }
    done <formats
}

# --- programs that nobody here wrote

sets_controls_by_uvcdynctrl() {
    expect 0 20 uvcdynctrl -d video0 -c >controls && says Brightness controls && says 'Exposure' controls &&
        expect 0 20 uvcdynctrl -d video0 -s Brightness -- -20 &&
        expect 0 20 uvcdynctrl -d video0 -g Brightness >value && says '^-20$' value &&
        # The picture shows it, and is compared from here on.
        expect 0 20 uvcdynctrl -d video0 -s Brightness 0 &&
        expect 0 20 uvcdynctrl -d video0 -f >frames && says 1920x1080 frames
}

# Frames as they come, without any that ffmpeg would repeat or leave out.
records_by_ffmpeg() { # FORMAT SIZE COUNT FILE OPTIONS...
    format=$1 size=$2 count=$3 file=$4
    shift 4
    rm -f "$file"
    expect 0 120 ffmpeg -hide_banner -loglevel warning -f v4l2 -input_format "$format" -video_size "$size" \
        -i /dev/video0 -frames:v "$count" -fps_mode passthrough "$@" "$file"
}

captures_by_ffmpeg() {
    records_by_ffmpeg yuyv422 640x480 5 raw -c:v copy -f rawvideo && check_frames raw 640 480 5
}

# Decoded once more to the end, with every complaint an error.
records_and_decodes() { # FORMAT SIZE COUNT FILE
    records_by_ffmpeg "$1" "$2" "$3" "$4" -c:v copy || return 1
    expect 0 120 ffmpeg -hide_banner -loglevel error -xerror -i "$4" -f null - >complaints 2>&1
    [ ! -s complaints ] || { cat complaints; return 1; }
}

# Bulk and isochronous cameras, with YUYV, MJPEG and both: every size that there is.
soak_all() {
    exec 3>&1 # where progress is told
    for model in rowan-spi rowan-iso maple-mjpeg maple-iso; do
        check "$model is plugged in" plug $model,serial=K1
        for program in every_size every_size_cpp 'python3 -S -B /python/every_size.py'; do
            # shellcheck disable=SC2086 # with its arguments
            check "$model: every size 20 times by $program" soak expect 0 120 $program
        done
        check "$model: every size 20 times by nyxus stream" soak streams_every_size
        check "$model: 20 pictures by nyxus snapshot" soak expect 0 60 nyxus snapshot shot
        [ $model = maple-iso ] || # no YUYV
            check "$model: 20 pictures by C, with the published functions" soak expect 0 60 snapshot shot.pgm
        check "$model is unplugged" unplug
    done
    check "the kernel's log has no complaints" has_a_clean_log
    end_of_checks
}

if [ -n "$SOAK" ]; then
    export PYTHONPATH=/python
    soak_all
    exit
fi

echo "== A camera that streams in bulk"
check "the camera is plugged in, and uvcvideo offers /dev/video0" plug rowan-spi,serial=K1
check "lsusb -v decodes its descriptors without complaint" describes_itself
check "both interfaces are uvcvideo's" is_bound_to uvcvideo
check "v4l2-ctl lists format, sizes and rates" offers_sizes
check "v4l2-ctl sets the brightness" sets_brightness
check "v4l2-ctl captures 320x240 to the last byte" captures 320 240 10
check "v4l2-ctl captures 640x480 to the last byte" captures 640 480 10
check "v4l2-ctl captures 1280x720 to the last byte" captures 1280 720 5
check "nyxus info takes the camera over and hands it back" tells_about K1
check "both interfaces are uvcvideo's again" is_bound_to uvcvideo
check "v4l2-ctl captures again" captures 320 240 5
check "nyxus info during a capture ends the capture only" takes_over_a_running_stream
check "nyxus takes a snapshot" takes_a_snapshot
check "nyxus streams 320x240 to the last byte" streams_with_the_tool 320 240 20
check "nyxus streams 640x480 to the last byte" streams_with_the_tool 640 480 10
check "nyxus info during a stream of the tool says that the camera is busy" is_busy_for_others
check "the camera survives a user that is killed" survives_a_killed_user
check "nyxus hands it back when it is interrupted in a stream" hands_back_when_interrupted
check "nyxus upgrades the firmware" upgrades
check "nyxus resets the camera, which comes back with a new address" resets
check "nyxus compares the ROM with images" compares
check "nyxus dumps what was programmed" dumps
check "nyxus sets flip, bit rate and text" sets_features
check "nyxus upgrades and resets in one go" upgrades_and_resets_at_once
check "v4l2-ctl captures with the new firmware" captures 320 240 5
check "nyxus erases the ROM" erases
check "the camera is unplugged" unplug

echo "== A cable that is pulled"
check "plugged in again" plug rowan-spi,serial=K1
check "during an upgrade: nyxus says so and ends" upgrade_loses_the_camera TERM
check "plugged in again" plug rowan-spi,serial=K1
check "during an upgrade, by a simulation that dies" upgrade_loses_the_camera KILL
check "plugged in again" plug rowan-spi,serial=K1
check "during a stream: nyxus says so and ends" stream_loses_the_camera TERM
check "plugged in again" plug rowan-spi,serial=K1
check "during a stream, by a simulation that dies" stream_loses_the_camera KILL
check "plugged in again" plug rowan-spi,serial=K1
check "during a capture of v4l2-ctl" capture_loses_the_camera

echo "== Programs that nobody here wrote"
check "a webcam is plugged in" plug birch-webcam,serial=K1
check "uvcdynctrl lists and sets controls" sets_controls_by_uvcdynctrl
check "ffmpeg captures YUYV to the last byte" captures_by_ffmpeg
check "ffmpeg records MJPEG, and decodes it" records_and_decodes mjpeg 640x480 5 film.avi
check "the camera is unplugged" unplug
check "a camera that sends H.264 is plugged in" plug /h264.toml,serial=K1
check "ffmpeg records H.264, and decodes it" records_and_decodes h264 640x480 10 film.h264
check "the camera is unplugged" unplug

echo "== A camera that streams isochronously"
check "the camera is plugged in" plug rowan-iso,serial=K1
check "v4l2-ctl captures 320x240 to the last byte" captures 320 240 10
check "v4l2-ctl captures 640x480 to the last byte" captures 640 480 10
check "v4l2-ctl captures 1280x720 to the last byte" captures 1280 720 5
check "nyxus streams 320x240 to the last byte" streams_with_the_tool 320 240 10
check "nyxus streams 1280x720 to the last byte" streams_with_the_tool 1280 720 3
check "during a stream: nyxus says so and ends" stream_loses_the_camera TERM

echo "== A camera with an EEPROM, one that is fast and keeps its ROM, and two at once"
check "the camera is plugged in" plug willow-eeprom,serial=K1
check "nyxus info tells about it" tells_about K1
check "the camera is unplugged" unplug
check "a fast camera is plugged in" plug_fast_camera
check "its ROM keeps an upgrade" keeps_the_rom

check "the cameras are plugged in" plug rowan-spi,serial=K1 hawthorn-eeprom,serial=K2
check "nyxus lists and tells apart both" lists_both
check "the cameras are unplugged" unplug
check "plugged in again" plug rowan-spi,serial=K1
check "the simulation ends when the machine detaches the camera" ends_when_detached

echo "== Over TCP"
check "usbip lists and attaches the camera" imports_over_tcp
check "a second import is refused" refuses_a_second_import
check "v4l2-ctl captures 320x240 to the last byte" captures 320 240 10
check "usbip detaches it" is_detached
check "usbip attaches it again" imports_again
check "it is gone after a reset" is_gone_after_a_reset
check "usbip attaches it again" imports_again
check "nyxus info works" tells_about T1
check "the server ends, and the camera is gone" unplug

echo "== The kernel"
check "its log has neither warnings nor complaints about the camera" has_a_clean_log

end_of_checks
