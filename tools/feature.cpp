// SPDX-License-Identifier: Apache-2.0
#include "feature.h"

#include "failure.h"
#include "text.h"

#include <nyxus/error.h>
#include <algorithm>

namespace tool {

namespace {

std::string byte_list(const Values& bytes)
{
    std::string text;
    for (const Values& byte : bytes)
        text += (text.empty() ? "" : " ") + format("%02X", byte.get<unsigned>());
    return text;
}

std::string text_of(const Values& value)
{
    if (value.is_string())
        return printable(value.get<std::string>());
    return value.is_array() ? byte_list(value) : value.dump();
}

std::string json_of(const Values& values)
{
    return values.dump(2, ' ', false, Values::error_handler_t::replace);
}

std::string words_of(std::string name)
{
    std::ranges::replace(name, '_', ' ');
    return name;
}

} // namespace

void Session::print(const Values& values)
{
    console.drain();
    if (arguments.json)
        return console.display().say(json_of(values));
    for (const auto& [name, value] : values.items())
        console.display().say(words_of(name) + ": " + text_of(value));
}

void Session::print_change(const std::string& name, const Values& before, const Values& after)
{
    console.drain();
    if (arguments.json)
        return console.display().say(
            json_of({{"name", name}, {"before", before}, {"after", after}}));
    console.display().say(words_of(name) + ": " + text_of(before) + " -> " + text_of(after));
}

void Session::print_done(const std::string& name, const std::string& what)
{
    print({{name, what}});
}

void Session::check(const std::string& doing, int32_t status) const
{
    if (status == NYXUS_E_INVALID)
        throw Failure(kExitNotSupported,
                      doing + ": " + camera.name() + " has no such control in its firmware");
    if (status < 0)
        throw library_failure(doing, status);
}

CLI::App* add_feature(CLI::App& parent, const std::string& name, const std::string& summary,
                      const std::string& example)
{
    CLI::App* command = parent.add_subcommand(name, summary);
    command->footer("The options of 'nyxus --help' may stand here too.\n\nExample:\n  " + example);
    command->fallthrough();
    return command;
}

void set_action(CLI::App* command, Arguments& arguments, SessionAction action,
                std::function<void()> check_first)
{
    command->add_flag("--json", arguments.json, "Print JSON");
    command->callback(
        [command, &arguments, action = std::move(action), check_first = std::move(check_first)] {
            if (!command->get_subcommands().empty())
                return;
            arguments.action = [action, check_first](Console& console, const Arguments& chosen) {
                check_first();
                Session session{console, chosen, open_chosen(chosen)};
                action(session);
                return kExitOk;
            };
        });
}

CLI::Option* add_number(CLI::App* command, const std::string& name, uint32_t& value, uint32_t least,
                        uint32_t most, const std::string& help)
{
    return command->add_option(name, value, help + format(" (%u to %u)", least, most))
        ->type_name("")
        ->check(CLI::Range(least, most).description(""));
}

CLI::Option* add_address(CLI::App* command, uint32_t& value, uint32_t least, uint32_t most)
{
    const std::string range = format("0x%04X to 0x%04X", least, most);
    const auto refuse = [=](const std::string& text) {
        uint32_t address = 0;
        const bool number = CLI::detail::lexical_cast(text, address);
        return number && address >= least && address <= most ? "" : text + " not in range " + range;
    };
    return command->add_option("ADDRESS", value, "Address (" + range + ")")
        ->required()
        ->type_name("")
        ->check(CLI::Validator(refuse, ""));
}

CLI::Option* add_bytes(CLI::App* command, const std::string& name, std::vector<uint32_t>& values,
                       const std::string& help)
{
    constexpr uint32_t kMost = 0xFF;
    return command->add_option(name, values, help)
        ->type_name("")
        ->check(CLI::Range(0U, kMost).description(""));
}

CLI::Option* add_choice(CLI::App* command, const std::string& name, std::string& value,
                        const std::vector<std::string>& choices, const std::string& help)
{
    return command->add_option(name, value, help)
        ->type_name("")
        ->check(CLI::IsMember(choices).description(""));
}

std::vector<uint8_t> to_bytes(const std::vector<uint32_t>& values)
{
    std::vector<uint8_t> bytes(values.size());
    std::ranges::transform(values, bytes.begin(),
                           [](uint32_t value) { return static_cast<uint8_t>(value); });
    return bytes;
}

void add_feature_commands(CLI::App& app, Arguments& arguments)
{
    add_switch_commands(app, arguments);
    add_led_command(app, arguments);
    add_gpio_command(app, arguments);
    add_i2c_command(app, arguments);
    add_memory_commands(app, arguments);
    add_motion_command(app, arguments);
    add_reserved_command(app, arguments);
    add_osd_command(app, arguments);
    add_h264_command(app, arguments);
    add_fingerprint_command(app, arguments);
    add_snapshot_command(app, arguments);
    add_stream_command(app, arguments);
    add_explain_command(app, arguments);
}

} // namespace tool
