// SPDX-License-Identifier: Apache-2.0
#include "features/feature.h"

#include <nyxus/peripheral.h>
#include <array>
#include <chrono>
#include <thread>

namespace tool {

namespace {

constexpr std::chrono::milliseconds kPollInterval{200};
constexpr int kSettingBytes = 4;

struct MotionOptions {
    std::vector<uint32_t> setting;
    bool watch = false;
    uint32_t count = 0; ///< polls; 0: without end
};

std::array<uint8_t, kSettingBytes> setting_of(Session& session)
{
    std::array<uint8_t, kSettingBytes> setting{};
    session.check("reading the motion setting",
                  XU_MotionDetectGet(session.device(), setting.data()));
    return setting;
}

/// Without bytes it is only shown.
void run_setting(Session& session, const MotionOptions& options)
{
    const std::vector<uint8_t> wanted = to_bytes(options.setting);
    session.make({.name = "motion_setting",
                  .read = [&] { return setting_of(session); },
                  .wanted = wanted.empty() ? Value() : wanted,
                  .doing = "setting the motion detection",
                  .write = [&] { return XU_MotionDetectSet(session.device(), wanted.data()); },
                  .cost = register_write(kSettingBytes) + register_read(kSettingBytes)});
}

bool poll(Session& session)
{
    uint8_t alarm = 0;
    session.check("asking for motion", XU_MotionDetectPoll(session.device(), &alarm));
    return alarm != 0;
}

Members answer(bool motion)
{
    return {{"motion", Value::shown_as(motion ? "yes" : "no", motion)}};
}

/// Speaks when there is motion, so that a day without is an empty page.
void watch(Session& session, uint32_t count)
{
    uint32_t alarms = 0;
    for (uint32_t done = 1;; ++done) {
        const bool motion = poll(session);
        session.console.sign_of_life();
        if (motion) {
            ++alarms;
            session.print_event("motion", answer(true));
        }
        if (done == count)
            break;
        std::this_thread::sleep_for(kPollInterval);
    }
    session.print_event("summary", {{"polls", count}, {"alarms", alarms}});
}

} // namespace

void add_motion_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<MotionOptions>();
    Command& command =
        add_command(app, "motion", "Ask for motion, or set its detection", "poll --watch");
    command.needing_command();
    const auto run = [options](Session& session) { run_setting(session, *options); };
    set_action(add_command(command, "get", "Show the setting", ""), arguments, run);

    Command& set = add_command(command, "set", "Change the setting", "1 0x20 0 0");
    set.number("BYTES", &options->setting, kByteRange, "4 bytes that the firmware defines")
        .required()
        .times(kSettingBytes, kSettingBytes);
    set_writing_action(set, arguments, run);

    Command& ask =
        add_command(command, "poll", "Was there motion since the last time?", "--watch --count 50");
    const Option& watch_flag =
        ask.flag("--watch", &options->watch, "Ask five times a second, tell of motion only");
    constexpr uint32_t kMostPolls = 1'000'000'000;
    add_number(ask, "--count", &options->count, 1, kMostPolls, "Stop after so many times")
        .needing(watch_flag);
    set_action(ask, arguments, [options](Session& session) {
        if (options->watch) {
            watch(session, options->count);
        } else {
            session.print(answer(poll(session)));
        }
    });
}

} // namespace tool
