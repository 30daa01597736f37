// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <span>

namespace bench {

/// The ROM of an opened camera by libusb alone, as one would write it for one camera model.
class BareCamera {
public:
    /// Borrows both. `chunk`: bytes that an exchange moves, 8 or 32.
    BareCamera(libusb_context* context, libusb_device_handle* handle, uint8_t chunk)
        : context_(context), handle_(handle), chunk_(chunk)
    {
    }

    /// From the ROM's first byte on, with so many pairs of request and answer under way. Throws.
    void read(std::span<uint8_t> out, unsigned depth);
    /// Erases a flash and writes an image into it, the header last. Throws.
    void program(std::span<const uint8_t> image);

private:
    void transfer(uint8_t type, uint8_t selector, std::span<uint8_t> data);
    void wait_while_busy();
    void protect(bool on);
    void write(uint32_t address, std::span<const uint8_t> bytes);

    libusb_context* context_;
    libusb_device_handle* handle_;
    uint8_t chunk_;
};

} // namespace bench
