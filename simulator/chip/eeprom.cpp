// SPDX-License-Identifier: Apache-2.0
#include "eeprom.h"

#include <algorithm>

namespace sim {

Eeprom::Eeprom(const EepromPart& part, Clock& clock, std::span<uint8_t> cells)
    : part_(part), clock_(clock), cells_(cells)
{
}

void Eeprom::read(uint32_t address, std::span<uint8_t> out)
{
    const bool acknowledged = !busy();
    size_t cell = address;
    for (uint8_t& byte : out)
        byte = acknowledged ? cells_[cell++ % cells_.size()] : uint8_t{0xFF};
}

void Eeprom::write(uint32_t address, std::span<const uint8_t> bytes)
{
    if (busy() || protected_ || bytes.empty())
        return;
    store_page(address, bytes);
    start_cycles(1);
}

void Eeprom::write_pages(uint32_t address, std::span<const uint8_t> bytes)
{
    if (busy() || protected_)
        return;
    uint32_t pages = 0;
    while (!bytes.empty()) {
        const size_t room = part_.page_bytes - address % part_.page_bytes;
        const auto page = bytes.first(std::min(room, bytes.size()));
        store_page(address, page);
        address += static_cast<uint32_t>(page.size());
        bytes = bytes.subspan(page.size());
        ++pages;
    }
    start_cycles(pages);
}

void Eeprom::store_page(uint32_t address, std::span<const uint8_t> bytes)
{
    const size_t page = address % cells_.size() / part_.page_bytes * part_.page_bytes;
    size_t offset = address % part_.page_bytes;
    for (const uint8_t byte : bytes)
        cells_[page + offset++ % part_.page_bytes] = byte;
}

void Eeprom::start_cycles(uint32_t count)
{
    busy_until_us_ = clock_.now_us() + uint64_t{count} * part_.write_cycle_us;
}

} // namespace sim
