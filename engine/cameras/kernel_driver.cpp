// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/file.h>
#include <algorithm>
#include <chrono>
#include <fstream>
#include <nyxus/engine/kernel_driver.hpp>

#include "loan.h"
#include "report/state_folder.h"

namespace nyxus::engine {

namespace {

namespace fs = std::filesystem;

constexpr int kControlInterface = 0;
constexpr int kVideoInterface = 1;

// The cameras that are open. Under the lock:
std::timed_mutex in_use;
std::vector<const Loan*> open_loans;

/// Empty without a state folder.
fs::path folder()
{
    const fs::path state = usual_state_folder();
    return state.empty() ? state : state / "lent";
}

detail::UsbHandle open_device(const CameraInfo& entry, int& status)
{
    libusb_device_handle* handle = nullptr;
    status = libusb_open(entry.device.get(), &handle);
    return {handle, libusb_close};
}

/// "0 1"
std::string driven_interfaces(const CameraInfo& entry)
{
    int status = 0;
    const auto handle = open_device(entry, status);
    std::string interfaces;
    for (const int interface : {kControlInterface, kVideoInterface}) {
        if (handle && libusb_kernel_driver_active(handle.get(), interface) == 1)
            interfaces += (interfaces.empty() ? "" : " ") + std::to_string(interface);
    }
    return interfaces;
}

files::Descriptor locked(const fs::path& file, int flags)
{
    files::Descriptor lock(open(file.c_str(), flags | O_CLOEXEC, 0600));
    return lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(lock)
                                                             : files::Descriptor();
}

/// Whether the driver has the camera then. Other threads may take the control interface again in
/// between, the library for its next transfer, libuvc for that of the status endpoint; but not from
/// the driver.
bool let_go(libusb_device_handle* handle)
{
    constexpr int kTries = 20;
    libusb_set_auto_detach_kernel_driver(handle, 0);
    (void)libusb_release_interface(handle, kVideoInterface);
    int status = LIBUSB_ERROR_BUSY;
    for (int i = 0; i < kTries && status == LIBUSB_ERROR_BUSY; ++i) {
        (void)libusb_claim_interface(handle, kControlInterface); // which is not always known
        (void)libusb_release_interface(handle, kControlInterface);
        status = libusb_attach_kernel_driver(handle, kControlInterface);
    }
    return status == 0;
}

/// The interfaces are offered to the drivers that want them. 0, or a libusb code.
int offer_to_drivers(libusb_device_handle* handle, const fs::path& file)
{
    std::ifstream interfaces(file);
    int result = LIBUSB_ERROR_NOT_FOUND;
    for (int interface = 0; interfaces >> interface;) {
        const int status = libusb_attach_kernel_driver(handle, interface);
        if (interface == kControlInterface)
            result = status;
    }
    return result;
}

/// What became of a camera that was left; "" when there is nothing to say.
std::string put_back(const CameraInfo& entry, const fs::path& file)
{
    const std::string camera = "camera " + entry.bus_address() + ", port " + entry.port_path;
    int status = 0;
    const auto handle = open_device(entry, status);
    const bool is_back =
        handle && libusb_kernel_driver_active(handle.get(), kControlInterface) == 1;
    if (handle && !is_back)
        status = offer_to_drivers(handle.get(), file);
    if (status == LIBUSB_ERROR_ACCESS || status == LIBUSB_ERROR_BUSY) {
        return camera + " is not back with the kernel's video driver, since it was left behind: " +
               usb_reason(status);
    }
    std::error_code none;
    fs::remove(file, none);
    return is_back || status != 0
               ? ""
               : camera +
                     " is back with the kernel's video driver; a nyxus that was killed had "
                     "left it without";
}

void put_back_all(std::vector<std::string>& lines)
{
    const auto cameras = list_cameras();
    if (!cameras)
        return;
    for (const fs::directory_entry& left : fs::directory_iterator(folder())) {
        const files::Descriptor lock = locked(left.path(), O_RDWR);
        if (!lock)
            continue; // who took the camera still has it
        const auto camera =
            std::ranges::find(*cameras, left.path().filename().string(), &CameraInfo::port_path);
        if (camera == cameras->end()) {
            fs::remove(left.path()); // plugged in again, it gets its driver by itself
        } else if (std::string line = put_back(*camera, left.path()); !line.empty()) {
            lines.push_back(std::move(line));
        }
    }
}

} // namespace

std::unique_lock<std::timed_mutex> hold_cameras(std::chrono::seconds patience)
{
    return std::unique_lock(in_use, patience);
}

std::unique_lock<std::timed_mutex> hold_cameras()
{
    return std::unique_lock(in_use);
}

Loan::Loan(const CameraInfo& camera)
{
    const std::string interfaces = driven_interfaces(camera);
    is_lent_ = !interfaces.empty();
    const fs::path place = folder();
    if (!is_lent_ || place.empty())
        return;
    std::error_code none;
    fs::create_directories(place, none);
    file_ = place / camera.port_path;
    lock_ = locked(file_, O_RDWR | O_CREAT);
    if (lock_)
        std::ofstream(file_) << interfaces << "\n";
}

Loan::~Loan()
{
    std::erase(open_loans, this);
    forget();
}

void Loan::set_open(libusb_device_handle* handle)
{
    handle_ = handle;
    open_loans.push_back(this);
}

void Loan::give_back() const
{
    if (is_lent_ && let_go(handle_))
        forget();
}

void Loan::forget() const
{
    std::error_code none;
    if (lock_)
        fs::remove(file_, none);
}

void give_cameras_back()
{
    constexpr std::chrono::seconds kLongestWait{1};
    std::unique_lock lock = hold_cameras(kLongestWait);
    if (!lock)
        return;
    std::ranges::for_each(open_loans, &Loan::give_back);
    lock.release(); // held for good: whoever closes or opens a camera now waits for the end
}

std::vector<std::string> put_left_cameras_back()
{
    std::vector<std::string> lines;
    try {
        if (const fs::path place = folder(); fs::exists(place) && !fs::is_empty(place))
            put_back_all(lines);
    } catch (
        const std::exception&) { // NOLINT(bugprone-empty-catch): nobody has come for this alone
    }
    return lines;
}

} // namespace nyxus::engine
