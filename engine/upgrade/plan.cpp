// SPDX-License-Identifier: Apache-2.0
#include <nyxus/rom.h>
#include <nyxus/engine/plan.hpp>
#include <nyxus/engine/rom.hpp>

#include "keeping.h"
#include "text/format.h"

namespace nyxus::engine {

const char* to_text(Action action)
{
    constexpr const char* kTexts[] = {
        "read",           "read again", "back up",      "unlock", "erase",     "write MFi image",
        "write firmware", "write back", "write header", "lock",   "read back", "read back",
        "read back",      "restart"};
    return kTexts[static_cast<size_t>(action)];
}

const char* to_text(Keep keep)
{
    return keep == Keep::kWhole ? "whole" : "first64k";
}

std::string to_text(const Part& part)
{
    const std::string why = part.why;
    return part.name + text::format(" (%u bytes from 0x%04X)", part.size, part.address) +
           (why.empty() ? "" : ": " + why);
}

bool is_up_to_date(const Plan& plan, Bytes before)
{
    return std::all_of(plan.steps.begin(), plan.steps.end(), [before](const Step& step) {
        const bool is_image = step.action == Action::kWriteMfi ||
                              step.action == Action::kWriteFirmware ||
                              step.action == Action::kWriteHeader;
        return !is_image || (step.address + step.data.size() <= before.size() &&
                             find_difference(before.subspan(step.address), step.data).count == 0);
    });
}

uint32_t replaced_bytes(const Camera& camera)
{
    constexpr uint32_t kReachable = 0x10000; // the controller runs from the first block only
    return std::min(camera.rom_size(), kReachable);
}

uint32_t erased_flash_bytes(const Camera& camera)
{
    constexpr uint8_t kNoChipErase = 0xFF; // the first block is erased in its place
    if (!camera.has_spi_flash())
        return 0;
    return camera.device()->oFlashInfo.bCmdCE == kNoChipErase ? kRomBlock : part_bytes(camera);
}

/// Whether what is read will be the only copy of something.
static bool needs_copy(const Camera& camera, const UpgradeOptions& options)
{
    return options.backup || camera.has_spi_flash();
}

uint32_t bytes_before(const Camera& camera, const UpgradeOptions& options)
{
    if (options.always && !needs_copy(camera, options))
        return 0;
    const uint32_t used = replaced_bytes(camera);
    const bool whole = options.keep == Keep::kWhole;
    return whole ? std::max(used, std::min(readable_bytes(camera), erased_flash_bytes(camera)))
                 : used;
}

static Step data_step(Action action, uint32_t address, Bytes data)
{
    return {action, address, static_cast<uint32_t>(data.size()), data};
}

static void add_reading(const Camera& camera, const UpgradeOptions& options, Plan& plan)
{
    const uint32_t size = bytes_before(camera, options);
    if (size == 0)
        return;
    plan.steps.push_back({Action::kRead, 0, size});
    if (needs_copy(camera, options))
        plan.steps.push_back({Action::kReadAgain, 0, size});
    if (options.backup)
        plan.steps.push_back({Action::kBackUp, 0, size});
}

static void add_writing(const Camera& camera, const Images& images, Plan& plan)
{
    const Bytes firmware = images.firmware.bytes();
    constexpr uint32_t kHeader = Firmware::kHeaderBytes;
    plan.steps.push_back({Action::kUnlock});
    if (camera.has_spi_flash())
        plan.steps.push_back({Action::kErase});
    if (images.mfi) {
        plan.steps.push_back(data_step(Action::kWriteMfi, NYXUS_MFI_ROM_ADDR, images.mfi->bytes()));
    }
    plan.steps.push_back(data_step(Action::kWriteFirmware, kHeader, firmware.subspan(kHeader)));
    for (const Part& part : plan.kept)
        plan.steps.push_back(data_step(Action::kWriteKept, part.address, part.data));
    plan.steps.push_back(data_step(Action::kWriteHeader, 0, firmware.subspan(0, kHeader)));
    plan.steps.push_back({Action::kLock});
}

static void add_reading_back(const Images& images, Plan& plan)
{
    plan.steps.push_back(data_step(Action::kReadBack, 0, images.firmware.bytes()));
    if (images.mfi) {
        plan.steps.push_back(
            data_step(Action::kReadBackMfi, NYXUS_MFI_ROM_ADDR, images.mfi->bytes()));
    }
    for (const Part& part : plan.kept)
        plan.steps.push_back(data_step(Action::kReadBackKept, part.address, part.data));
}

Plan plan_upgrade(const Camera& camera, const Images& images, const UpgradeOptions& options,
                  Bytes before)
{
    Plan plan;
    sort_contents(camera, images, options, before, plan);
    add_reading(camera, options, plan);
    add_writing(camera, images, plan);
    if (options.verify)
        add_reading_back(images, plan);
    return plan;
}

} // namespace nyxus::engine
