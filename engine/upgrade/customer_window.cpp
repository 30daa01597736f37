// SPDX-License-Identifier: Apache-2.0
// The customer's window in the EEPROM of fingerprint readers.
#include <nyxus/access.h>
#include <nyxus/fingerprint.h>
#include <nyxus/engine/upgrade.hpp>

#include <algorithm>

namespace nyxus::engine {

static constexpr uint32_t kWindowStart = 0x2400;
static constexpr uint32_t kWindowEnd = 0x8000;
static constexpr int32_t kPageWrite_ms = 5;

static Status check_window(const Camera& camera, uint32_t address, size_t size)
{
    if (camera.has_spi_flash()) {
        return {Reason::kNotSupported,
                camera.name() + " has an SPI flash; the fingerprint boards have an EEPROM"};
    }
    if (size == 0 || address < kWindowStart || address >= kWindowEnd ||
        size > kWindowEnd - address) {
        return {Reason::kOutOfRange, "the bytes are not in the window 0x2400 to 0x7FFF"};
    }
    return {};
}

static Status write_and_compare(NyDevice* device, uint16_t address, Bytes bytes)
{
    const auto size = static_cast<uint16_t>(bytes.size());
    int32_t rv = SG_EepromWrite(device, address, size, bytes.data());
    if (rv != 0)
        return library_failure("writing the EEPROM", rv);
    std::vector<uint8_t> after(size);
    rv = SG_EepromRead(device, address, size, after.data());
    if (rv != 0)
        return library_failure("reading the EEPROM", rv);
    if (std::ranges::equal(after, bytes))
        return {};
    return {Reason::kMismatch, "the EEPROM does not hold what was written; is it protected?"};
}

Report write_window(Camera& camera, uint32_t address, Bytes bytes, const Backups& backups,
                    const Caller& caller, bool backup)
{
    if (Status fits = check_window(camera, address, bytes.size()); !fits)
        return Report{.status = std::move(fits)};
    const auto write = [&] {
        XU_SetWriteCycleTime(kPageWrite_ms);
        return write_and_compare(camera.device(), static_cast<uint16_t>(address), bytes);
    };
    return change_rom(camera, "sg", write, backups, caller, backup);
}

} // namespace nyxus::engine
