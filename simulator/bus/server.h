// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"
#include "bus/peer_server.h"

#include <memory>

namespace sim {

/// Serves the bed's cameras to other processes: one connection per opened node, one thread per
/// connection. A client that dies takes its claims and URBs with it.
class Server {
public:
    /// `is_fast`: the bed's clock is virtual, and advanced when a client sleeps. Throws
    /// std::runtime_error when it cannot listen in the bed's folder.
    Server(TestBed& bed, bool is_fast);

private:
    void talk(int socket);
    Reply answer(Request&& request, std::unique_ptr<Channel>& file);
    static Reply open(const RequestHeader& header, std::unique_ptr<Channel>& file);

    TestBed& bed_;
    bool is_fast_;
    PeerServer clients_; ///< last: its threads use the others
};

} // namespace sim
