// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace nyxus {

/// Who a control belongs to.
enum class ControlUnit : uint8_t { kCameraTerminal, kProcessingUnit };

/// Where the range of a control is from.
enum class ControlRange : uint8_t {
    kAsked,  ///< the camera tells
    kFixed,  ///< the class says
    kChoice, ///< so it does, and the camera tells in its step which bits may be chosen
};

/// A standard control, or a part of one that holds several values.
struct StandardControl {
    uint32_t id; ///< NYXUS_CONTROL_*
    const char* name;
    ControlUnit unit;
    uint8_t bit; ///< of the unit's bmControls
    uint8_t selector;
    uint8_t length_bytes; ///< of the whole control
    uint8_t offset;       ///< of this part
    uint8_t size_bytes;   ///< of this part
    bool is_signed;
    ControlRange range;
    int16_t minimum; ///< where the class says it
    int16_t maximum;
};

constexpr uint8_t kMostControlBytes = 8;

/// nullptr for a number that names none.
const StandardControl* find_standard_control(uint32_t id);

} // namespace nyxus
