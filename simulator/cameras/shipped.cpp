// SPDX-License-Identifier: Apache-2.0
#include "cameras/shipped.h"

#include "cameras/camera_file.h"
#include "cameras/shipped_files.h"

#include <algorithm>
#include <string>
#include <vector>

namespace sim {

namespace {

std::vector<CameraModel> read_models()
{
    std::vector<CameraModel> all;
    for (const ShippedFile& file : kCameraFiles)
        all.push_back(parse_camera_file(file.text, std::string(file.name)));
    return all;
}

} // namespace

std::span<const CameraModel> models()
{
    static const std::vector<CameraModel> all = read_models();
    return all;
}

const CameraModel* find_model(std::string_view name)
{
    const auto all = models();
    const auto found = std::ranges::find(all, name, &CameraModel::name);
    return found == all.end() ? nullptr : &*found;
}

std::string_view model_file(std::string_view name)
{
    const std::string file_name = std::string(name) + ".toml";
    const auto found = std::ranges::find(kCameraFiles, file_name, &ShippedFile::name);
    return found == kCameraFiles.end() ? std::string_view() : found->text;
}

std::span<const FlashPart> flash_parts()
{
    static const std::vector<FlashPart> all =
        parse_flash_parts(kFlashPartsFile.text, std::string(kFlashPartsFile.name));
    return all;
}

std::span<const EepromPart> eeprom_parts()
{
    static const std::vector<EepromPart> all =
        parse_eeprom_parts(kEepromPartsFile.text, std::string(kEepromPartsFile.name));
    return all;
}

} // namespace sim
