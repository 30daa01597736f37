// SPDX-License-Identifier: Apache-2.0
#include "command_line/command.h"

#include <algorithm>
#include <sstream>
#include <type_traits>
#include <utility>

namespace command_line {

namespace {

Words names_in(const std::string& spelling)
{
    Words names;
    std::istringstream parts(spelling);
    for (std::string name; std::getline(parts, name, ',');)
        names.push_back(name);
    return names;
}

template <typename Pointer>
using Pointee = std::remove_pointer_t<Pointer>;

template <typename Value>
constexpr bool kIsFlag = std::is_same_v<Value, bool> || std::is_same_v<Value, int> ||
                         std::is_same_v<Value, std::monostate>;

template <typename Value>
constexpr bool kIsList =
    std::is_same_v<Value, Words> || std::is_same_v<Value, std::vector<uint32_t>>;

/// The value as a line of help tells it; of those that have a default worth telling.
std::string text_of(const Target& target)
{
    if (const auto* text = std::get_if<std::string*>(&target))
        return **text;
    if (const auto* number = std::get_if<uint32_t*>(&target))
        return std::to_string(**number);
    if (const auto* number = std::get_if<uint64_t*>(&target))
        return std::to_string(**number);
    return {};
}

} // namespace

Option::Option(const std::string& spelling, Target where, std::string text)
    : names(names_in(spelling)), target(where), help(std::move(text))
{
    if (takes_list())
        most = kAnyNumber;
}

Option& Option::required()
{
    is_required = true;
    return *this;
}

Option& Option::needing(const Option& other)
{
    needs.push_back(&other);
    return *this;
}

Option& Option::excluding(const Option& other)
{
    excludes.push_back(&other);
    return *this;
}

Option& Option::shown_as(const std::string& word)
{
    value_name = word;
    return *this;
}

Option& Option::showing_default()
{
    default_text = text_of(target);
    return *this;
}

Option& Option::times(int least, int at_most)
{
    fewest = least;
    most = at_most;
    return *this;
}

Option& Option::refused(Refusal why)
{
    refusal = std::move(why);
    return *this;
}

Option& Option::offering(std::function<Words()> words)
{
    offered = std::move(words);
    return *this;
}

Option& Option::offering_files()
{
    offers_files = true;
    return *this;
}

Option& Option::naming_commands()
{
    names_commands = true;
    return *this;
}

bool Option::takes_value() const
{
    return !alone &&
           !std::visit([](auto where) { return kIsFlag<Pointee<decltype(where)>>; }, target);
}

bool Option::takes_number() const
{
    return takes_value() && !std::holds_alternative<std::string*>(target) &&
           !std::holds_alternative<std::optional<std::string>*>(target) &&
           !std::holds_alternative<Words*>(target);
}

bool Option::takes_list() const
{
    return std::visit([](auto where) { return kIsList<Pointee<decltype(where)>>; }, target);
}

Command::Command(std::string name, std::string summary, const Command* parent)
    : name_(std::move(name)), summary_(std::move(summary)), parent_(parent)
{
}

Command& Command::command(const std::string& name, const std::string& summary)
{
    Command& added = commands_.emplace_back(name, summary, this);
    added.group_ = heading_;
    return added;
}

Command& Command::needing_command()
{
    needs_command_ = true;
    return *this;
}

Command& Command::does(std::function<void()> action)
{
    action_ = std::move(action);
    return *this;
}

Command& Command::heading(const std::string& text)
{
    heading_ = text;
    return *this;
}

Command& Command::footer(const std::string& text)
{
    footer_ = text;
    return *this;
}

Option& Command::add(const std::string& spelling, Target target, const std::string& help)
{
    return options_.emplace_back(spelling, target, help);
}

Option& Command::flag(const std::string& spelling, Target target, const std::string& help)
{
    return add(spelling, target, help);
}

Option& Command::text(const std::string& spelling, Target target, const std::string& help)
{
    return add(spelling, target, help);
}

Option& Command::text_or(const std::string& spelling, const std::string& alone, Target target,
                         const std::string& help)
{
    Option& option = add(spelling, target, help);
    option.alone = alone;
    return option;
}

Option& Command::number(const std::string& spelling, Target target, const std::string& help)
{
    return add(spelling, target, help);
}

Option& Command::number(const std::string& spelling, Target target, const Range& range,
                        const std::string& help)
{
    Option& option = add(spelling, target, help);
    option.range = range;
    return option;
}

Option& Command::choice(const std::string& spelling, Target target, const Words& choices,
                        const std::string& help)
{
    Option& option = add(spelling, target, help);
    option.choices = choices;
    return option;
}

Option& Command::file(const std::string& spelling, Target target, const std::string& help)
{
    Option& option = add(spelling, target, help).offering_files();
    return option.is_argument() ? option : option.shown_as("FILE");
}

const Command& Command::root() const
{
    return parent_ == nullptr ? *this : parent_->root();
}

std::string Command::call() const
{
    return parent_ == nullptr ? name_ : parent_->call() + " " + name_;
}

const Command* Command::command_named(const std::string& name) const
{
    const auto found = std::ranges::find(commands_, name, &Command::name_);
    return found == commands_.end() ? nullptr : &*found;
}

Program::Program(const About& about) : Command(about.name, about.summary), version_(about.version)
{
    add("-h,--help", {}, about.help_of_help);
    add("-V,--version", {}, about.help_of_version);
}

} // namespace command_line
