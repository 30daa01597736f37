// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <string_view>
#include <vector>

#include "bus/bed.h"
#include "bus/virtual_time.h"

namespace bench {

/// A simulated camera in this process, on a clock of its own, so that nothing sleeps.
class SimCamera {
public:
    enum class Opened {
        kByLibuvc, ///< as users get it: libuvc's event thread runs beside
        kByLibusb, ///< the USB handle alone
    };

    SimCamera(const sim::CameraModel& model, Opened opened);
    ~SimCamera();
    SimCamera(const SimCamera&) = delete;
    SimCamera& operator=(const SimCamera&) = delete;

    NyDevice* device() { return device_; }
    libusb_device_handle* usb() { return device_->usb_handle; }
    sim::PluggedCamera& sim() { return *sim_; }
    sim::VirtualClock& clock() { return clock_; }
    /// The first bytes of the ROM, at the chip.
    std::vector<uint8_t> rom(size_t length);

private:
    void open(Opened opened);

    sim::VirtualClock clock_;
    sim::InstalledVirtualClock installed_{clock_};
    sim::TestBed bed_{clock_};
    sim::PluggedCamera* sim_;
    libusb_context* context_ = nullptr;
    libusb_device* usb_device_ = nullptr;
    NyDevice by_libusb_ = {};
    NyDevice* device_ = nullptr;
};

/// Throws for a name that does not exist.
const sim::CameraModel& model_named(std::string_view name);

/// Loads an image for the model into nyxus_fw_bin and returns it.
std::vector<uint8_t> load_image(const sim::CameraModel& model, uint32_t bytes);

} // namespace bench
