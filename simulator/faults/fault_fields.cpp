// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_fields.h"

#include "chip/uvc_request.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

constexpr int64_t kMostMs = 1'000'000'000;
constexpr int64_t kMostEvents = UINT32_MAX;
constexpr int64_t kMostBytes = 0xFFFFFF; // of a 24-bit address, or of a frame
constexpr uint64_t kUsPerMs = 1000;

struct RequestWord {
    std::string_view name;
    uint8_t code;
};

constexpr RequestWord kRequests[] = {
    {"SET_CUR", kSetCur}, {"GET_CUR", kGetCur}, {"GET_MIN", kGetMin},   {"GET_MAX", kGetMax},
    {"GET_RES", kGetRes}, {"GET_LEN", kGetLen}, {"GET_INFO", kGetInfo}, {"GET_DEF", kGetDef},
};

template <typename Rows>
std::vector<std::string_view> names_of(const Rows& rows)
{
    std::vector<std::string_view> names;
    std::ranges::transform(rows, std::back_inserter(names),
                           [](const auto& row) { return row.name; });
    return names;
}

void set_effect(PlannedFault& fault, const Value& value)
{
    const auto& name = std::get<std::string>(value);
    fault.effect = std::ranges::find(effect_words(), name, &EffectWord::name)->effect;
}

void set_request(Trigger& when, const Value& value)
{
    const auto& name = std::get<std::string>(value);
    when.request = std::ranges::find(kRequests, name, &RequestWord::name)->code;
}

template <auto Member>
void set_ms(PlannedFault& fault, const Value& value)
{
    fault.*Member = static_cast<uint64_t>(std::get<int64_t>(value)) * kUsPerMs;
}

/// All of the last millisecond belongs to it.
void set_time(Trigger& when, const Value& value)
{
    Range time = std::get<Range>(value);
    time.from *= kUsPerMs;
    if (time.to != Range{}.to)
        time.to = time.to * kUsPerMs + kUsPerMs - 1;
    when.time_us = time;
}

void set_camera(Trigger& when, const Value& value)
{
    if (const auto* place = std::get_if<int64_t>(&value)) {
        when.position = static_cast<unsigned>(*place);
    } else {
        when.serial = std::get<std::string>(value);
    }
}

constexpr Number kNumber{0, UINT8_MAX, Digits::kHex};
constexpr NumberOrRange kNth{1, kMostEvents};
constexpr Absent kAny{"any"};

} // namespace

// clang-format off
std::span<const Field<PlannedFault>> fault_fields()
{
    using F = PlannedFault;
    static const auto effects = names_of(effect_words());
    static const Field<F> fields[] = {
        {"when", Table{}, Required{},
         "When it strikes: all that stands in this table has to hold; an empty one holds always.",
         nullptr},
        {"do", Choice{effects}, Required{}, "What happens.", set_effect},
        {"times", Number{1, kMostEvents},
         Absent{"without an end; with a single 'time_ms' once"},
         "It ends after so many strikes.", store<&F::times>},
        {"seed", Number{0, INT64_MAX}, Value(0),
         "Another seed, another chance of 'probability' and \"bit-flip\".", store<&F::seed>},
        {"bytes", Number{0, kMostBytes}, Absent{"none"},
         "How many move: of \"short\", \"wrong-length\" and \"truncate\", which need it.",
         store<&F::bytes>},
        {"ms", Number{0, kMostMs}, Absent{"for ever"},
         "How long \"stuck-busy\" takes, and \"late\", which needs it.", set_ms<&F::duration_us>},
        {"mask", Number{1, UINT8_MAX, Digits::kHex}, Absent{"one bit by chance"},
         "What \"bit-flip\" flips in every byte that is read at 'rom_address'.", store<&F::mask>},
        {"announced", Truth{}, Value(true),
         "Whether \"unplug\" and \"power-cut\" come with a hot-plug event.", store<&F::announced>},
        {"replug_ms", Number{0, kMostMs}, Absent{"it stays away"},
         "After so long the camera comes back from \"unplug\" or \"power-cut\".",
         set_ms<&F::replug_us>},
        {"after", Truth{}, Value(false),
         "\"io-error\", \"timeout\", \"no-answer\" and \"unplug\" strike once the camera has done what "
         "it was asked: only the answer is lost.", store<&F::after>},
    };
    return fields;
}

std::span<const Field<Trigger>> trigger_fields()
{
    using T = Trigger;
    static const auto requests = names_of(kRequests);
    static const Field<T> fields[] = {
        {"transfer", kNth, kAny,
         "The Nth control transfer, whatever it asks for.", store<&T::transfer>},
        {"unit", kNumber, kAny, "Requests to this unit.", store<&T::unit>},
        {"selector", kNumber, kAny, "Requests to this control.", store<&T::selector>},
        {"request", Choice{requests}, kAny, "This request.", set_request},
        {"rom_address", NumberOrRange{0, kMostBytes, Digits::kHex}, kAny,
         "Reads, writes and erases of the external ROM that touch these addresses.",
         store<&T::rom_address>},
        {"frame", kNth, kAny,
         "The Nth video frame that the program has room for.", store<&T::frame>},
        {"time_ms", NumberOrRange{0, kMostMs}, kAny,
         "From this moment on, but once only; a range: throughout it. In milliseconds of the "
         "camera's clock since it was first plugged in.",
         set_time},
        {"count", kNth, kAny,
         "The Nth event, or ROM access, for which all of the others hold.", store<&T::count>},
        {"probability", Share{}, Value(1.0),
         "A share of those, chosen by 'seed'.", store<&T::probability>},
        {"camera", SerialOrPlace{}, kAny, "One camera of several.", set_camera},
    };
    return fields;
}
// clang-format on

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
