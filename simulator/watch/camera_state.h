// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>

namespace sim {

struct RegisterRange {
    uint16_t first = 0;
    uint16_t last = 0;
};

/// Everything that is to be seen of a camera. Without a range, the registers that are not 0 are
/// shown; `with_rom`: the ROM's contents too, in hex.
nlohmann::ordered_json camera_state(PluggedCamera& camera,
                                    const std::optional<RegisterRange>& registers, bool with_rom);

} // namespace sim
