// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <string>

namespace files {

/// A UNIX stream socket that listens there, for this user only. One that its process has left
/// behind gives way; anything else that bears the name does not. `flags`: SOCK_NONBLOCK or none.
/// Empty, and errno, on failure.
Descriptor listen_at(const std::string& path, int flags = 0);

} // namespace files
