// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "chip/model.h"

namespace sweep {

using Bytes = std::vector<uint8_t>;

/// What is cut: an operation of the library that changes the external ROM.
struct Operation {
    std::string_view name;
    bool (*applies)(const sim::CameraModel& model);
    /// The contents that it shall leave, made from those that it found.
    Bytes (*outcome)(const sim::CameraModel& model, Bytes rom);
    int32_t (*run)(NyDevice* device);
};

std::span<const Operation> operations();
const Operation* find_operation(std::string_view name);

/// What the ROM holds before: an older, longer firmware that boots, and data around it.
Bytes rom_before(const sim::CameraModel& model);
Bytes old_image(const sim::CameraModel& model);
Bytes new_image(const sim::CameraModel& model);

/// Installs the new image.
int32_t upgrade(NyDevice* device);

/// Puts the model's new image, and the MFi image, into the library's buffers.
void load_images(const sim::CameraModel& model);

} // namespace sweep
