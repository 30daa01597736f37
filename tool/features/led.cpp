// SPDX-License-Identifier: Apache-2.0
#include "features/feature.h"
#include "terminal/failure.h"
#include "terminal/text.h"
#include "text/numbers.h"

#include <nyxus/error.h>
#include <nyxus/peripheral.h>
#include <unistd.h>

namespace tool {

namespace {

/// Bits of an LED register that hold its state.
constexpr uint32_t kStateBits = 0x58;
/// The first look afterwards finds the LED busy.
constexpr Cost kTakenUp = {.transfers = 2, .pauses_s = 0.02};

/// The firmware takes an update up within some ten milliseconds; until then the LED is busy.
template <typename Call>
int32_t call_when_idle(const std::string& doing, Call call)
{
    constexpr int kAttempts = 50;
    constexpr useconds_t kPause_us = 20'000;
    for (int attempt = 1;; ++attempt) {
        const int32_t status = call();
        if (status != NYXUS_E_BUSY)
            return status;
        if (attempt == kAttempts) {
            throw Failure(
                kExitTimeout,
                doing + ": the firmware does not take the update up; 'nyxus reset' restarts it");
        }
        usleep(kPause_us);
    }
}

Value shown(uint8_t state)
{
    return Value::shown_as(format("0x%02X", state), state);
}

Value state_of(Session& session, uint8_t index)
{
    uint8_t state = 0;
    const std::string doing = "reading the LED";
    session.check(doing, call_when_idle(doing, [&] {
                      return XU_LedStatusGet(session.device(), index, &state);
                  }));
    return shown(state);
}

int32_t set_when_idle(Session& session, uint8_t index, uint8_t state)
{
    return call_when_idle("setting the LED",
                          [&] { return XU_LedStatusSet(session.device(), index, state); });
}

void run_led(Session& session, uint8_t index, std::optional<uint32_t> wanted)
{
    const auto state = static_cast<uint8_t>(wanted.value_or(0));
    session.make({.name = format("led_%u", index),
                  .read = [&] { return state_of(session, index); },
                  .wanted = wanted ? shown(state) : Value(),
                  .doing = "setting the LED",
                  .write = [&] { return set_when_idle(session, index, state); },
                  .cost = register_change() + kTakenUp + register_read(1)});
}

std::string refuse_state(const std::string& text)
{
    const auto state = text::parse_number(text);
    if (!state || (*state & ~uint64_t{kStateBits}) != 0)
        return "Value " + text + " not in range: any sum of 0x08, 0x10 and 0x40";
    return "";
}

} // namespace

void add_led_command(Command& app, Arguments& arguments)
{
    struct Options {
        uint32_t index = 0;
        std::optional<uint32_t> state;
    };
    constexpr uint32_t kLastIndex = 0xFF;
    Command& command = add_command(app, "led", "Set the state of an LED, or ask", "0 0x08");
    const auto options = std::make_shared<Options>();
    add_number(command, "INDEX", &options->index, 0, kLastIndex, "LED").required();
    command.number("STATE", &options->state, "Sum of 0x08, 0x10 and 0x40; without: ask")
        .refused(refuse_state);
    set_writing_action(command, arguments, [options](Session& session) {
        run_led(session, static_cast<uint8_t>(options->index), options->state);
    });
}

} // namespace tool
