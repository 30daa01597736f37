// SPDX-License-Identifier: Apache-2.0
#include "watch/line_server.h"

#include "files/listen.h"
#include "text/printable.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

namespace sim {

LineServer::LineServer(std::string path, Answer answer)
    : path_(std::move(path)),
      answer_(std::move(answer)),
      listener_(files::listen_at(path_, SOCK_NONBLOCK))
{
    if (!listener_) {
        throw std::runtime_error("cannot listen at " + text::in_quotes(path_) + ": " +
                                 std::strerror(errno));
    }
    stop_event_.reset(eventfd(0, EFD_CLOEXEC));
    thread_ = std::thread([this] { serve(); });
}

LineServer::~LineServer()
{
    eventfd_write(stop_event_.get(), 1);
    thread_.join();
    unlink(path_.c_str());
}

void LineServer::serve()
{
    for (;;) {
        const short listening = clients_.size() < kMostClients ? POLLIN : 0;
        std::vector<pollfd> waited{{stop_event_.get(), POLLIN, 0}, {listener_.get(), listening, 0}};
        for (const Client& client : clients_) {
            const short event = client.unsent.empty() ? POLLIN : POLLOUT;
            waited.push_back({client.socket.get(), event, 0});
        }
        if (poll(waited.data(), waited.size(), -1) < 0)
            continue; // interrupted
        if (waited[0].revents != 0)
            return;
        size_t place = 2;
        for (auto client = clients_.begin(); client != clients_.end(); ++place) {
            const bool ready = waited[place].revents != 0;
            const bool stays =
                !ready || (client->unsent.empty() ? receive(*client) : go_on(*client));
            client = stays ? std::next(client) : clients_.erase(client);
        }
        if (waited[1].revents != 0)
            accept_client();
    }
}

void LineServer::accept_client()
{
    files::Descriptor socket(
        accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket)
        clients_.push_back({std::move(socket)});
}

bool LineServer::receive(Client& client)
{
    std::array<char, 1024> bytes{};
    const ssize_t got =
        recvfrom(client.socket.get(), bytes.data(), bytes.size(), 0, nullptr, nullptr);
    if (got <= 0)
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    client.received.append(bytes.data(), static_cast<size_t>(got));
    return go_on(client);
}

// The next line is answered when the client has taken the answer before.
bool LineServer::go_on(Client& client)
{
    while (send_unsent(client)) {
        const size_t end = client.received.find('\n');
        if (!client.unsent.empty() || (end == std::string::npos && !is_too_long(client)))
            return true;
        if (client.leaving)
            return false;
        if (end > kLongestLine) { // npos, too
            client.unsent = "{\"ok\":false,\"error\":\"the request is too long\"}\n";
            client.leaving = true;
        } else {
            client.unsent = answer_(client.received.substr(0, end)) + "\n";
            client.received.erase(0, end + 1);
        }
    }
    return false;
}

bool LineServer::is_too_long(const Client& client)
{
    return client.received.size() > kLongestLine;
}

bool LineServer::send_unsent(Client& client)
{
    while (!client.unsent.empty()) {
        const ssize_t sent =
            send(client.socket.get(), client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return errno == EAGAIN || errno == EINTR;
        client.unsent.erase(0, static_cast<size_t>(sent));
    }
    return true;
}

} // namespace sim
