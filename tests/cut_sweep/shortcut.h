// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "bus/bed.h"

namespace sweep {

/// While one lives, the library's control transfers reach the camera without libusb, whose event
/// loop takes ten times as long as the rest, except for those around a cut.
class Shortcut {
public:
    /// Nothing will go wrong.
    explicit Shortcut(sim::PluggedCamera& camera);
    /// The cut strikes this transfer, counted from 0. When the camera has gone with it, what comes
    /// long after ends as libusb has ended the transfers before.
    Shortcut(sim::PluggedCamera& camera, size_t cut, bool camera_goes);
    ~Shortcut();
    Shortcut(const Shortcut&) = delete;
    Shortcut& operator=(const Shortcut&) = delete;
};

} // namespace sweep
