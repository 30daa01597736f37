// SPDX-License-Identifier: Apache-2.0
#include "text/nearest.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace text {

namespace {

constexpr size_t kLongest = 64; // nobody mistypes so much
constexpr size_t kShortestStem = 2;

/// Letters to insert, delete, replace, or swap with their neighbour.
size_t typing_errors(std::string_view typed, std::string_view word)
{
    std::vector<std::vector<size_t>> errors(typed.size() + 1, std::vector<size_t>(word.size() + 1));
    for (size_t i = 0; i <= typed.size(); ++i) {
        for (size_t j = 0; j <= word.size(); ++j) {
            if (i == 0 || j == 0) {
                errors[i][j] = i + j;
                continue;
            }
            const size_t replaced = errors[i - 1][j - 1] + (typed[i - 1] == word[j - 1] ? 0 : 1);
            errors[i][j] = std::min({errors[i - 1][j] + 1, errors[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && typed[i - 1] == word[j - 2] && typed[i - 2] == word[j - 1])
                errors[i][j] = std::min(errors[i][j], errors[i - 2][j - 2] + 1);
        }
    }
    return errors.back().back();
}

/// A third of the word may be wrong, of a short one a letter, but not all of it.
bool is_near(size_t errors, std::string_view word)
{
    return errors < word.size() && errors <= std::max<size_t>(1, word.size() / 3);
}

std::optional<std::string_view> nearest_word(std::string_view typed,
                                             std::span<const std::string_view> words)
{
    std::optional<std::string_view> nearest;
    size_t fewest = kLongest;
    if (typed.size() > kLongest)
        return nearest;
    for (const std::string_view word : words) {
        if (typed.size() >= kShortestStem && word.starts_with(typed))
            return word;
        const size_t errors = typing_errors(typed, word);
        if (errors < fewest && is_near(errors, word)) {
            fewest = errors;
            nearest = word;
        }
    }
    return nearest;
}

} // namespace

std::string did_you_mean(std::string_view typed, std::span<const std::string_view> words,
                         char quote)
{
    const auto nearest = nearest_word(typed, words);
    return nearest ? std::string("; did you mean ") + quote + std::string(*nearest) + quote + "?"
                   : "";
}

std::string did_you_mean(std::string_view typed, const std::vector<std::string>& words)
{
    const std::vector<std::string_view> views(words.begin(), words.end());
    return did_you_mean(typed, views);
}

} // namespace text
