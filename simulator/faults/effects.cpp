// SPDX-License-Identifier: Apache-2.0
#include "faults/effects.h"

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
// clang-format on

} // namespace

std::span<const EffectWord> effect_words()
{
    return kEffects;
}

} // namespace sim
