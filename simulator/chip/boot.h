// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "model.h"

#include <array>
#include <cstdint>
#include <span>

namespace sim {

/// Where things stand in a firmware image, and so in the external ROM. Little-endian.
namespace image_layout {

inline constexpr uint32_t kMaxImageBytes = 32768;
inline constexpr uint32_t kMinImageBytes = 0x80;

// Header: 64 bytes, closed by its own checksum so that a half-written one is not mistaken.
inline constexpr uint32_t kMagic = 0x00;          // 4 bytes
inline constexpr uint32_t kBodyLength = 0x04;     // u32
inline constexpr uint32_t kBodyChecksum = 0x08;   // u32
inline constexpr uint32_t kHeaderChecksum = 0x3C; // u32, over what stands before it
inline constexpr uint32_t kBody = 0x40;

// ROM header at the start of the body.
inline constexpr uint32_t kSignature = 0x40; // 2 characters
inline constexpr uint32_t kRomSize = 0x46;   // in 512-byte units
inline constexpr uint32_t kRomSizeAlternative = 0x56;
inline constexpr uint32_t kFirmwareVersion = 0x60;     // u16
inline constexpr uint32_t kSensorApplicationId = 0x62; // u16
inline constexpr uint32_t kHasSetfile = 0x64;
inline constexpr uint32_t kSetfileText = 0x65; // 11 bytes, zero-padded
inline constexpr uint32_t kCode = 0x70;

inline constexpr std::array<uint8_t, 4> kMagicBytes = {'N', 'X', 'F', 'W'};
inline constexpr uint32_t kSetfileVersionBytes = 11;

} // namespace image_layout

/// What the controller runs and therefore reports.
struct RunningFirmware {
    bool external = false;
    uint16_t version = 0;
    uint16_t sensor_application_id = 0;
    bool has_setfile = false;
    std::array<uint8_t, image_layout::kSetfileVersionBytes> setfile_version{};
};

/// Starts the firmware in the ROM when it is complete and made for this chip, else the mask ROM's.
RunningFirmware boot(const CameraModel& model, std::span<const uint8_t> rom);

/// Checksum that guards header and body of an image.
uint32_t image_checksum(std::span<const uint8_t> bytes);

} // namespace sim
