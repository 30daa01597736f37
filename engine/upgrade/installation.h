// SPDX-License-Identifier: Apache-2.0
#pragma once

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
/// comes back.
Status install(const Task& task, const Plan& plan);

/// Gives a lost camera up and waits until the same one is back.
Status await_return(const Task& task);

} // namespace nyxus::engine
