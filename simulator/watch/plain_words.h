// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"
#include "usb/observer.h"

#include <optional>
#include <string>
#include <vector>

namespace sim {

/// A piece of ROM that a request moves; requests often walk through the ROM.
struct RomStep {
    enum class Kind { kAsk, kRead, kWrite };
    uint8_t selector = 0;
    Kind kind = Kind::kRead;
    uint32_t begin = 0;
    uint32_t end = 0;

    bool operator==(const RomStep&) const = default;
};

/// A finished request as a user would say it.
struct Words {
    std::string text;
    std::optional<RomStep> step = {};
    std::vector<uint8_t> data = {}; ///< of which the text may show only the first bytes
};

/// `data`: the bytes that moved.
Words request_in_words(const CameraModel& model, const Setup& setup, std::span<const uint8_t> data);
/// " -> stalled"; empty when all went well.
std::string result_in_words(const BusTransfer& transfer);

/// "4E 58 46": all of up to 16 bytes, or the first ones and how many there are.
std::string hex_bytes(std::span<const uint8_t> bytes);

} // namespace sim
