// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "clock.h"
#include "model.h"
#include "rom_cells.h"

#include <cstdint>
#include <span>
#include <utility>

namespace sim {

/// An I2C EEPROM. During its write cycle it does not acknowledge: writes are lost, reads see FF.
class Eeprom {
public:
    Eeprom(const EepromPart& part, Clock& clock, std::span<uint8_t> cells);

    void power_up();
    /// The page that is being written stays half done; nothing answers until the next power-up.
    void power_cut();
    void set_fault(RomFaultHook hook) { cells_.set_fault(std::move(hook)); }
    void set_protected(bool is_protected) { protected_ = is_protected; }
    bool busy() { return clock_.now_us() < busy_until_us_; }

    void read(uint32_t address, std::span<uint8_t> out);
    /// One page write; an address that reaches the end of its page wraps to its start.
    void write(uint32_t address, std::span<const uint8_t> bytes);
    /// Page after page, as a firmware that polls for the acknowledge in between does.
    void write_pages(uint32_t address, std::span<const uint8_t> bytes);

private:
    void start_cycles(uint32_t count, const RomFault& fault);

    const EepromPart part_;
    Clock& clock_;
    RomCells cells_;
    bool protected_ = true;
    uint64_t busy_since_us_ = 0;
    uint64_t busy_until_us_ = 0;
    bool powered_ = true;
};

} // namespace sim
