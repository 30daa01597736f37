// SPDX-License-Identifier: Apache-2.0
// The way to cameras of another process: one connection per opened node.
#include "bus/node_hook.h"
#include "bus/transport.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace sim {

namespace {

Reply gone()
{
    Reply reply;
    reply.header.result = -ENODEV;
    return reply;
}

class SocketChannel final : public Channel {
public:
    SocketChannel(int socket, int ready_fd) : socket_(socket), ready_fd_(ready_fd) {}

    // The server has dropped claims and URBs when this returns. The child of a fork closes its
    // copy only: the connection is its parent's.
    ~SocketChannel() override
    {
        if (process_ == getpid())
            (void)SocketChannel::call({{.code = kCloseNode}, {}});
        close(socket_);
        close(ready_fd_);
    }

    Reply call(Request&& request) override
    {
        const std::lock_guard lock(mutex_);
        Reply reply;
        return send_request(socket_, request) && receive_reply(socket_, reply) ? reply : gone();
    }

    int ready_fd() const override { return ready_fd_; }

private:
    std::mutex mutex_;
    pid_t process_ = getpid();
    int socket_;
    int ready_fd_;
};

} // namespace

std::unique_ptr<Channel> connect_node(const NodeName& node)
{
    const char* bed = std::getenv("UMOCKDEV_DIR");
    const int socket = bed != nullptr ? connect_socket(socket_path(bed)) : -1;
    if (socket < 0)
        return nullptr;
    const Request request{{.code = kOpenNode, .first = node.bus, .second = node.address}, {}};
    Reply reply;
    int ready_fd = -1;
    if (!send_request(socket, request) || !receive_reply(socket, reply, ready_fd) ||
        reply.header.result < 0 || ready_fd < 0) {
        close(socket);
        return nullptr;
    }
    return std::make_unique<SocketChannel>(socket, ready_fd);
}

} // namespace sim
