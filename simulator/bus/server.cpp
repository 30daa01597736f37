// SPDX-License-Identifier: Apache-2.0
#include "bus/server.h"

#include "bus/registry.h"
#include "bus/transport.h"

#include <sys/prctl.h>

#include <cerrno>
#include <utility>

namespace sim {

Server::Server(TestBed& bed, bool is_fast)
    : bed_(bed),
      is_fast_(is_fast),
      clients_(socket_path(bed.folder()), [this](int socket) { talk(socket); })
{
    if (is_fast)
        bed.make_video_fast();
}

void Server::talk(int socket)
{
    prctl(PR_SET_TIMERSLACK, 1UL); // a transfer takes microseconds; the usual slack is 50 of them
    std::unique_ptr<Channel> file;
    Request request;
    while (receive_request(socket, request)) {
        const uint32_t code = request.header.code;
        const Reply reply = answer(std::move(request), file);
        RealClock::wait_for_wire(); // in the thread of this opener: others go on meanwhile
        const bool opened = code == kOpenNode && file != nullptr;
        if (!send_reply(socket, reply, opened ? file->ready_fd() : -1) || code == kCloseNode)
            return;
    }
}

Reply Server::answer(Request&& request, std::unique_ptr<Channel>& file)
{
    switch (request.header.code) {
        case kOpenNode:
            return open(request.header, file);
        case kCloseNode:
            file.reset();
            return Reply::result(0);
        case kAdvanceClock:
            if (is_fast_)
                bed_.sleep(request.header.first);
            return Reply::result(0);
        default:
            return file ? file->call(std::move(request)) : Reply::result(-EBADF);
    }
}

Reply Server::open(const RequestHeader& header, std::unique_ptr<Channel>& file)
{
    if (file || !(file = open_node(header.first, header.second)))
        return Reply::result(-ENODEV);
    if (file->ready_fd() >= 0)
        return Reply::result(0);
    file.reset();
    return Reply::result(-EMFILE);
}

} // namespace sim
