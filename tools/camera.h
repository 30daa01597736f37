// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"
#include "console.h"

#include <nyxus/engine/camera.hpp>

namespace tool {

namespace engine = nyxus::engine;
using engine::Camera;
using nyxus::RomState;

} // namespace tool
