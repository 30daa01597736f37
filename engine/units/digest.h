// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/result.hpp>
#include <string>

namespace nyxus::engine {

/// SHA-256 in hexadecimal digits.
std::string sha256(Bytes bytes);

} // namespace nyxus::engine
