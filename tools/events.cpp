// SPDX-License-Identifier: Apache-2.0
#include "events.h"

#include "json_text.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tool {

namespace {

using Json = nlohmann::json;

/// A rate that is taken from less time says little.
constexpr double kRateKnown_s = 0.3;

constexpr const char* kOutcomes[] = {"upgraded",    "up-to-date", "failed",   "interrupted",
                                     "not-started", "done",       "different"};
constexpr const char* kContents[] = {"unchanged", "new", "unverified", "incomplete", "erased"};

template <class Enum, size_t kCount>
Enum from_text(const char* const (&texts)[kCount], const std::string& text)
{
    const auto found = std::ranges::find(texts, text);
    if (found == std::end(texts))
        throw std::out_of_range(text);
    return static_cast<Enum>(found - texts);
}

double rounded(double number, double steps)
{
    return std::round(number * steps) / steps;
}

Progress to_progress(const Json& object)
{
    Progress progress;
    progress.phase = object.at("phase");
    progress.bytes = object.at("bytes");
    progress.total = object.at("total").is_null() ? 0 : object.at("total").get<uint64_t>();
    progress.seconds = object.at("seconds");
    progress.done = object.at("done");
    return progress;
}

Result to_result(const Json& object)
{
    Result result;
    result.camera = {object.at("port"), object.at("serial"), object.at("product")};
    result.outcome = from_text<Outcome>(kOutcomes, object.at("outcome"));
    result.rom = from_text<RomContents>(kContents, object.at("rom"));
    result.exit_code = object.at("exit_code");
    result.message = object.at("message");
    result.seconds = object.at("seconds");
    result.bytes = object.at("bytes");
    return result;
}

} // namespace

double Progress::rate() const
{
    const bool known = bytes > 0 && (done || seconds > kRateKnown_s) && seconds > 0;
    return known ? static_cast<double>(bytes) / seconds : 0;
}

std::optional<double> Progress::remaining_s() const
{
    if (total == 0 || rate() == 0)
        return std::nullopt;
    return static_cast<double>(total - std::min(bytes, total)) / rate();
}

const char* to_text(Outcome outcome)
{
    return kOutcomes[static_cast<size_t>(outcome)];
}

std::string json_line(const Progress& progress)
{
    const auto remaining = progress.remaining_s();
    return json_line(
        Members{{"event", "progress"},
                {"phase", progress.phase},
                {"bytes", progress.bytes},
                {"total", progress.total > 0 ? Value(progress.total) : Value()},
                {"seconds", rounded(progress.seconds, 1000)},
                {"rate", progress.rate() > 0 ? Value(std::round(progress.rate())) : Value()},
                {"remaining_s", remaining ? Value(rounded(*remaining, 10)) : Value()},
                {"done", progress.done}});
}

std::string json_line(const Message& message)
{
    return json_line(Members{{"event", "message"}, {"text", message.text}});
}

std::string json_line(const Result& result)
{
    return json_line(Members{{"event", "result"},
                             {"port", result.camera.port},
                             {"serial", result.camera.serial},
                             {"product", result.camera.product},
                             {"outcome", to_text(result.outcome)},
                             {"rom", to_text(result.rom)},
                             {"exit_code", result.exit_code},
                             {"message", result.message},
                             {"seconds", rounded(result.seconds, 10)},
                             {"bytes", result.bytes}});
}

std::string json_line(const Summary& summary)
{
    return json_line(Members{{"event", "summary"},
                             {"cameras", summary.cameras},
                             {"upgraded", summary.upgraded},
                             {"up_to_date", summary.up_to_date},
                             {"failed", summary.failed},
                             {"interrupted", summary.interrupted},
                             {"not_started", summary.not_started},
                             {"exit_code", summary.exit_code},
                             {"seconds", rounded(summary.seconds, 10)}});
}

std::optional<Event> parse_event(const std::string& line)
{
    try {
        const Json object = Json::parse(line);
        const std::string kind = object.at("event");
        if (kind == "progress")
            return to_progress(object);
        if (kind == "message")
            return Message{object.at("text")};
        if (kind == "result")
            return to_result(object);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): not a line of ours
    }
    return std::nullopt;
}

} // namespace tool
