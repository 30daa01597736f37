// SPDX-License-Identifier: Apache-2.0
#include "session/dry_run.h"

#include "session/run.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/access.h>
#include <chrono>
#include <cmath>

namespace tool {

/// How long a control transfer takes with this camera: the mean of some that only read.
static double measure_transfer_s(Camera& camera)
{
    constexpr int kSamples = 32;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kSamples; ++i) {
        char version[16] = "";
        const int32_t status = XuGetIntFwVer(camera.device(), version);
        if (status < 0)
            throw library_failure("measuring a transfer", status);
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    return elapsed.count() / kSamples;
}

static std::string time_text(double time_s)
{
    const double time_ms = time_s * 1000;
    if (time_ms < 1)
        return "less than 1 ms";
    return time_s < 1 ? format("about %.0f ms", time_ms) : format("about %.1f s", time_s);
}

void print_dry_run(Console& console, const Arguments& arguments, Camera& camera,
                   const std::string& line, Members values, const Cost& cost,
                   const std::string& more)
{
    const double time_s = cost.transfers * measure_transfer_s(camera) + cost.pauses_s;
    console.drain();
    constexpr double kMicro = 1e6;
    if (arguments.json) {
        values.push_back({"dry_run", true});
        values.push_back({"control_transfers", cost.transfers});
        values.push_back({"estimated_seconds", std::round(time_s * kMicro) / kMicro});
        return say_json(console, arguments, values);
    }
    Display& display = console.display();
    display.say(line);
    display.say("dry run: nothing was written");
    display.say(format("it would take %s%u control transfer%s, ", more.empty() ? "" : "at least ",
                       cost.transfers, cost.transfers == 1 ? "" : "s") +
                time_text(time_s) + " (an estimate)");
    if (!more.empty())
        display.say(more);
}

} // namespace tool
