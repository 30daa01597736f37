// SPDX-License-Identifier: Apache-2.0
// usleep() of a program under a fast simulation: the cameras' clock advances instead.
#include "bus/interpose.h"
#include "bus/transport.h"
#include "files/unix_socket.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

bool is_fast()
{
    const char* speed = std::getenv("NYXUS_SIM_SPEED");
    return speed != nullptr && std::strcmp(speed, "fast") == 0;
}

/// The process's connection for time; a forked child makes its own.
class ClockConnection {
public:
    bool advance(uint32_t duration_us)
    {
        const std::lock_guard lock(mutex_);
        if (process_ != getpid())
            connect();
        sim::Reply reply;
        const sim::Request request{{.code = sim::kAdvanceClock, .first = duration_us}, {}};
        return socket_ && sim::send_request(socket_.get(), request) &&
               sim::receive_reply(socket_.get(), reply);
    }

private:
    void connect()
    {
        const char* bed = std::getenv("UMOCKDEV_DIR");
        socket_.reset();
        if (bed != nullptr)
            socket_ = files::connect_to(sim::socket_path(bed));
        process_ = getpid();
    }

    std::mutex mutex_;
    pid_t process_ = 0;
    files::Descriptor socket_;
};

} // namespace

extern "C" int usleep(useconds_t duration_us)
{
    static const bool fast = is_fast();
    static auto* const connection = new ClockConnection; // outlives every thread
    if (fast && connection->advance(duration_us))
        return 0;
    static const auto next = sim::next_function<int (*)(useconds_t)>("usleep");
    return next(duration_us);
}
