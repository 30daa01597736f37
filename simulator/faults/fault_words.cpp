// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_words.h"

#include "chip/uvc_request.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

// clang-format off
constexpr EffectWord kEffects[] = {
//   name              effect                  strikes                       settings                             required
    {"stall",          Effect::kStalled,       Strikes::kTransfersAndFrames, {},                                  ""},
    {"io-error",       Effect::kIoError,       Strikes::kTransfers,          {"after"},                           ""},
    {"timeout",        Effect::kTimeout,       Strikes::kTransfers,          {"after"},                           ""},
    {"no-answer",      Effect::kNoAnswer,      Strikes::kTransfers,          {"after"},                           ""},
    {"short",          Effect::kShort,         Strikes::kTransfers,          {"bytes"},                           "bytes"},
    {"wrong-length",   Effect::kWrongLength,   Strikes::kTransfers,          {"bytes"},                           "bytes"},
    {"late",           Effect::kLate,          Strikes::kTransfers,          {"ms"},                              "ms"},
    {"unplug",         Effect::kUnplug,        Strikes::kAnything,           {"announced", "replug_ms", "after"}, ""},
    {"power-cut",      Effect::kPowerCut,      Strikes::kAnything,           {"announced", "replug_ms"},          ""},
    {"truncate",       Effect::kTruncate,      Strikes::kFrames,             {"bytes"},                           "bytes"},
    {"error-bit",      Effect::kErrorBit,      Strikes::kFrames,             {},                                  ""},
    {"lying-write",    Effect::kLyingWrite,    Strikes::kRom,                {},                                  ""},
    {"lying-erase",    Effect::kLyingErase,    Strikes::kRom,                {},                                  ""},
    {"stuck-busy",     Effect::kStuckBusy,     Strikes::kRom,                {"ms"},                              ""},
    {"ignored-lock",   Effect::kIgnoredLock,   Strikes::kRomStatus,          {},                                  ""},
    {"ignored-unlock", Effect::kIgnoredUnlock, Strikes::kRomStatus,          {},                                  ""},
    {"bit-flip",       Effect::kBitFlip,       Strikes::kRom,                {"mask"},                            ""},
};

struct RequestWord {
    std::string_view name;
    uint8_t code;
};

constexpr RequestWord kRequests[] = {
    {"SET_CUR", kSetCur}, {"GET_CUR", kGetCur}, {"GET_MIN", kGetMin},   {"GET_MAX", kGetMax},
    {"GET_RES", kGetRes}, {"GET_LEN", kGetLen}, {"GET_INFO", kGetInfo}, {"GET_DEF", kGetDef},
};
// clang-format on

template <typename Rows>
auto names_of(const Rows& rows)
{
    std::array<std::string_view, std::extent_v<Rows>> names;
    std::ranges::transform(rows, names.begin(), [](const auto& row) { return row.name; });
    return names;
}

} // namespace

std::span<const std::string_view> effect_names()
{
    static const auto names = names_of(kEffects);
    return names;
}

const EffectWord& effect_named(std::string_view name)
{
    return *std::ranges::find(kEffects, name, &EffectWord::name);
}

std::span<const std::string_view> request_names()
{
    static const auto names = names_of(kRequests);
    return names;
}

uint8_t request_named(std::string_view name)
{
    return std::ranges::find(kRequests, name, &RequestWord::name)->code;
}

} // namespace sim
