// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/usb_camera.h"

namespace sim {

/// The requests and answers by which a host's kernel gets to know a camera that was plugged in,
/// from its new address on. They are only told of: no transfer reaches the camera.
std::vector<Transfer> enumeration(const UsbCamera& camera);

} // namespace sim
