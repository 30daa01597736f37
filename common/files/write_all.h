// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace files {

/// Zero, or the errno of what cannot be written. Waits for room as long as it takes.
int write_all(int fd, std::string_view text);

/// The same for signal handlers, which give up (EAGAIN) when there is no room for half a second: a
/// reader that has stopped keeps no process from ending.
int write_before_end(int fd, std::string_view text);

} // namespace files
