// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip_state.h"

#include <cstdint>
#include <span>

namespace sim {

/// The firmware's driver for the external ROM. Like the real one it never reports a failure: what
/// the ROM refuses is simply not there afterwards.
class ExternalRom {
public:
    explicit ExternalRom(ChipState& chip) : chip_(chip) {}

    void read(uint32_t address, std::span<uint8_t> out);
    /// One page program or page write; at most 32 bytes.
    void write(uint32_t address, std::span<const uint8_t> bytes);
    /// Page after page; only while writing is unlocked.
    void write_long(uint32_t address, std::span<const uint8_t> bytes);
    /// Erases a whole SPI flash by its chip-erase command.
    void erase();

    uint8_t status();
    void set_status(uint8_t status);
    /// `command_bytes`: of the opcode and the zeros behind it, 1 to 4.
    void read_id(uint8_t opcode, size_t command_bytes, std::span<uint8_t> out);
    uint16_t checksum() const;

private:
    bool gate_open() const;
    void close_gate();
    void send(std::span<const uint8_t> command);

    ChipState& chip_;
};

} // namespace sim
