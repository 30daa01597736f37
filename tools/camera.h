// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"
#include "console.h"
#include "kernel_driver.h"

#include <nyxus/cpp/camera.hpp>
#include <optional>
#include <span>
#include <vector>

namespace tool {

/// Sets the library's process-wide settings. Call once, before the first camera is opened.
void prepare_library(int verbosity);

using nyxus::RomState;

/// A probed camera. It is closed when the object dies.
class Camera {
public:
    /// Opens and probes; a camera whose ROM holds no firmware is probed with a guess at its flash.
    static Camera open(const CameraEntry& entry);
    ~Camera() { give_up(); }
    Camera(Camera&&) noexcept = default;
    Camera& operator=(Camera&& other) noexcept;

    nyxus::Camera& opened() { return camera_; }
    NyDevice& device() { return *camera_.device(); }
    const NyDevice& device() const { return *camera_.device(); }
    const CameraEntry& entry() const { return camera_.info(); }

    bool is_spi() const { return camera_.has_spi_flash(); }
    bool runs_external_firmware() const { return camera_.runs_external_firmware(); }
    RomState rom_state() const { return camera_.rom_state(); }
    /// Takes an unknown ROM for an EEPROM of this size.
    void assume_eeprom(uint32_t size_bytes);
    /// Closes it before the object dies; nothing but destruction and assignment may follow.
    void give_up();
    std::string chip() const;
    std::string family() const { return camera_.family(); }
    /// "serial ABC, NY6410" for messages.
    std::string name() const;
    /// Bytes that one exchange with the external ROM moves.
    unsigned exchange_bytes() const { return device().xFeatureXU != 0 ? 32 : 8; }
    /// Reading by 512 bytes has gone wrong; it is not tried again.
    bool wide_path_fails = false;

private:
    using Loan = std::unique_ptr<kernel_driver::Loan>;

    Camera(nyxus::Camera camera, Loan loan);

    nyxus::Camera camera_;
    Loan loan_; ///< empty: the camera is closed, or another object's
};

/// Where two byte ranges differ.
struct Difference {
    size_t count = 0;
    std::vector<size_t> first_offsets; ///< at most kMostOffsets
    static constexpr size_t kMostOffsets = 5;
};
Difference find_difference(std::span<const uint8_t> a, std::span<const uint8_t> b);

} // namespace tool
