// SPDX-License-Identifier: Apache-2.0
#include <nyxus/chip.h>
#include <algorithm>
#include <nyxus/engine/images.hpp>

#include "image_file.h"
#include "mfi_layout.h"
#include "rom_layout.h"
#include "units/digest.h"

namespace nyxus::engine {

namespace {

/// The chips of a signature, and where the firmware of such chips names the size of its ROM.
void look_up_chips(ImageFacts& facts)
{
    const Firmware& firmware = *facts.firmware;
    bool is_larch = false;
    bool is_other = false;
    for (int32_t i = 0; i < backend_list_count; ++i) {
        const NyBackend& chip = backend_list[i];
        const std::string signature = chip.signature;
        if (chip.family == IC_FAMILY_NONE || signature.substr(0, 2) != firmware.signature())
            continue;
        facts.chips.emplace_back(chip.name);
        (chip.family == IC_FAMILY_LARCH ? is_larch : is_other) = true;
    }
    const bool is_unknown = facts.chips.empty();
    facts.rom_bytes = is_other || is_unknown ? firmware.rom_size(false) : 0;
    facts.larch_rom_bytes = is_larch || is_unknown ? firmware.rom_size(true) : 0;
}

void look_at_firmware(ImageFacts& facts)
{
    using Contents = ImageFacts::Contents;
    const Firmware& firmware = *facts.firmware;
    facts.kind = firmware.kind();
    look_up_chips(facts);
    const bool is_rom = facts.bytes > NYXUS_FW_BIN_CAPACITY || facts.mfi;
    if (!facts.chips.empty() || facts.kind)
        facts.contents = is_rom ? Contents::kRom : Contents::kFirmware;
    const auto used = static_cast<uint32_t>(firmware.bytes().size());
    facts.firmware_end = is_rom ? end_of_firmware(firmware.as_read()) : used;
    if (facts.kind && facts.kind->bytes != 0)
        facts.firmware_end = facts.kind->bytes;
}

} // namespace

const char* to_text(ImageFacts::Contents contents)
{
    constexpr const char* kTexts[] = {"unknown", "firmware", "rom", "mfi"};
    return kTexts[static_cast<size_t>(contents)];
}

ImageFacts inspect_contents(std::vector<uint8_t> bytes)
{
    ImageFacts facts;
    facts.bytes = bytes.size();
    facts.sha256 = sha256(bytes);
    if (facts.bytes <= NYXUS_MFI_BIN_CAPACITY)
        facts.mfi = find_mfi(bytes);
    if (facts.mfi) {
        facts.contents = ImageFacts::Contents::kMfi;
        return facts;
    }
    facts.mfi = find_mfi(mfi_area(bytes));
    if (auto firmware = Firmware::from_rom(std::move(bytes))) {
        facts.firmware = *std::move(firmware);
        look_at_firmware(facts);
    }
    return facts;
}

Result<ImageFacts> inspect_image(const std::string& path)
{
    auto bytes = read_image_file(path, kLargestPart, "any ROM");
    if (!bytes)
        return bytes.status();
    return inspect_contents(*std::move(bytes));
}

} // namespace nyxus::engine
