// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/manifest.hpp>

// All that is written in TOML.
namespace nyxus::engine {

constexpr uint32_t kMostTomlBytes = 0x10000;

/// Numbers with dots between, the last one not 0: the greater list is the newer version. Nothing
/// for any other text.
std::optional<std::vector<uint32_t>> parse_version(const std::string& text);

/// What root says of what is trusted.
struct Policy {
    bool allow_unsigned = false;
    bool user_keys = true;
};
/// kUntrusted for what is no such text.
Result<Policy> parse_policy(std::string_view text, const std::string& name);

} // namespace nyxus::engine
