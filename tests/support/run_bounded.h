// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>
#include <functional>

/// For a child process of its own, that has a minute.
[[noreturn]] inline void run_bounded(const std::function<int()>& body)
{
    alarm(60);
    _exit(body());
}
