// SPDX-License-Identifier: Apache-2.0
#include "bus/server.h"

#include "bus/registry.h"
#include "bus/transport.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

Reply result(int status)
{
    Reply reply;
    reply.header.result = status;
    return reply;
}

} // namespace

Server::Server(Bed& bed, VirtualClock* clock)
    : bed_(bed), clock_(clock), listener_(listen_socket(socket_path(bed.folder())))
{
    if (listener_ < 0) {
        throw std::runtime_error("cannot listen in " + bed.folder() + ": " + std::strerror(errno));
    }
    acceptor_ = std::thread([this] { accept_clients(); });
}

Server::~Server()
{
    shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    close(listener_);
    {
        const std::lock_guard lock(mutex_);
        for (const Connection& connection : connections_) {
            shutdown(connection.socket, SHUT_RDWR);
        }
    }
    for (Connection& connection : connections_) {
        connection.thread.join();
        close(connection.socket);
    }
}

void Server::accept_clients()
{
    for (;;) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            if (errno == EMFILE || errno == ENFILE) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                continue;
            }
            return; // shut down
        }
        const std::lock_guard lock(mutex_);
        join_finished();
        Connection& connection = connections_.emplace_back(Connection{socket, false, {}});
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

void Server::join_finished()
{
    connections_.remove_if([](Connection& connection) {
        if (connection.finished) {
            connection.thread.join();
            close(connection.socket);
        }
        return connection.finished;
    });
}

void Server::serve(Connection& connection)
{
    prctl(PR_SET_TIMERSLACK, 1UL); // a transfer takes microseconds; the usual slack is 50 of them
    talk(connection.socket);
    // The descriptor itself is closed after the join, so that nobody shuts down a reused number.
    shutdown(connection.socket, SHUT_RDWR);
    const std::lock_guard lock(mutex_);
    connection.finished = true;
}

void Server::talk(int socket)
{
    std::unique_ptr<UsbfsFile> file;
    Request request;
    while (receive_request(socket, request)) {
        const uint32_t code = request.header.code;
        const Reply reply = answer(std::move(request), file);
        RealClock::wait_for_wire(); // in the thread of this opener: others go on meanwhile
        const bool opened = code == kOpenNode && file != nullptr;
        if (!send_reply(socket, reply, opened ? file->ready_fd() : -1) || code == kCloseNode) {
            return;
        }
    }
}

Reply Server::answer(Request&& request, std::unique_ptr<UsbfsFile>& file)
{
    switch (request.header.code) {
        case kOpenNode:
            return open_node(request.header, file);
        case kCloseNode:
            file.reset();
            return result(0);
        case kAdvanceClock:
            if (clock_ != nullptr) {
                clock_->advance_us(request.header.first);
                bed_.settle();
            }
            return result(0);
        default:
            return file ? file->call(std::move(request)) : result(-EBADF);
    }
}

Reply Server::open_node(const RequestHeader& header, std::unique_ptr<UsbfsFile>& file)
{
    const std::shared_ptr<UsbfsNode> node = find_node(header.first, header.second);
    if (!node || file) {
        return result(-ENODEV);
    }
    file = node->open();
    if (file->ready_fd() < 0) {
        file.reset();
        return result(-EMFILE);
    }
    return result(0);
}

} // namespace sim
