// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/streaming.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// The standard controls of a camera in a file that people read and edit.
namespace tool {

/// Values by the names of controls.
using ControlValues = std::map<std::string, int64_t, std::less<>>;

/// TOML, with the range of each as a comment. `camera` is whose they are.
std::string control_file_of(const std::string& camera, const std::vector<NyControl>& controls);
/// A Failure for what is no such file; `name` stands for it there.
ControlValues parse_control_file(std::string_view text, const std::string& name);

/// The automatic that chooses the control's value; "" where the host does. `value_of` tells what a
/// control is set to.
std::string automatic_of(const NyControl& control, const ControlValues& values);
/// Others wait for it.
bool is_automatic(const NyControl& control);

/// "0 to 255 in steps of 5, by default 128"
std::string range_of(const NyControl& control);

} // namespace tool
