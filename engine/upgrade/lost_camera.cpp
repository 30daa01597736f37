// SPDX-License-Identifier: Apache-2.0
#include "installation.h"
#include "report/phase_scope.h"
#include "text/printable.h"
#include "units/unit_log.h"

namespace nyxus::engine {

namespace {

/// Whether something of the lost camera alone is written: it must not get into another one.
bool writes_one_units(const Task& task, const Plan& plan)
{
    return !plan.kept.empty() || (task.images.mfi && task.images.mfi->is_for_one_camera());
}

bool has_same_number(const CameraInfo& before, const Camera& now)
{
    return !before.serial.empty() &&
           text::printable(now.info().serial) == text::printable(before.serial);
}

/// The ROM tells a camera from others. Where it is as it was, blank, or holds images that any
/// camera may hold, it proves nothing, and the serial number has to be the same; unless the ROM is
/// blank, so that a number in it is gone, and nothing of one unit's will be written.
bool is_same_camera(const Task& task, const Plan& plan, const Footprint& footprint,
                    const CameraInfo& before, const Camera& now, Bytes rom)
{
    const bool has_units_own = writes_one_units(task, plan);
    if (!footprint.fits(rom))
        return false;
    if (has_same_number(before, now))
        return true;
    if (is_blank(rom))
        return !has_units_own;
    return footprint.differs_from_before(rom) && (has_units_own || !is_up_to_date(plan, rom));
}

Result<std::vector<uint8_t>> read_left(Camera& now, const Footprint& footprint,
                                       const Caller& caller)
{
    auto rom = read_rom(now, 0, footprint.size(), caller);
    if (!rom || footprint.fits(*rom))
        return rom;
    Status same = confirm_rom(now, 0, *rom, caller);
    return same ? std::move(rom) : same;
}

/// What sits at the port now has no backup of ours, and may be the next camera.
Status refuse_other_camera(const Task& task, const Plan& plan, const Footprint& footprint,
                           const CameraInfo& before, Camera& now)
{
    const auto rom = read_left(now, footprint, task.caller);
    if (!rom)
        return rom.status();
    if (is_same_camera(task, plan, footprint, before, now, *rom))
        return {};
    const std::string serial = text::printable(before.serial);
    const std::string lost =
        serial.empty() ? "without a serial number" : "with serial number " + serial;
    return {Reason::kCameraGone,
            now.name() + " is at port " + before.port_path + " now, but perhaps not the camera " +
                lost + " that went away" +
                (footprint.fits(*rom) ? "" : " (its ROM does not hold what was left there)") +
                ", so it is left alone"};
}

Result<Camera> open_returned(const CameraInfo& before, Use use, unsigned wait_s,
                             const Caller& caller)
{
    PhaseScope scope(caller, Phase::kWaiting, 0, before.port_path);
    const auto now = wait_for_return(before, wait_s, caller);
    auto camera = now ? Camera::open(*now, use) : now.status();
    if (camera)
        scope.end();
    return camera;
}

} // namespace

Status await_return(const Task& task, const Plan& plan, const Footprint& footprint)
{
    const CameraInfo before = task.camera.info();
    const uint32_t eeprom_bytes = task.camera.has_spi_flash() ? 0 : task.camera.rom_size();
    auto log = UnitLog::of(task.backups, task.camera);
    task.camera.close();
    auto returned = open_returned(before, task.camera.use(), task.options.wait_s, task.caller);
    if (!returned)
        return returned.status();
    if (Status rom = returned->require_rom(eeprom_bytes); !rom)
        return rom;
    if (!check_images(*returned, task.images)) { // they fitted the lost one
        return {Reason::kCameraGone, "another kind of camera, " + returned->name() +
                                         ", has come back and is left alone"};
    }
    if (Status same = refuse_other_camera(task, plan, footprint, before, *returned); !same)
        return same;
    returned->queue_depth = task.camera.queue_depth;
    task.camera = *std::move(returned);
    return log ? log->note_return(task.camera) : log.status();
}

} // namespace nyxus::engine
