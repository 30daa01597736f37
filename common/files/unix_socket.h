// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <sys/un.h>
#include <optional>
#include <string>

namespace files {

/// nullopt, and errno, for a path that is too long for a socket (107 characters).
std::optional<sockaddr_un> socket_address(const std::string& path);

/// Connects to the UNIX socket there; empty, and errno, on failure.
Descriptor connect_to(const std::string& path);

/// Sends the line and its end; false when the peer is gone.
bool send_line(int socket, std::string line);

} // namespace files
