# SPDX-License-Identifier: Apache-2.0
"""What a host may ask a camera and its hub beside video and extension units, by PyUSB."""
import usb.core
import usb.util

CONTROL = 0xA1  # a question to the control interface


def ask(device, request_type, request, value, index, length):
    return bytes(device.ctrl_transfer(request_type, request, value, index, length))


def error_code(camera):
    return ask(camera, CONTROL, 0x81, 0x0200, 0, 1)[0]


def refused(*arguments):
    try:
        camera.ctrl_transfer(*arguments)
    except usb.core.USBError as error:
        return error.errno == 32
    return False


camera = usb.core.find(idVendor=0x1162, bus=1)
hub = usb.core.find(idVendor=0x1D6B, bus=1)
assert hub.product == "Root hub", hub.product
assert ask(hub, 0xA0, 6, 0x2900, 0, 64)[:3] == bytes([11, 0x29, 15])  # the hub's own descriptor
assert ask(hub, 0xA3, 0, 0, 1, 4) == bytes([0x03, 0x05, 0, 0])  # a port with a camera
assert ask(hub, 0xA3, 0, 0, 15, 4) == bytes([0x00, 0x01, 0, 0])  # one without
try:
    usb.util.claim_interface(hub, 0)
    raise SystemExit("the hub has a driver, which does not let go")
except usb.core.USBError as error:
    assert error.errno == 16, error

qualifier = ask(camera, 0x80, 6, 0x0600, 0, 10)
assert qualifier == bytes([10, 6, 0, 2, 0xEF, 2, 1, 64, 1, 0]), qualifier

usb.util.claim_interface(camera, 0)
brightness = (0x0200, 0x0200)
for code, request in (
    (6, (CONTROL, 0x81, 0x7F00, 0x0600, 4)),  # no such control
    (5, (CONTROL, 0x81, 0x0100, 0x0900, 4)),  # no such unit
    (7, (CONTROL, 0x88, *brightness, 2)),  # no such request
    (4, (0x21, 0x01, *brightness, b"\xff\xff")),  # out of range
):
    assert refused(*request), code
    assert error_code(camera) == code, (code, error_code(camera))
ask(camera, CONTROL, 0x81, *brightness, 2)
assert error_code(camera) == 0

VIDEO = 0x81
assert ask(camera, 0x82, 0, 0, VIDEO, 2) == bytes(2)
camera.ctrl_transfer(0x02, 3, 0, VIDEO)  # SET_FEATURE(ENDPOINT_HALT)
print("halted", ask(camera, 0x82, 0, 0, VIDEO, 2))
assert ask(camera, 0x82, 0, 0, VIDEO, 2) == bytes([1, 0])
usb.util.claim_interface(camera, 1)
try:
    camera.read(VIDEO, 512, 1000)
    raise SystemExit("a halted endpoint has data")
except usb.core.USBError as error:
    assert error.errno == 32, error
camera.clear_halt(VIDEO)
assert ask(camera, 0x82, 0, 0, VIDEO, 2) == bytes(2)
