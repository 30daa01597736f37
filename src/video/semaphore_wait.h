// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <semaphore.h>

#include <cerrno>
#include <ctime>

namespace nyxus {

/// Less than a second; false when it has passed.
inline bool wait_for(sem_t& semaphore, long ns)
{
    constexpr long kSecond_ns = 1000000000;
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    const long sum = end.tv_nsec + ns;
    end = {end.tv_sec + sum / kSecond_ns, sum % kSecond_ns};
    int rv = -1;
    do {
        rv = sem_clockwait(&semaphore, CLOCK_MONOTONIC, &end);
    } while (rv != 0 && errno == EINTR);
    return rv == 0;
}

} // namespace nyxus
