// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"
#include "console.h"

#include <nyxus/device.h>
#include <optional>
#include <span>
#include <vector>

namespace tool {

/// Sets the library's process-wide settings. Call once, before the first camera is opened.
void prepare_library(int verbosity);

/// What the probe has learnt about the external ROM.
enum class RomState {
    kFirmware, ///< it holds firmware for this chip
    kBlank,    ///< it holds none; the flash has told what it is
    kUnknown,  ///< it holds none, and no flash answers: an EEPROM, or nothing
};

/// A probed camera. It is closed when the object dies.
class Camera {
public:
    /// Opens and probes; a camera whose ROM holds no firmware is probed with a guess at its flash.
    static Camera open(const CameraEntry& entry);

    Camera(Camera&&) noexcept = default;
    Camera& operator=(Camera&&) noexcept = default;

    NyDevice& device() { return *device_; }
    const NyDevice& device() const { return *device_; }
    const CameraEntry& entry() const { return entry_; }

    bool is_spi() const { return device_->xSpiMode != 0; }
    bool runs_external_firmware() const { return device_->oFwStatus.xExtFwExist != 0; }
    RomState rom_state() const { return rom_state_; }
    /// Takes an unknown ROM for an EEPROM of this size.
    void assume_eeprom(uint32_t size_bytes);
    /// Closes it before the object dies; nothing but destruction and assignment may follow.
    void give_up() { device_.reset(); }
    std::string chip() const;
    std::string family() const;
    /// "serial ABC, NY6410" for messages.
    std::string name() const;
    /// Bytes that one exchange with the external ROM moves.
    unsigned exchange_bytes() const { return device_->xFeatureXU != 0 ? 32 : 8; }
    /// Reading by 512 bytes has gone wrong; it is not tried again.
    bool wide_path_fails = false;

private:
    Camera(CameraEntry entry, std::shared_ptr<NyDevice> device, RomState rom_state)
        : entry_(std::move(entry)), device_(std::move(device)), rom_state_(rom_state)
    {
    }

    CameraEntry entry_;
    std::shared_ptr<NyDevice> device_;
    RomState rom_state_;
};

/// Where two byte ranges differ.
struct Difference {
    size_t count = 0;
    std::vector<size_t> first_offsets; ///< at most kMostOffsets
    static constexpr size_t kMostOffsets = 5;
};
Difference find_difference(std::span<const uint8_t> a, std::span<const uint8_t> b);

} // namespace tool
