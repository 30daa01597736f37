// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bus/bed.h"
#include "support/captured.h"
#include "support/simulated_time.h"

/// Names of the camera models; a test names those that it runs on.
namespace models {
inline constexpr std::string_view kRowan = "rowan-spi";          // XU 0x0002, chip erase
inline constexpr std::string_view kCedar = "cedar-spi";          // XU 0x0003, block erase
inline constexpr std::string_view kLarch = "larch-spi";          // no XU version, GPIO 0 unlocks
inline constexpr std::string_view kFi2 = "fi2-spi";              // XU 0x0101
inline constexpr std::string_view kHawthorn = "hawthorn-eeprom"; // no XU version
inline constexpr std::string_view kWillow = "willow-eeprom";     // XU 0x0100
inline constexpr std::string_view kAll[] = {kRowan, kCedar, kLarch, kFi2, kHawthorn, kWillow};
} // namespace models

/// What usleep() and gettimeofday() of a test run on. Video needs real time: libuvc waits by it.
enum class Time { kSimulated, kReal };

/// One camera on a bed of its own, with what the library printed kept aside.
class Camera {
public:
    explicit Camera(std::string_view model, std::vector<uint8_t> rom = {})
        : Camera(model, Time::kSimulated, std::move(rom))
    {
    }
    Camera(std::string_view model, Time time, std::vector<uint8_t> rom = {});
    Camera(const sim::CameraModel& model, Time time, std::vector<uint8_t> rom = {});
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// The probed device object; fails the test when there is none.
    NyDevice* device();
    /// DEV_CreateObjectUsb on the camera as it is now; nullptr when the probe fails.
    NyDevice* create();
    /// DEV_CreateObjectUsb for any device; the caller deletes the object.
    static NyDevice* create(libusb_device* device);
    /// DEV_DeleteObject.
    void remove();
    /// The libusb device of the camera as it is now, nullptr when it is not on the bus.
    libusb_device* usb_device() { return usb_device_of(*sim_); }
    /// The same for another camera on the bed.
    libusb_device* usb_device_of(const sim::PluggedCamera& camera);

    sim::TestBed& bed() { return bed_; }
    sim::PluggedCamera& sim() { return *sim_; }
    SimulatedTime& time() { return time_; }
    /// Bytes of the external ROM.
    std::vector<uint8_t> rom(size_t address, size_t length);
    /// Standard error since the camera was made, without what libuvc says of every camera.
    std::string printed();

    /// Forgets the recorded transfers.
    void listen() { sim_->clear_transfers(); }
    std::vector<std::string> wire();

    /// From now on the nth request (counted from 0) to a control fails.
    void fail(uint8_t request, uint8_t selector, sim::Fault fault, unsigned nth = 0);
    /// Every request to a control is answered so.
    void answer(uint8_t request, uint8_t selector, std::vector<uint8_t> bytes);
    void heal() { sim_->set_fault({}); }

private:
    SimulatedTime time_;
    sim::TestBed bed_{time_.clock()};
    sim::PluggedCamera* sim_;
    std::vector<std::pair<libusb_context*, libusb_device*>> usb_;
    NyDevice* device_ = nullptr;
    Captured err_;
};

/// Loads an image of `size` bytes for the model into nyxus_fw_bin and returns it.
std::vector<uint8_t> load_image(std::string_view model, uint32_t size = 32768,
                                uint16_t version = 0x0205, uint64_t seed = 7);
std::vector<uint8_t> load_image(const sim::CameraModel& model, uint32_t size,
                                uint16_t version = 0x0205, uint64_t seed = 7);
