// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "features/feature.h"

namespace tool {

/// What a command takes for a number of the camera, and how it prints one.
struct Form {
    const char* argument;
    const char* help;
    command_line::Words words = {}; ///< from the highest number down to 0; else the number itself
    command_line::Range range = kByteRange;
    command_line::Refusal refusal = {}; ///< where the range does not say all; help does then
    bool is_hex = false;                ///< when printed
};
extern const Form kOnOff;

/// A number of the camera: a command shows it, and sets it where one is given.
struct Setting {
    const char* name; ///< of the command
    const char* summary;
    const char* example; ///< its argument
    const char* title;   ///< of the number, when printed
    const char* what;    ///< the number, in messages
    int32_t (*read)(NyDevice*, uint32_t*);
    int32_t (*write)(NyDevice*, int32_t);
    Cost cost;
    Form form = kOnOff;
};
/// `check_first` as in set_action().
void add_setting(
    Command& parent, Arguments& arguments, const Setting& setting,
    std::function<void()> check_first = [] {});

/// A function of the library that reads a number of this size.
template <auto kRead, typename Number = uint8_t>
int32_t read_number(NyDevice* device, uint32_t* value)
{
    Number number = 0;
    const int32_t status = kRead(device, &number);
    *value = number;
    return status;
}
/// One that writes a number of this size out of a buffer.
template <auto kWrite, typename Number = uint8_t>
int32_t write_number(NyDevice* device, int32_t value)
{
    const auto number = static_cast<Number>(value);
    return kWrite(device, &number);
}

} // namespace tool
