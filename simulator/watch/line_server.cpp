// SPDX-License-Identifier: Apache-2.0
#include "watch/line_server.h"

#include "files/listen.h"
#include "text/printable.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
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

bool send_line(int socket, std::string line)
{
    line += '\n';
    for (size_t done = 0; done < line.size();) {
        const ssize_t sent = send(socket, line.data() + done, line.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        done += sent > 0 ? static_cast<size_t>(sent) : 0;
    }
    return true;
}

LineServer::LineServer(std::string path, Answer answer)
    : path_(std::move(path)),
      answer_(std::move(answer)),
      clients_(
          listen_at(path_), [this](int socket) { talk(socket); }, kMostClients)
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
            if (!send_line(socket, answer_(received.substr(0, end))))
                return;
            received.erase(0, end + 1);
            end = 0;
        }
        if (received.size() > kLongestLine) {
            (void)send_line(socket, R"({"ok":false,"error":"the request is too long"})");
            return;
        }
    }
}

} // namespace sim
