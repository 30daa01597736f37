// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session/camera_list.h"
#include "terminal/failure.h"
#include "terminal/value.h"

#include <nyxus/engine/backups.hpp>

#include <string>

namespace tool {

/// Where the camera is and what it calls itself.
Members json_of(const CameraEntry& entry);
/// The same in the events of commands that take their time: "port", "serial", "product".
Members json_of_place(const CameraEntry& entry);
/// What the journal says of a ROM: "state", and what belongs to it.
Members json_of(const nyxus::engine::RomHistory& history);
/// Under the key "error".
Members json_of(const Failure& failure);

/// null for a text that nobody knows.
inline Value nothing_or(const std::string& text)
{
    return text.empty() ? Value() : Value(text);
}

/// As it is printed. What a camera says need not be UTF-8; it is made so.
std::string json_text(const Value& value);
/// The same as one of several lines.
std::string json_line(const Value& value);
/// The result of what has failed. In one line, because it may stand in the place of line events.
std::string json_error(const Failure& failure);

} // namespace tool
