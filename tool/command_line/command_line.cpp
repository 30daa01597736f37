// SPDX-License-Identifier: Apache-2.0
#include "command_line/command_line.h"

#include "terminal/text.h"
#include "text/nearest.h"
#include "text/numbers.h"

#include <algorithm>
#include <utility>

namespace tool {

std::string listed(const command_line::Words& words)
{
    std::string list;
    for (const std::string& word : words)
        list += (list.empty() ? "" : ", ") + word;
    return list;
}

Command& add_command(Command& parent, const std::string& name, const std::string& summary,
                     const std::string& example)
{
    Command& command = parent.command(name, summary);
    return command.footer(command.call() + (example.empty() ? "" : " " + example));
}

void set_run(Command& command, Arguments& arguments, Run run)
{
    command.does([&arguments, run = std::move(run)] { arguments.run = run; });
}

void add_dry_run(Command& command, Arguments& arguments)
{
    command.flag("-n,--dry-run", &arguments.dry_run,
                 "Tell what would be written and how long it takes; write nothing");
}

void add_no_backup(Command& command, Arguments& arguments)
{
    command.flag("--no-backup", &arguments.skip_backup,
                 "Do not keep a copy of what the ROM holds, a flash's reserved area included");
}

Option& add_file(Command& command, std::string* file, const std::string& help)
{
    return command.file("FILE", file, help).required();
}

Option& add_number(Command& command, const std::string& name, command_line::Target target,
                   uint32_t least, uint32_t most, const std::string& help)
{
    return command.number(name, target, {least, most}, help + format(" (%u to %u)", least, most))
        .shown_as(name.starts_with("--") ? "N" : "");
}

Option& add_address(Command& command, uint32_t* value, uint32_t least, uint32_t most)
{
    const std::string range = format("0x%04X to 0x%04X", least, most);
    const auto refusal = [=](const std::string& text) {
        const auto address = text::parse_number(text);
        return address && *address >= least && *address <= most ? ""
                                                                : text + " not in range " + range;
    };
    return command.number("ADDRESS", value, "Address (" + range + ")").refused(refusal).required();
}

Option& add_choice(Command& command, const std::string& name, command_line::Target target,
                   const command_line::Words& choices, const std::string& help)
{
    const auto refusal = [choices](const std::string& text) {
        if (std::ranges::find(choices, text) != choices.end())
            return std::string();
        return "'" + printable(text) + "' is none of " + listed(choices) +
               text::did_you_mean(text, choices);
    };
    return command.choice(name, target, choices, help).refused(refusal);
}

} // namespace tool
