// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/// JSON as the programs read and write it. The library's reader and writer are templates: here they
/// are compiled once for all.
namespace json {

using Json = nlohmann::ordered_json;

/// Those of C++.
enum class Comments { kRefused, kAllowed };

/// What the text says; a value that is_discarded() where it is no JSON, or nested deeper than 16.
Json parsed(std::string_view text, Comments comments = Comments::kRefused);

/// On one line, or indented. What is no UTF-8 becomes U+FFFD.
std::string printed(const Json& value, int indent = -1);

} // namespace json
