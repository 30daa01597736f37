// SPDX-License-Identifier: Apache-2.0
#include "files/unix_socket.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <cstring>

namespace files {

std::optional<sockaddr_un> socket_address(const std::string& path)
{
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

Descriptor connect_to(const std::string& path)
{
    const std::optional<sockaddr_un> address = socket_address(path);
    if (!address)
        return {};
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // Past connect(), which a library that is preloaded for a simulated bus interposes.
    if (socket && syscall(SYS_connect, socket.get(), &*address, sizeof *address) != 0)
        socket.reset();
    return socket;
}

bool send_line(int socket, std::string line)
{
    line += '\n';
    for (size_t done = 0; done < line.size();) {
        const ssize_t sent = send(socket, line.data() + done, line.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        done += sent > 0 ? static_cast<size_t>(sent) : 0;
    }
    return true;
}

} // namespace files
