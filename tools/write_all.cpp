// SPDX-License-Identifier: Apache-2.0
#include "write_all.h"

#include <poll.h>
#include <unistd.h>
#include <cerrno>

namespace tool {

int write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<size_t>(count));
        } else if (errno == EAGAIN) { // whoever shares the pipe has made it so
            pollfd writable{fd, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace tool
