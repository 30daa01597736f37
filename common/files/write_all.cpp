// SPDX-License-Identifier: Apache-2.0
#include "files/write_all.h"

#include <poll.h>
#include <unistd.h>
#include <cerrno>
#include <climits>

namespace files {

static bool has_room(int fd, int patience_ms)
{
    pollfd writable{fd, POLLOUT, 0};
    return poll(&writable, 1, patience_ms) > 0;
}

int write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<size_t>(count));
        } else if (count == 0) {
            return EIO;
        } else if (errno == EAGAIN) { // whoever shares the pipe has made it so
            has_room(fd, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// A pipe with room takes PIPE_BUF bytes without blocking.
int write_before_end(int fd, std::string_view text)
{
    constexpr int kPatience_ms = 500;
    while (!text.empty()) {
        if (!has_room(fd, kPatience_ms))
            return EAGAIN;
        const std::string_view part = text.substr(0, PIPE_BUF);
        if (const int error = write_all(fd, part); error != 0)
            return error;
        text.remove_prefix(part.size());
    }
    return 0;
}

} // namespace files
