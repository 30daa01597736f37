// SPDX-License-Identifier: Apache-2.0
#include "files/listen.h"

#include "files/unix_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>

namespace files {

namespace {

bool is_abandoned(const std::string& path)
{
    struct stat entry {};
    return lstat(path.c_str(), &entry) == 0 && S_ISSOCK(entry.st_mode) && !connect_to(path) &&
           errno == ECONNREFUSED;
}

// The mode of the socket is that of its name, from the first moment on.
Descriptor bind_private(const sockaddr_un& address, int flags)
{
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (socket &&
        (fchmod(socket.get(), 0600) != 0 || bind(socket.get(), generic, sizeof address) != 0 ||
         listen(socket.get(), SOMAXCONN) != 0))
        socket.reset();
    return socket;
}

} // namespace

Descriptor listen_at(const std::string& path, int flags)
{
    const std::optional<sockaddr_un> address = socket_address(path);
    if (!address)
        return {};
    Descriptor socket = bind_private(*address, flags);
    if (socket || errno != EADDRINUSE)
        return socket;
    if (!is_abandoned(path)) {
        errno = EADDRINUSE;
        return {};
    }
    unlink(path.c_str());
    return bind_private(*address, flags);
}

} // namespace files
