// SPDX-License-Identifier: Apache-2.0
#include "features/feature.h"

#include <nyxus/memory.h>
#include <nyxus/peripheral.h>
#include <array>

namespace tool {

namespace {

constexpr uint32_t kPinCount = 16;
/// What is driven on pins 0 to 7 and 8 to 15, then which of them are driven.
constexpr uint32_t kPinRegisters = 0x20;
constexpr uint32_t kPinRegisterCount = 4;

struct Pins {
    uint32_t enabled = 0;
    uint32_t high = 0;
};

Pins read_pins(Session& session)
{
    std::array<uint8_t, kPinRegisterCount> registers{};
    session.check("reading the pins",
                  XuRegRead(session.device(), kPinRegisters, registers.size(), registers.data()));
    const auto pair = [&](size_t first) {
        return static_cast<uint32_t>(registers[first] | registers[first + 1] << 8);
    };
    return {.enabled = pair(2), .high = pair(0)};
}

std::string state_of(const Pins& pins, uint32_t index)
{
    if ((pins.enabled >> index & 1) == 0)
        return "not driven";
    return (pins.high >> index & 1) != 0 ? "high" : "low";
}

std::string name_of(uint32_t index)
{
    return "gpio_" + std::to_string(index);
}

void print_pins(Session& session)
{
    const Pins pins = read_pins(session);
    Members values;
    for (uint32_t index = 0; index < kPinCount; ++index)
        values.push_back({name_of(index), state_of(pins, index)});
    session.print(values);
}

void run_pin(Session& session, uint32_t index, const std::string& level)
{
    const auto pin = static_cast<int32_t>(index);
    const int32_t value = level == "high" ? GPIO_HIGH : GPIO_LOW;
    session.make({.name = name_of(index),
                  .read = [&] { return state_of(read_pins(session), index); },
                  .wanted = level.empty() ? Value() : level,
                  .doing = "setting the pin",
                  .write = [&] { return XU_GpioSet(session.device(), pin, value); },
                  .cost = pin_change(index) + register_read(kPinRegisterCount)});
}

} // namespace

void add_gpio_command(Command& app, Arguments& arguments)
{
    struct Options {
        std::optional<uint32_t> index;
        std::string level;
    };
    Command& command =
        add_command(app, "gpio", "Drive a pin of the controller, or show one or all", "5 high");
    const auto options = std::make_shared<Options>();
    add_number(command, "INDEX", &options->index, 0, kPinCount - 1, "Pin; without: show all");
    add_choice(command, "LEVEL", &options->level, {"high", "low"}, "high or low; without: show it");
    set_writing_action(command, arguments, [options](Session& session) {
        if (options->index) {
            run_pin(session, *options->index, options->level);
        } else {
            print_pins(session);
        }
    });
}

} // namespace tool
