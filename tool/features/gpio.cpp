// SPDX-License-Identifier: Apache-2.0
#include "features/feature.h"

#include <nyxus/peripheral.h>
#include <array>

namespace tool {

namespace {

constexpr uint32_t kPinCount = 16;
/// The registers that tell of all pins.
constexpr uint32_t kPinRegisterCount = 4;

using Pins = std::array<nyxus::PinState, kPinCount>;

Pins read_pins(Session& session)
{
    const nyxus::Result<Pins> pins = session.camera.gpio();
    session.check("reading the pins", pins.status().code());
    return *pins;
}

std::string state_of(nyxus::PinState pin)
{
    if (pin == nyxus::PinState::kNotDriven)
        return "not driven";
    return pin == nyxus::PinState::kHigh ? "high" : "low";
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
        values.push_back({name_of(index), state_of(pins[index])});
    session.print(values);
}

void run_pin(Session& session, uint32_t index, const std::string& level)
{
    const auto pin = static_cast<int32_t>(index);
    const int32_t value = level == "high" ? GPIO_HIGH : GPIO_LOW;
    session.make({.name = name_of(index),
                  .read = [&] { return state_of(read_pins(session)[index]); },
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
