// SPDX-License-Identifier: Apache-2.0
#include "usbip/server.h"

#include "text/numbers.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace sim::usbip {

namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList resolve(const Address& address)
{
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found) !=
        0)
        found = nullptr;
    return {found, &freeaddrinfo};
}

files::Descriptor listen_at(const Address& address)
{
    const int on = 1;
    const AddressList list = resolve(address);
    files::Descriptor socket;
    errno = EADDRNOTAVAIL;
    if (list)
        socket.reset(::socket(list->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(socket.get(), list->ai_addr, list->ai_addrlen) != 0 ||
        listen(socket.get(), SOMAXCONN) != 0) {
        throw std::runtime_error("cannot listen on " + address.text() + ": " +
                                 std::strerror(errno));
    }
    return socket;
}

uint16_t port_of(int socket)
{
    sockaddr_storage bound{};
    socklen_t bytes = sizeof bound;
    getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &bytes);
    return ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                             : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
}

// Answers go out one by one, and a host that has vanished does not keep its camera for hours.
void tune(int socket)
{
    const struct {
        int level;
        int option;
        int value;
    } settings[] = {{IPPROTO_TCP, TCP_NODELAY, 1},   {SOL_SOCKET, SO_KEEPALIVE, 1},
                    {IPPROTO_TCP, TCP_KEEPIDLE, 20}, {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                    {IPPROTO_TCP, TCP_KEEPCNT, 4},   {IPPROTO_TCP, TCP_USER_TIMEOUT, 60'000}};
    for (const auto& [level, option, value] : settings)
        setsockopt(socket, level, option, &value, sizeof value);
}

uint16_t parse_port(const std::string& text)
{
    const std::optional<uint64_t> port = text::parse_number(text, UINT16_MAX);
    if (!port)
        throw std::invalid_argument("'" + text + "': a port is a number from 0 to 65535");
    return static_cast<uint16_t>(*port);
}

} // namespace

bool Address::is_loopback() const
{
    in_addr four{};
    if (inet_pton(AF_INET, host.c_str(), &four) == 1)
        return ntohl(four.s_addr) >> 24 == 127;
    in6_addr six{};
    return inet_pton(AF_INET6, host.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

std::string Address::text() const
{
    const std::string name = host.find(':') == std::string::npos ? host : "[" + host + "]";
    return name + ":" + std::to_string(port);
}

Address parse_address(const std::string& text)
{
    Address address;
    const size_t bracket = text.starts_with('[') ? text.find(']') : std::string::npos;
    const size_t colon = text.find(':', bracket == std::string::npos ? 0 : bracket);
    address.host =
        bracket == std::string::npos ? text.substr(0, colon) : text.substr(1, bracket - 1);
    if (colon != std::string::npos)
        address.port = parse_port(text.substr(colon + 1));
    if (!resolve(address)) {
        throw std::invalid_argument("'" + text +
                                    "' is no address to listen on; write 127.0.0.1:3240 or "
                                    "[::1]:3240");
    }
    return address;
}

Server::Server(const Address& address, ExportList exports, VirtualClock* clock)
    : Server(listen_at(address), std::move(exports), clock)
{
}

Server::Server(files::Descriptor listener, ExportList exports, VirtualClock* clock)
    : exports_(std::move(exports)),
      time_(clock),
      port_(port_of(listener.get())),
      hosts_(
          std::move(listener), [this](int socket) { talk(socket); }, kMostHosts)
{
}

void Server::talk(int socket)
{
    tune(socket);
    Session session(exports_);
    converse(socket, session, time_);
    if (!session.complaint().empty()) {
        std::fprintf(stderr, "nyxus-sim: a USB/IP peer was cut off: it sent %s\n",
                     session.complaint().c_str());
    }
}

} // namespace sim::usbip
