// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Takes over a file descriptor (standard error by default) while it lives.
class Captured {
public:
    explicit Captured(int fd = 2);
    ~Captured();
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;

    /// All that was written so far.
    std::string text();

private:
    int fd_;
    int saved_;
    int file_;
};
