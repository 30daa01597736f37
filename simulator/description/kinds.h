// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace sim {

// The keys of a description: what each may hold, what it is without being named, and what it means.
// The reader and the manual page both follow tables of these.

/// Both ends belong to it.
struct Range {
    uint64_t from = 0;
    uint64_t to = std::numeric_limits<uint64_t>::max();

    bool contains(uint64_t value) const { return value >= from && value <= to; }
};

using Value = std::variant<int64_t, double, bool, std::string, Range, std::vector<uint8_t>,
                           std::vector<uint32_t>, FrameSize, std::vector<FrameSize>>;

enum class Digits { kDecimal, kHex, kHexPowerOfTwo };

struct Number {
    int64_t least;
    int64_t most;
    Digits digits = Digits::kDecimal;
};
/// Printable ASCII.
struct Text {
    size_t shortest;
    size_t longest;
};
/// Letters, digits, '-', '_' and '.'.
struct Word {
    size_t longest;
};
struct EitherNumber {
    int64_t first;
    int64_t second;
};
/// N, [FROM, TO] or [FROM].
struct NumberOrRange {
    int64_t least;
    int64_t most;
    Digits digits = Digits::kDecimal;
};
/// From 0 to 1.
struct Share {};
/// Of a camera: its serial number, or its place from 1.
struct SerialOrPlace {};
struct Truth {};
struct ByteList {
    size_t fewest;
    size_t most;
};
/// Of numbers that rise.
struct NumberList {
    size_t most_numbers;
    int64_t least;
    int64_t most;
};
/// Of a file; one that is not absolute begins at the description's folder.
struct Path {};
struct Choice {
    std::span<const std::string_view> words;
};
/// The name of a listed part, or a table of its own.
struct PartOrTable {
    std::string_view section;
};
struct Table {};
/// At most this many tables of the same header.
struct Tables {
    size_t most;
};
/// Of a picture, as "640x480".
struct PixelSize {};
/// Sizes of a picture with their rates, each as "640x480: 30, 15".
struct SizeList {
    size_t most;
};
using Kind = std::variant<Number, EitherNumber, NumberOrRange, Share, SerialOrPlace, Text, Word,
                          Truth, ByteList, NumberList, Path, Choice, PartOrTable, Table, Tables,
                          PixelSize, SizeList>;

struct Required {};
/// Absence means something by itself.
struct Absent {
    std::string_view text;
};
template <typename Target>
struct Computed {
    std::string_view text;
    Value (*value)(const Target&);
};
template <typename Target>
using Fallback = std::variant<Required, Absent, Value, Computed<Target>>;

template <typename Target>
struct Field {
    std::string_view key;
    Kind kind;
    Fallback<Target> fallback;
    std::string_view meaning;
    /// nullptr: the key opens a section.
    void (*set)(Target&, const Value&);
};

/// Puts a value of the right kind into a member, as it is.
template <auto Member, typename Target>
void store(Target& target, const Value& value)
{
    auto& member = target.*Member;
    using Type = std::remove_cvref_t<decltype(member)>;
    if constexpr (std::is_same_v<Type, std::array<uint8_t, 3>>) {
        const auto& bytes = std::get<std::vector<uint8_t>>(value);
        std::copy_n(bytes.begin(), std::min(bytes.size(), member.size()), member.begin());
    } else if constexpr (std::is_same_v<Type, std::optional<uint8_t>>) {
        member = static_cast<uint8_t>(std::get<int64_t>(value));
    } else if constexpr (std::is_same_v<Type, std::optional<Range>>) {
        member = std::get<Range>(value);
    } else if constexpr (std::is_integral_v<Type> && !std::is_same_v<Type, bool>) {
        member = static_cast<Type>(std::get<int64_t>(value));
    } else {
        member = std::get<Type>(value);
    }
}

/// What a key may hold, in words: "a whole number from 0 to 255".
std::string describe_kind(const Kind& kind);
/// A value as one writes it in a description; `kind` says whether numbers are hexadecimal.
std::string format_value(const Value& value, const Kind& kind);

/// What is wrong with a description: a line per mistake, each with file, line and column.
struct DescriptionError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

} // namespace sim
