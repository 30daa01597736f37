// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_file.h"

#include "faults/fault_words.h"
#include "faults/json_lines.h"
#include "files/read.h"
#include "text/nearest.h"
#include "text/numbers.h"
#include "text/printable.h"

#include <nlohmann/json.hpp>

#include <span>
#include <system_error>
#include <utility>

namespace sim {

namespace {

using nlohmann::json;

constexpr size_t kLargestFile = 1 << 20;
constexpr size_t kMostFaults = 1000;
constexpr uint64_t kUsPerMs = 1000;
constexpr uint64_t kMostMs = 1'000'000'000;
constexpr uint64_t kMostEvents = UINT32_MAX;
constexpr uint64_t kMostBytes = 0xFFFFFF; // of a 24-bit address, or of a frame

/// The text of a value as it stands in the file, not too long.
std::string shown(const json& value)
{
    constexpr size_t kLongest = 40;
    std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
    if (text.size() > kLongest)
        text.replace(kLongest, std::string::npos, "...");
    return text;
}

std::string listed(std::span<const std::string_view> words)
{
    std::string text;
    for (const std::string_view word : words)
        text += (text.empty() ? "\"" : ", \"") + std::string(word) + "\"";
    return text;
}

/// The end of a sentence about a word that is not known.
std::string choice(std::string_view text, std::span<const std::string_view> known)
{
    const std::string guess = text::did_you_mean(text, known, '"');
    return (guess.empty() ? "." : guess) + " There are " + listed(known);
}

/// Reads one element of the list.
class FaultReader {
public:
    FaultReader(const JsonList& list, size_t element, std::string file)
        : list_(list), element_(element), file_(std::move(file))
    {
    }

    PlannedFault read();

private:
    [[noreturn]] void fail(const std::string& key, const std::string& text) const;
    void check_keys(const json& object, const std::string& prefix,
                    std::span<const std::string_view> known) const;
    uint64_t number(const json& value, const std::string& key, uint64_t least, uint64_t most) const;
    std::optional<uint64_t> number_at(const std::string& key, uint64_t least, uint64_t most) const;
    std::optional<Range> range_at(const std::string& key, uint64_t least, uint64_t most) const;
    std::optional<uint8_t> byte_at(const std::string& key) const;
    std::string_view word(const json& value, const std::string& key,
                          std::span<const std::string_view> known) const;
    bool flag_at(const std::string& key, bool otherwise) const;
    const json* find(const std::string& key) const;

    const EffectWord& read_effect() const;
    Trigger read_trigger() const;
    void read_camera(Trigger& when) const;
    void read_probability(Trigger& when) const;
    void read_settings(const EffectWord& word, PlannedFault& fault) const;
    Site site(const EffectWord& word) const;
    void refuse_triggers(std::span<const std::string_view> triggers, const std::string& why) const;
    bool has_any(std::span<const std::string_view> triggers) const;

