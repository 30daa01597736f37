// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tool {

/// Where the program keeps what outlives it. A Failure without a home folder.
std::filesystem::path state_folder();

} // namespace tool
