// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"

#include <cstddef>
#include <filesystem>

namespace sim {

/// What the sensor sees: a PNG, a JPEG or several of them, or, with a size, YUYV. Throws
/// DescriptionError for what cannot be read or decoded.
Film read_scene(const std::filesystem::path& path, const FrameSize& raw_size);
/// The same of bytes in memory.
Film scene(std::vector<uint8_t> bytes, const FrameSize& raw_size);

/// An H.264 stream in Annex B, in its access units. Throws DescriptionError for a file that cannot
/// be read or looped, and for a frame larger than `most_frame_bytes`.
Film read_h264_film(const std::filesystem::path& path, size_t most_frame_bytes);
/// The same of bytes in memory.
Film h264_film(std::vector<uint8_t> bytes, size_t most_frame_bytes);

} // namespace sim
