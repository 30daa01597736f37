// SPDX-License-Identifier: Apache-2.0
#include "session/result.h"

#include "terminal/failure.h"
#include "terminal/json_text.h"

namespace tool {

namespace {

void report(Console& console, Result& result)
{
    result.take_time();
    console.drain();
    Display& display = console.display();
    display.set_last_line(nullptr);
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
    Result result;
    result.outcome = Outcome::kDone;
    promise_result(console, result);
    try {
        result.exit_code = work(result);
    } catch (const Failure& failure) {
        result.end(failure);
        report(console, result);
        throw;
    }
    report(console, result);
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
        last.rom = rom;
        return json_line(last);
    });
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
