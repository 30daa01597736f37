// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>

namespace tool {

/// A library that the program runs with.
struct LibraryVersion {
    const char* name;
    std::string version;
    std::string file; ///< that it was loaded from; "" when nobody knows
};
std::array<LibraryVersion, 3> library_versions();

/// What --version prints.
std::string version_text(bool as_json);

} // namespace tool
