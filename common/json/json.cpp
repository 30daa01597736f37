// SPDX-License-Identifier: Apache-2.0
#include "json/json.h"

namespace json {

Json parsed(std::string_view text, Comments comments)
{
    constexpr int kDeepest = 16;
    bool too_deep = false;
    const auto bounded = [&](int depth, Json::parse_event_t, Json&) {
        too_deep = too_deep || depth > kDeepest;
        return !too_deep;
    };
    Json value = Json::parse(text, bounded, false, comments == Comments::kAllowed);
    return too_deep ? Json(Json::value_t::discarded) : value;
}

std::string printed(const Json& value, int indent)
{
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

} // namespace json
