// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

namespace sim {

/// The descriptor that the camera's user polls: writable while a finished URB waits to be reaped,
/// here or with the user. It takes the place of the opened node, so that each opener
/// has a readiness of its own.
class ReadySignal {
public:
    ReadySignal();

    int fd() const { return event_.get(); } ///< -1 when the process has no descriptor left
    void set(bool ready);

    /// The user's own: from the first URB that waits there until none does.
    static void take(int fd);
    static void release(int fd);

private:
    files::Descriptor event_;
    bool ready_ = false;
};

} // namespace sim
