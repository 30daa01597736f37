// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <nyxus/cpp/result.hpp>
#include <nyxus/engine/status.hpp>

namespace nyxus::engine {

/// What becomes of a file that has the name already. Leaving it is a failure with EEXIST.
enum class IfThere { kReplace, kLeave };

/// A file that appears whole under its name, and survives a power cut then, or not at all. The code
/// of a failure tells the errno.
Status write_whole_file(const std::filesystem::path& path, Bytes bytes, IfThere if_there);

} // namespace nyxus::engine
