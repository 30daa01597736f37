// SPDX-License-Identifier: Apache-2.0
#include "exports.h"

#include "bus/registry.h"
#include "bus/sysfs.h"
#include "usb/descriptors.h"

#include <algorithm>

namespace sim {

namespace {

usbip::DeviceRecord record_of(PluggedCamera& camera, unsigned address)
{
    constexpr std::ptrdiff_t kClass = 5;
    const CameraModel& model = camera.model();
    usbip::DeviceRecord record;
    record.path = sysfs_path({camera.bus(), camera.port(), address});
    record.bus_id = std::to_string(camera.bus()) + "-" + std::to_string(camera.port());
    record.bus = camera.bus();
    record.address = address;
    std::ranges::copy(device_descriptor(model), record.descriptor.begin());
    record.configuration = 1;
    for (unsigned number = 0; number < kInterfaceCount; ++number) {
        const std::vector<uint8_t> interface = interface_descriptor(model, number);
        std::copy_n(interface.begin() + kClass, 3, record.interfaces.emplace_back().begin());
    }
    return record;
}

} // namespace

usbip::ExportList exports_of(const Simulation& simulation)
{
    return [&simulation] {
        std::vector<usbip::Export> devices;
        for (PluggedCamera* camera : simulation.cameras()) {
            const unsigned address = camera->address();
            if (std::shared_ptr<UsbfsNode> node = find_node(camera->bus(), address))
                devices.push_back({record_of(*camera, address), std::move(node)});
        }
        return devices;
    };
}

} // namespace sim
