# SPDX-License-Identifier: Apache-2.0
# v4l2-compliance, streaming included, on cameras with bulk and isochronous video, and what the kernel does to a
# device that nobody pulls out: unbinding, authorisation, suspending.
# shellcheck shell=sh
. /common.sh

complies() {
    expect 0 200 v4l2-compliance -d /dev/video0 -s 10 >report
    code=$?
    cat report >&2
    grep -E 'fail:|warn:|FAIL|^Total' report >&3
    [ $code -eq 0 ]
}

device=/sys/bus/usb/devices/1-1

rebinds() {
    for interface in 1-1:1.0 1-1:1.1; do
        [ ! -e /sys/bus/usb/drivers/uvcvideo/$interface ] || echo $interface >/sys/bus/usb/drivers/uvcvideo/unbind
    done
    [ ! -e /dev/video0 ] || { echo "it is bound"; return 1; }
    echo 1-1:1.0 >/sys/bus/usb/drivers/uvcvideo/bind
    eventually 5 is_bound_to uvcvideo && eventually 5 has_video
}

is_authorised_again() {
    echo 0 >$device/authorized
    eventually 5 test ! -e /dev/video0 || return 1
    echo 1 >$device/authorized
    eventually 5 is_bound_to uvcvideo && eventually 5 has_video
}

suspends() {
    echo 100 >$device/power/autosuspend_delay_ms
    echo auto >$device/power/control
    eventually 10 grep -q suspended $device/power/runtime_status || { cat $device/power/runtime_status; return 1; }
}

exec 3>&1
for model in rowan-spi rowan-iso maple-mjpeg maple-iso; do
    echo "== $model"
    check "the camera is plugged in" plug $model,serial=K1
    check "v4l2-compliance has nothing to say" complies
    check "unbound and bound again, the camera is there" rebinds
    check "refused and authorised again, it is there" is_authorised_again
    check "idle, it is suspended" suspends
    [ $model = maple-iso ] || # no YUYV
        check "woken up, it streams" captures 320 240 5
    check "the camera is unplugged" unplug
done
check "the kernel's log has no complaints" has_a_clean_log
end_of_checks
