// SPDX-License-Identifier: Apache-2.0
// ioctl() and close() in front of the C library's: those on a camera's node go to the simulation.
#include "bus/interpose.h"

#include "bus/node_hook.h"

#include <cerrno>
#include <cstdarg>

extern "C" int ioctl(int fd, unsigned long code, ...) noexcept
{
    va_list arguments;
    va_start(arguments, code);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);

    if (const auto result = sim::hooked_ioctl(fd, code, argument)) {
        if (*result >= 0)
            return *result;
        errno = -*result;
        return -1;
    }
    static const auto next = sim::next_function<int (*)(int, unsigned long, ...)>("ioctl");
    return next(fd, code, argument);
}

extern "C" int close(int fd)
{
    sim::hooked_close(fd);
    static const auto next = sim::next_function<int (*)(int)>("close");
    return next(fd);
}
