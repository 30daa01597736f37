// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tool {

/// Loads a firmware image into nyxus_fw_bin, or says why it is none.
void load_firmware(const std::string& path);
/// Loads ROM contents into nyxus_fw_bin, a whole ROM without its erased rest; or says why not.
void load_rom_contents(const std::string& path);
/// Loads an MFi image into nyxus_mfi_bin and patches the serial number in, "" for none.
void load_mfi(const std::string& path, const std::string& serial);
/// Loads any image of up to `capacity` bytes; its trailing 0xFF bytes are not counted.
std::vector<uint8_t> load_image(const std::string& path, uint32_t capacity);

/// The loaded images, as they are programmed.
std::span<const uint8_t> firmware();
std::span<const uint8_t> mfi();

/// Refuses images that are not for this camera; nothing has been written then.
void check_images(const Camera& camera, bool with_mfi);

} // namespace tool
