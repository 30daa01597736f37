// SPDX-License-Identifier: Apache-2.0
// A stream of H.264, cut into its access units.
#include "cameras/film_file.h"

#include "description/kinds.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace sim {

namespace {

/// Where the next start code begins, from `at` on; nothing behind the last.
std::optional<size_t> find_start_code(std::span<const uint8_t> bytes, size_t at)
{
    constexpr std::array<uint8_t, 3> kStartCode = {0, 0, 1};
    const auto found = std::search(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(),
                                   kStartCode.begin(), kStartCode.end());
    return found == bytes.end() ? std::nullopt
                                : std::optional(static_cast<size_t>(found - bytes.begin()));
}

enum NalType : uint8_t { kIdrSlice = 5, kInformation, kSequence, kPicture, kDelimiter };

bool is_slice(uint8_t type)
{
    return type >= 1 && type <= kIdrSlice;
}

/// Whether a unit, which follows a slice, begins another picture. A slice does when it is its
/// picture's first: its number of macroblocks before, 0, is written as a single bit.
bool begins_picture(uint8_t type, uint8_t first_byte)
{
    constexpr uint8_t kZero = 0x80;
    return is_slice(type)
               ? (first_byte & kZero) != 0
               : (type >= kInformation && type <= kDelimiter) || (type >= 14 && type <= 18);
}

} // namespace

Film h264_film(std::vector<uint8_t> bytes, size_t most_frame_bytes)
{
    constexpr size_t kCodeBytes = 3;
    Film film{.kind = Film::Kind::kH264, .bytes = std::move(bytes), .starts = {0}};
    bool has_sequence = false;
    bool has_picture = false;
    bool has_slice = false; // of the frame that is under way
    std::optional<size_t> code = find_start_code(film.bytes, 0);
    if (!code || *code > 1 || (*code == 1 && film.bytes[0] != 0))
        throw DescriptionError("is no H.264 stream in Annex B");
    while (code && *code + kCodeBytes + 1 < film.bytes.size()) {
        const size_t at = *code + kCodeBytes;
        const uint8_t type = film.bytes[at] & 0x1F;
        if (has_slice && begins_picture(type, film.bytes[at + 1])) {
            film.starts.push_back(film.bytes[*code - 1] == 0 ? *code - 1 : *code);
            has_slice = false;
        }
        has_sequence = has_sequence || type == kSequence;
        has_picture = has_picture || type == kPicture;
        if (is_slice(type) && !has_slice && film.starts.size() == 1 &&
            (type != kIdrSlice || !has_sequence || !has_picture)) {
            throw DescriptionError(
                "cannot begin again: it needs its parameter sets and an IDR picture first");
        }
        has_slice = has_slice || is_slice(type);
        code = find_start_code(film.bytes, at);
    }
    if (!has_slice) {
        throw DescriptionError("ends before its " +
                               std::string(film.starts.size() == 1 ? "first" : "last") +
                               " picture");
    }
    for (uint32_t i = 0; i < film.starts.size(); ++i) {
        if (const size_t frame_bytes = film.frame(i).size(); frame_bytes > most_frame_bytes) {
            throw DescriptionError("has a frame of " + std::to_string(frame_bytes) +
                                   " bytes, more than its size has room for");
        }
    }
    return film;
}

} // namespace sim
