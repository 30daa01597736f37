// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// The JSON line that programs read last, even when the process ends in the middle.
namespace tool::last_line {

enum class Kind { kNone, kError, kResult };

/// From now on an end in the middle puts a line on `fd`. `head` is how a result begins, up to the
/// comma in front of its exit code.
void set(int fd, Kind kind, std::string_view head);
/// What the ROM holds then, as a result says it; static.
void set_rom(const char* rom);

/// Puts the line there, once. Signal handlers may call it. The texts need no escapes in JSON.
void put(int exit_code, const char* outcome, const char* message, const char* more);

/// The right to write other output, while it lives; false once the line has been put. One at a
/// time.
class Turn {
public:
    Turn();
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const;
};

} // namespace tool::last_line
