// SPDX-License-Identifier: Apache-2.0
#include "bus/bed.h"
#include "bus/server.h"
#include "camera_request.h"
#include "commands.h"
#include "launch.h"
#include "whole_file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace sim {

namespace {

constexpr uint8_t kErased = 0xFF;

struct KeptRom {
    PluggedCamera* camera;
    std::string file;
    std::vector<uint8_t> contents; ///< of the file; empty when it does not exist yet
};

uint32_t rom_bytes(const CameraModel& model)
{
    return model.rom_kind == RomKind::kSpiFlash ? model.flash.size_bytes : model.eeprom.size_bytes;
}

// Empty: factory contents.
std::vector<uint8_t> first_contents(const CameraRequest& request)
{
    const uint32_t bytes = rom_bytes(*request.model);
    if (!request.rom_file.empty()) {
        if (std::optional<std::vector<uint8_t>> kept = read_file(request.rom_file)) {
            if (kept->size() != bytes) {
                throw UsageError("'" + request.rom_file + "' has " + std::to_string(kept->size()) +
                                 " bytes, but the ROM of " + std::string(request.model->name) +
                                 " has " + std::to_string(bytes));
            }
            return *std::move(kept);
        }
    }
    return request.blank ? std::vector<uint8_t>(bytes, kErased) : std::vector<uint8_t>();
}

std::vector<KeptRom> plug_cameras(Bed& bed, const std::vector<CameraRequest>& requests)
{
    std::vector<KeptRom> kept;
    for (const CameraRequest& request : requests) {
        const std::vector<uint8_t> rom = first_contents(request);
        PluggedCamera& camera =
            bed.plug(*request.model, {.bus = request.bus, .serial = request.serial, .rom = rom});
        camera.set_tracing(false);
        if (!request.rom_file.empty()) {
            kept.push_back({&camera, request.rom_file, rom});
        }
    }
    return kept;
}

// Every ROM is tried, so that one full disk does not cost the others.
bool save_roms(const std::vector<KeptRom>& kept)
{
    bool saved = true;
    for (const KeptRom& rom : kept) {
        const auto controller = rom.camera->controller();
        const std::span<const uint8_t> contents = controller->rom();
        try {
            const bool exists = read_file(rom.file).has_value();
            if (!exists || !std::ranges::equal(contents, rom.contents)) {
                write_file(rom.file, contents);
            }
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "nyxus-sim: the camera's ROM is lost: %s\n", error.what());
            saved = false;
        }
    }
    return saved;
}

} // namespace

int run_program(const RunArguments& arguments)
{
    const std::vector<CameraRequest> requests =
        parse_cameras(arguments.cameras, arguments.rom_files);
    const SignalRelay relay;
    VirtualClock virtual_clock;
    RealClock real_clock;
    Clock* clock = &real_clock;
    if (arguments.fast) {
        clock = &virtual_clock;
    }
    Bed bed(*clock);
    const std::vector<KeptRom> kept = plug_cameras(bed, requests);
    int code = 0;
    {
        const Server server(bed, arguments.fast ? &virtual_clock : nullptr);
        const std::string preload = preload_list(bed.folder());
        setenv("LD_PRELOAD", preload.c_str(), 1);
        setenv("NYXUS_SIM_SPEED", arguments.fast ? "fast" : "real", 1);
        code = relay.run(arguments.program);
    }
    bed.settle();
    return save_roms(kept) || code != 0 ? code : 1;
}

} // namespace sim
