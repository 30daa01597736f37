// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "bus/bed.h"
#include "operation.h"
#include "support/simulated_time.h"

namespace sweep {

/// One opened camera. Closes itself; a camera that has gone is closed as the library does it.
class Session {
public:
    /// Opened and probed by the library; device() is nullptr when the probe fails.
    static std::unique_ptr<Session> create(const sim::PluggedCamera& camera);
    /// Opened without libuvc, whose threads take their time, with what an earlier probe has found.
    static std::unique_ptr<Session> like(const NyDevice& probed, const sim::PluggedCamera& camera);
    /// Opened and probed as a camera whose ROM holds no firmware is: by trying read-ID commands.
    static std::unique_ptr<Session> probe_blank(const sim::PluggedCamera& camera);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    NyDevice* device() { return device_; }

private:
    explicit Session(const sim::PluggedCamera& camera);

    libusb_context* context_ = nullptr;
    libusb_device* usb_ = nullptr;
    NyDevice* device_ = nullptr;
    std::unique_ptr<NyDevice> own_;
};

/// One simulated camera of a model, whose time passes only as it is used.
class Bench {
public:
    explicit Bench(const sim::CameraModel& model);

    const sim::CameraModel& model() const { return model_; }
    sim::TestBed& bed() { return bed_; }
    sim::PluggedCamera& camera() { return camera_; }
    uint64_t now_us() { return time_.now_us(); }

    Bytes rom();
    /// Power off, these contents into the ROM, power on; its users keep it open.
    void restart_with(const Bytes& rom);
    /// The same, with a new address.
    void replug_with(const Bytes& rom);
    /// Ends all faults.
    void heal();
    /// umockdev's preloaded library loses some of its 50 descriptors with every plug, and ends the
    /// process when there are no more.
    bool is_worn_out() const { return plugs_ >= kMostPlugs; }

private:
    static constexpr int kMostPlugs = 8;

    const sim::CameraModel& model_;
    int plugs_ = 0;
    SimulatedTime time_;
    sim::TestBed bed_{time_.clock()};
    sim::PluggedCamera& camera_;
};

/// Starts the library and the process with known settings.
void prepare_process();

} // namespace sweep
