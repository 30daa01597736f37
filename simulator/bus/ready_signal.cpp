// SPDX-License-Identifier: Apache-2.0
#include "bus/ready_signal.h"

#include <sys/eventfd.h>

#include <unistd.h>
#include <cstdint>

namespace sim {

ReadySignal::ReadySignal() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    set(false);
}

void ReadySignal::set(bool ready)
{
    if (ready == ready_ || !event_)
        return;
    // An eventfd is not writable exactly while its counter is full.
    constexpr uint64_t kFull = UINT64_MAX - 1;
    uint64_t counter = kFull;
    const ssize_t moved =
        ready ? read(fd(), &counter, sizeof counter) : write(fd(), &counter, sizeof counter);
    if (moved == static_cast<ssize_t>(sizeof counter))
        ready_ = ready;
}

} // namespace sim
