// SPDX-License-Identifier: Apache-2.0
#include <nyxus/rom.h>
#include <nyxus/engine/plan.hpp>
#include <nyxus/engine/rom.hpp>

namespace nyxus::engine {

static ReservedArea reserved_area_after(const Camera& camera, const Images& images, Bytes before)
{
    constexpr size_t kBytes = 256;
    if (!camera.has_spi_flash() || images.firmware.bytes().size() > SPI_RESERVED_ADDR)
        return ReservedArea::kKept;
    if (before.size() < SPI_RESERVED_ADDR + kBytes)
        return ReservedArea::kErasedIfUsed;
    return is_blank(before.subspan(SPI_RESERVED_ADDR, kBytes)) ? ReservedArea::kKept
                                                               : ReservedArea::kErased;
}

const char* to_text(Action action)
{
    constexpr const char* kTexts[] = {"back up",         "unlock",         "erase",
                                      "write MFi image", "write firmware", "lock",
                                      "read back",       "read back",      "restart"};
    return kTexts[static_cast<size_t>(action)];
}

bool is_up_to_date(const Plan& plan, Bytes before)
{
    return std::all_of(plan.steps.begin(), plan.steps.end(), [before](const Step& step) {
        const bool is_image =
            step.action == Action::kWriteMfi || step.action == Action::kWriteFirmware;
        return !is_image || (step.address + step.data.size() <= before.size() &&
                             find_difference(before.subspan(step.address), step.data).count == 0);
    });
}

uint32_t replaced_bytes(const Camera& camera)
{
    constexpr uint32_t kReachable = 0x10000; // the controller runs from the first block only
    return std::min(camera.rom_size(), kReachable);
}

Plan plan_upgrade(const Camera& camera, const Images& images, const UpgradeOptions& options,
                  Bytes before)
{
    const auto step = [](Action action, uint32_t address, Bytes data) {
        return Step{action, address, static_cast<uint32_t>(data.size()), data};
    };
    const Bytes firmware = images.firmware.bytes();
    Plan plan;
    if (options.backup)
        plan.steps.push_back({Action::kBackUp, 0, replaced_bytes(camera)});
    plan.steps.push_back({Action::kUnlock});
    if (camera.has_spi_flash())
        plan.steps.push_back({Action::kErase});
    if (images.mfi)
        plan.steps.push_back(step(Action::kWriteMfi, NYXUS_MFI_ROM_ADDR, images.mfi->bytes()));
    plan.steps.push_back(step(Action::kWriteFirmware, 0, firmware));
    plan.steps.push_back({Action::kLock});
    if (options.verify)
        plan.steps.push_back(step(Action::kReadBack, 0, firmware));
    if (options.verify && images.mfi)
        plan.steps.push_back(step(Action::kReadBackMfi, NYXUS_MFI_ROM_ADDR, images.mfi->bytes()));
    plan.reserved_area = reserved_area_after(camera, images, before);
    return plan;
}

} // namespace nyxus::engine
