// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/reader.h"

#include <string_view>

namespace sim {

/// The older way to write faults: a JSON list, which no TOML begins like.
bool is_json(std::string_view text);
/// The same as a TOML file would be read, but for the lines; a mistake, and no faults, for what is
/// no JSON list.
toml::table table_from_json(std::string_view text, Mistakes& mistakes);

} // namespace sim
