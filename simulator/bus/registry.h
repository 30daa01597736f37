// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/root_hub.h"
#include "bus/usbfs.h"

#include <memory>

namespace sim {

/// The device nodes of this process, by bus number and address. Thread-safe.
void register_node(unsigned bus, unsigned address, std::shared_ptr<UsbfsNode> node);
void unregister_node(unsigned bus, unsigned address);
std::shared_ptr<UsbfsNode> find_node(unsigned bus, unsigned address);
void register_hub(std::shared_ptr<const RootHub> hub);
void unregister_hubs();
/// A camera's or a hub's; nullptr when there is none.
std::unique_ptr<Channel> open_node(unsigned bus, unsigned address);

} // namespace sim
