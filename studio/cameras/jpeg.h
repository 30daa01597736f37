// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/video.hpp>

namespace studio {

/// A frame as browsers show it, behind `room` free bytes: MJPEG as it came, YUYV encoded. Empty for
/// any other format, and for what cannot be encoded.
std::vector<uint8_t> jpeg_of(const nyxus::Frame& frame, size_t room);

} // namespace studio
