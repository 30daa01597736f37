// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>
#include <cerrno>
#include <utility>

namespace files {

/// Owns a file descriptor, or none (-1). Closing leaves errno alone.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other)
            reset(std::exchange(other.fd_, -1));
        return *this;
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    void reset(int fd = -1)
    {
        const int error = errno;
        if (const int old = std::exchange(fd_, fd); old >= 0)
            close(old);
        errno = error;
    }

private:
    int fd_ = -1;
};

} // namespace files
