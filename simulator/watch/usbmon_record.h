// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/observer.h"

#include <cstdint>
#include <vector>

namespace sim {

/// What a record is about; the letters are those of Linux's usbmon.
enum class UsbmonEvent : uint8_t { kSubmitted = 'S', kFinished = 'C', kRefused = 'E' };

/// Where the transfer belongs.
struct UsbmonPlace {
    uint16_t bus = 0;
    uint8_t address = 0;
    int32_t interval = 0; ///< of the endpoint, in frames or microframes; 0: not periodic
};

/// Header and isochronous descriptors as usbmon writes them, little-endian
/// (LINKTYPE_USB_LINUX_MMAPPED); `captured_bytes` of data follow.
std::vector<uint8_t> usbmon_header(UsbmonEvent event, const BusTransfer& transfer,
                                   const UsbmonPlace& place, uint64_t time_us,
                                   uint32_t captured_bytes);

/// The data as the host's buffer holds it: an isochronous packet stands at its own offset.
std::vector<uint8_t> usbmon_data(const BusTransfer& transfer);

} // namespace sim
