// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session/camera_list.h"
#include "terminal/console.h"

#include <nyxus/engine/camera.hpp>

namespace tool {

namespace engine = nyxus::engine;
using engine::Camera;
using nyxus::RomState;

} // namespace tool
