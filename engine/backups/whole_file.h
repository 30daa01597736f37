// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <nyxus/cpp/result.hpp>
#include <nyxus/engine/status.hpp>

namespace nyxus::engine {

/// A file that appears whole under its name, and survives a power cut then, or not at all.
Status write_whole_file(const std::filesystem::path& path, Bytes bytes);

} // namespace nyxus::engine
