// SPDX-License-Identifier: Apache-2.0
// bind() of the socket on which a program hears of hot-plugging. umockdev names it after the file
// descriptor alone, so that of two programs with the same number the first would go deaf, and two
// at the same moment would fail; here each gets a name of its own.
#include "bus/interpose.h"
#include "bus/transport.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The sender's pattern is event[0-9]*.
void name_after_process(const std::string& bed, int fd)
{
    const int error = errno;
    const std::string name = bed + "/event" + std::to_string(fd);
    (void)std::rename(name.c_str(), (name + "." + std::to_string(getpid())).c_str());
    errno = error;
}

__attribute__((constructor)) void mark_as_loaded()
{
    if (const char* bed = std::getenv("UMOCKDEV_DIR")) {
        const int flags = O_WRONLY | O_CREAT | O_CLOEXEC;
        const files::Descriptor mark(static_cast<int>(
            syscall(SYS_openat, AT_FDCWD, sim::loaded_mark(bed).c_str(), flags, 0600)));
    }
}

} // namespace

extern "C" int bind(int fd, const sockaddr* address, socklen_t bytes) noexcept
{
    static const auto next = sim::next_function<int (*)(int, const sockaddr*, socklen_t)>("bind");
    const char* bed = std::getenv("UMOCKDEV_DIR");
    if (bed == nullptr || address == nullptr || bytes < sizeof address->sa_family ||
        address->sa_family != AF_NETLINK)
        return next(fd, address, bytes);
    const files::Descriptor lock = sim::lock_events(bed);
    const int result = next(fd, address, bytes);
    if (result == 0)
        name_after_process(bed, fd);
    return result;
}
