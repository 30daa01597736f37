// SPDX-License-Identifier: Apache-2.0
// The standard controls of the picture.
#include "features/feature.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"
#include "text/nearest.h"

#include <algorithm>
#include <charconv>
#include <nyxus/cpp/controls.hpp>

namespace tool {

namespace {

struct ControlsOptions {
    std::string name;
    std::string value;
};

std::vector<NyControl> controls_of(Session& session)
{
    auto controls = nyxus::list_controls(session.camera);
    if (!controls)
        throw library_failure("reading the controls", controls.status().code());
    return std::move(*controls);
}

NyControl control_named(Session& session, const std::string& name)
{
    const std::vector<NyControl> controls = controls_of(session);
    const auto found = std::ranges::find(controls, name, &NyControl::name);
    if (found != controls.end())
        return *found;
    std::vector<std::string_view> names;
    std::ranges::transform(controls, std::back_inserter(names), &NyControl::name);
    throw Failure(kExitNotSupported, session.camera.name() + " has no control " + in_quotes(name) +
                                         " ('nyxus control list' lists them)" +
                                         text::did_you_mean(name, names));
}

Members control_json(const NyControl& control)
{
    return {{"name", control.name},       {"value", control.value},
            {"minimum", control.minimum}, {"maximum", control.maximum},
            {"step", control.step},       {"default", control.default_value}};
}

std::string range_of(const NyControl& control)
{
    return std::to_string(control.minimum) + " to " + std::to_string(control.maximum);
}

std::string line_of(const NyControl& control)
{
    return padded(control.name, 24) + padded(std::to_string(control.value), 8) + range_of(control) +
           (control.step == 1 ? "" : " in steps of " + std::to_string(control.step)) +
           ", by default " + std::to_string(control.default_value);
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

int64_t parse_value(const std::string& text, const NyControl& control)
{
    int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || parsed != end || value < control.minimum ||
        value > control.maximum) {
        throw Failure(kExitUsage, std::string(control.name) + " is a number from " +
                                      range_of(control) + ", not " + in_quotes(text));
    }
    return value;
}

void run_set(Session& session, const ControlsOptions& options)
{
    const NyControl control = control_named(session, options.name);
    const int64_t wanted = parse_value(options.value, control);
    const auto value = [&] {
        NyControl now{};
        session.check("reading " + options.name,
                      nyxus_get_control(session.device(), control.id, &now));
        return now.value;
    };
    session.make({.name = options.name,
                  .read = value,
                  .wanted = wanted,
                  .doing = "setting " + options.name,
                  .write = [&] { return nyxus_set_control(session.device(), control.id, wanted); },
                  .cost = {.transfers = 11}});
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
}

} // namespace tool
