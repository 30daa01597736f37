// SPDX-License-Identifier: Apache-2.0
#include "eeprom.h"

#include <algorithm>

namespace sim {

Eeprom::Eeprom(const EepromPart& part, Clock& clock, std::span<uint8_t> cells)
    : part_(part), clock_(clock), cells_(cells)
{
}

void Eeprom::power_up()
{
    busy_until_us_ = 0;
    powered_ = true;
}

void Eeprom::power_cut()
{
    if (busy())
        unfinished_.halve(cells_);
    powered_ = false;
}

void Eeprom::read(uint32_t address, std::span<uint8_t> out)
{
    const bool acknowledged = powered_ && !busy();
    size_t cell = address;
    for (uint8_t& byte : out)
        byte = acknowledged ? cells_[cell++ % cells_.size()] : uint8_t{0xFF};
    if (!acknowledged)
        return;
    const RomFault fault = ask({.kind = RomAccess::Kind::kRead,
                                .address = address,
                                .bytes = static_cast<uint32_t>(out.size()),
                                .answer = out});
    if (fault.power_cut)
        power_cut();
}

void Eeprom::write(uint32_t address, std::span<const uint8_t> bytes)
{
    if (!powered_ || busy() || protected_ || bytes.empty())
        return;
    start_cycles(1, write_page(address, bytes));
}

void Eeprom::write_pages(uint32_t address, std::span<const uint8_t> bytes)
{
    if (!powered_ || busy() || protected_)
        return;
    uint32_t pages = 0;
    RomFault worst;
    while (!bytes.empty() && !worst.power_cut) {
        const size_t room = part_.page_bytes - address % part_.page_bytes;
        const auto page = bytes.first(std::min(room, bytes.size()));
        const RomFault fault = write_page(address, page);
        worst.power_cut = fault.power_cut;
        worst.stuck_us = std::max(worst.stuck_us, fault.stuck_us);
        address += static_cast<uint32_t>(page.size());
        bytes = bytes.subspan(page.size());
        ++pages;
    }
    start_cycles(pages, worst);
}

RomFault Eeprom::write_page(uint32_t address, std::span<const uint8_t> bytes)
{
    const RomFault fault = ask({.kind = RomAccess::Kind::kProgram,
                                .address = address,
                                .bytes = static_cast<uint32_t>(bytes.size())});
    unfinished_.begin();
    if (!fault.ignored)
        store_page(address, bytes);
    return fault;
}

void Eeprom::store_page(uint32_t address, std::span<const uint8_t> bytes)
{
    const size_t page = address % cells_.size() / part_.page_bytes * part_.page_bytes;
    size_t offset = address % part_.page_bytes;
    for (const uint8_t byte : bytes) {
        const size_t cell = page + offset++ % part_.page_bytes;
        unfinished_.note(cell, cells_[cell]);
        cells_[cell] = byte;
    }
}

void Eeprom::start_cycles(uint32_t count, const RomFault& fault)
{
    const uint64_t duration_us = uint64_t{count} * part_.write_cycle_us;
    busy_until_us_ = fault.stuck_us == RomFault::kForever
                         ? RomFault::kForever
                         : clock_.now_us() + duration_us + fault.stuck_us;
    if (fault.power_cut)
        power_cut();
}

} // namespace sim
