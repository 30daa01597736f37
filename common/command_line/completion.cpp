// SPDX-License-Identifier: Apache-2.0
#include "completion.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <string_view>

namespace completion {

namespace {

/// What a validator says about a text that it does not accept.
std::string complaint_of(const CLI::Validator& validator)
{
    for (const char* nonsense : {"?", "4294967295"}) {
        try {
            return validator(std::string(nonsense));
        } catch (const CLI::ValidationError&) { // it wants a number
        }
    }
    return {};
}

bool accepts(const CLI::Validator& validator, const std::string& text)
{
    try {
        return validator(text).empty();
    } catch (const CLI::ValidationError&) {
        return false;
    }
}

/// The words of a validator's complaint that it would not complain about: its choices.
std::vector<std::string> choices_in(const CLI::Validator& validator)
{
    const std::string complaint = complaint_of(validator);
    std::vector<std::string> choices;
    if (complaint.find("range") != std::string::npos)
        return choices; // the ends of a range are no choices
    const auto in_word = [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '-' || c == '_';
    };
    for (auto first = complaint.begin(); first != complaint.end();) {
        const auto end = std::find_if_not(first, complaint.end(), in_word);
        std::string word(first, end);
        if (!word.empty() && accepts(validator, word))
            choices.push_back(std::move(word));
        first = end == complaint.end() ? end : std::next(end);
    }
    return choices;
}

std::vector<std::string> choices_of(CLI::Option& option)
{
    std::vector<std::string> all;
    try {
        for (int i = 0;; ++i) {
            for (std::string& choice : choices_in(*option.get_validator(i)))
                all.push_back(std::move(choice));
        }
    } catch (const CLI::OptionNotFound&) { // that was the last
        return all;
    }
}

bool names_a_file(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    return type == "FILE" || type == "PATH" ||
           (option.get_positional() && option.get_single_name() == "FILE");
}

bool takes_value(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0 && option.get_expected_min() > 0;
}

/// Reads a command line word by word, as the parser would, without complaining.
class Reader {
public:
    Reader(CLI::App& app, const ValuesOf& values_of) : app_(&app), values_of_(values_of) {}

    /// Another word that the user has finished.
    void pass(const std::string& word)
    {
        if (pending_ != nullptr) {
            pending_ = nullptr;
        } else if (word.starts_with("-") && word.size() > 1) {
            CLI::Option* option = option_named(word);
            pending_ = option != nullptr && takes_value(*option) ? option : nullptr;
        } else if (CLI::App* command = command_named(word)) {
            app_ = command;
            positionals_passed_ = 0;
        } else {
            ++positionals_passed_;
        }
    }

    /// What the word in work may become.
    std::vector<std::string> complete(const std::string& word)
    {
        const size_t equals = word.find('=');
        if (pending_ != nullptr) {
            offer_values_of(*pending_);
        } else if (word.starts_with("--") && equals != std::string::npos) {
            if (CLI::Option* option = option_named(word.substr(0, equals))) {
                prefix_ = word.substr(0, equals + 1);
                offer_values_of(*option);
            }
        } else if (word.starts_with("-")) {
            offer_options();
        } else {
            offer_commands();
            offer_positional();
        }
        std::erase_if(found_, [&](const std::string& candidate) {
            return candidate != kFiles && !candidate.starts_with(word);
        });
        return found_;
    }

private:
    /// The chosen command, and those around it whose options may stand here too.
    std::vector<CLI::App*> reachable() const
    {
        std::vector<CLI::App*> apps = {app_};
        while (apps.back()->get_fallthrough() && apps.back()->get_parent() != nullptr)
            apps.push_back(apps.back()->get_parent());
        return apps;
    }

    CLI::Option* option_named(const std::string& name) const
    {
        for (CLI::App* app : reachable()) {
            if (CLI::Option* option = app->get_option_no_throw(name))
                return option;
        }
        return nullptr;
    }

    CLI::App* command_named(const std::string& name) const
    {
        for (CLI::App* command : app_->get_subcommands({})) {
            if (command->check_name(name))
                return command;
        }
        return nullptr;
    }

    void offer(std::string word) { found_.push_back(prefix_ + std::move(word)); }

    void offer_values_of(CLI::Option& option)
    {
        for (std::string& choice : choices_of(option))
            offer(std::move(choice));
        for (std::string& value : values_of_(option))
            offer(std::move(value));
        if (names_a_file(option))
            found_.emplace_back(kFiles);
    }

    void offer_options()
    {
        for (CLI::App* app : reachable()) {
            for (const CLI::Option* option : app->get_options()) {
                if (option->get_group().empty())
                    continue; // a hidden one
                for (const std::string& name : option->get_lnames())
                    offer("--" + name);
                for (const std::string& name : option->get_snames())
                    offer("-" + name);
            }
        }
    }

    void offer_commands()
    {
        for (const CLI::App* command : app_->get_subcommands({})) {
            if (!command->get_group().empty())
                offer(command->get_name());
        }
    }

    void offer_positional()
    {
        int passed = positionals_passed_;
        for (CLI::Option* option : app_->get_options()) {
            if (option->get_positional() && option->get_items_expected_max() > passed)
                return offer_values_of(*option);
            passed -= option->get_positional() ? option->get_items_expected_max() : 0;
        }
    }

    CLI::App* app_;
    const ValuesOf& values_of_;
    CLI::Option* pending_ = nullptr; ///< waits for its value
    int positionals_passed_ = 0;
    std::string prefix_; ///< what the values of "--option=" stand behind
    std::vector<std::string> found_;
};

} // namespace

std::vector<std::string> candidates(CLI::App& app, const std::vector<std::string>& words,
                                    const ValuesOf& values_of)
{
    Reader reader(app, values_of);
    if (words.empty())
        return reader.complete("");
    for (size_t i = 0; i + 1 < words.size(); ++i)
        reader.pass(words[i]);
    return reader.complete(words.back());
}

bool answer(CLI::App& app, int argc, char** argv, const ValuesOf& values_of)
{
    if (argc < 2 || std::string_view(argv[1]) != "--complete")
        return false;
    try {
        for (const std::string& word : candidates(app, {argv + 2, argv + argc}, values_of))
            std::printf("%s\n", word.c_str());
    } catch (const std::exception&) {
        return true; // the user is typing: a complaint about the bus would only disturb
    }
    return true;
}

} // namespace completion
