// SPDX-License-Identifier: Apache-2.0
#include "camera_request.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <sstream>

namespace sim {

namespace {

constexpr size_t kFarthestGuess = 4; // edits; beyond that a suggestion only confuses

size_t edit_distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    for (size_t column = 0; column <= to.size(); ++column) {
        row[column] = column;
    }
    for (size_t line = 1; line <= from.size(); ++line) {
        size_t diagonal = row[0];
        row[0] = line;
        for (size_t column = 1; column <= to.size(); ++column) {
            const size_t replaced = diagonal + (from[line - 1] == to[column - 1] ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({row[column] + 1, row[column - 1] + 1, replaced});
        }
    }
    return row.back();
}

std::string unknown_model(std::string_view name)
{
    const auto all = models();
    const auto nearest = std::ranges::min_element(
        all, {}, [name](const CameraModel& model) { return edit_distance(name, model.name); });
    std::ostringstream text;
    text << "there is no camera model '" << name << "'";
    if (edit_distance(name, nearest->name) <= kFarthestGuess) {
        text << "; did you mean '" << nearest->name << "'?";
    }
    text << "\nModels:";
    for (const CameraModel& model : all) {
        text << " " << model.name;
    }
    return text.str();
}

unsigned parse_bus(const std::string& text)
{
    constexpr unsigned kHighestBus = 64;
    unsigned bus = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bus);
    if (error != std::errc() || end != text.data() + text.size() || bus < 1 || bus > kHighestBus) {
        throw UsageError("'bus=" + text + "': a bus is a number from 1 to 64");
    }
    return bus;
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
    } else {
        throw UsageError(
            "'" + setting +
            "' is no camera setting; there are serial=TEXT, bus=N, rom=FILE and blank");
    }
}

void check_rom_files_differ(const std::vector<CameraRequest>& cameras)
{
    std::set<std::string> seen;
    for (const CameraRequest& camera : cameras) {
        if (!camera.rom_file.empty() && !seen.insert(camera.rom_file).second) {
            throw UsageError("two cameras cannot keep their ROMs in one file, '" + camera.rom_file +
                             "'");
        }
    }
}

} // namespace

const CameraModel& model_named(std::string_view name)
{
    const CameraModel* model = find_model(name);
    if (model == nullptr) {
        throw UsageError(unknown_model(name));
    }
    return *model;
}

CameraRequest parse_camera(const std::string& text)
{
    std::istringstream parts(text);
    std::string part;
    std::getline(parts, part, ',');
    CameraRequest camera;
    camera.model = &model_named(part);
    while (std::getline(parts, part, ',')) {
        apply_setting(camera, part);
    }
    return camera;
}

std::vector<CameraRequest> parse_cameras(const std::vector<std::string>& texts,
                                         const std::vector<std::string>& rom_files)
{
    std::vector<CameraRequest> cameras;
    std::ranges::transform(texts, std::back_inserter(cameras), parse_camera);
    if (cameras.empty()) {
        cameras.emplace_back().model = &models().front();
    }
    if (rom_files.size() > cameras.size()) {
        throw UsageError("there are more ROM files than cameras");
    }
    for (size_t i = 0; i < rom_files.size(); ++i) {
        if (!cameras[i].rom_file.empty()) {
            throw UsageError("camera " + std::to_string(i + 1) + " has two ROM files");
        }
        cameras[i].rom_file = rom_files[i];
    }
    check_rom_files_differ(cameras);
    return cameras;
}

} // namespace sim
