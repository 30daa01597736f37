// SPDX-License-Identifier: Apache-2.0
// The customer's window in the EEPROM of fingerprint readers.
#include "rom_change.h"

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
    XU_SetWriteCycleTime(kPageWrite_ms);
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

static Status do_write(Camera& camera, uint16_t address, Bytes bytes, const Backups& backups,
                       const Caller& caller, bool backup, Report& report)
{
    if (Status kept = backup ? keep_rom(camera, backups, caller, report) : Status(); !kept)
        return kept;
    RomChange change(camera, backups, caller, report);
    Status done = change.opens({.operation = "sg"});
    if (done)
        done = change.begins(JournalStep::kWriting);
    if (done)
        done = write_and_compare(camera.device(), address, bytes);
    if (done)
        report.rom = RomContents::kNew;
    const bool is_verified = done.ok();
    done = change.end(std::move(done));
    if (is_verified)
        note_in_journal(camera, backups, JournalStep::kVerified);
    return done;
}

Report write_window(Camera& camera, uint32_t address, Bytes bytes, const Backups& backups,
                    const Caller& caller, bool backup)
{
    if (Status fits = check_window(camera, address, bytes.size()); !fits)
        return Report{.status = std::move(fits)};
    Report report{.version_before = camera.version()};
    report.status =
        do_write(camera, static_cast<uint16_t>(address), bytes, backups, caller, backup, report);
    report.stopped = report.stopped || report.status.reason() == Reason::kStopped;
    return report;
}

} // namespace nyxus::engine
