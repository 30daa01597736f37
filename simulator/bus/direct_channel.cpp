// SPDX-License-Identifier: Apache-2.0
// The way to cameras of the same process: a call.
#include "bus/node_hook.h"
#include "bus/registry.h"
#include "bus/usbfs.h"

#include <utility>

namespace sim {

namespace {

class DirectChannel final : public Channel {
public:
    explicit DirectChannel(std::unique_ptr<UsbfsFile> file) : file_(std::move(file)) {}
    Reply call(Request&& request) override { return file_->call(std::move(request)); }
    int ready_fd() const override { return file_->ready_fd(); }

private:
    std::unique_ptr<UsbfsFile> file_;
};

} // namespace

std::unique_ptr<Channel> connect_node(const NodeName& name)
{
    const std::shared_ptr<UsbfsNode> node = find_node(name.bus, name.address);
    return node ? std::make_unique<DirectChannel>(node->open()) : nullptr;
}

} // namespace sim
