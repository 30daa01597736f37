// SPDX-License-Identifier: Apache-2.0
#include "terminal/events.h"

#include "terminal/json_text.h"

#include <algorithm>
#include <cmath>

namespace tool {

namespace {

constexpr const char* kOutcomes[] = {"upgraded",    "up-to-date", "failed",   "interrupted",
                                     "not-started", "done",       "different"};

double rounded(double number, double steps)
{
    return std::round(number * steps) / steps;
}

} // namespace

double Progress::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - begun).count();
}

unsigned Progress::percent() const
{
    return total == 0 ? 0 : static_cast<unsigned>(bytes * 100 / total);
}

double Progress::rate() const
{
    const bool known = bytes > 0 && (done || seconds() > kRateKnown_s);
    return known ? static_cast<double>(bytes) / seconds() : 0;
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

std::string words_of(Outcome outcome)
{
    std::string words = to_text(outcome);
    std::ranges::replace(words, '-', ' ');
    return words;
}

void Result::take_time()
{
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

void Result::end(const Failure& failure)
{
    outcome = failure.code() == kExitInterrupted ? Outcome::kInterrupted : Outcome::kFailed;
    exit_code = failure.code();
    message = failure.text();
}

std::string json_line(const Progress& progress)
{
    const auto remaining = progress.remaining_s();
    return json_line(
        Members{{"event", "progress"},
                {"phase", progress.phase},
                {"bytes", progress.bytes},
                {"total", progress.total > 0 ? Value(progress.total) : Value()},
                {"seconds", rounded(progress.seconds(), 1000)},
                {"rate", progress.rate() > 0 ? Value(std::round(progress.rate())) : Value()},
                {"remaining_s", remaining ? Value(rounded(*remaining, 10)) : Value()},
                {"done", progress.done}});
}

std::string json_of_message(std::string_view line)
{
    return json_line(Members{{"event", "message"}, {"text", std::string(line)}});
}

std::string json_line(const Result& result)
{
    const auto known = [](const std::string& text) { return text.empty() ? Value() : Value(text); };
    return json_line(Members{{"event", "result"},
                             {"port", result.camera.port},
                             {"serial", result.camera.serial},
                             {"product", result.camera.product},
                             {"outcome", to_text(result.outcome)},
                             {"rom", to_text(result.rom)},
                             {"exit_code", result.exit_code},
                             {"message", result.message},
                             {"seconds", rounded(result.seconds, 10)},
                             {"bytes", result.bytes},
                             {"sha256", known(result.sha256)},
                             {"mfi_sha256", known(result.mfi_sha256)},
                             {"version", known(result.version)},
                             {"version_before", known(result.version_before)},
                             {"version_after", known(result.version_after)},
                             {"kept", Value::List(result.kept.begin(), result.kept.end())},
                             {"backup", known(result.backup)}});
}

std::string json_line(const Summary& summary)
{
    Members values = {{"event", "summary"}, {"cameras", summary.cameras}};
    for (const Outcome outcome : {Outcome::kUpgraded, Outcome::kUpToDate, Outcome::kFailed,
                                  Outcome::kInterrupted, Outcome::kNotStarted}) {
        std::string name = to_text(outcome);
        std::ranges::replace(name, '-', '_');
        values.push_back({name, summary.count(outcome)});
    }
    values.push_back({"exit_code", summary.exit_code});
    values.push_back({"seconds", rounded(summary.seconds, 10)});
    return json_line(values);
}

} // namespace tool
