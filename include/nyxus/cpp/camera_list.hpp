// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The cameras on the bus, as far as they are known without opening them.
 *
 * All functions are thread-safe. They block for the kernel only, unless said otherwise.
 */
#ifndef NYXUS_CPP_CAMERA_LIST_HPP
#define NYXUS_CPP_CAMERA_LIST_HPP

#include <nyxus/cpp/result.hpp>

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nyxus {

/// USB vendor number of the cameras.
inline constexpr uint16_t kVendor = 0x1162;

/// A camera on the bus. Copies share the device and the libusb session that it belongs to.
struct CameraInfo {
    std::shared_ptr<libusb_device> device;
    unsigned bus = 0;
    unsigned address = 0;  ///< a restart of the camera changes it
    std::string port_path; ///< "1-2" or "1-2.3", as the kernel names it; a restart keeps it
    std::string serial;    ///< as the camera tells it, "" if it has none
    std::string product;   ///< as the camera tells it

    /// "1:5".
    std::string bus_address() const { return std::to_string(bus) + ":" + std::to_string(address); }

    /// Whether people may mean it by this: its serial number, port path or place ("1:5",
    /// "001:005").
    bool matches(const std::string& name) const
    {
        if (name == port_path || (!serial.empty() && name == serial))
            return true;
        const size_t colon = name.find(':');
        return colon != std::string::npos && is_number(name.substr(0, colon), bus) &&
               is_number(name.substr(colon + 1), address);
    }

private:
    static bool is_number(const std::string& digits, unsigned number)
    {
        return !digits.empty() && digits.size() < 6 &&
               digits.find_first_not_of("0123456789") == std::string::npos &&
               std::stoul(digits) == number;
    }
};

namespace detail {

using UsbHandle = std::unique_ptr<libusb_device_handle, decltype(&libusb_close)>;

inline bool has_video_interface(libusb_device* device)
{
    constexpr uint8_t kVideoClass = 0x0E;
    libusb_config_descriptor* raw = nullptr;
    if (libusb_get_active_config_descriptor(device, &raw) != 0 &&
        libusb_get_config_descriptor(device, 0, &raw) != 0)
        return false;
    const std::unique_ptr<libusb_config_descriptor, decltype(&libusb_free_config_descriptor)>
        config(raw, libusb_free_config_descriptor);
    return std::any_of(config->interface, config->interface + config->bNumInterfaces,
                       [](const libusb_interface& interface) {
                           return interface.num_altsetting > 0 &&
                                  interface.altsetting[0].bInterfaceClass == kVideoClass;
                       });
}

inline std::string port_path(libusb_device* device)
{
    uint8_t ports[7];
    const int count = libusb_get_port_numbers(device, ports, sizeof ports);
    std::string path = std::to_string(libusb_get_bus_number(device));
    for (int i = 0; i < count; ++i)
        path.append(i == 0 ? "-" : ".").append(std::to_string(ports[i]));
    return path;
}

/// A text of the device as the kernel has read it, which needs no permission and disturbs nobody;
/// where /sys is not mounted, the device itself is asked.
inline std::string device_text(libusb_device* device, const std::string& path,
                               const char* attribute, uint8_t index)
{
    std::ifstream file("/sys/bus/usb/devices/" + path + "/" + attribute);
    std::string text;
    if (std::getline(file, text) && !text.empty())
        return text;
    libusb_device_handle* raw = nullptr;
    if (index == 0 || libusb_open(device, &raw) != 0)
        return {};
    const UsbHandle handle(raw, libusb_close);
    unsigned char answer[128];
    const int size = libusb_get_string_descriptor_ascii(raw, index, answer, sizeof answer);
    return size > 0 ? std::string(answer, answer + size) : std::string();
}

inline CameraInfo describe(const std::shared_ptr<libusb_context>& session, libusb_device* device,
                           const libusb_device_descriptor& descriptor)
{
    CameraInfo info;
    // The device keeps its session alive.
    info.device = {libusb_ref_device(device),
                   [session](libusb_device* unused) { libusb_unref_device(unused); }};
    info.bus = libusb_get_bus_number(device);
    info.address = libusb_get_device_address(device);
    info.port_path = port_path(device);
    info.serial = device_text(device, info.port_path, "serial", descriptor.iSerialNumber);
    info.product = device_text(device, info.port_path, "product", descriptor.iProduct);
    return info;
}

} // namespace detail

/// The cameras that are plugged in now, by bus and port. Each call looks through a libusb session
/// of its own, so that it sees the bus as it is, with or without a udev daemon.
inline Result<std::vector<CameraInfo>> list_cameras()
{
    libusb_context* context = nullptr;
    const int rc = libusb_init(&context);
    if (rc != 0)
        return Status::of_libusb(rc);
    const std::shared_ptr<libusb_context> session(context, libusb_exit);

    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context, &devices);
    if (count < 0)
        return Status::of_libusb(static_cast<int>(count));
    std::vector<CameraInfo> cameras;
    for (libusb_device** device = devices; device != devices + count; ++device) {
        libusb_device_descriptor descriptor;
        if (libusb_get_device_descriptor(*device, &descriptor) == 0 &&
            descriptor.idVendor == kVendor && detail::has_video_interface(*device))
            cameras.push_back(detail::describe(session, *device, descriptor));
    }
    libusb_free_device_list(devices, 1);
    std::sort(cameras.begin(), cameras.end(), [](const CameraInfo& a, const CameraInfo& b) {
        return std::tie(a.bus, a.port_path) < std::tie(b.bus, b.port_path);
    });
    return cameras;
}

