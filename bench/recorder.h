// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "recording.h"
#include "sim_camera.h"

namespace bench {

/// What `operation` does on the wire, and when.
Recording record(SimCamera& camera, const std::function<void()>& operation);

uint64_t count_transfers(SimCamera& camera, const std::function<void()>& operation);

/// Whether both make the same transfers with the same data.
bool moves_the_same(SimCamera& camera, const std::function<void()>& one,
                    const std::function<void()>& other);

} // namespace bench
