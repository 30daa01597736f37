// SPDX-License-Identifier: Apache-2.0
#include "watch/line_server.h"

#include "files/unix_socket.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace sim {

LineServer::LineServer(std::string path, Answer answer)
    : path_(std::move(path)),
      answer_(std::move(answer)),
      clients_(
          path_, [this](int socket) { talk(socket); }, kMostClients)
{
}

LineServer::~LineServer()
{
    unlink(path_.c_str());
}

void LineServer::talk(int socket) const
{
    std::string received;
    std::array<char, 65536> bytes; // NOLINT(cppcoreguidelines-pro-type-member-init)
    for (;;) {
        const ssize_t got = recvfrom(socket, bytes.data(), bytes.size(), 0, nullptr, nullptr);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        size_t end = received.size(); // there is no end of a line before
        received.append(bytes.data(), static_cast<size_t>(got));
        while ((end = received.find('\n', end)) != std::string::npos) {
            if (!files::send_line(socket, answer_(received.substr(0, end))))
                return;
            received.erase(0, end + 1);
            end = 0;
        }
        if (received.size() > kLongestLine) {
            (void)files::send_line(socket, R"({"ok":false,"error":"the request is too long"})");
            return;
        }
    }
}

} // namespace sim
