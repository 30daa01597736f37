// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "usb/setup.h"

/// The control transfers that an operation should issue, in order, written as the firmware's
/// programmer would: controls of the vendor unit, register accesses, polls. match() compares them
/// with what the camera received, byte by byte.
class Script {
public:
    using Bytes = std::vector<uint8_t>;

    /// SET_CUR whose payload begins with `bytes`.
    Script& set(uint8_t selector, Bytes bytes);
    Script& get(uint8_t selector);
    /// A wrapper read: SET_CUR of the request, GET_CUR of the answer.
    Script& read(uint8_t selector, uint8_t flags, uint16_t address);
    Script& reg_read(uint16_t address, uint8_t length = 1);
    Script& reg_write(uint16_t address, Bytes bytes);
    /// Reads of the SPI status until (status & mask) == value.
    Script& poll_status(uint8_t mask, uint8_t value);
    /// A command on the SPI bus without answer.
    Script& spi_command(Bytes bytes);
    /// The external ROM from `address` on, in chunks; `paced` adds what precedes each chunk.
    enum class Pace { kNone, kBusReady, kReleaseAndBusReady };
    Script& rom_write(uint16_t address, const Bytes& bytes, bool wide, Pace pace);
    Script& gpio0(bool high, uint8_t select_before = 0, uint8_t enable_before = 0,
                  uint8_t data_before = 0);

    /// Empty when the transfers are these and no others; else where they part.
    std::string match(const std::vector<sim::Transfer>& transfers) const;
    /// Transfers that took part in polls, beyond one poll each, of the last match.
    size_t extra_polls() const { return extra_polls_; }
    size_t transfers_at_least() const;

private:
    struct Step {
        uint8_t request;
        uint8_t selector;
        Bytes bytes;
        bool poll = false; ///< repeats until byte 3 of the answer fits
        uint8_t mask = 0;
        uint8_t value = 0;
    };
    Script& poll(uint8_t selector, Bytes request, uint8_t mask, uint8_t value);

    std::vector<Step> steps_;
    mutable size_t extra_polls_ = 0;
};

/// One transfer as text: "SET 03: A0 00 40 ..." or "GET 12: stall".
std::string describe(const sim::Transfer& transfer);
/// The class requests among them, in text; payloads without their trailing zeros.
std::vector<std::string> describe(const std::vector<sim::Transfer>& transfers);
