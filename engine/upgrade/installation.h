// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "footprint.h"
#include "rom_change.h"

namespace nyxus::engine {

/// What an upgrade works with.
struct Task {
    Camera& camera;
    const Images& images;
    const UpgradeOptions& options;
    const Backups& backups;
    const Caller& caller;
    Report& report; ///< is filled in as it goes
};

/// Does the steps of a plan that follow the backup; once more with a camera that goes away and
/// comes back. `before` is what has been read of the ROM.
Status install(const Task& task, const Plan& plan, Bytes before);

/// Gives a lost camera up and waits until the same one is back.
Status await_return(const Task& task, const Plan& plan, const Footprint& footprint);

} // namespace nyxus::engine
