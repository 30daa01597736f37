// SPDX-License-Identifier: Apache-2.0
#include "result.h"

#include "failure.h"
#include "json_text.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

void report(Console& console, Result& result, Clock::time_point begun)
{
    result.seconds = std::chrono::duration<double>(Clock::now() - begun).count();
    console.drain();
    Display& display = console.display();
    display.set_last_line(last_line::Kind::kNone, "");
    if (display.tells_events())
        display.put_event(json_line(result));
}

} // namespace

ExitCode run_with_result(Console& console, const Arguments& arguments,
                         const std::function<ExitCode(Result&)>& work)
{
    if (arguments.json)
        console.display().tell_events();
    if (arguments.quiet)
        console.display().be_quiet();
    const Clock::time_point begun = Clock::now();
    Result result;
    result.outcome = Outcome::kDone;
    promise_result(console, result);
    try {
        result.exit_code = work(result);
    } catch (const Failure& failure) {
        const bool interrupted = failure.code() == kExitInterrupted;
        result.outcome = interrupted ? Outcome::kInterrupted : Outcome::kFailed;
        result.exit_code = failure.code();
        result.message = failure.text();
        report(console, result, begun);
        throw;
    }
    report(console, result, begun);
    return static_cast<ExitCode>(result.exit_code);
}

void promise_result(Console& console, const Result& result)
{
    if (!console.display().tells_events())
        return;
    Members head = {{"event", "result"}};
    std::ranges::move(json_of(result.camera), std::back_inserter(head));
    std::string line = json_line(head);
    line.back() = ',';
    console.display().set_last_line(last_line::Kind::kResult, line);
}

CameraLabel label_of(const Camera& camera)
{
    return {camera.info().port_path, camera.info().serial, camera.info().product};
}

Members json_of(const CameraLabel& camera)
{
    return {{"port", camera.port}, {"serial", camera.serial}, {"product", camera.product}};
}

} // namespace tool
