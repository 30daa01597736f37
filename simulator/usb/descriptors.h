// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"
#include "chip/uvc_request.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

inline constexpr char kManufacturer[] = "NYXUS Simulator";
inline constexpr uint16_t kVendorId = 0x1162;
inline constexpr unsigned kInterfaceCount = 2;
inline constexpr uint8_t kControlInterface = 0;
inline constexpr uint8_t kVideoInterface = 1;
inline constexpr uint8_t kInterruptEndpoint = 0x83;
inline constexpr uint8_t kVideoEndpoint = 0x81;

inline constexpr uint8_t kProcessingUnit = 2; ///< the extension units are the chip's

/// A picture size that the video interface offers; its frame index is its place, counted from 1.
struct FrameSize {
    uint16_t width;
    uint16_t height;
    std::array<uint32_t, 3> intervals_100ns; ///< between frames, shortest first

    uint32_t bytes() const { return static_cast<uint32_t>(width) * height * 2; }
};
inline constexpr FrameSize kFrameSizes[] = {
    {320, 240, {333333, 666666, 1000000}},
    {640, 480, {333333, 666666, 1000000}},
    {1280, 720, {1000000, 2000000, 5000000}}, // more would not fit through the bus
};
inline constexpr uint32_t kPayloadHeaderBytes = 12;
inline constexpr uint32_t kBulkPacketBytes = 512;
/// Per microframe, in the alternate settings 1 and 2 of an isochronous camera.
inline constexpr uint32_t kIsoPacketBytes[] = {1024, 3072};

std::vector<uint8_t> device_descriptor(const CameraModel& model);
std::vector<uint8_t> configuration_descriptor(const CameraModel& model);
/// The part of it that describes setting 0 of interface `number`, alone.
std::vector<uint8_t> interface_descriptor(const CameraModel& model, unsigned number);
/// Index 0: the languages. Otherwise the text as UTF-16.
std::vector<uint8_t> language_descriptor();
std::vector<uint8_t> string_descriptor(const std::string& text);

} // namespace sim
