// SPDX-License-Identifier: Apache-2.0
#include "watch/line_server.h"

#include "bus/transport.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace sim {

namespace {

constexpr int kBacklog = 16;

bool is_abandoned(const std::string& path)
{
    struct stat entry {};
    if (lstat(path.c_str(), &entry) != 0 || !S_ISSOCK(entry.st_mode))
        return false;
    const int socket = connect_socket(path);
    if (socket >= 0)
        close(socket);
    return socket < 0 && errno == ECONNREFUSED;
}

// The mode of the socket is that of its name, from the first moment on.
int bind_private(const sockaddr_un& address)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && (fchmod(fd, 0600) != 0 ||
                    bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
                    listen(fd, kBacklog) != 0)) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

int listen_at(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = bind_private(address);
    if (fd >= 0 || errno != EADDRINUSE)
        return fd;
    if (!is_abandoned(path)) {
        errno = EADDRINUSE;
        return -1;
    }
    unlink(path.c_str());
    return bind_private(address);
}

} // namespace

LineServer::LineServer(std::string path, Answer answer)
    : path_(std::move(path)),
      answer_(std::move(answer)),
      listener_(listen_at(path_)),
      stop_event_(-1)
{
    if (listener_ < 0)
        throw std::runtime_error("cannot listen at '" + path_ + "': " + std::strerror(errno));
    stop_event_ = eventfd(0, EFD_CLOEXEC);
    thread_ = std::thread([this] { serve(); });
}

LineServer::~LineServer()
{
    eventfd_write(stop_event_, 1);
    thread_.join();
    for (const Client& client : clients_)
        close(client.socket);
    close(stop_event_);
    close(listener_);
    unlink(path_.c_str());
}

void LineServer::serve()
{
    for (;;) {
        const short listening = clients_.size() < kMostClients ? POLLIN : 0;
        std::vector<pollfd> waited{{stop_event_, POLLIN, 0}, {listener_, listening, 0}};
        for (const Client& client : clients_) {
            const short event = client.unsent.empty() ? POLLIN : POLLOUT;
            waited.push_back({client.socket, event, 0});
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
            if (stays) {
                ++client;
            } else {
                close(client->socket);
                client = clients_.erase(client);
            }
        }
        if (waited[1].revents != 0)
            accept_client();
    }
}

void LineServer::accept_client()
{
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket >= 0)
        clients_.push_back({socket});
}

bool LineServer::receive(Client& client)
{
    std::array<char, 1024> bytes{};
    const ssize_t got = recvfrom(client.socket, bytes.data(), bytes.size(), 0, nullptr, nullptr);
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
            send(client.socket, client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return errno == EAGAIN || errno == EINTR;
        client.unsent.erase(0, static_cast<size_t>(sent));
    }
    return true;
}

} // namespace sim
