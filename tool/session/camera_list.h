// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/camera_list.hpp>
#include <string>
#include <vector>

namespace tool {

/// A camera on the bus, as far as it is known without talking to it; its texts are printable.
using CameraEntry = nyxus::CameraInfo;

CameraEntry printable(CameraEntry entry);

/// One line for a message.
std::string description(const CameraEntry& entry);

/// The cameras that are plugged in now, by bus and port.
std::vector<CameraEntry> list_cameras();

/// The one camera that the user means ("" if there is only one); a Failure says what to do when
/// there is none, or more than one.
CameraEntry select_camera(const std::vector<CameraEntry>& cameras, const std::string& choice);

} // namespace tool
