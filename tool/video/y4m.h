// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/video.hpp>
#include <string>

// YUV4MPEG2, video that most programs read without being told what it is.
namespace tool {

/// What the file begins with; `interval` of the frames in units of 100 ns.
std::string y4m_header(uint32_t width, uint32_t height, uint32_t interval);
/// A YUYV frame in it.
std::string y4m_frame(const nyxus::Frame& frame);

} // namespace tool
