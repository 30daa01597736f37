// SPDX-License-Identifier: Apache-2.0
#include "usbip/connection.h"

#include "bus/bed.h"
#include "chip/clock.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

namespace sim::usbip {

namespace {

using std::chrono::steady_clock;

constexpr auto kImportTime = std::chrono::seconds(5);
constexpr auto kFarewellTime = std::chrono::seconds(1);

// A kernel does not give up the transfers that it has sent when the connection ends, and whoever
// waits for one holds the device until a time-out of seconds. So those that are still on their way
// when the camera goes get an answer.
constexpr auto kQuietTime = std::chrono::milliseconds(30);
constexpr auto kMostLingering = std::chrono::milliseconds(500);
// How long a fast clock may stand while nothing is asked.
constexpr auto kTick = std::chrono::milliseconds(10);
constexpr size_t kReadBytes = 64u << 10;

// -1: without end.
int milliseconds_until(std::optional<steady_clock::time_point> deadline)
{
    if (!deadline)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - steady_clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

bool is_temporary(int error)
{
    return error == EAGAIN || error == EINTR;
}

// False when the peer is gone.
bool send_output(int socket, Session& session)
{
    while (!session.output().empty()) {
        const auto bytes = session.output();
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0)
            return is_temporary(errno);
        session.consumed(static_cast<size_t>(sent));
    }
    return true;
}

bool read_input(int socket, Session& session, FastForward& time)
{
    std::array<uint8_t, kReadBytes> bytes; // NOLINT(cppcoreguidelines-pro-type-member-init)
    const ssize_t got = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got <= 0)
        return got < 0 && is_temporary(errno);
    time.catch_up();
    session.feed(std::span(bytes).first(static_cast<size_t>(got)));
    RealClock::wait_for_wire();
    return true;
}

// The last answers, as far as the peer still takes them.
void say_farewell(int socket, Session& session)
{
    const auto deadline = steady_clock::now() + kFarewellTime;
    while (send_output(socket, session) && !session.output().empty()) {
        pollfd writable{socket, POLLOUT, 0};
        const int limit_ms = milliseconds_until(deadline);
        if (limit_ms == 0 || poll(&writable, 1, limit_ms) < 0)
            return;
    }
}

} // namespace

void FastForward::catch_up()
{
    constexpr int kFaster = 100;
    if (clock_ == nullptr)
        return;
    {
        const std::lock_guard lock(mutex_);
        const auto now = steady_clock::now();
        const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(now - last_);
        last_ += passed;
        clock_->advance_us(static_cast<uint64_t>(passed.count()) * kFaster);
    }
    TestBed::settle_active();
}

void converse(int socket, Session& session, FastForward& time)
{
    const auto import_deadline = steady_clock::now() + kImportTime;
    std::optional<steady_clock::time_point> gone_since;
    while (!session.has_ended()) {
        const bool is_gone = session.is_gone();
        std::optional<steady_clock::time_point> deadline = session.next_due();
        if (is_gone) {
            gone_since = gone_since.value_or(steady_clock::now());
            deadline = std::min(steady_clock::now() + kQuietTime, *gone_since + kMostLingering);
        } else if (!session.is_attached()) {
            deadline = import_deadline;
        } else if (time.is_needed()) {
            deadline = std::min(deadline.value_or(steady_clock::time_point::max()),
                                steady_clock::now() + kTick);
        }
        const bool has_output = !session.output().empty();
        std::array<pollfd, 3> waiting{{
            {socket,
             static_cast<short>((session.wants_input() ? POLLIN : 0) | (has_output ? POLLOUT : 0)),
             0},
            {session.wants_input() ? session.ready_fd() : -1, POLLOUT, 0},
            {session.gone_fd(), POLLOUT, 0},
        }};
        const int ready = poll(waiting.data(), waiting.size(), milliseconds_until(deadline));
        if ((ready == 0 && (is_gone || !session.is_attached())) || (ready < 0 && errno != EINTR))
            break;
        if (ready == 0)
            time.catch_up();
        const short events = waiting[0].revents;
        if ((events & (POLLERR | POLLNVAL)) != 0 ||
            ((events & (POLLIN | POLLHUP)) != 0 && session.wants_input() &&
             !read_input(socket, session, time)))
            return;
        session.collect();
        if (!send_output(socket, session))
            return;
        // Nobody reads any more what does not go out.
        if ((events & POLLHUP) != 0 && !session.wants_input())
            return;
    }
    say_farewell(socket, session);
}

} // namespace sim::usbip
