// SPDX-License-Identifier: Apache-2.0
// Cameras come and go.
#include "command_line/command_line.h"
#include "commands.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <chrono>
#include <nyxus/cpp/camera_watch.hpp>
#include <stop_token>

namespace tool {

namespace {

void tell(Console& console, const Arguments& arguments, const nyxus::CameraEvent& event)
{
    const CameraEntry entry = printable(event.camera);
    if (!arguments.camera.empty() && !entry.matches(arguments.camera))
        return;
    const char* what = event.here ? "here" : "gone";
    Members members = json_of(entry);
    members.insert(members.begin(), {"event", what});
    console.display().say(arguments.json ? json_line(members)
                                         : padded(what, 6) + description(entry));
    if (const std::string complaint = console.display().output_complaint(); !complaint.empty())
        throw Failure(kExitFailure, complaint);
}

/// The first look tells of those that are there.
ExitCode run_watch(Console& console, const Arguments& arguments)
{
    constexpr uint32_t kGlance_ms = 100;
    const Unwatched unwatched(console);
    const std::stop_source interrupt;
    console.postpone_interrupts("", interrupt);
    nyxus::CameraWatch watch;
    const std::stop_callback stop(interrupt.get_token(), [&] { watch.stop(); });
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(arguments.wait_s.value_or(0));
    for (;;) {
        const bool is_over = arguments.wait_s && std::chrono::steady_clock::now() >= end;
        const auto event = watch.next(is_over ? 0 : kGlance_ms);
        const engine::Reason reason = event.status().reason();
        if (event) {
            tell(console, arguments, *event);
        } else if (reason == engine::Reason::kStopped || is_over) {
            return kExitOk;
        } else if (reason != engine::Reason::kTimedOut) {
            throw usb_failure("cannot use USB", event.status().usb_code());
        }
    }
}

} // namespace

void add_watch_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "watch", "Tell which cameras come and go, until interrupted or for --wait", "--json");
    set_run(command, arguments, run_watch);
}

} // namespace tool
