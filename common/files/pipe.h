// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <fcntl.h>

namespace files {

struct Pipe {
    Descriptor read_end;
    Descriptor write_end;
};

/// Closed on exec; without descriptors, and errno, when there are none left.
inline Pipe make_pipe(int flags = 0)
{
    int ends[2];
    if (pipe2(ends, flags | O_CLOEXEC) != 0)
        return {};
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

} // namespace files
