// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <memory>
#include <string_view>
#include <vector>

#include "bus/bed.h"
#include "bus/virtual_time.h"

namespace fuzz {

inline constexpr std::string_view kModels[] = {"rowan-spi", "cedar-spi",       "larch-spi",
                                               "fi2-spi",   "hawthorn-eeprom", "willow-eeprom"};
inline constexpr size_t kModelCount = std::size(kModels);

/// A camera of each model, on one bed, in simulated time. They live as long as the process.
class Cameras {
public:
    Cameras();

    sim::PluggedCamera& sim(size_t model) { return *cameras_[model]; }
    libusb_device* usb_device(size_t model) { return devices_[model]; }

private:
    sim::VirtualClock clock_;
    sim::InstalledVirtualClock installed_{clock_};
    sim::TestBed bed_{clock_};
    std::vector<sim::PluggedCamera*> cameras_;
    std::vector<libusb_device*> devices_;
};

/// The library's process-wide state as it was when the object was made.
class LibraryState {
public:
    LibraryState();
    void restore() const;

private:
    NyConfig settings_{};
    std::vector<std::vector<uvc_xu_ctrl>> tables_;
};

} // namespace fuzz
