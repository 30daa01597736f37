// SPDX-License-Identifier: Apache-2.0
// The standard controls of the picture.
#include "features/feature.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"
#include "text/nearest.h"
#include "video/control_file.h"

#include <algorithm>
#include <charconv>
#include <nyxus/cpp/controls.hpp>

namespace tool {

namespace {

struct ControlsOptions {
    std::string name;
    std::string value;
    std::string file;
    ControlValues values; ///< that it holds
};

std::vector<NyControl> controls_of(Session& session)
{
    auto controls = nyxus::list_controls(session.camera);
    if (!controls)
        throw library_failure("reading the controls", controls.status().code());
    return std::move(*controls);
}

NyControl control_named(Session& session, const std::vector<NyControl>& controls,
                        const std::string& name)
{
    const auto found = std::ranges::find(controls, name, &NyControl::name);
    if (found != controls.end())
        return *found;
    std::vector<std::string_view> names;
    std::ranges::transform(controls, std::back_inserter(names), &NyControl::name);
    throw Failure(kExitNotSupported, session.camera.name() + " has no control " + in_quotes(name) +
                                         " ('nyxus control list' lists them)" +
                                         text::did_you_mean(name, names));
}

NyControl control_named(Session& session, const std::string& name)
{
    return control_named(session, controls_of(session), name);
}

Members control_json(const NyControl& control)
{
    return {{"name", control.name},       {"value", control.value},
            {"minimum", control.minimum}, {"maximum", control.maximum},
            {"step", control.step},       {"default", control.default_value}};
}

std::string line_of(const NyControl& control)
{
    return padded(control.name, 24) + padded(std::to_string(control.value), 8) + range_of(control);
}

void list_controls(Session& session)
{
    Value::List array;
    std::string lines;
    for (const NyControl& control : controls_of(session)) {
        array.emplace_back(control_json(control));
        lines += (lines.empty() ? "" : "\n") + line_of(control);
    }
    session.console.drain();
    if (session.arguments.json) {
        session.console.display().say(json_text(array));
    } else {
        session.console.display().say(lines.empty() ? "no controls" : lines);
    }
}

void run_get(Session& session, const std::string& name)
{
    session.print({{name, control_named(session, name).value}});
}

void refuse_beyond(const NyControl& control, bool is_within, const std::string& value)
{
    if (!is_within) {
        throw Failure(kExitUsage, std::string(control.name) + " is a number from " +
                                      std::to_string(control.minimum) + " to " +
                                      std::to_string(control.maximum) + ", not " + value);
    }
}

bool is_within(const NyControl& control, int64_t value)
{
    return value >= control.minimum && value <= control.maximum;
}

int64_t parse_value(const std::string& text, const NyControl& control)
{
    int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, value);
    refuse_beyond(control, error == std::errc() && parsed == end && is_within(control, value),
                  in_quotes(text));
    return value;
}

int64_t read_value(Session& session, const NyControl& control)
{
    NyControl now{};
    session.check(std::string("reading ") + control.name,
                  nyxus_get_control(session.device(), control.id, &now));
    return now.value;
}

constexpr Cost kSettingCost = {.transfers = 11};

void run_set(Session& session, const ControlsOptions& options)
{
    const NyControl control = control_named(session, options.name);
    const int64_t wanted = parse_value(options.value, control);
    session.make({.name = options.name,
                  .read = [&] { return read_value(session, control); },
                  .wanted = wanted,
                  .doing = "setting " + options.name,
                  .write = [&] { return nyxus_set_control(session.device(), control.id, wanted); },
                  .cost = kSettingCost});
}

void run_save(Session& session, const std::string& file)
{
    const std::vector<NyControl> controls = controls_of(session);
    const std::string text = control_file_of(session.camera.name(), controls);
    session.write(file, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    session.print({{"file", file}, {"controls", controls.size()}});
}

/// Those that the file names, with the values that it has, automatics first; without those that are
/// left to one. A Failure when one of them is wrong.
std::vector<NyControl> wanted_controls(Session& session, const ControlsOptions& options)
{
    const std::vector<NyControl> controls = controls_of(session);
    ControlValues values;
    for (const NyControl& control : controls)
        values[control.name] = control.value;
    std::vector<NyControl> wanted;
    for (const auto& [name, value] : options.values) {
        NyControl control = control_named(session, controls, name);
        refuse_beyond(control, is_within(control, value), std::to_string(value));
        values[name] = control.value = value;
        wanted.push_back(control);
    }
    std::erase_if(wanted, [&](const NyControl& control) {
        const std::string automatic = automatic_of(control, values);
        if (!automatic.empty())
            session.console.display().note(control.name + (": left to " + automatic));
        return !automatic.empty();
    });
    std::ranges::sort(wanted, {}, [](const NyControl& control) {
        return std::pair(!is_automatic(control), control.id);
    });
    return wanted;
}

void run_load(Session& session, const ControlsOptions& options)
{
    const std::vector<NyControl> wanted = wanted_controls(session, options);
    if (wanted.empty())
        throw Failure(kExitUsage, in_quotes(options.file) + " has nothing to set");
    const auto members = [&](const auto& value_of_control) {
        Members values;
        for (const NyControl& control : wanted)
            values.push_back({control.name, value_of_control(control)});
        return values;
    };
    const auto write = [&] {
        for (const NyControl& control : wanted) {
            session.check(std::string("setting ") + control.name,
                          nyxus_set_control(session.device(), control.id, control.value));
        }
        return 0;
    };
    const auto count = static_cast<uint32_t>(wanted.size());
    session.make({.name = "controls",
                  .read =
                      [&] {
                          return members([&](const NyControl& control) {
                              return read_value(session, control);
                          });
                      },
                  .wanted = members([](const NyControl& control) { return control.value; }),
                  .doing = "setting the controls",
                  .write = write,
                  .cost = {.transfers = count * kSettingCost.transfers}});
}

/// Once, also for several cameras.
void read_values(ControlsOptions& options)
{
    constexpr size_t kMost = 64 * 1024;
    if (!options.values.empty())
        return;
    const std::vector<uint8_t> bytes = read_file(options.file, kMost, "a file of controls");
    options.values = parse_control_file({reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                                        in_quotes(options.file));
}

Option& add_name(Command& command, ControlsOptions& options)
{
    return command.text("NAME", &options.name, "Control, as 'nyxus control list' names it")
        .required()
        .offering([] {
            command_line::Words names;
            for (uint32_t id = 0; id < NYXUS_CONTROL_COUNT; ++id)
                names.emplace_back(nyxus_control_name(id));
            return names;
        });
}

} // namespace

void add_control_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<ControlsOptions>();
    Command& command =
        add_command(app, "control", "Standard controls of the picture, such as brightness and zoom",
                    "set brightness 20");
    command.needing_command();
    set_action(add_command(command, "list", "List them with their values and ranges", "--json"),
               arguments, list_controls);

    Command& get = add_command(command, "get", "Tell the value of one", "zoom");
    add_name(get, *options);
    set_action(get, arguments, [options](Session& session) { run_get(session, options->name); });

    Command& set = add_command(command, "set", "Set one", "brightness 20");
    add_name(set, *options);
    set.text("VALUE", &options->value, "Number in the control's range").required();
    set_writing_action(set, arguments, [options](Session& session) { run_set(session, *options); });

    Command& save =
        add_command(command, "save", "Save all, to be edited and loaded", "picture.toml");
    add_file(save, &options->file, "File to write, TOML; - is standard output");
    set_action(
        save, arguments, [options](Session& session) { run_save(session, options->file); },
        [options, &arguments] { refuse_impossible_target(options->file, arguments); });

    Command& load = add_command(command, "load", "Set what a file says", "picture.toml");
    add_file(load, &options->file, "File that 'save' has made; - is standard input");
    set_writing_action(
        load, arguments, [options](Session& session) { run_load(session, *options); },
        [options] { read_values(*options); });
}

} // namespace tool
