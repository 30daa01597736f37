// SPDX-License-Identifier: Apache-2.0
#include "text/nearest.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace sim {

namespace {

constexpr size_t kFarthestGuess = 4; // edits; beyond that a suggestion only confuses

/// Half of a short name may be wrong.
bool is_near(size_t edits, size_t length)
{
    return edits <= kFarthestGuess && edits * 2 <= length + 1;
}

size_t edit_distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    for (size_t column = 0; column <= to.size(); ++column) {
        row[column] = column;
    }
    for (size_t line = 1; line <= from.size(); ++line) {
        size_t diagonal = row[0];
        row[0] = line;
        for (size_t column = 1; column <= to.size(); ++column) {
            const size_t replaced = diagonal + (from[line - 1] == to[column - 1] ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({row[column] + 1, row[column - 1] + 1, replaced});
        }
    }
    return row.back();
}

} // namespace

std::optional<std::string_view> nearest_name(std::string_view name,
                                             std::span<const std::string_view> names)
{
    std::optional<std::string_view> nearest;
    size_t distance = SIZE_MAX;
    for (const std::string_view candidate : names) {
        const size_t edits = edit_distance(name, candidate);
        if (edits < distance && is_near(edits, std::max(name.size(), candidate.size()))) {
            distance = edits;
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace sim
