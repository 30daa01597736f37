// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/images.hpp>
#include <string>

namespace tool {

/// "contents of a ROM (NXFW 0x0205), MFi image with serial number A0001234"
std::string summary_of(const nyxus::engine::ImageFacts& facts);

} // namespace tool
