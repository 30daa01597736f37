// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"

#include "text.h"
#include "text/nearest.h"
#include "text/numbers.h"

#include <algorithm>
#include <utility>

namespace tool {

CLI::App* add_command(CLI::App& parent, const std::string& name, const std::string& summary,
                      const std::string& example)
{
    CLI::App* command = parent.add_subcommand(name, summary);
    command->group("Commands");
    command->footer(example);
    command->fallthrough();
    return command;
}

void set_run(CLI::App* command, Arguments& arguments, Run run)
{
    command->callback([command, &arguments, run = std::move(run)] {
        if (command->get_subcommands().empty())
            arguments.run = run;
    });
}

void add_dry_run(CLI::App* command, Arguments& arguments)
{
    command->add_flag("-n,--dry-run", arguments.dry_run,
                      "Tell what would be written and how long it takes; write nothing");
}

CLI::Option* add_file(CLI::App* command, std::string& file, const std::string& help)
{
    return command->add_option("FILE", file, help)->required()->type_name("");
}

CLI::Option* as_number(CLI::Option* option)
{
    return option->transform(text::without_leading_zeros, "");
}

CLI::Option* add_number(CLI::App* command, const std::string& name, uint32_t& value, uint32_t least,
                        uint32_t most, const std::string& help)
{
    return as_number(command->add_option(name, value, help + format(" (%u to %u)", least, most)))
        ->type_name(name.starts_with("--") ? "N" : "")
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
    return as_number(command->add_option("ADDRESS", value, "Address (" + range + ")"))
        ->required()
        ->type_name("")
        ->check(CLI::Validator(refuse, ""));
}

CLI::Option* add_bytes(CLI::App* command, const std::string& name, std::vector<uint32_t>& values,
                       const std::string& help)
{
    constexpr uint32_t kMost = 0xFF;
    return as_number(command->add_option(name, values, help))
        ->type_name("")
        ->check(CLI::Range(0U, kMost).description(""));
}

static std::string refuse_choice(const std::string& text, const std::vector<std::string>& choices)
{
    if (std::ranges::find(choices, text) != choices.end())
        return "";
    return "'" + printable(text) + "' is none of " + CLI::detail::join(choices, ", ") +
           text::did_you_mean(text, choices);
}

CLI::Validator one_of(const std::vector<std::string>& choices)
{
    return {[choices](const std::string& text) { return refuse_choice(text, choices); }, ""};
}

CLI::Option* add_choice(CLI::App* command, const std::string& name, std::string& value,
                        const std::vector<std::string>& choices, const std::string& help)
{
    return command->add_option(name, value, help)->type_name("")->check(one_of(choices));
}

} // namespace tool
