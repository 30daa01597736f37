// SPDX-License-Identifier: Apache-2.0
// The way to cameras of another process: one connection per opened node.
#include "bus/node_hook.h"
#include "bus/transport.h"
#include "files/unix_socket.h"

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
    SocketChannel(files::Descriptor socket, files::Descriptor ready)
        : socket_(std::move(socket)), ready_(std::move(ready))
    {
    }

    // The server has dropped claims and URBs when this returns. The child of a fork closes its
    // copy only: the connection is its parent's.
    ~SocketChannel() override
    {
        if (process_ == getpid())
            (void)SocketChannel::call({{.code = kCloseNode}, {}});
    }

    Reply call(Request&& request) override
    {
        const std::lock_guard lock(mutex_);
        Reply reply;
        return send_request(socket_.get(), request) && receive_reply(socket_.get(), reply) ? reply
                                                                                           : gone();
    }

    int ready_fd() const override { return ready_.get(); }

private:
    std::mutex mutex_;
    pid_t process_ = getpid();
    files::Descriptor socket_;
    files::Descriptor ready_;
};

} // namespace

std::unique_ptr<Channel> connect_node(const NodeName& node)
{
    const char* bed = std::getenv("UMOCKDEV_DIR");
    files::Descriptor socket;
    if (bed != nullptr)
        socket = files::connect_to(socket_path(bed));
    if (!socket)
        return nullptr;
    const Request request{{.code = kOpenNode, .first = node.bus, .second = node.address}, {}};
    Reply reply;
    files::Descriptor ready;
    if (!send_request(socket.get(), request) || !receive_reply(socket.get(), reply, ready) ||
        reply.header.result < 0 || !ready)
        return nullptr;
    return std::make_unique<SocketChannel>(std::move(socket), std::move(ready));
}

} // namespace sim
