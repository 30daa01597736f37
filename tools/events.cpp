// SPDX-License-Identifier: Apache-2.0
#include "events.h"

#include "json_text.h"

#include <algorithm>
#include <cmath>

namespace tool {

namespace {

/// A rate that is taken from less time says little.
constexpr double kRateKnown_s = 0.3;

constexpr const char* kOutcomes[] = {"upgraded",    "up-to-date", "failed",   "interrupted",
                                     "not-started", "done",       "different"};
double rounded(double number, double steps)
{
    return std::round(number * steps) / steps;
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

} // namespace tool
