// SPDX-License-Identifier: Apache-2.0
#include "operation.h"

#include <algorithm>
#include <cstring>

#include "chip/firmware_image.h"
#include "chip/prng.h"

namespace sweep {

namespace {

// Small, because every transfer of an operation is a point; large enough for several pages.
constexpr uint32_t kOldImageBytes = 0x600;
constexpr uint32_t kNewImageBytes = 0x400;
constexpr uint32_t kDataStart = 0x700;
constexpr uint32_t kDataEnd = 0x10000;
constexpr size_t kMfiBytes = 0x100;
constexpr uint32_t kBlockBytes = 0x10000;

// Keeps the firmware in front of it and the last bytes of the block.
constexpr uint32_t kRangeStart = 0x800;
constexpr uint32_t kRangeBytes = 0xF600;
constexpr uint16_t kReservedBytes = 0x40;
constexpr uint16_t kWindowStart = 0x2410;
constexpr uint16_t kWindowBytes = 0x90;

Bytes pattern(size_t count, uint64_t seed)
{
    sim::Prng prng(seed);
    Bytes bytes(count);
    std::ranges::generate(bytes, [&prng] { return prng.next_byte(); });
    return bytes;
}

Bytes image(const sim::CameraModel& model, uint32_t bytes, uint16_t version, uint64_t seed)
{
    sim::ImageRequest request = sim::factory_image_request(model);
    request.image_bytes = bytes;
    request.version = version;
    request.seed = seed;
    return sim::make_firmware_image(request);
}

Bytes mfi_image()
{
    Bytes bytes = sim::make_mfi_image(1, "A0001");
    bytes.resize(kMfiBytes, 0x5A);
    return bytes;
}

void put(Bytes& rom, size_t address, const Bytes& bytes)
{
    std::ranges::copy(bytes, rom.begin() + static_cast<ptrdiff_t>(address));
}

void clear(Bytes& rom, size_t begin, size_t end)
{
    const auto first = rom.begin();
    std::fill(first + static_cast<ptrdiff_t>(begin),
              first + static_cast<ptrdiff_t>(std::min(end, rom.size())), uint8_t{0xFF});
}

bool any(const sim::CameraModel&)
{
    return true;
}

bool with_flash(const sim::CameraModel& model)
{
    return model.rom_kind == sim::RomKind::kSpiFlash;
}

bool with_window(const sim::CameraModel& model)
{
    return model.gpio0_protects_eeprom;
}

/// All of it, or the first block of a part whose chip erase does not work.
void erase_flash(const sim::CameraModel& model, Bytes& rom)
{
    constexpr uint8_t kNoChipErase = 0xFF;
    if (with_flash(model))
        clear(rom, 0, model.flash.chip_erase_command == kNoChipErase ? kBlockBytes : rom.size());
}

Bytes after_erase(const sim::CameraModel& model, Bytes rom)
{
    erase_flash(model, rom);
    return rom;
}

Bytes after_upgrade(const sim::CameraModel& model, Bytes rom)
{
    erase_flash(model, rom);
    put(rom, 0, new_image(model));
    return rom;
}

Bytes after_mfi_upgrade(const sim::CameraModel& model, Bytes rom)
{
    rom = after_upgrade(model, std::move(rom));
    put(rom, NYXUS_MFI_ROM_ADDR, mfi_image());
    return rom;
}

/// One block is erased, which is 32 KiB only on some parts.
Bytes after_range_erase(const sim::CameraModel& model, Bytes rom)
{
    clear(rom, kRangeStart, std::min(kRangeStart + kRangeBytes, model.flash.block_erase_bytes));
    return rom;
}

Bytes reserved_data()
{
    return pattern(kReservedBytes, 5);
}

Bytes window_data()
{
    return pattern(kWindowBytes, 6);
}

/// On the fingerprint boards the application unlocks the EEPROM first; others lack the pin's use.
int32_t install(NyDevice* device, const uint8_t* mfi)
{
    if (device->oBackend.family == IC_FAMILY_FI2 && !device->xSpiMode)
        (void)XU_GpioSet(device, 0, GPIO_LOW);
    return MP_FwUpgrade(device, mfi);
}

constexpr Operation kOperations[] = {
    {"upgrade", any, after_upgrade, upgrade},
    {"mfi-upgrade", any, after_mfi_upgrade,
     [](NyDevice* device) { return install(device, nyxus_mfi_bin); }},
    {"erase", any, after_erase, [](NyDevice* device) { return MP_FwErase(device); }},
    {"range-erase", with_flash, after_range_erase,
     [](NyDevice* device) { return XU_ExtRomEraseDWORD(device, kRangeStart, kRangeBytes); }},
    {"reserved-area", with_flash,
     [](const sim::CameraModel&, Bytes rom) {
         put(rom, SPI_RESERVED_ADDR, reserved_data());
         return rom;
     },
     [](NyDevice* device) {
         return XU_SpiSetReservedArea(device, kReservedBytes, reserved_data().data());
     }},
    {"eeprom-window", with_window,
     [](const sim::CameraModel&, Bytes rom) {
         put(rom, kWindowStart, window_data());
         return rom;
     },
     [](NyDevice* device) {
         return SG_EepromWrite(device, kWindowStart, kWindowBytes, window_data().data());
     }},
};

} // namespace

int32_t upgrade(NyDevice* device)
{
    return install(device, nullptr);
}

std::span<const Operation> operations()
{
    return kOperations;
}

const Operation* find_operation(std::string_view name)
{
    const auto found = std::ranges::find(kOperations, name, &Operation::name);
    return found == std::end(kOperations) ? nullptr : &*found;
}

Bytes old_image(const sim::CameraModel& model)
{
    return image(model, kOldImageBytes, 0x0100, 3);
}

Bytes new_image(const sim::CameraModel& model)
{
    return image(model, kNewImageBytes, 0x0205, 7);
}

Bytes rom_before(const sim::CameraModel& model)
{
    Bytes rom(with_flash(model) ? model.flash.size_bytes : model.eeprom.size_bytes, 0xFF);
    put(rom, 0, old_image(model));
    const size_t end = std::min<size_t>(kDataEnd, rom.size());
    put(rom, kDataStart, pattern(end - kDataStart, 4));
    if (with_flash(model)) // the application erases its area before it writes there
        clear(rom, SPI_RESERVED_ADDR, SPI_RESERVED_ADDR + kReservedBytes);
    return rom;
}

void load_images(const sim::CameraModel& model)
{
    const Bytes firmware = new_image(model);
    std::memset(nyxus_fw_bin, 0xFF, sizeof nyxus_fw_bin);
    std::ranges::copy(firmware, nyxus_fw_bin);
    nyxus_fw_bin_size = static_cast<uint16_t>(firmware.size());
    const Bytes mfi = mfi_image();
    std::ranges::copy(mfi, nyxus_mfi_bin);
    nyxus_mfi_bin_size = static_cast<uint16_t>(mfi.size());
}

} // namespace sweep
