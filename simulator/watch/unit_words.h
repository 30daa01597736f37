// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "watch/plain_words.h"

namespace sim {

/// A request to a control of a unit or of the video interface.
Words control_in_words(const CameraModel& model, const Setup& setup, std::span<const uint8_t> data);

} // namespace sim
