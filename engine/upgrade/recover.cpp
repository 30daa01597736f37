// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/upgrade.hpp>

namespace nyxus::engine {

static Result<std::string> latest_backup(const Camera& camera, const Backups& backups)
{
    const auto latest = backups.latest(camera);
    return latest ? Result<std::string>(latest->file.string()) : latest.status();
}

Result<Recovery> find_recovery(const Camera& camera, const Backups& backups,
                               const std::string& file, bool although_healthy)
{
    if (!although_healthy && camera.runs_external_firmware() &&
        !backups.history(camera).needs_care()) {
        return Status(Reason::kNothingToRecover, camera.name() + " " + camera.firmware_sentence() +
                                                     ", so there is nothing to recover");
    }
    const Result<std::string> chosen = file.empty() ? latest_backup(camera, backups) : file;
    if (!chosen)
        return chosen.status();
    auto firmware = Firmware::load_rom(*chosen);
    if (!firmware)
        return firmware.status();
    Recovery recovery{*chosen, {*std::move(firmware)}};
    if (Status fit = check_images(camera, recovery.images); !fit)
        return fit;
    return recovery;
}

} // namespace nyxus::engine
