// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "clock.h"
#include "spi_flash.h"

#include <array>
#include <cstdint>
#include <span>

namespace sim {

/// The register block through which the host runs single commands on the SPI bus: bytes in the
/// sequence buffer, lengths in their registers, then a start value with the busy bit set.
class SpiController {
public:
    /// `flash` is nullptr on a board without SPI flash: the bus then reads as FF.
    SpiController(std::span<uint8_t, 0x10000> xdata, SpiFlash* flash, Clock& clock);

    void power_up() { running_ = false; }
    void let_go_of_flash() { flash_ = nullptr; }
    /// To be called before registers are read: ends a command whose time has come.
    void settle();
    /// To be called after the host has written the register.
    void written(uint16_t address);

private:
    void start(bool with_answer);

    std::span<uint8_t, 0x10000> xdata_;
    SpiFlash* flash_;
    Clock& clock_;
    bool running_ = false;
    uint64_t done_at_us_ = 0;
    uint8_t answer_length_ = 0;
    std::array<uint8_t, 256> answer_{};
};

} // namespace sim