    const JsonList& list_;
    size_t element_;
    std::string file_;
};

void FaultReader::fail(const std::string& key, const std::string& text) const
{
    throw FaultFileError(file_ + ":" + std::to_string(list_.line_of(element_, key)) + ": fault " +
                         std::to_string(element_ + 1) + ": " + text);
}

/// Keys of triggers are written "when.KEY".
const json* FaultReader::find(const std::string& key) const
{
    const json* object = &list_.root()[element_];
    const size_t point = key.find('.');
    if (point != std::string::npos)
        object = &object->at("when");
    const auto found = object->find(point == std::string::npos ? key : key.substr(point + 1));
    return found == object->end() ? nullptr : &*found;
}

void FaultReader::check_keys(const json& object, const std::string& prefix,
                             std::span<const std::string_view> known) const
{
    for (const auto& item : object.items()) {
        if (std::ranges::find(known, item.key()) == known.end()) {
            fail(prefix + item.key(),
                 shown(item.key()) + " is not known here" + choice(item.key(), known));
        }
    }
}

std::string_view FaultReader::word(const json& value, const std::string& key,
                                   std::span<const std::string_view> known) const
{
    const std::string text = value.is_string() ? value.get<std::string>() : std::string();
    const auto found = std::ranges::find(known, text);
    if (found == known.end()) {
        fail(key, "\"" + key.substr(key.find('.') + 1) + "\" cannot be " + shown(value) +
                      choice(text, known));
    }
    return *found;
}

/// A number, or a text such as "0x4000", as JSON has no other way to write it.
uint64_t FaultReader::number(const json& value, const std::string& key, uint64_t least,
                             uint64_t most) const
{
    std::optional<uint64_t> read;
    if (value.is_number_unsigned()) {
        read = value.get<uint64_t>();
    } else if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        if (text.starts_with("0x"))
            read = text::parse_number(text);
    }
    if (!read || *read < least || *read > most) {
        fail(key, "\"" + key.substr(key.find('.') + 1) + "\" is a number from " +
                      std::to_string(least) + " to " + std::to_string(most) + ", not " +
                      shown(value));
    }
    return *read;
}

std::optional<uint64_t> FaultReader::number_at(const std::string& key, uint64_t least,
                                               uint64_t most) const
{
    const json* value = find(key);
    return value != nullptr ? std::optional(number(*value, key, least, most)) : std::nullopt;
}

std::optional<uint8_t> FaultReader::byte_at(const std::string& key) const
{
    const std::optional<uint64_t> value = number_at(key, 0, UINT8_MAX);
    return value ? std::optional(static_cast<uint8_t>(*value)) : std::nullopt;
}

/// N, [FROM, TO] or [FROM, null].
std::optional<Range> FaultReader::range_at(const std::string& key, uint64_t least,
                                           uint64_t most) const
{
    const json* value = find(key);
    if (value == nullptr)
        return std::nullopt;
    if (!value->is_array()) {
        const uint64_t single = number(*value, key, least, most);
        return Range{single, single};
    }
    if (value->size() != 2)
        fail(key, "a range is written [FROM, TO] or [FROM, null], not " + shown(*value));
    Range range{number((*value)[0], key, least, most), Range{}.to};
    if (!(*value)[1].is_null())
        range.to = number((*value)[1], key, least, most);
    if (range.to < range.from)
        fail(key, "the range " + shown(*value) + " ends before it begins");
    return range;
}

bool FaultReader::flag_at(const std::string& key, bool otherwise) const
{
    const json* value = find(key);
    if (value == nullptr)
        return otherwise;
    if (!value->is_boolean())
        fail(key, "\"" + key + "\" is true or false, not " + shown(*value));
    return value->get<bool>();
}

PlannedFault FaultReader::read()
{
    const json& element = list_.root()[element_];
    if (!element.is_object())
        fail({}, R"(a fault is written {"when": {...}, "do": "..."}, not )" + shown(element));
    check_keys(element, {}, kFaultKeys);
    if (!element.contains("when") || !element["when"].is_object())
        fail("when", R"("when" is missing; it is written "when": {...}, with {} for always)");
    check_keys(element["when"], "when.", kTriggerKeys);

    const EffectWord& word = read_effect();
    PlannedFault fault;
    fault.effect = word.effect;
    fault.when = read_trigger();
    fault.site = site(word);
    read_settings(word, fault);
    fault.text = "fault " + std::to_string(element_ + 1) + " (\"" + std::string(word.name) +
                 "\", line " + std::to_string(list_.line_of(element_)) + ")";
    return fault;
}

const EffectWord& FaultReader::read_effect() const
{
    const json* value = find("do");
    if (value == nullptr)
        fail({}, "\"do\" is missing: what happens? There are " + listed(effect_names()));
    return effect_named(word(*value, "do", effect_names()));
}

Trigger FaultReader::read_trigger() const
{
    Trigger when;
    when.transfer = range_at("when.transfer", 1, kMostEvents);
    when.unit = byte_at("when.unit");
    when.selector = byte_at("when.selector");
    if (const json* request = find("when.request"))
        when.request = request_named(word(*request, "when.request", request_names()));
    when.rom_address = range_at("when.rom_address", 0, kMostBytes);
    when.frame = range_at("when.frame", 1, kMostEvents);
    when.count = range_at("when.count", 1, kMostEvents);
    when.time_us = range_at("when.time_ms", 0, kMostMs);
    if (when.time_us) {
        when.time_us->from *= kUsPerMs;
        when.time_us->to = find("when.time_ms")->is_array() && when.time_us->to <= kMostMs
                               ? when.time_us->to * kUsPerMs + kUsPerMs - 1
                               : Range{}.to;
    }
    read_probability(when);
    read_camera(when);
    return when;
}

void FaultReader::read_probability(Trigger& when) const
{
    if (const json* value = find("when.probability")) {
        when.probability = value->is_number() ? value->get<double>() : -1;
        if (!(when.probability >= 0 && when.probability <= 1)) {
            fail("when.probability",
                 "\"probability\" is a number from 0 to 1, not " + shown(*value));
        }
    }
}

void FaultReader::read_camera(Trigger& when) const
{
    const json* value = find("when.camera");
    if (value == nullptr)
        return;
    if (value->is_string() && !value->get_ref<const std::string&>().empty()) {
        when.serial = value->get<std::string>();
    } else if (value->is_number_unsigned() && *value >= 1 && *value <= UINT16_MAX) {
        when.position = value->get<unsigned>();
    } else {
        fail("when.camera",
             "\"camera\" is a serial number in quotes, or 1 for the first camera, not " +
                 shown(*value));
    }
}

bool FaultReader::has_any(std::span<const std::string_view> triggers) const
{
    return std::ranges::any_of(triggers, [this](std::string_view trigger) {
        return find("when." + std::string(trigger)) != nullptr;
    });
}

void FaultReader::refuse_triggers(std::span<const std::string_view> triggers,
                                  const std::string& why) const
{
    for (const std::string_view trigger : triggers) {
        const std::string key = "when." + std::string(trigger);
        if (find(key) != nullptr)
            fail(key, "\"" + std::string(trigger) + "\" does not go together with " + why);
    }
}

Site FaultReader::site(const EffectWord& word) const
{
    const std::string effect = "\"" + std::string(word.name) + "\"";
    if (word.strikes == Strikes::kFrames || has_any(kFrameTriggers)) {
        if (word.strikes != Strikes::kFrames && word.strikes != Strikes::kTransfersAndFrames &&
            word.strikes != Strikes::kAnything)
            refuse_triggers(kFrameTriggers, effect + ", which does not happen to frames");
        refuse_triggers(kTransferTriggers, "a fault of a frame");
        refuse_triggers(kRomTriggers, "a fault of a frame");
        return Site::kFrame;
    }
    if (word.strikes == Strikes::kRomStatus)
        refuse_triggers(kRomTriggers, effect + ", which is about the status register");
    if (word.strikes == Strikes::kRom || word.strikes == Strikes::kRomStatus ||
        has_any(kRomTriggers))
        return Site::kRom;
    const bool happens_by_itself =
        word.strikes == Strikes::kAnything && !has_any(kTransferTriggers);
    return happens_by_itself && find("when.time_ms") != nullptr ? Site::kClock : Site::kTransfer;
}

void FaultReader::read_settings(const EffectWord& word, PlannedFault& fault) const
{
    for (const std::string_view key : kSettingKeys) {
        const bool fits = std::ranges::find(word.settings, key) != std::end(word.settings);
        if (!fits && find(std::string(key)) != nullptr) {
            fail(std::string(key), "\"" + std::string(key) + "\" means nothing to \"" +
                                       std::string(word.name) + "\"");
        }
    }
    if (!word.required.empty() && find(std::string(word.required)) == nullptr) {
        fail("do", "\"" + std::string(word.name) + "\" needs \"" + std::string(word.required) +
                       "\": a number");
    }
    fault.bytes = static_cast<uint32_t>(number_at("bytes", 0, kMostBytes).value_or(0));
    if (const auto duration_ms = number_at("ms", 0, kMostMs))
        fault.duration_us = *duration_ms * kUsPerMs;
    if (const auto mask = number_at("mask", 1, UINT8_MAX))
        fault.mask = static_cast<uint8_t>(*mask);
    fault.announced = flag_at("announced", true);
    fault.after = flag_at("after", false);
    if (fault.after && (fault.site == Site::kFrame || fault.site == Site::kClock))
        fail("after", "\"after\" is about a request, and nothing is asked here");
    if (const auto replug_ms = number_at("replug_ms", 0, kMostMs))
        fault.replug_us = *replug_ms * kUsPerMs;
    const json* const time = find("when.time_ms");
    const bool at_one_moment = time != nullptr && !time->is_array();
    fault.times = number_at("times", 1, kMostEvents).value_or(at_one_moment ? 1 : fault.times);
    fault.seed = number_at("seed", 0, UINT64_MAX).value_or(0);
}

} // namespace

FaultPlan parse_faults(std::string_view text, const std::string& name)
{
    if (text.size() > kLargestFile)
        throw FaultFileError(name + ": a fault file has at most 1 MiB");
    try {
        const JsonList list(text);
        if (!list.root().is_array())
            throw FaultFileError(name + ":1: a fault file is a list: [ {...}, {...} ]");
        if (list.root().size() > kMostFaults) {
            throw FaultFileError(name + ": a fault file has at most " +
                                 std::to_string(kMostFaults) + " faults");
        }
        FaultPlan plan;
        for (size_t i = 0; i < list.root().size(); ++i)
            plan.push_back(FaultReader(list, i, name).read());
        return plan;
    } catch (const JsonList::Mistake& mistake) {
        throw FaultFileError(name + ":" + std::to_string(mistake.line) + ": " + mistake.what());
    }
}

FaultPlan read_fault_file(const std::string& path)
{
    try {
        return parse_faults(files::read_text(path, kLargestFile), path);
    } catch (const std::system_error& failure) {
        throw FaultFileError("cannot read the fault file " + text::in_quotes(path) + ": " +
                             failure.code().message());
    }
}

} // namespace sim
