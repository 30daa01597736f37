// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace text {

/// "; did you mean 'upgrade'?", the end of a sentence about a word that is not known: the first
/// word that begins with what was typed, or else the one that the fewest typing errors are away. ""
/// when none is near.
std::string did_you_mean(std::string_view typed, std::span<const std::string_view> words,
                         char quote = '\'');
std::string did_you_mean(std::string_view typed, const std::vector<std::string>& words);

} // namespace text
