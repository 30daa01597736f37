// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"

#include <list>
#include <mutex>
#include <thread>

namespace sim {

/// Serves the bed's cameras to other processes: one connection per opened node, one thread per
/// connection. A client that dies takes its claims and URBs with it.
class Server {
public:
    /// `clock`: advanced when a client sleeps; nullptr when the cameras run in real time. Throws
    /// std::runtime_error when it cannot listen in the bed's folder.
    Server(Bed& bed, VirtualClock* clock);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

private:
    struct Connection {
        int socket;
        bool finished = false;
        std::thread thread;
    };

    void accept_clients();
    void serve(Connection& connection);
    void talk(int socket);
    Reply answer(Request&& request, std::unique_ptr<UsbfsFile>& file);
    Reply open_node(const RequestHeader& header, std::unique_ptr<UsbfsFile>& file);
    void join_finished();

    Bed& bed_;
    VirtualClock* clock_;
    int listener_;
    std::mutex mutex_;
    std::list<Connection> connections_;
    std::thread acceptor_;
};

} // namespace sim
