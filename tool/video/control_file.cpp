// SPDX-License-Identifier: Apache-2.0
#include "video/control_file.h"

#include "terminal/failure.h"
#include "terminal/text.h"

#include <toml++/toml.h>
#include <algorithm>

namespace tool {

namespace {

/// What a control is left to, while that has one of the values whose bits are set here.
struct Automatic {
    uint32_t control;
    uint32_t automatic;
    uint32_t values;
};

// clang-format off
constexpr Automatic kAutomatics[] = {
//   control                           automatic                                at
    {NYXUS_CONTROL_CONTRAST,           NYXUS_CONTROL_CONTRAST_AUTO,             1U << 1},
    {NYXUS_CONTROL_HUE,                NYXUS_CONTROL_HUE_AUTO,                  1U << 1},
    {NYXUS_CONTROL_WHITE_BALANCE,      NYXUS_CONTROL_WHITE_BALANCE_AUTO,        1U << 1},
    {NYXUS_CONTROL_WHITE_BALANCE_BLUE, NYXUS_CONTROL_WHITE_BALANCE_PARTS_AUTO,  1U << 1},
    {NYXUS_CONTROL_WHITE_BALANCE_RED,  NYXUS_CONTROL_WHITE_BALANCE_PARTS_AUTO,  1U << 1},
    {NYXUS_CONTROL_FOCUS,              NYXUS_CONTROL_FOCUS_AUTO,                1U << 1},
    {NYXUS_CONTROL_EXPOSURE_TIME,      NYXUS_CONTROL_EXPOSURE_MODE,             1U << 2 | 1U << 8}, // automatic, aperture priority
    {NYXUS_CONTROL_IRIS,               NYXUS_CONTROL_EXPOSURE_MODE,             1U << 2 | 1U << 4}, // automatic, shutter priority
};
// clang-format on

} // namespace

bool is_automatic(const NyControl& control)
{
    return std::ranges::find(kAutomatics, control.id, &Automatic::automatic) !=
           std::end(kAutomatics);
}

std::string automatic_of(const NyControl& control, const ControlValues& values)
{
    const auto* const row = std::ranges::find(kAutomatics, control.id, &Automatic::control);
    if (row == std::end(kAutomatics))
        return {};
    const auto found = values.find(nyxus_control_name(row->automatic));
    const bool is_on = found != values.end() && found->second >= 0 && found->second < 32 &&
                       (row->values >> found->second & 1) != 0;
    return is_on ? found->first : "";
}

std::string range_of(const NyControl& control)
{
    return std::to_string(control.minimum) + " to " + std::to_string(control.maximum) +
           (control.step == 1 ? "" : " in steps of " + std::to_string(control.step)) +
           ", by default " + std::to_string(control.default_value);
}

std::string control_file_of(const std::string& camera, const std::vector<NyControl>& controls)
{
    ControlValues values;
    for (const NyControl& control : controls)
        values[control.name] = control.value;
    std::string text = "# Picture of " + camera + ": 'nyxus control load FILE' sets it.\n";
    for (const NyControl& control : controls) {
        const std::string automatic = automatic_of(control, values);
        const std::string line = control.name + (" = " + std::to_string(control.value));
        text += padded((automatic.empty() ? "" : "# ") + line, 32) + "# " + range_of(control) +
                (automatic.empty() ? "" : "; " + automatic + " chooses it") + "\n";
    }
    return text;
}

ControlValues parse_control_file(std::string_view text, const std::string& name)
{
    ControlValues values;
    try {
        for (const auto& [key, node] : toml::parse(text)) {
            const auto* const number = node.as_integer();
            if (number == nullptr)
                throw Failure(kExitUsage, name + ": " + in_quotes(key.str()) + " is no number");
            values[std::string(key.str())] = number->get();
        }
    } catch (const toml::parse_error& error) {
        throw Failure(kExitUsage,
                      name + ": line " + std::to_string(error.source().begin.line) +
                          " is no TOML: " + printable(std::string(error.description())));
    }
    return values;
}

} // namespace tool
