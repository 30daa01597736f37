// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <functional>
#include <list>
#include <string>
#include <thread>

namespace sim {

/// Answers lines with lines on a UNIX socket that only this user can reach. One thread serves all
/// clients; who does not read its answer waits for itself only.
class LineServer {
public:
    using Answer = std::function<std::string(const std::string& line)>;

    /// Throws std::runtime_error when it cannot listen at `path`.
    LineServer(std::string path, Answer answer);
    ~LineServer();
    LineServer(const LineServer&) = delete;
    LineServer& operator=(const LineServer&) = delete;

    const std::string& path() const { return path_; }

    static constexpr size_t kLongestLine = 4096;
    static constexpr size_t kMostClients = 32;

private:
    struct Client {
        files::Descriptor socket;
        std::string received = {};
        std::string unsent = {};
        bool leaving = false; ///< once it has got its answer
    };

    void serve();
    void accept_client();
    // All return false when the client has gone or shall go.
    bool receive(Client& client);
    bool go_on(Client& client);
    static bool send_unsent(Client& client);
    static bool is_too_long(const Client& client);

    std::string path_;
    Answer answer_;
    files::Descriptor listener_;
    files::Descriptor stop_event_;
    std::list<Client> clients_;
    std::thread thread_;
};

} // namespace sim
