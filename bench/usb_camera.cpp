// SPDX-License-Identifier: Apache-2.0
#include "usb_camera.h"

#include <nyxus/error.h>

#include <stdexcept>
#include <string>

namespace bench {

libusb_device* find_camera(libusb_context* context)
{
    constexpr uint16_t kVendor = 0x1162;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    libusb_device* found = nullptr;
    for (ssize_t i = 0; i < count && found == nullptr; ++i) {
        libusb_device_descriptor descriptor = {};
        if (libusb_get_device_descriptor(list[i], &descriptor) == 0 &&
            descriptor.idVendor == kVendor)
            found = libusb_ref_device(list[i]);
    }
    libusb_free_device_list(list, 1);
    if (found == nullptr)
        throw std::runtime_error("there is no camera on the bus");
    return found;
}

UsbCamera::UsbCamera()
{
    if (libusb_init(&context_) != 0)
        throw std::runtime_error("libusb_init");
    usb_device_ = find_camera(context_);
    device_ = DEV_CreateObjectUsb(usb_device_);
    if (device_ == nullptr)
        throw std::runtime_error(std::string("probe: ") + nyxus_errmsg);
}

UsbCamera::~UsbCamera()
{
    DEV_DeleteObject(device_);
    libusb_unref_device(usb_device_);
    libusb_exit(context_);
}

} // namespace bench
