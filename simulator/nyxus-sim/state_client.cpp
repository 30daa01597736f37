// SPDX-License-Identifier: Apache-2.0
#include "state_client.h"

#include "files/unix_socket.h"
#include "json/json.h"
#include "text/printable.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sim {

namespace {

constexpr size_t kLongestReply = 64u << 20;

std::string place_of(const std::string& path)
{
    if (!path.empty())
        return path;
    const char* place = std::getenv(kSocketVariable);
    if (place == nullptr) {
        throw std::runtime_error(
            "no simulation is running around this program; call it inside "
            "'nyxus-sim run', or name a socket by --socket");
    }
    return place;
}

std::string receive_line(int socket)
{
    std::string line;
    std::array<char, 65536> bytes{};
    while (line.size() < kLongestReply && (line.empty() || line.back() != '\n')) {
        const ssize_t got = recvfrom(socket, bytes.data(), bytes.size(), 0, nullptr, nullptr);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        line.append(bytes.data(), static_cast<size_t>(got));
    }
    return line;
}

} // namespace

json::Json ask_simulation(const std::string& path, const json::Json& request)
{
    const std::string place = place_of(path);
    const files::Descriptor socket = files::connect_to(place);
    if (!socket) {
        throw std::runtime_error("no simulation listens at " + text::in_quotes(place) + ": " +
                                 std::strerror(errno));
    }
    const bool sent = files::send_line(socket.get(), json::printed(request));
    const std::string line = sent ? receive_line(socket.get()) : "";
    auto reply = json::parsed(line);
    if (!reply.is_object())
        throw std::runtime_error("the simulation at " + text::in_quotes(place) + " gave no answer");
    if (!reply.value("ok", false))
        throw std::runtime_error(reply.value("error", "the simulation refused"));
    return reply;
}

} // namespace sim
