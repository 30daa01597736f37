// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "system/error_catalogue.h"

#include <string>
#include <vector>

namespace tool {

/// A row of the catalogue, with what the number says by itself.
struct Explanation {
    /// Where it stands or is found; what is found by name is found by number, too.
    enum class Place { kInTheList, kByName, kByNumber };

    int32_t number;
    std::string name; ///< symbolic name; "" for a number that nobody named
    std::string origin;
    std::string text; ///< what libusb, libuvc or the C library call it; "" if they do not
    const Explained* row;
    Place place = Place::kInTheList;
    bool exit_code = false; ///< of this program, not a status of the library
};

/// What a user may have at hand: a status in any notation (-16393, 16393, 0x4009, 0xFFFFBFF7), an
/// exit code, or a name such as NYXUS_E_BUSY, LIBUSB_ERROR_PIPE or EACCES.
std::vector<Explanation> explain_word(const std::string& word);
/// The same for a line that the library or this program printed.
std::vector<Explanation> explain_line(const std::string& line);

/// The whole catalogue.
std::vector<Explanation> all_explanations();

} // namespace tool
