// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "json/json.h"
#include "server/http.h"

#include <nyxus/engine.hpp>
#include <nyxus/nyxus.hpp>

/// Records of the engine as the API tells them, with the tool's words. What a camera or a file says
/// is made printable.
namespace studio {

namespace engine = nyxus::engine;
using json::Json;

Json json_of(const nyxus::CameraInfo& info);
Json json_of(const engine::RomHistory& history);
Json json_of(const engine::Camera& camera);
Json json_of(const NyStreamFormat& format);
Json json_of(const NyControl& control);
Json json_of(const engine::Backup& backup);
Json json_of(const engine::ImageFacts& facts);
Json json_of(const engine::Part& part);
Json json_of(const engine::Step& step);
Json json_of(const engine::Event& event);
Json json_of(const engine::Report& report);
Json json_of(const nyxus::Status& status); ///< what stands under "error"

Response response_of(const Json& value, unsigned status = 200);
Response response_of(const nyxus::Status& status);
Response error_response(unsigned status, nyxus::Reason reason, const std::string& message,
                        const std::string& advice = {});

} // namespace studio
