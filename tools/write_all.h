// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tool {

/// Zero, or the errno of what cannot be written. Signal handlers may call it.
int write_all(int fd, std::string_view text);

} // namespace tool
