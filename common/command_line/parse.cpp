// SPDX-License-Identifier: Apache-2.0
// The only file that knows CLI11, which takes seconds to compile and brings objects of its own into
// every file that includes it.
#include "command_line/parse.h"

#include "text/numbers.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <iostream>
#include <iterator>
#include <map>

namespace command_line {

namespace {

constexpr char kHelpFlag[] = "--help";

std::string spelling_of(const Option& option)
{
    const std::string names = CLI::detail::join(option.names, ",");
    return option.alone ? names + "{" + *option.alone + "}" : names;
}

/// An application of CLI11 by a program's definitions.
class Parser {
public:
    explicit Parser(const Program& program)
        : program_(program), app_(program.summary(), program.name())
    {
        app_.fallthrough(program.options_reach_down);
        if (has_layout())
            use_layout();
        declare(program_, app_);
        for (const auto& [ours, theirs] : options_)
            relate(*ours, *theirs);
    }

    std::optional<int> run(int argc, char** argv)
    {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app_.exit(error, std::cout, std::cerr) == 0 ? 0 : kUsageCode;
        }
        try {
            if (const auto& action = chosen().action())
                action();
        } catch (const UsageError& error) {
            std::cerr << program_.complaint({.text = error.what(), .command = chosen()});
            return kUsageCode;
        }
        return std::nullopt;
    }

private:
    bool has_layout() const { return program_.layout != nullptr; }

    void use_layout()
    {
        app_.formatter_fn([this](const CLI::App* app, const std::string&, CLI::AppFormatMode) {
            return program_.layout(*commands_.at(app));
        });
        app_.failure_message([this](const CLI::App*, const CLI::Error& error) {
            return program_.complaint(mistake_of(error));
        });
    }

    void declare(const Command& command, CLI::App& app)
    {
        commands_[&app] = &command;
        if (!command.footer().empty())
            app.footer(command.footer());
        if (!command.group().empty())
            app.group(command.group());
        if (command.needs_command())
            app.require_subcommand(1);
        for (const Option& option : command.options())
            declare(option, app);
        for (const Command& below : command.commands())
            declare(below, *app.add_subcommand(below.name(), below.summary()));
    }

    void declare(const Option& option, CLI::App& app)
    {
        if (std::holds_alternative<std::monostate>(option.target))
            return declare_printing(option, app);
        CLI::Option* added = add(option, app);
        if (has_layout() || !option.value_name.empty())
            added->type_name(option.value_name);
        if (!option.default_text.empty())
            added->default_str(option.default_text);
        added->required(option.is_required);
        if (option.takes_list())
            expect_values(option, *added);
        if (option.takes_number() && option.choices.empty())
            added->transform(text::without_leading_zeros, "");
        check_values(option, *added);
        options_.emplace_back(&option, added);
    }

    void declare_printing(const Option& option, CLI::App& app) const
    {
        if (option.name() == kHelpFlag) {
            app.set_help_flag(spelling_of(option), option.help);
        } else {
            app.set_version_flag(spelling_of(option), program_.version(), option.help);
        }
    }

    static CLI::Option* add(const Option& option, CLI::App& app)
    {
        const std::string spelling = spelling_of(option);
        const auto add_to = [&](auto where) -> CLI::Option* {
            using Value = decltype(where);
            if constexpr (std::is_same_v<Value, std::monostate>) {
                return nullptr;
            } else if constexpr (std::is_same_v<Value, bool*> || std::is_same_v<Value, int*>) {
                return app.add_flag(spelling, *where, option.help);
            } else if constexpr (std::is_same_v<Value, std::string*>) {
                return option.alone ? app.add_flag(spelling, *where, option.help)
                                    : app.add_option(spelling, *where, option.help);
            } else {
                return app.add_option(spelling, *where, option.help);
            }
        };
        return std::visit(add_to, option.target);
    }

    /// An option that may be repeated has a value each time.
    static void expect_values(const Option& option, CLI::Option& added)
    {
        if (!option.is_argument()) {
            added.expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        } else if (option.most != Option::kAnyNumber) {
            added.expected(option.fewest, option.most);
        }
    }

    void check_values(const Option& option, CLI::Option& added) const
    {
        std::vector<CLI::Validator> checks;
        if (option.range)
            checks.emplace_back(CLI::Range(option.range->least, option.range->most));
        if (option.refusal) {
            checks.emplace_back(option.refusal, "");
        } else if (!option.choices.empty()) {
            checks.emplace_back(CLI::IsMember(option.choices));
        }
        for (CLI::Validator& check : checks)
            added.check(has_layout() ? check.description("") : check);
    }

    void relate(const Option& ours, CLI::Option& theirs) const
    {
        for (const Option* needed : ours.needs)
            theirs.needs(option_of(*needed));
        for (const Option* excluded : ours.excludes)
            theirs.excludes(option_of(*excluded));
    }

    CLI::Option* option_of(const Option& ours) const
    {
        return std::ranges::find(options_, &ours, &Pair::first)->second;
    }

    /// The command that was chosen last, down the tree.
    const Command& chosen() const
    {
        const CLI::App* app = &app_;
        for (auto below = app->get_subcommands(); !below.empty(); below = app->get_subcommands())
            app = below.back();
        return *commands_.at(app);
    }

    Mistake mistake_of(const CLI::Error& error) const
    {
        const auto is = [&](CLI::ExitCodes code) {
            return error.get_exit_code() == static_cast<int>(code);
        };
        return {.text = error.what(),
                .command = chosen(),
                .lacks = is(CLI::ExitCodes::RequiredError),
                .is_surplus = is(CLI::ExitCodes::ExtrasError),
                .surplus = app_.remaining(true)};
    }

    using Pair = std::pair<const Option*, CLI::Option*>;

    const Program& program_;
    CLI::App app_;
    std::map<const CLI::App*, const Command*> commands_;
    std::vector<Pair> options_; ///< in the order of their declaration
};

} // namespace

std::optional<int> parse(const Program& program, int argc, char** argv)
{
    return Parser(program).run(argc, argv);
}

} // namespace command_line
