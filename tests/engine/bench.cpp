// SPDX-License-Identifier: Apache-2.0
#include "bench.h"
#include <gtest/gtest.h>

#include <unistd.h>
#include <fstream>

TemporaryFolder::TemporaryFolder()
{
    std::string name = (std::filesystem::temp_directory_path() / "nyxus-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
}

std::string TemporaryFolder::file(const std::string& name, const std::vector<uint8_t>& bytes) const
{
    const std::filesystem::path path = path_ / name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path;
}

void Listener::on(Kind kind, engine::Phase phase, std::function<void()> act)
{
    acts_.push_back({kind, phase, std::move(act)});
}

void Listener::stop_on(Kind kind, engine::Phase phase)
{
    on(kind, phase, [this] { stop_.request_stop(); });
}

engine::Caller Listener::caller()
{
    const auto hear = [this](const engine::Event& event) {
        events.push_back(event);
        for (Act& act : acts_) {
            if (act.act && act.kind == event.kind && act.phase == event.phase)
                std::exchange(act.act, nullptr)();
        }
    };
    return {hear, stop_.get_token()};
}

bool Listener::has(Kind kind) const
{
    return std::ranges::find(events, kind, &engine::Event::kind) != events.end();
}

std::string Listener::phases() const
{
    std::string text;
    for (const engine::Event& event : events) {
        const std::string name = engine::to_text(event.phase);
        if (event.kind == Kind::kBegins)
            text += (text.empty() ? "" : " ") + name;
        if (event.kind == Kind::kAbandoned)
            text += " (" + name + ")";
    }
    return text;
}

Bench::Bench(std::string_view model, std::vector<uint8_t> rom) : simulated(model, std::move(rom)) {}

Bench::Bench(const sim::CameraModel& model, std::vector<uint8_t> rom)
    : simulated(model, Time::kSimulated, std::move(rom))
{
}

engine::Camera Bench::open(engine::Use use)
{
    // The bus before had its camera at the same address, and libusb may hear only now that it went.
    auto found = nyxus::find_camera();
    if (!found)
        found = nyxus::find_camera();
    auto camera = engine::Camera::open(*found, use);
    EXPECT_TRUE(camera) << camera.status().text();
    hold_device(*camera);
    return *std::move(camera);
}

void Bench::set_faults(const std::string& faults)
{
    simulated.bed().set_faults(sim::parse_faults(faults, "plan"));
}

bool Bench::rom_begins_with(nyxus::Bytes bytes)
{
    return simulated.rom(0, bytes.size()) == copy(bytes);
}

engine::Report Bench::upgrade(engine::Camera& camera, const engine::Images& images,
                              const engine::UpgradeOptions& options)
{
    return engine::upgrade(camera, images, options, backups, listener.caller());
}

void hold_device(engine::Camera& camera)
{
    static auto& never_freed = *new std::vector<NyDevice*>;
    never_freed.push_back(camera.device());
}

std::vector<uint8_t> image_bytes(const sim::CameraModel& model, uint32_t size)
{
    return load_image(model, size);
}

engine::Images images_for(std::string_view model)
{
    return {*engine::Firmware::from(image_bytes(*sim::find_model(model)))};
}

engine::Images images_with_mfi(const sim::CameraModel& model, const std::string& serial)
{
    engine::Images images{
        *engine::Firmware::from(image_bytes(model, 4096)),
        *engine::Mfi::from(sim::make_mfi_image(1, std::string(serial.size(), 'A')))};
    EXPECT_TRUE(images.mfi->set_serial(serial));
    return images;
}

std::vector<uint8_t> copy(nyxus::Bytes bytes)
{
    return {bytes.begin(), bytes.end()};
}
