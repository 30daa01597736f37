// SPDX-License-Identifier: Apache-2.0
// Flip, mirror and the gain of the JPEG encoder.
#include "features/setting.h"
#include "text/numbers.h"

#include <nyxus/access.h>
#include <nyxus/peripheral.h>

namespace tool {

/// The encoder takes 32 for none of its steps.
static std::string refuse_gain(const std::string& text)
{
    const auto gain = text::parse_number(text);
    return gain && *gain >= 1 && *gain <= 63 && *gain != 32
               ? ""
               : "Value " + text + " not in range 1 to 63 except 32";
}

void add_switch_commands(Command& app, Arguments& arguments)
{
    const Form gain{.argument = "GAIN",
                    .help = "Gain (1 to 63 except 32); without: ask",
                    .refusal = refuse_gain};
    // clang-format off
    const Setting settings[] = {
    //   name      summary                                      example  title     in messages  read                          write            cost
        {"flip",   "Turn the picture upside down, or ask",      "on",    "flip",   "flip",      read_number<XuGetFlip>,       XuSetFlip,       {2}},
        {"mirror", "Mirror the picture left to right, or ask",  "on",    "mirror", "mirror",    read_number<XuGetMirror>,     XuSetMirror,     {2}},
        {"gain",   "Set the quantisation gain of MJPEG, or ask", "40",   "gain",   "the gain",  read_number<XU_MjpgQGainGet>, XU_MjpgQGainSet,
         register_write(1) + register_read(1), gain},
    };
    // clang-format on
    for (const Setting& setting : settings)
        add_setting(app, arguments, setting);
}

} // namespace tool
