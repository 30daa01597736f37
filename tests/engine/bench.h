// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine.hpp>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "faults/fault_file.h"
#include "support/camera.h"
#include "support/never_freed.h"

namespace engine = nyxus::engine;

/// A folder that is removed when the test ends.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// A file in it.
    std::string file(const std::string& name, const std::vector<uint8_t>& bytes) const;

private:
    std::filesystem::path path_;
};

/// Hears all events, and does something when one of them comes.
class Listener {
public:
    using Kind = engine::Event::Kind;

    /// Once, when this kind of event tells of this phase.
    void on(Kind kind, engine::Phase phase, std::function<void()> act);
    void stop_on(Kind kind, engine::Phase phase);
    engine::Caller caller();

    bool has(Kind kind) const;
    /// "unlocking erasing ..." as they began, and "(programming)" for one that was abandoned.
    std::string phases() const;

    std::vector<engine::Event> events;

private:
    struct Act {
        Kind kind;
        engine::Phase phase;
        std::function<void()> act;
    };
    std::vector<Act> acts_;
    std::stop_source stop_;
};

/// A simulated camera with the engine on it, and a folder for its backups.
class Bench {
public:
    explicit Bench(std::string_view model, std::vector<uint8_t> rom = {});
    explicit Bench(const sim::CameraModel& model, std::vector<uint8_t> rom = {});

    engine::Camera open(engine::Use use = engine::Use::kAnything);
    /// What goes wrong from now on, as JSON.
    void set_faults(const std::string& faults);
    /// The first bytes of the ROM equal these.
    bool rom_begins_with(nyxus::Bytes bytes);
    engine::Report upgrade(engine::Camera& camera, const engine::Images& images,
                           const engine::UpgradeOptions& options = {});

    ::Camera simulated;
    TemporaryFolder folder;
    engine::Backups backups{folder.path() / "state"};
    Listener listener;
};

/// The library never frees a device object, on purpose: held here, it is no leak to the sanitizer.
void hold_device(engine::Camera& camera);

std::vector<uint8_t> image_bytes(const sim::CameraModel& model, uint32_t size = 16384);
engine::Images images_for(std::string_view model);
/// The same with an MFi image for this serial number.
engine::Images images_with_mfi(const sim::CameraModel& model, const std::string& serial);
std::vector<uint8_t> copy(nyxus::Bytes bytes);
