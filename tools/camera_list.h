// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/camera_list.hpp>
#include <string>
#include <vector>

namespace tool {

/// A camera on the bus, as far as it is known without talking to it; its texts are printable.
using CameraEntry = nyxus::CameraInfo;

/// One line for a message.
std::string description(const CameraEntry& entry);

/// Why a camera cannot be opened; code 0 when it can.
struct Openable {
    int libusb_code = 0;
    std::string reason; ///< for the user
};

/// The cameras that are plugged in now, by bus and port.
std::vector<CameraEntry> list_cameras();

/// Tries to open a camera without disturbing it.
Openable try_open(const CameraEntry& entry);
/// Tries to get hold of its control interface as well; disturbs nobody who has it.
Openable try_claim(const CameraEntry& entry);

/// The one camera that the user means ("" if there is only one); a Failure says what to do when
/// there is none, or more than one.
CameraEntry select_camera(const std::vector<CameraEntry>& cameras, const std::string& choice);

} // namespace tool
