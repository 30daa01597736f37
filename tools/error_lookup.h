// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

/// A row of the catalogue, with what the number says by itself.
struct Explanation {
    int32_t number = 0;
    bool exit_code = false; ///< of this program, not a status of the library
    std::string name;       ///< symbolic name; "" for a number that nobody named
    std::string origin;
    std::string text; ///< what libusb, libuvc or the C library call it; "" if they do not
    std::string meaning;
    std::string causes; ///< "" when there is nothing to say
    std::string advice;
    std::vector<std::string> messages; ///< the library's own words for it
};

/// What a status means: several things where functions use the same number differently, none when
/// no function returns it.
std::vector<Explanation> explain_status(int32_t status);
std::optional<Explanation> explain_exit_code(int32_t code);

/// What a user may have at hand: a status in any notation (-16393, 16393, 0x4009, 0xFFFFBFF7), an
/// exit code, or a name such as NYXUS_E_BUSY, LIBUSB_ERROR_PIPE or EACCES.
std::vector<Explanation> explain_word(const std::string& word);
/// The same for a line that the library or this program printed.
std::vector<Explanation> explain_line(const std::string& line);

/// The whole catalogue.
std::vector<Explanation> all_explanations();

} // namespace tool
