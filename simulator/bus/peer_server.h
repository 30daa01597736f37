// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace sim {

/// Accepts peers on a listening stream socket and serves each in a thread of its own.
class PeerServer {
public:
    /// Talks with a peer until either has ended; a shutdown() of the socket by another thread ends
    /// it, too. The socket stays the server's.
    using Serve = std::function<void(int socket)>;

    /// Peers beyond `most` are turned away.
    PeerServer(files::Descriptor listener, Serve serve, size_t most = SIZE_MAX);
    /// On a UNIX socket that only this user can reach. Throws std::runtime_error when it cannot
    /// listen at `path`.
    PeerServer(const std::string& path, Serve serve, size_t most = SIZE_MAX);
    /// Cuts all connections and waits for their threads.
    ~PeerServer();
    PeerServer(const PeerServer&) = delete;
    PeerServer& operator=(const PeerServer&) = delete;

private:
    struct Connection {
        files::Descriptor socket;
        bool finished = false;
        std::thread thread;
    };

    void accept_peers();
    void serve(Connection& connection);
    void join_finished();

    const files::Descriptor listener_;
    const Serve serve_;
    const size_t most_;
    std::mutex mutex_;
    std::list<Connection> connections_;
    std::thread acceptor_;
};

} // namespace sim
