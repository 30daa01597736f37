// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip_state.h"
#include "control_table.h"
#include "external_rom.h"
#include "osd.h"

#include <array>
#include <cstdint>
#include <span>

namespace sim {

/// The firmware's vendor extension unit (unit 6): takes every request apart and serves it.
class VendorXu {
public:
    VendorXu(ChipState& chip, Clock& clock);

    void power_up();
    /// Bytes moved, or kStall.
    int request(uint8_t selector, uint8_t code, std::span<uint8_t> data);
    /// First byte of what the host set last.
    uint8_t setting(Selector selector) const { return settings_[selector][0]; }
    const Osd& osd() const { return osd_; }

private:
    int set_current(const Control& control, std::span<const uint8_t> data);
    void get_current(const Control& control, std::span<uint8_t> out);
    void get_limit(const Control& control, uint8_t code, std::span<uint8_t> out) const;

    /// Memory controls: the host names direction, length and address, data follows.
    bool set_memory(const Control& control, std::span<const uint8_t> frame);
    void get_memory(const Control& control, std::span<uint8_t> frame);
    bool set_rom(std::span<const uint8_t> frame);
    void set_rom_512(std::span<const uint8_t> frame);
    void get_rom_512(std::span<uint8_t> frame);
    void read_space(uint8_t selector, uint16_t address, std::span<uint8_t> out);
    void write_space(uint8_t selector, uint16_t address, std::span<const uint8_t> bytes);
    uint32_t rom_address(uint16_t address) const;

    void get_status_record(uint8_t selector, std::span<uint8_t> out);

    ChipState& chip_;
    ExternalRom rom_;
    Osd osd_;
    /// What the host set last, per selector; requests for memory stay here until they are fetched.
    std::array<std::array<uint8_t, 64>, kSelectorEnd> settings_{};
    std::array<uint8_t, kLongestControl> frame_512_{};
};

} // namespace sim
