// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/usb_camera.h"

#include <string>

namespace sim {

/// Where a camera hangs. Ports count from 1; the root hub of a bus has address 1.
struct Place {
    unsigned bus = 0;
    unsigned port = 0;
    unsigned address = 0;
};
inline constexpr unsigned kPortsPerBus = 15;
inline constexpr unsigned kHighestAddress = 127;

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
