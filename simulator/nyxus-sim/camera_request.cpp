// SPDX-License-Identifier: Apache-2.0
#include "camera_request.h"

#include "cameras/shipped.h"
#include "text/nearest.h"
#include "text/numbers.h"
#include "text/printable.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>

namespace sim {

namespace {

std::string unknown_model(std::string_view name)
{
    std::vector<std::string_view> names;
    std::ranges::transform(models(), std::back_inserter(names), &CameraModel::name);
    std::string text = "there is no camera model " + text::in_quotes(name) +
                       text::did_you_mean(name, names) + "\nModels:";
    for (const std::string_view model : names)
        text.append(" ").append(model);
    return text + "\nThe name of a file with a camera's description has a '/' or ends in .toml.";
}

bool names_a_file(std::string_view text)
{
    return text.find('/') != std::string_view::npos || text.ends_with(".toml");
}

// It may be meant: hosts have to cope with such a camera, too.
void warn_of_unknown_chip(const std::string& file, const std::string& version)
{
    constexpr const char* kSignatures[] = {"LE", "LD", "LS",  "LP",  "FI", "F2",
                                           "WI", "HA", "RO1", "RO2", "CD", "CB"};
    const bool is_known = std::ranges::any_of(kSignatures, [&](const char* signature) {
        return version.find(signature) != std::string::npos;
    });
    if (!is_known) {
        std::fprintf(
            stderr,
            "nyxus-sim: warning: %s: the internal_version \"%s\" holds the signature of no "
            "chip; 'nyxus-sim describe' lists them\n",
            text::printable(file).c_str(), version.c_str());
    }
}

unsigned parse_bus(const std::string& text)
{
    constexpr unsigned kHighestBus = 64;
    const std::optional<uint64_t> bus = text::parse_number(text, kHighestBus);
    if (!bus || *bus == 0)
        throw UsageError("'bus=" + text + "': a bus is a number from 1 to 64");
    return static_cast<unsigned>(*bus);
}

void apply_setting(CameraRequest& camera, const std::string& setting)
{
    const size_t equals = setting.find('=');
    const std::string name = setting.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
    if (setting == "blank") {
        camera.blank = true;
    } else if (name == "serial" && !value.empty()) {
        camera.serial = value;
    } else if (name == "bus") {
        camera.bus = parse_bus(value);
    } else if (name == "rom" && !value.empty()) {
        camera.rom_file = value;
    } else if (setting == "driver=uvcvideo") {
        camera.has_kernel_driver = true;
    } else {
        throw UsageError("'" + setting +
                         "' is no camera setting; there are serial=TEXT, bus=N, rom=FILE, "
                         "driver=uvcvideo and blank");
    }
}

/// However it is written; the file need not be there yet.
std::filesystem::path file_behind(const std::string& file)
{
    std::error_code error;
    const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(file), error);
    return error ? std::filesystem::path(file) : place;
}

void check_rom_files_differ(const std::vector<CameraRequest>& cameras)
{
    std::set<std::filesystem::path> seen;
    for (const CameraRequest& camera : cameras) {
        if (!camera.rom_file.empty() && !seen.insert(file_behind(camera.rom_file)).second) {
            throw UsageError("two cameras cannot keep their ROMs in one file, '" + camera.rom_file +
                             "'");
        }
    }
}

} // namespace

std::shared_ptr<const CameraDescription> model_named(const std::string& text)
{
    if (names_a_file(text)) {
        auto camera = std::make_shared<CameraDescription>(read_camera_file(text));
        warn_of_unknown_chip(text, camera->internal_version);
        return camera;
    }
    const CameraModel* model = find_model(text);
    if (model == nullptr)
        throw UsageError(unknown_model(text));
    return std::make_shared<CameraDescription>(CameraDescription{*model});
}

CameraRequest parse_camera(const std::string& text)
{
    std::istringstream parts(text);
    std::string part;
    std::getline(parts, part, ',');
    CameraRequest camera;
    camera.model = model_named(part);
    while (std::getline(parts, part, ','))
        apply_setting(camera, part);
    return camera;
}

std::vector<CameraRequest> parse_cameras(const std::vector<std::string>& texts,
                                         const std::vector<std::string>& rom_files)
{
    std::vector<CameraRequest> cameras;
    std::ranges::transform(texts, std::back_inserter(cameras), parse_camera);
    if (cameras.empty())
        cameras.emplace_back().model = model_named(models().front().name);
    if (rom_files.size() > cameras.size())
        throw UsageError("there are more ROM files than cameras");
    for (size_t i = 0; i < rom_files.size(); ++i) {
        if (!cameras[i].rom_file.empty())
            throw UsageError("camera " + std::to_string(i + 1) + " has two ROM files");
        cameras[i].rom_file = rom_files[i];
    }
    check_rom_files_differ(cameras);
    return cameras;
}

} // namespace sim
