// SPDX-License-Identifier: Apache-2.0
#include "installation.h"
#include "report/phase_scope.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

/// A camera that goes by the same serial number is the same one. Without firmware it may have none;
/// should that be another camera, it has no firmware to lose, but it must not get this serial
/// number.
bool is_same_camera(const CameraInfo& before, const Camera& now, const Images& images)
{
    const std::string serial = text::printable(now.info().serial);
    if (!serial.empty())
        return serial == text::printable(before.serial);
    return !now.runs_external_firmware() && !(images.mfi && images.mfi->is_for_one_camera());
}

/// What sits at the port now has no backup of ours, and may be the next camera.
Status refuse_other_camera(const CameraInfo& before, const Camera& now, const Images& images)
{
    if (is_same_camera(before, now, images))
        return {};
    const std::string serial = text::printable(before.serial);
    const std::string lost =
        serial.empty() ? "without a serial number" : "with serial number " + serial;
    return {Reason::kCameraGone, now.name() + " is at port " + before.port_path +
                                     " now, but perhaps not the camera " + lost +
                                     " that went away, so it is left alone"};
}

Result<Camera> open_returned(const CameraInfo& before, Use use, unsigned wait_s, const Caller& caller)
{
    PhaseScope scope(caller, Phase::kWaiting, 0, before.port_path);
    const auto now = wait_for_return(before, wait_s, caller);
    auto camera = now ? Camera::open(*now, use) : now.status();
    if (camera)
        scope.end();
    return camera;
}

} // namespace

Status await_return(const Task& task)
{
    const CameraInfo before = task.camera.info();
    const uint32_t eeprom_bytes = task.camera.has_spi_flash() ? 0 : task.camera.rom_size();
    task.camera.close();
    auto returned = open_returned(before, task.camera.use(), task.options.wait_s, task.caller);
    if (!returned)
        return returned.status();
    if (Status same = refuse_other_camera(before, *returned, task.images); !same)
        return same;
    if (Status rom = returned->require_rom(eeprom_bytes); !rom)
        return rom;
    if (!check_images(*returned, task.images)) { // they fitted the lost one
        return {Reason::kCameraGone, "another kind of camera, " + returned->name() +
                                         ", has come back and is left alone"};
    }
    task.camera = *std::move(returned);
    return {};
}

} // namespace nyxus::engine
