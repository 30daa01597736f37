// SPDX-License-Identifier: Apache-2.0
// What every status of the library and every exit code of the program means, and what to do.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tool {

/// A row of the catalogue. Texts are whole sentences.
struct Explained {
    int32_t number;
    const char* name; ///< as in the headers
    const char* meaning;
    const char* causes;
    const char* advice;
    /// What nyxus_errmsg says, without its varying parts; none for a status without a message.
    std::array<const char*, 8> messages = {};
};

/// Where a status begins: the high byte of its absolute value.
struct Origin {
    int32_t high_byte;
    const char* meaning;
};

// clang-format off
inline constexpr Origin kOrigins[] = {
    {0x00, "the function itself; nyxus_errno and nyxus_errmsg keep what they held"},
    {0x01, "library-wide call (version, settings, conversion)"},
    {0x02, "serial-number field"},
    {0x03, "firmware or MFi image"},
    {0x04, "device object, or an operation of a camera"},
    {0x40, "libusb"},
    {0x80, "operating system (errno)"},
};
// clang-format on

/// Statuses of the library's own; positive ones are results that mean a failure.
extern const std::span<const Explained> library_statuses;
/// libusb's codes: the status is NYXUS_E_LIBUSB(number).
extern const std::span<const Explained> libusb_codes;
/// libuvc's codes, which the functions that start a stream return as they are.
extern const std::span<const Explained> libuvc_codes;
/// Usual values of errno: the status is NYXUS_E_SYSTEM(number).
extern const std::span<const Explained> system_errors;
/// Exit codes of this program.
extern const std::span<const Explained> exit_codes;

/// What this program says before it ends with an exit code, without its varying parts.
struct OwnMessage {
    int32_t exit_code;
    const char* words;
};
extern const std::span<const OwnMessage> own_messages;

} // namespace tool
