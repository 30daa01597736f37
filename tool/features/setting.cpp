// SPDX-License-Identifier: Apache-2.0
#include "features/setting.h"

#include "terminal/text.h"

#include <algorithm>

namespace tool {

const Form kOnOff{.argument = "STATE", .help = "on or off; without: ask", .words = {"on", "off"}};

namespace {

/// What the command line says.
struct Wanted {
    std::string word;
    std::optional<uint32_t> number;
};

Value value_of(const Form& form, uint32_t number)
{
    if (form.words == kOnOff.words)
        return on_or_off(number != 0);
    return form.is_hex ? Value::shown_as(format("0x%02X", number), number) : Value(number);
}

void add_argument(Command& command, const Form& form, Wanted& wanted)
{
    const auto& [least, most] = form.range;
    if (!form.words.empty()) {
        add_choice(command, form.argument, &wanted.word, form.words, form.help);
    } else if (form.refusal) {
        command.number(form.argument, &wanted.number, form.help).refused(form.refusal);
    } else {
        add_number(command, form.argument, &wanted.number, static_cast<uint32_t>(least),
                   static_cast<uint32_t>(most), form.help);
    }
}

void run(Session& session, const Setting& setting, Wanted wanted)
{
    const command_line::Words& words = setting.form.words;
    if (!wanted.word.empty()) {
        const auto place = std::ranges::find(words, wanted.word);
        wanted.number = static_cast<uint32_t>(words.end() - place - 1);
    }
    const auto read = [&] {
        uint32_t number = 0;
        session.check(std::string("reading ") + setting.what,
                      setting.read(session.device(), &number));
        return value_of(setting.form, number);
    };
    const auto write = [&] {
        return setting.write(session.device(), static_cast<int32_t>(*wanted.number));
    };
    session.make({.name = setting.title,
                  .read = read,
                  .wanted = wanted.number ? value_of(setting.form, *wanted.number) : Value(),
                  .doing = std::string("setting ") + setting.what,
                  .write = write,
                  .cost = setting.cost});
}

} // namespace

void add_setting(Command& parent, Arguments& arguments, const Setting& setting,
                 std::function<void()> check_first)
{
    Command& command = add_command(parent, setting.name, setting.summary, setting.example);
    const auto wanted = std::make_shared<Wanted>();
    add_argument(command, setting.form, *wanted);
    set_writing_action(
        command, arguments, [setting, wanted](Session& session) { run(session, setting, *wanted); },
        std::move(check_first));
}

} // namespace tool
