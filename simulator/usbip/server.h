// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usbip/connection.h"
#include "usbip/session.h"

#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace sim::usbip {

/// Where to listen: numbers, no names.
struct Address {
    std::string host = "127.0.0.1";
    uint16_t port = 3240;

    bool is_loopback() const;
    /// "127.0.0.1:3240", "[::1]:3240"
    std::string text() const;
};

/// "HOST", "HOST:PORT" or "[HOST]:PORT". Throws std::invalid_argument.
Address parse_address(const std::string& text);

/// Offers devices to USB/IP hosts over TCP. One thread per connection, their number is bounded.
class Server {
public:
    /// Port 0: a free one. Throws std::runtime_error when it cannot listen there.
    Server(const Address& address, ExportList exports, VirtualClock* clock);
    /// Cuts all connections: to the hosts, the cameras are unplugged.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    uint16_t port() const { return port_; }

private:
    struct Connection {
        int socket;
        bool finished = false;
        std::thread thread;
    };
    static constexpr size_t kMaxConnections = 64;

    void accept_peers();
    void serve(Connection& connection);
    void join_finished();

    ExportList exports_;
    FastForward time_;
    int listener_;
    uint16_t port_ = 0;
    std::mutex mutex_;
    std::list<Connection> connections_;
    std::thread acceptor_;
};

} // namespace sim::usbip
