// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "system/error_catalogue.h"

#include <string>
#include <vector>

namespace tool {

/// A row of the catalogue, with what the number says by itself.
struct Explanation {
    int32_t number;
    std::string name; ///< symbolic name; "" for a number that nobody named
    std::string origin;
    std::string text; ///< what libusb, libuvc or the C library call it; "" if they do not
    const Explained* row;
    bool is_listed = true;  ///< else only found, when it is asked for
    bool exit_code = false; ///< of this program, not a status of the library
};

/// What a user may have at hand: a status (-16393, 16393, 0x4009, 0xFFFFBFF7), an exit code, a name
/// such as NYXUS_E_BUSY, LIBUSB_ERROR_PIPE or EACCES, or a line that the library or this program
/// printed.
std::vector<Explanation> explain(const std::string& words);

/// The whole catalogue.
std::vector<Explanation> all_explanations();

} // namespace tool
