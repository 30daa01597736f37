# SPDX-License-Identifier: Apache-2.0
# What scripts of checks inside the virtual machine share. Each check is one line, PASS or FAIL, and after
# a FAIL what the programs said. Every program has a time limit; a process that the kernel does not let go
# of for fifteen seconds, or an oops, ends the machine without a closing line.
# shellcheck shell=sh
passed=0
failed=0
server=
cd /tmp || exit 1

# limited SECONDS COMMAND...
limited() {
    seconds=$1
    shift
    timeout -k 5 "$seconds" "$@"
}

# check NAME FUNCTION ARGUMENTS...: what the function prints is shown if it fails
check() {
    name=$1
    shift
    if "$@" >/tmp/said 2>&1 </dev/null; then
        passed=$((passed + 1))
        echo "PASS  $name"
    else
        failed=$((failed + 1))
        echo "FAIL  $name"
        tail -n 25 /tmp/said | sed 's/^/      /'
    fi
}

# eventually SECONDS COMMAND...: until it succeeds
eventually() {
    rest=$(($1 * 10))
    shift
    until "$@" >/dev/null 2>&1; do
        rest=$((rest - 1))
        [ $rest -gt 0 ] || { echo "waited in vain for: $*"; return 1; }
        sleep 0.1
    done
}

# expect CODE SECONDS COMMAND...
expect() {
    wanted=$1
    shift
    limited "$@"
    code=$?
    [ $code -eq "$wanted" ] || { echo "'$*' ended with $code instead of $wanted"; return 1; }
}

says() { grep -q -e "$1" "$2" || { cat "$2"; echo "no '$1' in it"; return 1; }; }

# --- the camera's side

start() { # nyxus-sim's arguments
    nyxus-sim "$@" >/tmp/server 2>&1 &
    server=$!
}

stop_server() { # SIGNAL
    [ -n "$server" ] || return 0
    kill "-$1" "$server"
    wait "$server"
    code=$?
    server=
    [ "$1" != TERM ] || [ $code -eq 0 ] || { cat /tmp/server; echo "nyxus-sim ended with $code"; return 1; }
}

has_cameras() { [ "$(cat /sys/bus/usb/devices/*/idVendor | grep -c 1162)" -eq "$1" ]; }
has_video() { [ -e /dev/video0 ]; }

plug() { # the cameras
    cameras=$#
    for camera in "$@"; do set -- "$@" --camera "$camera"; done
    shift $cameras
    start attach "$@"
    { eventually 10 has_cameras $cameras && eventually 5 has_video; } ||
        { cat /tmp/server; dmesg | tail; return 1; }
}

unplug() {
    stop_server TERM && eventually 5 has_cameras 0
}

# --- what the kernel does with it

is_bound_to() { # DRIVER
    for interface in /sys/bus/usb/devices/1-1:1.0 /sys/bus/usb/devices/1-1:1.1; do
        [ "$(basename "$(readlink "$interface/driver")")" = "$1" ] ||
            { echo "$interface: $(readlink "$interface/driver")"; return 1; }
    done
}

captures() { # WIDTH HEIGHT COUNT
    rm -f raw
    expect 0 40 v4l2-ctl -d /dev/video0 "--set-fmt-video=width=$1,height=$2,pixelformat=YUYV" \
        --stream-mmap "--stream-count=$3" --stream-to=raw && check_frames raw "$1" "$2" "$3"
}

# A camera that restarts goes away while uvcvideo is still asking it: errors 19 and 108.
has_a_clean_log() {
    ! dmesg | grep -v -e ': -19 ' -e ': -108 ' -e 'GET_DEF(PROBE) not supported' |
        grep -E -A 3 'WARNING:|BUG:|Oops|refcount|unhandled|non compliance|Failed to (query|set)|cannot find a urb|babble'
}

end_of_checks() {
    echo "$passed passed, $failed failed"
    [ $failed -eq 0 ]
}
