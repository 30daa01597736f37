// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/sysfs.h"
#include "files/descriptor.h"

#include <span>
#include <string>

using UMockdevTestbed = struct _UMockdevTestbed;

namespace sim {

/// The folder that programs see in the place of /sys and /dev/bus/usb, and hot-plug events. One at
/// a time per process. Its owner locks. Throws std::runtime_error when the folder cannot be made.
class DeviceTree {
public:
    DeviceTree();
    ~DeviceTree();
    DeviceTree(const DeviceTree&) = delete;
    DeviceTree& operator=(const DeviceTree&) = delete;

    const std::string& folder() const { return folder_; }
    /// `contents`: what reading its node gives.
    void add(const Place& place, const std::string& entry, std::span<const uint8_t> contents);
    void remove(const Place& place);
    void show_usbfs_memory(unsigned mebibytes) const;

private:
    UMockdevTestbed* testbed_;
    std::string folder_;
    files::Descriptor lock_;
};

/// Deletes the beds that crashed processes of this user have left where new ones are made.
void remove_abandoned_beds();

} // namespace sim
