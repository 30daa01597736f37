// SPDX-License-Identifier: Apache-2.0
#include "session/result.h"

#include "terminal/failure.h"
#include "terminal/json_text.h"

#include <algorithm>
#include <cmath>

namespace tool {

namespace {

constexpr const char* kOutcomes[] = {"upgraded",    "up-to-date", "failed",   "interrupted",
                                     "not-started", "done",       "different"};

void tell_result(Console& console, Result& result)
{
    result.take_time();
    console.drain();
    Display& display = console.display();
    if (display.tells_events())
        display.put_result(json_line(result));
    display.set_last_line(nullptr);
}

} // namespace

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

std::string json_line(const Result& result)
{
    const engine::Report& report = result.report;
    Members members = {{"event", "result"}};
    for (const Member& member : json_of_place(result.camera))
        members.push_back(member);
    const Members more = {{"outcome", to_text(result.outcome)},
                          {"rom", to_text(report.rom)},
                          {"exit_code", result.exit_code},
                          {"message", result.message},
                          {"seconds", std::round(result.seconds * 10) / 10},
                          {"bytes", report.status ? report.bytes : 0},
                          {"sha256", nothing_or(result.sha256)},
                          {"mfi_sha256", nothing_or(result.mfi_sha256)},
                          {"version", nothing_or(result.version)},
                          {"version_before", nothing_or(report.version_before)},
                          {"version_after", nothing_or(report.version_after)},
                          {"kept", Value::List(report.kept.begin(), report.kept.end())},
                          {"backup", nothing_or(report.backup.string())}};
    members.insert(members.end(), more.begin(), more.end());
    return json_line(members);
}

ExitCode run_with_result(Console& console, const Arguments& arguments,
                         const std::function<ExitCode(Result&)>& work)
{
    if (arguments.json)
        console.display().tell_events();
    if (arguments.quiet)
        console.display().be_quiet();
    Result result;
    result.outcome = Outcome::kDone;
    promise_result(console, result);
    try {
        result.exit_code = work(result);
    } catch (const Failure& failure) {
        result.end(failure);
        tell_result(console, result);
        throw;
    }
    tell_result(console, result);
    return static_cast<ExitCode>(result.exit_code);
}

void promise_result(Console& console, const Result& result)
{
    if (!console.display().tells_events())
        return;
    console.display().set_last_line([result](const Failure& failure, RomContents rom) {
        Result last = result;
        last.end(failure);
        last.take_time();
        last.report.rom = rom;
        return json_line(last);
    });
}

Camera introduce(Console& console, Result& result, Camera camera)
{
    result.camera = camera.info();
    result.report.version_before = camera.version();
    promise_result(console, result);
    return camera;
}

ExitCode finish(Console& console, Result& result, const std::string& message, Outcome outcome)
{
    result.message = message;
    result.outcome = outcome;
    console.drain();
    console.display().say(message);
    return outcome == Outcome::kDifferent ? kExitMismatch : kExitOk;
}

} // namespace tool
