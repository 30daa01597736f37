// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "usb/setup.h"

namespace sweep {

/// What the library makes of the failure of one transfer of an operation.
enum class Meaning {
    kDecides,        ///< the operation ends with it, at once
    kRefusedRequest, ///< names what the next transfer reads; some firmware refuses it, and only the
                     ///< read decides, which then answers for an older request
    kRetried,        ///< a block protection that is not confirmed is set again
    kIgnored,        ///< a step whose failure does not count
    kAfterTheEnd,    ///< locks a ROM that is complete: the operation has succeeded all the same
};

/// For each transfer of an operation that met no fault.
std::vector<Meaning> meanings(std::string_view operation, bool has_xu_version,
                              std::span<const sim::Transfer> transfers);

} // namespace sweep
