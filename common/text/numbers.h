// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace text {

/// "010" becomes "10", which parsers that know octal numbers take for what people mean by it. Texts
/// that hold anything but digits behind an optional '+', such as "0x0A", stay as they are.
std::string without_leading_zeros(std::string text);

} // namespace text
