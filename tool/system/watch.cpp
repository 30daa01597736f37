// SPDX-License-Identifier: Apache-2.0
// Cameras come and go.
#include "command_line/command_line.h"
#include "commands.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>
#include <chrono>
#include <stop_token>
#include <thread>

namespace tool {

namespace {

using Cameras = std::vector<CameraEntry>;

/// Each start gives a camera an address of its own.
bool has(const Cameras& cameras, const CameraEntry& wanted)
{
    return std::ranges::any_of(cameras, [&](const CameraEntry& entry) {
        return entry.port_path == wanted.port_path && entry.address == wanted.address;
    });
}

/// Tells of those that the others do not have.
void tell(Console& console, const Arguments& arguments, const char* event, const Cameras& cameras,
          const Cameras& others)
{
    for (const CameraEntry& entry : cameras) {
        if (has(others, entry) || (!arguments.camera.empty() && !entry.matches(arguments.camera)))
            continue;
        Members members = json_of(entry);
        members.insert(members.begin(), {"event", event});
        console.display().say(arguments.json ? json_line(members)
                                             : padded(event, 6) + description(entry));
    }
}

/// The first look tells of those that are there.
ExitCode run_watch(Console& console, const Arguments& arguments)
{
    constexpr std::chrono::milliseconds kInterval{100};
    const Unwatched unwatched(console);
    const std::stop_source interrupt;
    console.postpone_interrupts("", interrupt);
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(arguments.wait_s.value_or(0));
    for (Cameras known; !interrupt.stop_requested();) {
        const Cameras now = list_cameras();
        tell(console, arguments, "gone", known, now);
        tell(console, arguments, "here", now, known);
        if (const std::string complaint = console.display().output_complaint(); !complaint.empty())
            throw Failure(kExitFailure, complaint);
        if (arguments.wait_s && std::chrono::steady_clock::now() >= end)
            break;
        known = now;
        std::this_thread::sleep_for(kInterval);
    }
    return kExitOk;
}

} // namespace

void add_watch_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "watch", "Tell which cameras come and go, until interrupted or for --wait", "--json");
    set_run(command, arguments, run_watch);
}

} // namespace tool
