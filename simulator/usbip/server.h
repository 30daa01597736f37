// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/peer_server.h"
#include "usbip/connection.h"
#include "usbip/session.h"

#include <cstdint>
#include <string>

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

/// Offers devices to USB/IP hosts over TCP. Their number is bounded. When it is destroyed, all
/// connections are cut: to the hosts, the cameras are unplugged.
class Server {
public:
    /// Port 0: a free one. Throws std::runtime_error when it cannot listen there.
    Server(const Address& address, ExportList exports, VirtualClock* clock);

    uint16_t port() const { return port_; }

private:
    static constexpr size_t kMostHosts = 64;

    Server(files::Descriptor listener, ExportList exports, VirtualClock* clock);
    void talk(int socket);

    ExportList exports_;
    FastForward time_;
    uint16_t port_;
    PeerServer hosts_; ///< last: its threads use the others
};

} // namespace sim::usbip
