// SPDX-License-Identifier: Apache-2.0
#include "bus/ready_signal.h"

#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

namespace sim {

// An eventfd is not writable exactly while its counter is full. Each who has something takes one
// off it.
ReadySignal::ReadySignal() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE))
{
    constexpr uint64_t kFull = UINT64_MAX - 1;
    (void)!write(fd(), &kFull, sizeof kFull);
}

void ReadySignal::set(bool ready)
{
    if (ready == std::exchange(ready_, ready) || !event_)
        return;
    if (ready) {
        take(fd());
    } else {
        release(fd());
    }
}

// Past read() and write(), around which the preloaded library of the bed blocks all signals.

void ReadySignal::take(int fd)
{
    uint64_t one = 0;
    (void)syscall(SYS_read, fd, &one, sizeof one);
}

void ReadySignal::release(int fd)
{
    constexpr uint64_t kOne = 1;
    (void)syscall(SYS_write, fd, &kOne, sizeof kOne);
}

} // namespace sim
