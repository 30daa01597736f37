// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"
#include "chip/uvc_request.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

inline constexpr unsigned kInterfaceCount = 2;
inline constexpr uint8_t kControlInterface = 0;
inline constexpr uint8_t kVideoInterface = 1;
inline constexpr uint8_t kInterruptEndpoint = 0x83;
inline constexpr uint8_t kVideoEndpoint = 0x81;

inline constexpr uint8_t kCameraTerminal = 1;
inline constexpr uint8_t kProcessingUnit = 2; ///< the extension units are the chip's

/// Where a host finds a standard control.
struct ControlPlace {
    std::string_view name;
    uint8_t unit;
    uint8_t selector;
    uint8_t bit; ///< of the unit's bmControls
    uint8_t bytes = 2;
    uint8_t offset = 0; ///< in the record
    uint8_t record_bytes = bytes;
};
// clang-format off
inline constexpr ControlPlace kControlPlaces[kPictureControls] = {
//   name                      unit             selector bit bytes offset, bytes of the record
    {"brightness",             kProcessingUnit, 0x02,     0},
    {"contrast",               kProcessingUnit, 0x03,     1},
    {"saturation",             kProcessingUnit, 0x07,     3},
    {"hue",                    kProcessingUnit, 0x06,     2},
    {"gain",                   kProcessingUnit, 0x04,     9},
    {"white_balance",          kProcessingUnit, 0x0A,     6},
    {"white_balance_auto",     kProcessingUnit, 0x0B,    12, 1},
    {"zoom",                   kCameraTerminal, 0x0B,     9},
    {"hue_auto",               kProcessingUnit, 0x10,    11, 1},
    {"sharpness",              kProcessingUnit, 0x08,     4},
    {"gamma",                  kProcessingUnit, 0x09,     5},
    {"backlight_compensation", kProcessingUnit, 0x01,     8},
    {"power_line_frequency",   kProcessingUnit, 0x05,    10, 1},
    {"exposure_mode",          kCameraTerminal, 0x02,     1, 1},
    {"exposure_priority",      kCameraTerminal, 0x03,     2, 1},
    {"exposure_time",          kCameraTerminal, 0x04,     3, 4},
    {"focus",                  kCameraTerminal, 0x06,     5},
    {"focus_auto",             kCameraTerminal, 0x08,    17, 1},
    {"iris",                   kCameraTerminal, 0x09,     7},
    {"pan",                    kCameraTerminal, 0x0D,    11, 4, 0, 8},
    {"tilt",                   kCameraTerminal, 0x0D,    11, 4, 4, 8},
    {"roll",                   kCameraTerminal, 0x0F,    13},
    {"privacy",                kCameraTerminal, 0x11,    18, 1},
};
// clang-format on
inline constexpr uint32_t kPayloadHeaderBytes = 12;
inline constexpr uint32_t kBulkPacketBytes = 512;
inline constexpr uint32_t kMostPacketBytes = 1024; ///< of an isochronous endpoint

std::vector<uint8_t> device_descriptor(const CameraModel& model);
/// What the device would be at full speed: the same.
std::vector<uint8_t> device_qualifier(std::span<const uint8_t> device_descriptor);
std::vector<uint8_t> configuration_descriptor(const CameraModel& model);
/// The part of it that describes setting 0 of interface `number`, alone.
std::vector<uint8_t> interface_descriptor(const CameraModel& model, unsigned number);
/// Index 0: the languages. Otherwise the text as UTF-16.
std::vector<uint8_t> language_descriptor();
std::vector<uint8_t> string_descriptor(const std::string& text);

} // namespace sim
