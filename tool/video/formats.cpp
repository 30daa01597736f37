// SPDX-License-Identifier: Apache-2.0
#include "terminal/json_text.h"
#include "terminal/text.h"
#include "video/video.h"

#include <cmath>

namespace tool {

static double frames_per_s(uint32_t interval)
{
    constexpr double kSecond_100ns = 1e7;
    return interval == 0 ? 0 : std::round(100 * kSecond_100ns / interval) / 100;
}

std::vector<double> rates_of(const NyStreamFormat& format)
{
    if (format.interval_count == 0)
        return {frames_per_s(format.interval_min), frames_per_s(format.interval_max)};
    std::vector<double> rates;
    for (uint32_t i = 0; i < std::min<uint32_t>(format.interval_count, NYXUS_MOST_INTERVALS); ++i)
        rates.push_back(frames_per_s(format.intervals[i]));
    return rates;
}

std::string rates_text(const NyStreamFormat& format)
{
    std::string text;
    for (const double rate : rates_of(format)) {
        const char* between = format.interval_count == 0 ? " to " : ", ";
        text += (text.empty() ? "" : between) + tool::format("%.4g", rate);
    }
    return text;
}

namespace {

Members json_of_format(const NyStreamFormat& format)
{
    const std::vector<double> rates = rates_of(format);
    return {{"format", format_name(format.fourcc)},
            {"width", format.width},
            {"height", format.height},
            {"frames_per_second", Value::List(rates.begin(), rates.end())},
            {"continuous", format.interval_count == 0}};
}

std::string line_of(const NyStreamFormat& format)
{
    return padded(format_name(format.fourcc), 8) +
           padded(tool::format("%ux%u", format.width, format.height), 11) + rates_text(format) +
           " frames per second";
}

void run_formats(Session& session)
{
    Value::List array;
    std::string lines;
    for (const NyStreamFormat& format : list_formats(session)) {
        array.emplace_back(json_of_format(format));
        lines += (lines.empty() ? "" : "\n") + line_of(format);
    }
    session.console.drain();
    session.console.display().say(session.arguments.json ? json_text(array) : lines);
}

} // namespace

void add_formats_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "formats", "List the formats, sizes and rates of the camera's video", "--json");
    set_action(command, arguments, run_formats);
}

} // namespace tool
