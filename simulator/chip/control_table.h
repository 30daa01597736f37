// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "model.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace sim {

/// Selectors of the vendor extension unit (unit 6).
enum Selector : uint8_t {
    kFlashBlock = 0x02,
    kExtRom = 0x03,
    kFlip = 0x04,
    kMirror = 0x05,
    kReg = 0x06,
    kSensor = 0x07,
    kMcu = 0x08,
    kIntRom = 0x09,
    kHwVersion = 0x0A,
    kExtRomType = 0x0B,
    kSetfileVersion = 0x0C,
    kIntFwVersion = 0x0D,
    kWriteProtect = 0x0E,
    kOneWire = 0x0F,
    kExtRomChecksum = 0x11,
    kSpiStatus = 0x12,
    kOsd = 0x13,
    kJpgGain = 0x15,
    kXuVersion = 0x16,
    kExtRom512 = 0x18,
    kDevStatus = 0x19,
    kFlashInfo = 0x1B,
    kFlashReadId = 0x1C,
    kSelectorEnd,
};

/// One control as the firmware of a camera has it.
struct Control {
    uint8_t selector;
    uint16_t length;
    bool is_read_only;
    bool is_memory; ///< it reads and writes a memory: memory_frame.h
};

inline constexpr uint16_t kLongestControl = 516;

/// The firmware announces the wide memory controls: 32-byte ROM exchanges, write enable inside.
constexpr bool is_newer_firmware(const CameraModel& model)
{
    return model.has_xu_version && model.has_memory_extension && !model.selects_every_block;
}

/// Nothing when the camera's firmware does not know the selector.
std::optional<Control> find_control(const CameraModel& model, uint8_t selector);

/// "EXT_ROM"; empty when there is no such control.
std::string_view control_name(uint8_t selector);

} // namespace sim
