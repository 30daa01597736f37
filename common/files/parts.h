// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/uio.h>
#include <algorithm>
#include <cstddef>
#include <span>

namespace files {

/// Of parts that are written together, what is left when the first `done` bytes are out.
inline void drop_front(std::span<iovec> parts, size_t done)
{
    for (iovec& part : parts) {
        const size_t step = std::min(done, part.iov_len);
        part.iov_base = static_cast<char*>(part.iov_base) + step;
        part.iov_len -= step;
        done -= step;
    }
}

} // namespace files
