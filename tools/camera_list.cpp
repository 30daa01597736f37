// SPDX-License-Identifier: Apache-2.0
#include "camera_list.h"

#include "failure.h"
#include "text.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace tool {

namespace {

constexpr uint16_t kVendor = 0x1162;
constexpr uint8_t kVideoClass = 0x0E;
constexpr int kMaxPortDepth = 7;

using Handle = std::unique_ptr<libusb_device_handle, decltype(&libusb_close)>;

bool has_video_interface(libusb_device* device)
{
    libusb_config_descriptor* raw = nullptr;
    if (libusb_get_active_config_descriptor(device, &raw) != 0 &&
        libusb_get_config_descriptor(device, 0, &raw) != 0)
        return false;
    const std::unique_ptr<libusb_config_descriptor, decltype(&libusb_free_config_descriptor)>
        config(raw, libusb_free_config_descriptor);
    for (const libusb_interface* i = config->interface;
         i != config->interface + config->bNumInterfaces; ++i)
        if (i->num_altsetting > 0 && i->altsetting[0].bInterfaceClass == kVideoClass)
            return true;
    return false;
}

std::string port_path(libusb_device* device)
{
    uint8_t ports[kMaxPortDepth];
    const int count = libusb_get_port_numbers(device, ports, kMaxPortDepth);
    std::string path = std::to_string(libusb_get_bus_number(device));
    for (int i = 0; i < count; ++i)
        path += (i == 0 ? "-" : ".") + std::to_string(ports[i]);
    return path;
}

/// A descriptor text as the kernel has read it: needs no permission and disturbs nobody.
std::string kernel_text(const std::string& path, const char* attribute)
{
    std::ifstream file("/sys/bus/usb/devices/" + path + "/" + attribute);
    std::string text;
    std::getline(file, text);
    return text;
}

/// The same asked of the device itself, for where /sys is not mounted.
std::string device_text(libusb_device* device, uint8_t index)
{
    libusb_device_handle* raw = nullptr;
    if (index == 0 || libusb_open(device, &raw) != 0)
        return {};
    const Handle handle(raw, libusb_close);
    unsigned char text[128];
    const int size = libusb_get_string_descriptor_ascii(raw, index, text, sizeof text);
    return size > 0 ? std::string(text, text + size) : std::string();
}

std::string descriptor_text(libusb_device* device, const std::string& path, const char* attribute,
                            uint8_t index)
{
    std::string text = kernel_text(path, attribute);
    if (text.empty())
        text = device_text(device, index);
    return printable(text);
}

CameraEntry describe(const std::shared_ptr<libusb_context>& context, libusb_device* device,
                     const libusb_device_descriptor& descriptor)
{
    CameraEntry entry;
    // The device keeps its session alive.
    entry.device = {libusb_ref_device(device),
                    [context](libusb_device* d) { libusb_unref_device(d); }};
    entry.bus = libusb_get_bus_number(device);
    entry.address = libusb_get_device_address(device);
    entry.port_path = port_path(device);
    entry.serial = descriptor_text(device, entry.port_path, "serial", descriptor.iSerialNumber);
    entry.product = descriptor_text(device, entry.port_path, "product", descriptor.iProduct);
    return entry;
}

/// "001:005" and "1:5" are the same place.
bool is_place(const std::string& choice, unsigned bus, unsigned address)
{
    const size_t colon = choice.find(':');
    const auto number_is = [&](const std::string& digits, unsigned number) {
        return !digits.empty() && digits.size() < 6 &&
               digits.find_first_not_of("0123456789") == std::string::npos &&
               std::stoul(digits) == number;
    };
    return colon != std::string::npos && number_is(choice.substr(0, colon), bus) &&
           number_is(choice.substr(colon + 1), address);
}

std::string listed(const std::vector<CameraEntry>& cameras)
{
    std::string lines;
    for (const CameraEntry& entry : cameras)
        lines += "\n  " + entry.description();
    return lines;
}

Openable openable(int libusb_code)
{
    return {libusb_code, libusb_code == 0 ? "" : usb_reason(libusb_code)};
}

} // namespace

bool CameraEntry::matches(const std::string& choice) const
{
    return choice == port_path || (!serial.empty() && choice == serial) ||
           is_place(choice, bus, address);
}

std::string CameraEntry::description() const
{
    return padded(bus_address(), 8) + padded(port_path, 9) +
           padded(serial.empty() ? "-" : serial, 16) + " " + product;
}

UsbSession::UsbSession()
{
    libusb_context* raw = nullptr;
    const int rc = libusb_init(&raw);
    if (rc != 0)
        throw usb_failure("cannot use USB", rc);
    context_ = {raw, libusb_exit};
}

std::vector<CameraEntry> UsbSession::cameras() const
{
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context_.get(), &devices);
    if (count < 0)
        throw usb_failure("cannot list the USB devices", static_cast<int>(count));
    std::vector<CameraEntry> cameras;
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor descriptor;
        if (libusb_get_device_descriptor(devices[i], &descriptor) == 0 &&
            descriptor.idVendor == kVendor && has_video_interface(devices[i]))
            cameras.push_back(describe(context_, devices[i], descriptor));
    }
    libusb_free_device_list(devices, 1);
    std::ranges::sort(cameras, {}, [](const CameraEntry& entry) {
        return std::pair(entry.bus, entry.port_path);
    });
    return cameras;
}

Openable try_open(const CameraEntry& entry)
{
    libusb_device_handle* raw = nullptr;
    const int rc = libusb_open(entry.device.get(), &raw);
    if (rc == 0)
        libusb_close(raw);
    return openable(rc);
}

Openable try_claim(const CameraEntry& entry)
{
    libusb_device_handle* raw = nullptr;
    int rc = libusb_open(entry.device.get(), &raw);
    if (rc != 0)
        return openable(rc);
    const Handle handle(raw, libusb_close);
    libusb_set_auto_detach_kernel_driver(raw, 1);
    rc = libusb_claim_interface(raw, 0);
    if (rc == 0)
        libusb_release_interface(raw, 0);
    return openable(rc);
}

CameraEntry select_camera(const std::vector<CameraEntry>& cameras, const std::string& choice)
{
    if (cameras.empty())
        throw Failure(
            kExitNoCamera,
            "no camera found; check that it is plugged in and has power ('lsusb -d 1162:' "
            "shows it then)");
    std::vector<CameraEntry> matching;
    std::ranges::copy_if(cameras, std::back_inserter(matching), [&](const CameraEntry& entry) {
        return choice.empty() || entry.matches(choice);
    });
    if (matching.empty())
        throw Failure(kExitNoCamera, "no camera is called '" + printable(choice) +
                                         "'; these are connected:" + listed(cameras));
    if (matching.size() > 1)
        throw Failure(kExitAmbiguous,
                      format("%zu cameras %s; choose one by --camera with its bus:address, port "
                             "path or serial number:",
                             matching.size(), choice.empty() ? "are connected" : "match") +
                          listed(matching));
    return matching.front();
}

} // namespace tool
