// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

/// What the command line of a program may hold. Reading one (parse.h), completing one
/// (completion.h) and help all go by these definitions.
namespace command_line {

/// Where a value goes, which decides what values there are: bool and int are flags, int counts
/// them. Of nothing: what such an option asks for is printed.
using Target = std::variant<std::monostate, bool*, int*, std::string*, std::optional<std::string>*,
                            std::vector<std::string>*, uint8_t*, uint16_t*, uint32_t*, uint64_t*,
                            std::optional<uint32_t>*, std::vector<uint32_t>*>;

struct Range {
    uint64_t least;
    uint64_t most;
};

/// Why a value is refused; "" when it is not.
using Refusal = std::function<std::string(const std::string&)>;
using Words = std::vector<std::string>;

/// An option, or an argument that is known by its place.
struct Option {
    /// As many values as there are.
    static constexpr int kAnyNumber = 1 << 29;

    /// `spelling`: "-c,--camera" of an option, "FILE" of an argument.
    Option(const std::string& spelling, Target where, std::string text);

    // They end a declaration: command.number("--jobs", ...).shown_as("N").needing(all)
    Option& required();
    Option& needing(const Option& other);
    Option& excluding(const Option& other);
    /// What stands for its value in help.
    Option& shown_as(const std::string& word);
    /// Help tells the value that the target has now.
    Option& showing_default();
    /// So many values of an argument; without: one, or any number for a list.
    Option& times(int least, int most);
    Option& refused(Refusal refusal);
    /// What a shell completes its value with, beside its choices.
    Option& offering(std::function<Words()> words);
    Option& offering_files();
    /// The values are a command of the program, word by word.
    Option& naming_commands();

    bool is_argument() const { return !names.front().starts_with('-'); }
    bool takes_value() const;
    bool takes_number() const;
    bool takes_list() const;
    /// "--camera", in sentences.
    const std::string& name() const { return names.back(); }

    Words names; ///< "-c", "--camera"
    Target target;
    std::string help;
    std::string value_name;
    std::string default_text;
    std::optional<std::string> alone; ///< its value when it has none, so that it may do without
    std::optional<Range> range;
    Words choices;
    Refusal refusal;
    std::function<Words()> offered;
    bool offers_files = false;
    bool names_commands = false;
    bool is_required = false;
    int fewest = 1; ///< values of an argument
    int most = 1;
    std::vector<const Option*> needs;
    std::vector<const Option*> excludes;
};

/// A command, or the program itself. What it hands out stays where it is.
class Command {
public:
    Command(std::string name, std::string summary, const Command* parent = nullptr);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    /// A command below this one.
    Command& command(const std::string& name, const std::string& summary);
    /// A line may not end here: one of the commands below has to follow.
    Command& needing_command();
    /// What is done when the command is chosen, and none below it; after all values are in place.
    Command& does(std::function<void()> action);
    /// What help lists the commands under that are declared from now on.
    Command& heading(const std::string& text);
    /// What help ends with.
    Command& footer(const std::string& text);

    Option& flag(const std::string& spelling, Target target, const std::string& help);
    Option& text(const std::string& spelling, Target target, const std::string& help);
    /// May stand alone and is `alone` then; a text follows only as in --log=FILE.
    Option& text_or(const std::string& spelling, const std::string& alone, Target target,
                    const std::string& help);
    /// Decimal, whatever zeros are in front, or hexadecimal with 0x.
    Option& number(const std::string& spelling, Target target, const std::string& help);
    Option& number(const std::string& spelling, Target target, const Range& range,
                   const std::string& help);
    Option& choice(const std::string& spelling, Target target, const Words& choices,
                   const std::string& help);
    /// The path of a file; an option's value is shown as FILE.
    Option& file(const std::string& spelling, Target target, const std::string& help);

    const std::string& name() const { return name_; }
    const std::string& summary() const { return summary_; }
    /// "" without one.
    const std::string& group() const { return group_; }
    const std::string& footer() const { return footer_; }
    const Command* parent() const { return parent_; }
    const std::list<Command>& commands() const { return commands_; }
    const std::list<Option>& options() const { return options_; }
    bool needs_command() const { return needs_command_; }
    const std::function<void()>& action() const { return action_; }

    /// The program.
    const Command& root() const;
    /// "nyxus osd datetime"
    std::string call() const;
    /// nullptr when there is none.
    const Command* command_named(const std::string& name) const;

protected:
    Option& add(const std::string& spelling, Target target, const std::string& help);

private:
    std::string name_;
    std::string summary_;
    std::string group_;
    std::string heading_;
    std::string footer_;
    const Command* parent_;
    bool needs_command_ = false;
    std::function<void()> action_;
    std::list<Command> commands_;
    std::list<Option> options_;
};

/// What is wrong with a command line.
struct Mistake {
    std::string text;
    const Command& command;  ///< the last one that was chosen
    bool lacks = false;      ///< something that has to be there
    bool is_surplus = false; ///< nobody takes some words
    Words surplus = {};      ///< they
};

/// What a program says of itself, and what its help says of the options that make it do so.
struct About {
    std::string name;
    std::string summary;
    std::string version;
    std::string help_of_help = "Print this help message and exit";
    std::string help_of_version = "Display program version information and exit";
};

class Program : public Command {
public:
    explicit Program(const About& about);

    /// Lays out a command's help, which then tells nothing but what the definitions say.
    std::function<std::string(const Command&)> layout;
    /// A line that tells of a mistake; with a layout.
    std::function<std::string(const Mistake&)> complaint;
    /// A command takes the options of those around it, too.
    bool options_reach_down = false;

    const std::string& version() const { return version_; }

private:
    std::string version_;
};

/// From the action of a command: the command line is wrong, after all.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace command_line
