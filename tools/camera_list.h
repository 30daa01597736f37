// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tool {

/// A camera on the bus, as far as it is known without talking to it.
struct CameraEntry {
    std::shared_ptr<libusb_device> device;
    unsigned bus = 0;
    unsigned address = 0;
    std::string port_path; ///< "1-2" or "1-2.3", as the kernel names it
    std::string serial;    ///< "" if it has none
    std::string product;

    std::string bus_address() const { return std::to_string(bus) + ":" + std::to_string(address); }
    /// How the user may name it: its bus:address, port path or serial number.
    bool matches(const std::string& choice) const;
    /// One line for a message.
    std::string description() const;
};

/// Why a camera cannot be opened; code 0 when it can.
struct Openable {
    int libusb_code = 0;
    std::string reason; ///< for the user
};

/// A libusb session. A fresh one sees the bus as it is now, with or without a udev daemon.
class UsbSession {
public:
    UsbSession();

    /// The cameras: devices of the maker with a video-class interface, by bus and port.
    std::vector<CameraEntry> cameras() const;

private:
    std::shared_ptr<libusb_context> context_;
};

/// Tries to open a camera without disturbing it.
Openable try_open(const CameraEntry& entry);
/// Tries to get hold of its control interface as well; disturbs nobody who has it.
Openable try_claim(const CameraEntry& entry);

/// The one camera that the user means ("" if there is only one); a Failure says what to do when
/// there is none, or more than one.
CameraEntry select_camera(const std::vector<CameraEntry>& cameras, const std::string& choice);

} // namespace tool
