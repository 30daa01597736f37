// SPDX-License-Identifier: Apache-2.0
#include "capture.h"

#include "files/pipe.h"
#include "last_words.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>

namespace tool {

namespace {

/// Asks the reader to report that it has come this far. The libraries never print this byte on
/// purpose; a camera's text that holds it only ends a wait early.
constexpr char kDrainByte = '\x01';
constexpr size_t kLongestLine = 4096;
constexpr int kTickMs = 100;

void check(bool done, const char* what)
{
    if (!done)
        throw std::system_error(errno, std::generic_category(), what);
}

files::Descriptor copy_of(int fd)
{
    files::Descriptor copy(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    check(bool{copy}, "dup");
    return copy;
}

/// A program may be started without standard output or error; what goes there goes nowhere then.
void open_missing_standard_fds()
{
    int fd = 0;
    while (fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
        check(fd >= 0, "/dev/null");
    }
    close(fd);
}

} // namespace

Capture::Capture(CaptureListener& listener) : listener_(listener)
{
    open_missing_standard_fds();
    files::Pipe pipe = files::make_pipe();
    check(bool{pipe.read_end}, "pipe");
    read_end_ = std::move(pipe.read_end);
    std::fflush(nullptr);
    out_ = copy_of(STDOUT_FILENO);
    err_ = copy_of(STDERR_FILENO);
    check(dup2(pipe.write_end.get(), STDOUT_FILENO) >= 0, "dup2");
    check(dup2(pipe.write_end.get(), STDERR_FILENO) >= 0, "dup2");
    pipe.write_end.reset();
    last_words::arm(read_end_.get(), err_.get());
    reader_ = std::thread(&Capture::read_loop, this);
}

Capture::~Capture()
{
    std::fflush(nullptr);
    dup2(out_.get(), STDOUT_FILENO);
    dup2(err_.get(), STDERR_FILENO);
    reader_.join();
    last_words::disarm();
}

void Capture::drain()
{
    std::fflush(stdout);
    std::unique_lock lock(mutex_);
    const unsigned request = ++drain_requests_;
    if (write(STDERR_FILENO, &kDrainByte, 1) != 1)
        return;
    drained_.wait_for(lock, std::chrono::seconds(2), [&] { return drains_seen_ >= request; });
}

void Capture::take(char c)
{
    if (c == '\n') {
        end_line();
    } else if (c != kDrainByte && line_.size() < kLongestLine) {
        line_ += c;
    }
}

void Capture::end_line()
{
    if (!line_.empty())
        listener_.on_line(line_);
    line_.clear();
}

void Capture::handle(std::string_view bytes)
{
    for (const char c : bytes)
        take(c);
    last_words::remember(line_);
    const auto requests = static_cast<unsigned>(std::ranges::count(bytes, kDrainByte));
    if (requests == 0)
        return;
    const std::lock_guard lock(mutex_);
    drains_seen_ = std::min(drains_seen_ + requests, drain_requests_);
    drained_.notify_all();
}

void Capture::read_loop()
{
    char buffer[4096];
    for (;;) {
        pollfd readable{read_end_.get(), POLLIN, 0};
        const int ready = poll(&readable, 1, kTickMs);
        if (ready > 0) {
            const ssize_t count = read(read_end_.get(), buffer, sizeof buffer);
            if (count == 0)
                break;
            if (count > 0)
                handle({buffer, static_cast<size_t>(count)});
        }
        listener_.on_tick();
    }
    end_line();
}

} // namespace tool