namespace detail {

inline std::optional<CameraInfo> find_at_port(const std::string& port_path)
{
    const auto cameras = list_cameras();
    if (!cameras)
        return std::nullopt;
    const auto found = std::find_if(cameras->begin(), cameras->end(), [&](const CameraInfo& info) {
        return info.port_path == port_path;
    });
    return found == cameras->end() ? std::nullopt : std::optional<CameraInfo>(*found);
}

} // namespace detail

/// The one camera with this name (see CameraInfo::matches()), or the only one there is without a
/// name. "No such device" when there is none, NYXUS_E_RANGE when there are several.
inline Result<CameraInfo> find_camera(const std::string& name = {})
{
    auto cameras = list_cameras();
    if (!cameras)
        return cameras.status();
    const auto ends = std::remove_if(cameras->begin(), cameras->end(), [&](const CameraInfo& info) {
        return !name.empty() && !info.matches(name);
    });
    cameras->erase(ends, cameras->end());
    if (cameras->empty()) {
        return Status(NYXUS_E_LIBUSB(LIBUSB_ERROR_NO_DEVICE),
                      name.empty() ? "no camera found" : "no camera is called '" + name + "'");
    }
    if (cameras->size() > 1) {
        return Status(NYXUS_E_RANGE,
                      std::to_string(cameras->size()) +
                          " cameras match; name one by serial number, port path or bus:address");
    }
    return cameras->front();
}

/// Whether this process may open the camera; opens it without talking to it.
inline Status can_open(const CameraInfo& info)
{
    libusb_device_handle* handle = nullptr;
    const int rc = libusb_open(info.device.get(), &handle);
    if (rc == 0)
        libusb_close(handle);
    return Status::of_libusb(rc);
}

/// Whether its control interface is free, too. Disturbs nobody who has it; a kernel driver is
/// detached.
inline Status can_claim(const CameraInfo& info)
{
    libusb_device_handle* raw = nullptr;
    int rc = libusb_open(info.device.get(), &raw);
    if (rc != 0)
        return Status::of_libusb(rc);
    const detail::UsbHandle handle(raw, libusb_close);
    libusb_set_auto_detach_kernel_driver(raw, 1);
    rc = libusb_claim_interface(raw, 0);
    if (rc == 0)
        libusb_release_interface(raw, 0);
    return Status::of_libusb(rc);
}

/**
 * Waits until a camera that restarts has left its port and is back, and can be opened. It goes by
 * its port: after a restart its serial number may be a new one. Looks each 50 ms, and asks
 * `cancelled` then, if there is one.
 *
 * Fails with Reason::kTimedOut when it never left, kNotBack when it has not come back, kStopped
 * when cancelled, and as can_claim() when it is back and cannot be opened.
 */
inline Result<CameraInfo> wait_for_restart(const CameraInfo& before, uint32_t timeout_ms,
                                           const std::function<bool()>& cancelled = {})
{
    constexpr uint32_t kPause_ms = 50;
    const std::string camera = "the camera at port " + before.port_path;
    bool left = false;
    Status missing;
    for (uint32_t waited_ms = 0;; waited_ms += kPause_ms) {
        const std::optional<CameraInfo> now = detail::find_at_port(before.port_path);
        left = left || !now || now->address != before.address;
        missing = now ? Status() : Status(Reason::kNotBack, camera + " has not come back");
        // The udev daemon needs a moment to give the new node its permissions.
        if (left && now)
            missing = can_claim(*now);
        if (left && missing)
            return *now;
        if (cancelled && cancelled())
            return Status(Reason::kStopped, "stopped");
        if (waited_ms >= timeout_ms)
            break;
        usleep(kPause_ms * 1000);
    }
    if (!left)
        return Status(Reason::kTimedOut, camera + " has not restarted");
    return missing;
}

} // namespace nyxus

#endif
