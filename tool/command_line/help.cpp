// SPDX-License-Identifier: Apache-2.0
#include "command_line/help.h"

#include "terminal/json_text.h"
#include "terminal/text.h"
#include "text/nearest.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>

namespace tool {

namespace {

constexpr size_t kWidth = 80;
constexpr size_t kOptionColumns = 26;
constexpr size_t kCommandColumns = 17;

/// "  name   text", the text broken into lines of its column.
std::string row(const std::string& name, const std::string& text, size_t columns)
{
    const bool fits = name.size() + 4 <= columns;
    const std::string head =
        fits ? padded("  " + name, columns) : "  " + name + "\n" + std::string(columns, ' ');
    return head + text::wrapped(text, columns, kWidth) + "\n";
}

std::string option_row(const Option& option)
{
    std::string name;
    for (const std::string& spelling : option.names)
        name += (name.empty() ? "" : " ") + spelling;
    if (!option.is_argument() && option.takes_value())
        name += " " + option.value_name;
    std::string text = option.help;
    for (const Option* needed : option.needs)
        text += " (needs " + needed->name() + ")";
    if (!option.default_text.empty())
        text += " [" + option.default_text + "]";
    return row(name, text, kOptionColumns);
}

/// The rows of a command's arguments, or those of its options; "" when there is none.
std::string option_rows(const Command& command, const std::string& heading, bool of_arguments)
{
    std::string rows;
    for (const Option& option : command.options()) {
        if (option.is_argument() == of_arguments)
            rows += option_row(option);
    }
    return rows.empty() ? "" : "\n" + heading + ":\n" + rows;
}

/// Under their headings, which follow each other as the commands do.
std::string command_rows(const Command& command)
{
    std::string rows;
    std::string heading;
    for (const Command& below : command.commands()) {
        const std::string group = below.group().empty() ? "Commands" : below.group();
        if (group != heading)
            rows += "\n" + group + ":\n";
        heading = group;
        rows += row(below.name(), below.summary(), kCommandColumns);
    }
    return rows;
}

/// "FILE", "[BYTES(4x)]", "[CODE...]"
std::string usage_of(const Option& argument)
{
    std::string usage = argument.name();
    if (argument.most == Option::kAnyNumber) {
        usage += "...";
    } else if (argument.most > 1) {
        usage += format("(%dx)", argument.fewest);
    }
    return argument.is_required ? usage : "[" + usage + "]";
}

std::string usage_of(const Command& command)
{
    std::string usage = "Usage: " + command.call();
    if (!command.commands().empty())
        usage += command.needs_command() ? " COMMAND ..." : " [COMMAND ...]";
    for (const Option& option : command.options()) {
        if (option.is_argument())
            usage += " " + usage_of(option);
    }
    return usage + " [OPTIONS]\n";
}

command_line::Words command_names(const Command& command)
{
    command_line::Words names;
    std::ranges::transform(command.commands(), std::back_inserter(names), &Command::name);
    return names;
}

/// "--size" of this command and of all above it.
command_line::Words option_names(const Command* command)
{
    command_line::Words names = {};
    for (; command != nullptr; command = command->parent()) {
        for (const Option& option : command->options()) {
            if (option.name().starts_with("--"))
                names.push_back(option.name());
        }
    }
    return names;
}

std::string no_command(const Command& command, const std::string& word)
{
    return "there is no command " + in_quotes(command.call() + " " + word) +
           text::did_you_mean(word, command_names(command));
}

/// Why a command does not take a word.
std::string unexpected(const Command& command, const std::string& word)
{
    if (word.starts_with("-")) {
        return "there is no option " + in_quotes(word) +
               text::did_you_mean(word.substr(0, word.find('=')), option_names(&command));
    }
    if (!command.commands().empty())
        return no_command(command, word);
    return in_quotes(word) + " is one argument too many";
}

/// Its options, or its arguments.
Value::List options_json(const Command& command, bool of_arguments)
{
    Value::List list;
    for (const Option& option : command.options()) {
        if (option.is_argument() != of_arguments)
            continue;
        Value::List spellings(option.names.begin(), option.names.end());
        list.emplace_back(Members{{"name", option.name()},
                                  {"spellings", std::move(spellings)},
                                  {"value", option.value_name},
                                  {"help", option.help},
                                  {"default", option.default_text},
                                  {"required", option.is_required}});
    }
    return list;
}

void print_help(const Command& app, const command_line::Words& words, bool as_json)
{
    const Command* command = &app;
    for (const std::string& word : words) {
        const Command* below = command->command_named(word);
        if (below == nullptr)
            throw command_line::UsageError(no_command(*command, word));
        command = below;
    }
    std::cout << (as_json ? help_json(*command) : help_of(*command));
}

} // namespace

std::string help_of(const Command& command)
{
    const Command& root = command.root();
    const bool is_root = &command == &root;
    const size_t example_end = command.footer().find('\n');
    std::string text = command.summary() + "\n" + usage_of(command);
    text += "\nExample:\n  " + command.footer().substr(0, example_end) + "\n";
    text += option_rows(command, "Arguments", true) + command_rows(command);
    if (!is_root)
        text += option_rows(command, "Options", false);
    text += option_rows(root, is_root ? "Options" : "Options of all commands", false);
    return example_end == std::string::npos ? text
                                            : text + command.footer().substr(example_end + 1);
}

std::string help_json(const Command& command)
{
    Value::List commands;
    for (const Command& below : command.commands())
        commands.emplace_back(Members{{"name", below.name()}, {"summary", below.summary()}});
    return json_text(Members{{"command", command.call()},
                             {"summary", command.summary()},
                             {"arguments", options_json(command, true)},
                             {"options", options_json(command, false)},
                             {"commands", commands}}) +
           "\n";
}

void add_help_command(Command& app, Arguments& arguments)
{
    Command& help = add_command(app, "help", "Explain a command", "osd string");
    const auto words = std::make_shared<command_line::Words>();
    help.text("COMMAND", words.get(), "Command to explain; without: the program").naming_commands();
    help.does([&app, words, &arguments] { print_help(app, *words, arguments.json); });
}

std::string complaint_about(const command_line::Mistake& mistake)
{
    const Command& command = mistake.command;
    std::string text = mistake.text;
    // What is too much explains best what is missing.
    if ((mistake.lacks || mistake.is_surplus) && !mistake.surplus.empty()) {
        text = unexpected(command, mistake.surplus.front());
    } else if (mistake.lacks && !command.commands().empty()) {
        text = "which command? There are " + listed(command_names(command));
    }
    return "nyxus: " + text + "; see '" + command.call() + " --help'\n";
}

} // namespace tool
