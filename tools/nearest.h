// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tool {

/// "; did you mean 'upgrade'?", or "" when no word is near: a word that begins with what was
/// typed, or one that few typing errors are away.
std::string did_you_mean(const std::string& typed, const std::vector<std::string>& words);

} // namespace tool
