# SPDX-License-Identifier: Apache-2.0
# v4l2-compliance, streaming included, on cameras with bulk and isochronous video, and what the kernel does to a
# device that nobody pulls out: unbinding, authorisation, suspending.
# shellcheck shell=sh disable=SC2015 # the last one is for whatever fails
. /common.sh

# One failure is the kernel's own, three times: with its buffers a program gives the right to stream back, and
# uvcvideo looks for that right first, so that STREAMON without buffers ends with EBUSY instead of EINVAL. The
# camera is not asked. The trace shows that it was that.
complies() {
    limited 200 v4l2-compliance -d /dev/video0 --trace -s 10 >report 2>&1
    says '^Total .*Failed: 3, ' report || return 1
    [ "$(grep -c 'fail:.*node->streamon(q.g_type()) != EINVAL' report)" -eq 3 ] &&
        [ "$(grep -c 'VIDIOC_STREAMON returned -1 (Device or resource busy)' report)" -eq 3 ] ||
        { grep 'fail:' report; return 1; }
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

for model in rowan-spi rowan-iso maple-mjpeg maple-iso; do
    echo "== $model"
    check "the camera is plugged in" plug $model,serial=K1
    check "v4l2-compliance finds no fault of the camera's" complies
    check "unbound and bound again, the camera is there" rebinds
    check "refused and authorised again, it is there" is_authorised_again
    check "idle, it is suspended" suspends
    [ $model = maple-iso ] || # no YUYV
        check "woken up, it streams" captures 320 240 5
    check "the camera is unplugged" unplug
done
check "the kernel's log has no complaints" has_a_clean_log
end_of_checks
