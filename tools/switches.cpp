// SPDX-License-Identifier: Apache-2.0
// Flip, mirror and the gain of the JPEG encoder.
#include "feature.h"
#include "text/numbers.h"

#include <nyxus/access.h>
#include <nyxus/peripheral.h>

namespace tool {

namespace {

struct Switch {
    const char* name;
    const char* summary;
    int32_t (*get)(NyDevice*, uint8_t*);
    int32_t (*set)(NyDevice*, int32_t);
};

// clang-format off
constexpr Switch switches[] = {
//   name      summary                                      read         write
    {"flip",   "Turn the picture upside down, or ask",      XuGetFlip,   XuSetFlip},
    {"mirror", "Mirror the picture left to right, or ask",  XuGetMirror, XuSetMirror},
};
// clang-format on

std::string state_of(Session& session, const Switch& row)
{
    uint8_t state = 0;
    session.check(std::string("reading ") + row.name, row.get(session.device(), &state));
    return on_or_off(state != 0);
}

void run_switch(Session& session, const Switch& row, const std::string& wanted)
{
    if (wanted.empty())
        return session.print({{row.name, state_of(session, row)}});
    session.make({.name = row.name,
                  .read = [&] { return state_of(session, row); },
                  .wanted = wanted,
                  .doing = std::string("setting ") + row.name,
                  .write = [&] { return row.set(session.device(), wanted == "on"); },
                  .cost = {.transfers = 2}});
}

void add_switch(Command& app, Arguments& arguments, const Switch& row)
{
    Command& command =
        add_command(app, row.name, row.summary, std::string("nyxus ") + row.name + " on");
    const auto wanted = std::make_shared<std::string>();
    add_choice(command, "STATE", wanted.get(), {"on", "off"}, "on or off; without: ask");
    set_writing_action(command, arguments,
                       [&row, wanted](Session& session) { run_switch(session, row, *wanted); });
}

uint8_t gain_of(Session& session)
{
    uint8_t gain = 0;
    session.check("reading the gain", XU_MjpgQGainGet(session.device(), &gain));
    return gain;
}

void run_gain(Session& session, uint32_t wanted)
{
    if (wanted == 0)
        return session.print({{"gain", gain_of(session)}});
    const auto gain = static_cast<int32_t>(wanted);
    session.make({.name = "gain",
                  .read = [&] { return gain_of(session); },
                  .wanted = wanted,
                  .doing = "setting the gain",
                  .write = [&] { return XU_MjpgQGainSet(session.device(), gain); },
                  .cost = register_write(1) + register_read(1)});
}

/// The encoder takes 32 for none of its steps.
std::string refuse_gain(const std::string& text)
{
    const auto gain = text::parse_number(text);
    return gain && *gain >= 1 && *gain <= 63 && *gain != 32
               ? ""
               : "Value " + text + " not in range 1 to 63 except 32";
}

void add_gain(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "gain", "Set the quantisation gain of MJPEG, or ask", "nyxus gain 40");
    const auto wanted = std::make_shared<uint32_t>(0);
    command.number("GAIN", wanted.get(), "Gain (1 to 63 except 32); without: ask")
        .refused(refuse_gain);
    set_writing_action(command, arguments,
                       [wanted](Session& session) { run_gain(session, *wanted); });
}

} // namespace

void add_switch_commands(Command& app, Arguments& arguments)
{
    for (const Switch& row : switches)
        add_switch(app, arguments, row);
    add_gain(app, arguments);
}

} // namespace tool
