// SPDX-License-Identifier: Apache-2.0
#include "bus/peer_server.h"

#include "files/listen.h"
#include "text/printable.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

files::Descriptor listen_at(const std::string& path)
{
    files::Descriptor listener = files::listen_at(path);
    if (!listener) {
        throw std::runtime_error("cannot listen at " + text::in_quotes(path) + ": " +
                                 std::strerror(errno));
    }
    return listener;
}

} // namespace

PeerServer::PeerServer(const std::string& path, Serve serve, size_t most)
    : PeerServer(listen_at(path), std::move(serve), most)
{
}

PeerServer::PeerServer(files::Descriptor listener, Serve serve, size_t most)
    : listener_(std::move(listener)), serve_(std::move(serve)), most_(most)
{
    acceptor_ = std::thread([this] { accept_peers(); });
}

PeerServer::~PeerServer()
{
    shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    {
        const std::lock_guard lock(mutex_);
        for (const Connection& connection : connections_)
            shutdown(connection.socket.get(), SHUT_RDWR);
    }
    for (Connection& connection : connections_)
        connection.thread.join();
}

void PeerServer::accept_peers()
{
    for (;;) {
        files::Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket) {
            if (errno == EINVAL || errno == EBADF)
                return; // shut down
            // Out of descriptors, or the peer has gone again.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        const std::lock_guard lock(mutex_);
        join_finished();
        if (connections_.size() >= most_)
            continue;
        Connection& connection =
            connections_.emplace_back(Connection{std::move(socket), false, {}});
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

void PeerServer::join_finished()
{
    connections_.remove_if([](Connection& connection) {
        if (connection.finished)
            connection.thread.join();
        return connection.finished;
    });
}

void PeerServer::serve(Connection& connection)
{
    serve_(connection.socket.get());
    // The descriptor itself is closed after the join, so that nobody shuts down a reused number.
    shutdown(connection.socket.get(), SHUT_RDWR);
    const std::lock_guard lock(mutex_);
    connection.finished = true;
}

} // namespace sim
