// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/peer_server.h"

#include <functional>
#include <string>

namespace sim {

/// Answers lines with lines on a UNIX socket that only this user can reach, each client in a thread
/// of its own.
class LineServer {
public:
    /// Called by several threads.
    using Answer = std::function<std::string(const std::string& line)>;

    /// Throws std::runtime_error when it cannot listen at `path`.
    LineServer(std::string path, Answer answer);
    ~LineServer();
    LineServer(const LineServer&) = delete;
    LineServer& operator=(const LineServer&) = delete;

    const std::string& path() const { return path_; }

    static constexpr size_t kLongestLine = 4U << 20; ///< a fault file has 1 MiB
    static constexpr size_t kMostClients = 32;

private:
    void talk(int socket) const;

    std::string path_;
    Answer answer_;
    PeerServer clients_; ///< last: its threads use the others
};

} // namespace sim
