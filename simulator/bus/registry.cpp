// SPDX-License-Identifier: Apache-2.0
#include "bus/registry.h"

#include <map>
#include <mutex>
#include <utility>

namespace sim {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::pair<unsigned, unsigned>, std::shared_ptr<UsbfsNode>> nodes;
    std::map<unsigned, std::shared_ptr<const RootHub>> hubs; ///< by bus
};

Registry& registry()
{
    static auto* const instance = new Registry; // outlives every thread that may still ask
    return *instance;
}

} // namespace

void register_node(unsigned bus, unsigned address, std::shared_ptr<UsbfsNode> node)
{
    const std::lock_guard lock(registry().mutex);
    registry().nodes[{bus, address}] = std::move(node);
}

void unregister_node(unsigned bus, unsigned address)
{
    const std::lock_guard lock(registry().mutex);
    registry().nodes.erase({bus, address});
}

std::shared_ptr<UsbfsNode> find_node(unsigned bus, unsigned address)
{
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().nodes.find({bus, address});
    return found == registry().nodes.end() ? nullptr : found->second;
}

void register_hub(std::shared_ptr<const RootHub> hub)
{
    const std::lock_guard lock(registry().mutex);
    registry().hubs[hub->bus()] = std::move(hub);
}

void unregister_hubs()
{
    const std::lock_guard lock(registry().mutex);
    registry().hubs.clear();
}

std::unique_ptr<Channel> open_node(unsigned bus, unsigned address)
{
    if (const auto node = find_node(bus, address))
        return node->open();
    const std::lock_guard lock(registry().mutex);
    const auto hub = registry().hubs.find(bus);
    if (hub == registry().hubs.end() || address != kHubAddress)
        return nullptr;
    return hub->second->open();
}

} // namespace sim
