// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/ioctl_session.h"

#include <memory>
#include <optional>

namespace sim {

/// Which camera a node belongs to.
struct NodeName {
    unsigned bus;
    unsigned address;
};

/// The seam between the two ways in: how a process reaches the camera of a node. nullptr when the
/// camera is gone.
std::unique_ptr<Channel> connect_node(const NodeName& node);

/// nullopt: not a camera's node, pass the ioctl on. Otherwise the result or a negative errno.
std::optional<int> hooked_ioctl(int fd, unsigned long code, void* argument);
/// Before the descriptor is really closed.
void hooked_close(int fd);

} // namespace sim
