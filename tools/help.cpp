// SPDX-License-Identifier: Apache-2.0
#include "help.h"

#include "command_line.h"
#include "text.h"
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

const CLI::App* root_of(const CLI::App* app)
{
    while (app->get_parent() != nullptr)
        app = app->get_parent();
    return app;
}

/// "nyxus osd datetime"
std::string call_of(const CLI::App* app)
{
    const CLI::App* parent = app->get_parent();
    return parent == nullptr ? app->get_name() : call_of(parent) + " " + app->get_name();
}

/// The command that was chosen last, down the tree.
const CLI::App* chosen_command(const CLI::App* app)
{
    for (auto chosen = app->get_subcommands(); !chosen.empty(); chosen = app->get_subcommands())
        app = chosen.front();
    return app;
}

std::vector<std::string> command_names(const CLI::App* app)
{
    std::vector<std::string> names;
    std::ranges::transform(app->get_subcommands({}), std::back_inserter(names),
                           [](const CLI::App* command) { return command->get_name(); });
    return names;
}

/// "--size" of this command and of all above it.
std::vector<std::string> option_names(const CLI::App* app)
{
    std::vector<std::string> names;
    for (; app != nullptr; app = app->get_parent()) {
        for (const CLI::Option* option : app->get_options()) {
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
        }
    }
    return names;
}

std::string no_command(const CLI::App* app, const std::string& word)
{
    return "there is no command " + in_quotes(call_of(app) + " " + word) +
           text::did_you_mean(word, command_names(app));
}

/// Why a command does not take a word.
std::string unexpected(const CLI::App* command, const std::string& word)
{
    if (word.starts_with("-")) {
        return "there is no option " + in_quotes(word) +
               text::did_you_mean(word.substr(0, word.find('=')), option_names(command));
    }
    if (!command->get_subcommands({}).empty())
        return no_command(command, word);
    return in_quotes(word) + " is one argument too many";
}

const CLI::App* command_below(const CLI::App* app, const std::string& name)
{
    const auto found =
        app->get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    if (found.empty())
        throw CLI::ValidationError(no_command(app, name));
    return found.front();
}

} // namespace

HelpFormatter::HelpFormatter()
{
    label("Positionals", "Arguments");
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const
{
    const CLI::App* root = root_of(app);
    std::string text = app->get_description() + "\n" + make_usage(app, std::move(name));
    const std::string footer = app->get_footer();
    const size_t example_end = footer.find('\n');
    text += "\nExample:\n  " + footer.substr(0, example_end) + "\n";
    text += make_positionals(app) + make_subcommands(app, mode);
    if (app != root)
        text += make_groups(app, CLI::AppFormatMode::Sub);
    const auto general = root->get_options([](const CLI::Option* o) { return o->nonpositional(); });
    text += make_group(app == root ? "Options" : "Options of all commands", false, general);
    return example_end == std::string::npos ? text : text + footer.substr(example_end + 1);
}

std::string HelpFormatter::make_usage(const CLI::App* app, std::string) const
{
    std::string usage = "Usage: " + call_of(app);
    if (!app->get_subcommands({}).empty()) {
        usage += app->get_require_subcommand_min() == 0 && app->get_parent() != nullptr
                     ? " [COMMAND ...]"
                     : " COMMAND ...";
    }
    for (const CLI::Option* option :
         app->get_options([](const CLI::Option* o) { return o->get_positional(); }))
        usage += " " + make_option_usage(option);
    return usage + " [OPTIONS]\n";
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const
{
    return row(command->get_name(), command->get_description(), kCommandColumns);
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const
{
    std::string name = make_option_name(option, is_positional);
    if (!is_positional && option->get_type_size() != 0)
        name += " " + option->get_type_name();
    std::ranges::replace(name, ',', ' ');
    std::string text = option->get_description();
    for (const CLI::Option* needed : option->get_needs())
        text += " (needs " + needed->get_name() + ")";
    const std::string usual = option->get_default_str();
    return row(name, text + (usual.empty() ? "" : " [" + usual + "]"), kOptionColumns);
}

void add_help_command(CLI::App& app, Arguments&)
{
    CLI::App* help = add_command(app, "help", "Explain a command", "nyxus help osd string");
    const auto words = std::make_shared<std::vector<std::string>>();
    help->add_option("COMMAND", *words, "Command to explain; without: the program")->type_name("");
    help->callback([&app, words] {
        const CLI::App* command = &app;
        for (const std::string& word : *words)
            command = command_below(command, word);
        std::cout << app.get_formatter()->make_help(command, "", CLI::AppFormatMode::Sub);
        throw CLI::Success();
    });
}

std::string usage_error(const CLI::App* app, const CLI::Error& error)
{
    const CLI::App* command = chosen_command(app);
    const auto is = [&](CLI::ExitCodes code) {
        return error.get_exit_code() == static_cast<int>(code);
    };
    std::string text = error.what();
    const bool lacks = is(CLI::ExitCodes::RequiredError);
    // What is too much explains best what is missing.
    if ((lacks || is(CLI::ExitCodes::ExtrasError)) && !app->remaining(true).empty()) {
        text = unexpected(command, app->remaining(true).front());
    } else if (lacks && !command->get_subcommands({}).empty()) {
        text = "which command? There are " + CLI::detail::join(command_names(command), ", ");
    }
    return "nyxus: " + text + "; see '" + call_of(command) + " --help'\n";
}

} // namespace tool
