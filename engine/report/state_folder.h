// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace nyxus::engine {

/// $XDG_STATE_HOME/nyxus, or ~/.local/state/nyxus; empty for a user without a home folder.
std::filesystem::path usual_state_folder();
/// $XDG_CONFIG_HOME/nyxus, or ~/.config/nyxus; the same.
std::filesystem::path usual_config_folder();

} // namespace nyxus::engine
