// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/usb_camera.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/// Where a camera hangs. Ports count from 1; the root hub of a bus has address 1.
struct Place {
    unsigned bus = 0;
    unsigned port = 0;
    unsigned address = 0;
};
inline constexpr unsigned kPortsPerBus = 15;
inline constexpr unsigned kHighestAddress = 127;
inline constexpr unsigned kHubAddress = 1;

// clang-format off
/// A root hub's device descriptor, and its configuration's.
inline constexpr std::array<uint8_t, 43> kHubDescriptors = {
    0x12, 0x01, 0x00, 0x02, 0x09, 0x00, 0x01, 0x40, 0x6b, 0x1d, 0x02, 0x00, 0x01, 0x00,
    0x02, 0x01, 0x00, 0x01,
    0x09, 0x02, 0x19, 0x00, 0x01, 0x01, 0x00, 0xe0, 0x00,
    0x09, 0x04, 0x00, 0x00, 0x01, 0x09, 0x00, 0x00, 0x00,
    0x07, 0x05, 0x81, 0x03, 0x04, 0x00, 0x0c,
};
// clang-format on
inline constexpr char kHubProduct[] = "Root hub";

/// Entries as the bed wants to hear them.
std::string root_hub_entry(unsigned bus);
std::string camera_entry(UsbCamera& camera, const Place& place);
/// "/sys/devices/usb1/1-2"
std::string sysfs_path(const Place& place);
/// "/sys/devices/usb1/1-2/1-2:1.0"
std::string interface_path(const Place& place, unsigned number);
/// "/dev/bus/usb/001/005"
std::string node_path(const Place& place);
/// What reading the node gives: the device's and then the configuration's descriptor.
std::vector<uint8_t> node_contents(UsbCamera& camera);

} // namespace sim
