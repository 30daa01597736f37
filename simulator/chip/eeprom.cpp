// SPDX-License-Identifier: Apache-2.0
#include "eeprom.h"

namespace sim {

Eeprom::Eeprom(const EepromPart& part, Clock& clock, std::span<uint8_t> cells)
    : part_(part), clock_(clock), cells_(cells, part.page_bytes, RomCells::Programming::kReplaces)
{
}

void Eeprom::power_up()
{
    busy_until_us_ = 0;
    powered_ = true;
}

void Eeprom::power_cut()
{
    if (busy()) {
        cells_.cut_write(
            RomCells::steps_in(clock_.now_us() - busy_since_us_, part_.write_cycle_us));
    }
    powered_ = false;
}

void Eeprom::read(uint32_t address, std::span<uint8_t> out)
{
    const bool acknowledged = powered_ && !busy();
    size_t cell = address;
    for (uint8_t& byte : out)
        byte = acknowledged ? cells_[cell++] : uint8_t{0xFF};
    if (!acknowledged)
        return;
    const RomFault fault = cells_.ask({.kind = RomAccess::Kind::kRead,
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
    cells_.begin_write();
    start_cycles(1, cells_.program(address, bytes));
}

void Eeprom::write_pages(uint32_t address, std::span<const uint8_t> bytes)
{
    if (!powered_ || busy() || protected_)
        return;
    const RomCells::Pages pages = cells_.program_pages(address, bytes);
    start_cycles(pages.count, pages.worst);
}

void Eeprom::start_cycles(uint32_t count, const RomFault& fault)
{
    busy_since_us_ = clock_.now_us();
    busy_until_us_ = fault.ready_us(busy_since_us_ + uint64_t{count} * part_.write_cycle_us);
    if (fault.power_cut) {
        cells_.cut_write(count); // in the last of them
        powered_ = false;
    }
}

} // namespace sim
