// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"
#include "failure.h"

#include <nlohmann/json.hpp>
#include <string>

namespace tool {

/// JSON whose members keep their order.
using Values = nlohmann::ordered_json;

inline Values json_of(const CameraEntry& entry)
{
    return {{"bus", entry.bus},
            {"address", entry.address},
            {"port_path", entry.port_path},
            {"serial", entry.serial},
            {"product", entry.product}};
}

/// Under the key "error".
inline Values json_of(const Failure& failure)
{
    return {{"exit_code", failure.code()}, {"message", failure.text()}};
}

/// As it is printed. What a camera says need not be UTF-8; it is made so.
inline std::string json_text(const Values& values)
{
    return values.dump(2, ' ', false, Values::error_handler_t::replace);
}

/// The same as one of several lines.
inline std::string json_line(const Values& values)
{
    return values.dump(-1, ' ', false, Values::error_handler_t::replace);
}

/// The result of what has failed. In one line, because it may stand in the place of line events.
inline std::string json_error(const Failure& failure)
{
    return json_line(Values{{"error", json_of(failure)}});
}

} // namespace tool
