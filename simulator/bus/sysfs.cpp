// SPDX-License-Identifier: Apache-2.0
#include "bus/sysfs.h"

#include "text/format.h"
#include "text/hex.h"
#include "usb/descriptors.h"

#include <array>
#include <span>

namespace sim {

namespace {

// The values of attribute files end with a line feed, written as an escape.
std::string attribute(const char* name, const std::string& value)
{
    return "A: " + std::string(name) + "=" + value + "\\n\n";
}

std::string descriptors(std::span<const uint8_t> bytes)
{
    return "H: descriptors=" + text::hex(bytes) + "\n";
}

// What every device has, hub or camera. `bytes` are its device descriptor and more.
std::string common_entry(const std::string& path, const Place& place,
                         std::span<const uint8_t> bytes)
{
    const unsigned vendor = bytes[8] | unsigned{bytes[9]} << 8;
    const unsigned product = bytes[10] | unsigned{bytes[11]} << 8;
    const unsigned release = bytes[12] | unsigned{bytes[13]} << 8;
    const unsigned interfaces = bytes[18 + 4];

    std::string entry = "P: " + path + "\n";
    entry += "E: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DRIVER=usb\n";
    entry += "E: DEVNAME=" + node_path(place) + "\n";
    entry += text::format("E: BUSNUM=%03u\nE: DEVNUM=%03u\nE: MAJOR=189\nE: MINOR=%u\n", place.bus,
                          place.address, (place.bus - 1) * 128 + place.address - 1);
    entry += text::format("E: PRODUCT=%x/%x/%x\n", vendor, product, release);
    entry += text::format("E: TYPE=%u/%u/%u\n", bytes[4], bytes[5], bytes[6]);
    entry += attribute("busnum", text::format("%u", place.bus));
    entry += attribute("devnum", text::format("%u", place.address));
    entry += attribute("speed", "480");
    entry += attribute("version", " 2.00");
    entry += attribute("bConfigurationValue", "1");
    entry += attribute("bNumConfigurations", "1");
    entry += attribute("bNumInterfaces", text::format("%2u", interfaces));
    entry += attribute("bmAttributes", text::format("%02x", bytes[18 + 7]));
    entry += attribute("bMaxPower", text::format("%umA", bytes[18 + 8] * 2));
    entry += attribute("bMaxPacketSize0", text::format("%u", bytes[7]));
    entry += attribute("bDeviceClass", text::format("%02x", bytes[4]));
    entry += attribute("bDeviceSubClass", text::format("%02x", bytes[5]));
    entry += attribute("bDeviceProtocol", text::format("%02x", bytes[6]));
    entry += attribute("idVendor", text::format("%04x", vendor));
    entry += attribute("idProduct", text::format("%04x", product));
    entry += attribute("bcdDevice", text::format("%04x", release));
    entry += attribute("configuration", "");
    entry += attribute("rx_lanes", "1");
    entry += attribute("tx_lanes", "1");
    return entry + descriptors(bytes);
}

std::string interface_name(const Place& place, unsigned number)
{
    return text::format("%u-%u:1.%u", place.bus, place.port, number);
}

// `bytes` is the interface's descriptor.
std::string interface_entry(const std::string& device_path, const std::string& name,
                            std::span<const uint8_t> bytes)
{
    std::string entry = "P: " + device_path + "/" + name + "\n";
    entry += "E: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\n";
    entry += text::format("E: INTERFACE=%u/%u/%u\n", bytes[5], bytes[6], bytes[7]);
    entry += attribute("bInterfaceNumber", text::format("%02x", bytes[2]));
    entry += attribute("bAlternateSetting", text::format("%2u", bytes[3]));
    entry += attribute("bNumEndpoints", text::format("%02x", bytes[4]));
    entry += attribute("bInterfaceClass", text::format("%02x", bytes[5]));
    entry += attribute("bInterfaceSubClass", text::format("%02x", bytes[6]));
    entry += attribute("bInterfaceProtocol", text::format("%02x", bytes[7]));
    return entry + "\n";
}

} // namespace

std::string root_hub_entry(unsigned bus)
{
    const std::string path = text::format("/devices/usb%u", bus);
    constexpr auto kInterface = std::span(kHubDescriptors).subspan<27, 9>();
    return common_entry(path, {bus, 0, kHubAddress}, kHubDescriptors) +
           attribute("maxchild", text::format("%u", kPortsPerBus)) + attribute("devpath", "0") +
           attribute("manufacturer", kManufacturer) + attribute("product", kHubProduct) + "\n" +
           interface_entry(path, text::format("%u-0:1.0", bus), kInterface);
}

std::string camera_entry(UsbCamera& camera, const Place& place)
{
    const std::string path = text::format("/devices/usb%u/%u-%u", place.bus, place.bus, place.port);
    std::string entry = common_entry(path, place, node_contents(camera));
    entry += attribute("maxchild", "0");
    entry += attribute("devpath", text::format("%u", place.port));
    entry += attribute("manufacturer", camera.controller().model.usb_manufacturer);
    entry += attribute("product", camera.product());
    entry += attribute("serial", camera.usb_serial()) + "\n";
    for (unsigned number = 0; number < kInterfaceCount; ++number) {
        entry += interface_entry(path, interface_name(place, number),
                                 interface_descriptor(camera.controller().model, number));
    }
    return entry;
}

std::string interface_path(const Place& place, unsigned number)
{
    return sysfs_path(place) + "/" + interface_name(place, number);
}

std::string sysfs_path(const Place& place)
{
    return text::format("/sys/devices/usb%u/%u-%u", place.bus, place.bus, place.port);
}

std::string node_path(const Place& place)
{
    return text::format("/dev/bus/usb/%03u/%03u", place.bus, place.address);
}

std::vector<uint8_t> node_contents(UsbCamera& camera)
{
    std::vector<uint8_t> bytes = device_descriptor(camera.controller().model);
    const auto configuration = configuration_descriptor(camera.controller().model);
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

} // namespace sim
