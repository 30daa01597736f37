// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/batch.hpp>
#include <variant>

// What the leader of a batch and its helpers say to each other: a JSON object a line
// (docs/file-formats.md).
namespace nyxus::engine {

/// Of a helper: the memory file with the images.
constexpr int kImagesFd = 3;

/// Where ChipImages are in the memory file: behind those before, the firmware first.
struct ImagePart {
    std::string chip;
    size_t firmware_bytes = 0;
    size_t mfi_bytes = 0; ///< 0: no MFi image
    std::string serial;   ///< that has been put into it, "" if none
    std::string reports;  ///< see Images
};

/// What a helper is to do.
struct Order {
    std::string port;
    BatchOptions options; ///< but for those of the leader
    std::vector<ImagePart> images;
};

constexpr char kStopLine[] = "{\"stop\":true}\n";

std::string to_line(const Order& order);
std::string to_line(const Event& event);
std::string to_line(const Report& report);

/// Nothing for a line that is none of these.
std::optional<Order> parse_order(const std::string& line);
bool is_stop(const std::string& line);
using FromHelper = std::variant<std::monostate, Event, Report>;
FromHelper parse_from_helper(const std::string& line);

} // namespace nyxus::engine
