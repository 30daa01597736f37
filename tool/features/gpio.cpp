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

void print_pins(Session& session)
{
    const Pins pins = read_pins(session);
    Members values;
    for (uint32_t index = 0; index < kPinCount; ++index)
        values.push_back({"gpio_" + std::to_string(index), state_of(pins, index)});
    session.print(values);
}

void set_pin(Session& session, uint32_t index, const std::string& level)
{
    const auto pin = static_cast<int32_t>(index);
    const int32_t value = level == "high" ? GPIO_HIGH : GPIO_LOW;
    session.make({.name = "gpio_" + std::to_string(index),
                  .read = [&] { return state_of(read_pins(session), index); },
                  .wanted = level,
                  .doing = "setting the pin",
                  .write = [&] { return XU_GpioSet(session.device(), pin, value); },
                  .cost = pin_change(index) + register_read(kPinRegisterCount)});
}

} // namespace

void add_gpio_command(Command& app, Arguments& arguments)
{
    struct Options {
        uint32_t index = 0;
        std::string level;
    };
    Command& command =
        add_command(app, "gpio", "Drive a pin of the controller, or show all", "5 high");
    const auto options = std::make_shared<Options>();
    Option& index =
        add_number(command, "INDEX", &options->index, 0, kPinCount - 1, "Pin; without: show all");
    Option& level = add_choice(command, "LEVEL", &options->level, {"high", "low"}, "high or low");
    index.needing(level);
    set_writing_action(command, arguments, [options](Session& session) {
        if (options->level.empty()) {
            print_pins(session);
        } else {
            set_pin(session, options->index, options->level);
        }
    });
}

} // namespace tool
