// SPDX-License-Identifier: Apache-2.0
#include "bus/event_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace sim {

files::Descriptor lock_events(const std::string& bed)
{
    files::Descriptor lock(
        open((bed + "/events.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    while (lock && flock(lock.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    return lock;
}

} // namespace sim
