// SPDX-License-Identifier: Apache-2.0
#include "bus/peer_server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

namespace sim {

PeerServer::PeerServer(int listener, Serve serve, size_t most)
    : listener_(listener), serve_(std::move(serve)), most_(most)
{
    acceptor_ = std::thread([this] { accept_peers(); });
}

PeerServer::~PeerServer()
{
    shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    close(listener_);
    {
        const std::lock_guard lock(mutex_);
        for (const Connection& connection : connections_)
            shutdown(connection.socket, SHUT_RDWR);
    }
    for (Connection& connection : connections_) {
        connection.thread.join();
        close(connection.socket);
    }
}

void PeerServer::accept_peers()
{
    for (;;) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            if (errno == EINVAL || errno == EBADF)
                return; // shut down
            // Out of descriptors, or the peer has gone again.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        const std::lock_guard lock(mutex_);
        join_finished();
        if (connections_.size() >= most_) {
            close(socket);
            continue;
        }
        Connection& connection = connections_.emplace_back(Connection{socket, false, {}});
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

void PeerServer::join_finished()
{
    connections_.remove_if([](Connection& connection) {
        if (connection.finished) {
            connection.thread.join();
            close(connection.socket);
        }
        return connection.finished;
    });
}

void PeerServer::serve(Connection& connection)
{
    serve_(connection.socket);
    // The descriptor itself is closed after the join, so that nobody shuts down a reused number.
    shutdown(connection.socket, SHUT_RDWR);
    const std::lock_guard lock(mutex_);
    connection.finished = true;
}

} // namespace sim
