// SPDX-License-Identifier: Apache-2.0
#include "command_line/completion.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string_view>

namespace command_line {

namespace {

constexpr char kFiles[] = "FILES";

/// Reads a command line word by word, as the parser would, without complaining.
class Reader {
public:
    explicit Reader(const Program& program) : program_(program), command_(&program) {}

    /// Another word that the user has finished.
    void pass(const std::string& word)
    {
        if (pending_ != nullptr) {
            pending_ = nullptr;
        } else if (word.starts_with("-") && word.size() > 1) {
            const Option* option = option_named(word);
            pending_ = option != nullptr && option->takes_value() ? option : nullptr;
        } else if (const Command* below = command_->command_named(word)) {
            command_ = below;
            arguments_.clear();
        } else {
            arguments_.push_back(word);
        }
    }

    /// What the word in work may become.
    Words complete(const std::string& word)
    {
        const size_t equals = word.find('=');
        if (pending_ != nullptr) {
            offer_values_of(*pending_);
        } else if (word.starts_with("--") && equals != std::string::npos) {
            if (const Option* option = option_named(word.substr(0, equals))) {
                prefix_ = word.substr(0, equals + 1);
                offer_values_of(*option);
            }
        } else if (word.starts_with("-")) {
            offer_options();
        } else {
            for (const Command& below : command_->commands())
                offer(below.name());
            offer_argument();
        }
        std::erase_if(found_, [&](const std::string& candidate) {
            return candidate != kFiles && !candidate.starts_with(word);
        });
        return found_;
    }

private:
    /// Those that may stand behind the chosen command.
    std::vector<const Option*> reachable_options() const
    {
        std::vector<const Option*> reachable;
        const auto add = [&](const Option& option) {
            if (!option.is_argument())
                reachable.push_back(&option);
        };
        std::ranges::for_each(command_->options(), add);
        for (const Command* around = command_->parent(); around != nullptr;
             around = around->parent()) {
            if (program_.options_reach_down)
                std::ranges::for_each(around->options(), add);
        }
        if (command_ != &program_ && !program_.options_reach_down)
            add(program_.options().front()); // asks for help
        return reachable;
    }

    const Option* option_named(const std::string& name) const
    {
        for (const Option* option : reachable_options()) {
            if (std::ranges::find(option->names, name) != option->names.end())
                return option;
        }
        return nullptr;
    }

    void offer(const std::string& word) { found_.push_back(prefix_ + word); }

    void offer_values_of(const Option& option)
    {
        std::ranges::for_each(option.choices, [&](const std::string& word) { offer(word); });
        if (option.offered)
            std::ranges::for_each(option.offered(), [&](const std::string& word) { offer(word); });
        if (option.names_commands)
            offer_commands();
        if (option.offers_files)
            found_.emplace_back(kFiles);
    }

    /// Those below the command that the arguments name so far.
    void offer_commands()
    {
        const Command* command = &program_;
        for (const std::string& name : arguments_)
            command = command != nullptr ? command->command_named(name) : nullptr;
        if (command == nullptr)
            return;
        for (const Command& below : command->commands())
            offer(below.name());
    }

    void offer_options()
    {
        for (const Option* option : reachable_options())
            std::ranges::for_each(option->names, [&](const std::string& name) { offer(name); });
    }

    void offer_argument()
    {
        auto passed = std::ssize(arguments_);
        for (const Option& option : command_->options()) {
            if (!option.is_argument())
                continue;
            if (passed < option.most)
                return offer_values_of(option);
            passed -= option.most;
        }
    }

    const Program& program_;
    const Command* command_;
    const Option* pending_ = nullptr; ///< waits for its value
    Words arguments_;                 ///< that have been passed
    std::string prefix_;              ///< what the values of "--option=" stand behind
    Words found_;
};

/// The last of the words is in work.
Words candidates(const Program& program, const Words& words)
{
    Reader reader(program);
    if (words.empty())
        return reader.complete("");
    for (size_t i = 0; i + 1 < words.size(); ++i)
        reader.pass(words[i]);
    return reader.complete(words.back());
}

} // namespace

bool answer_completion(const Program& program, int argc, char** argv)
{
    if (argc < 2 || std::string_view(argv[1]) != "--complete")
        return false;
    try {
        for (const std::string& word : candidates(program, {argv + 2, argv + argc}))
            std::printf("%s\n", word.c_str());
    } catch (const std::exception&) {
        return true; // the user is typing: a complaint about the bus would only disturb
    }
    return true;
}

} // namespace command_line
