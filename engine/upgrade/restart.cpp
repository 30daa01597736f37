// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/upgrade.hpp>

#include "report/phase_scope.h"
#include "units/unit_log.h"

namespace nyxus::engine {

Result<Camera> restart(Camera camera, unsigned wait_s, const Backups& backups, const Caller& caller)
{
    const CameraInfo before = camera.info();
    const Use use = camera.use();
    const unsigned queue_depth = camera.queue_depth;
    auto log = UnitLog::of(backups, camera);
    PhaseScope scope(caller, Phase::kRestarting, 0, before.port_path);
    // The chip may be gone before it has confirmed the request, so a failure says nothing: whether
    // the camera comes back decides.
    (void)camera.restart();
    camera.close();
    const auto now = wait_for_return(before, wait_s, caller);
    if (!now)
        return now.status();
    auto returned = Camera::open(*now, use);
    if (!returned)
        return returned;
    returned->queue_depth = queue_depth;
    scope.end();
    if (log)
        (void)log->note_restart(*returned); // check_started() tells
    return returned;
}

Status check_started(const Camera& camera, const Backups& backups)
{
    if (const auto log = UnitLog::of(backups, camera); log)
        return log->latest_restart(camera);
    return camera.runs_external_firmware() ? Status() : not_started(camera, "");
}

} // namespace nyxus::engine
