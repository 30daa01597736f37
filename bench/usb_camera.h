// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>
#include <nyxus/device.h>

namespace bench {

/// The first camera on the bus, with a reference of its own. Throws when there is none.
libusb_device* find_camera(libusb_context* context);

/// The first camera on the bus, opened and probed as users do it. Throws when that fails.
class UsbCamera {
public:
    UsbCamera();
    ~UsbCamera();
    UsbCamera(const UsbCamera&) = delete;
    UsbCamera& operator=(const UsbCamera&) = delete;
    NyDevice* device() { return device_; }

private:
    libusb_context* context_ = nullptr;
    libusb_device* usb_device_ = nullptr;
    NyDevice* device_ = nullptr;
};

} // namespace bench
