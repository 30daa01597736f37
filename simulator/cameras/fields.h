// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace sim {

// The keys of a camera description: what each may hold, what it is without being named, and what
// it means. The reader and the manual page both follow these tables.

using Value =
    std::variant<int64_t, bool, std::string, std::vector<uint8_t>, std::vector<FrameSize>>;

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
struct Truth {};
struct ByteList {
    size_t fewest;
    size_t most;
};
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
/// Sizes of a picture with their rates, each as "640x480: 30, 15".
struct SizeList {
    size_t most;
};
using Kind = std::variant<Number, EitherNumber, Text, Word, Truth, ByteList, Choice, PartOrTable,
                          Table, Tables, SizeList>;

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

/// In this order, so that a computed fallback may look at what stands above it.
std::span<const Field<CameraModel>> camera_fields();
std::span<const Field<CameraModel>> firmware_fields();
std::span<const Field<FrameFormat>> format_fields();
/// In the order of PictureControl.
std::span<const Field<CameraModel>> control_fields();
std::span<const Field<ControlRange>> range_fields();
std::span<const Field<FlashPart>> flash_fields();
std::span<const Field<EepromPart>> eeprom_fields();

/// What a key may hold, in words: "a whole number from 0 to 255".
std::string describe_kind(const Kind& kind);
/// A value as one writes it in a description; `kind` says whether numbers are hexadecimal.
std::string format_value(const Value& value, const Kind& kind);

} // namespace sim
