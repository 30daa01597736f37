// SPDX-License-Identifier: Apache-2.0
#include "bus/event_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace sim {

EventLock::EventLock(const std::string& bed)
    : fd_(open((bed + "/events.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
{
    while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
}

EventLock::~EventLock()
{
    if (fd_ >= 0)
        close(fd_);
}

} // namespace sim
