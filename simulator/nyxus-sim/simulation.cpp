// SPDX-License-Identifier: Apache-2.0
#include "simulation.h"

#include "camera_request.h"
#include "faults/fault_file.h"
#include "files/read.h"
#include "files/replace.h"
#include "text/printable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>

namespace sim {

namespace {

constexpr uint8_t kErased = 0xFF;

// nullopt when there is no such file.
std::optional<std::vector<uint8_t>> read_rom_file(const std::string& path)
{
    constexpr size_t kLargestFile = 64 << 20;
    try {
        return files::read_file(path, kLargestFile);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory)
            return std::nullopt;
        throw;
    }
}

// Before the program starts: at its end it is too late to say so.
void check_rom_file(const std::string& path)
{
    struct stat entry {};
    const auto refuse = [&](const char* why) {
        throw UsageError("the ROM cannot be kept in " + text::in_quotes(path) + ": " + why);
    };
    const bool exists = stat(path.c_str(), &entry) == 0;
    if (exists && !S_ISREG(entry.st_mode))
        refuse(S_ISDIR(entry.st_mode) ? "that is a folder" : "that is no plain file");
    const std::string folder = std::filesystem::path(path).parent_path().string();
    const std::string written = exists ? path : folder.empty() ? "." : folder;
    if (access(written.c_str(), W_OK) != 0)
        refuse(std::strerror(errno));
}

// Empty: factory contents.
std::vector<uint8_t> first_contents(const CameraRequest& request)
{
    const uint32_t bytes = rom_bytes(*request.model);
    if (!request.rom_file.empty()) {
        check_rom_file(request.rom_file);
        if (std::optional<std::vector<uint8_t>> kept = read_rom_file(request.rom_file)) {
            if (kept->size() != bytes) {
                throw UsageError("'" + request.rom_file + "' has " + std::to_string(kept->size()) +
                                 " bytes, but the ROM of " + std::string(request.model->name) +
                                 " has " + std::to_string(bytes));
            }
            if (request.blank) {
                throw UsageError("'" + request.rom_file +
                                 "' holds a ROM already, which would be used: leave 'blank' away, "
                                 "or remove the file");
            }
            return *std::move(kept);
        }
    }
    return request.blank ? std::vector<uint8_t>(bytes, kErased) : std::vector<uint8_t>();
}

} // namespace

Simulation::Simulation(const SimulationArguments& arguments)
    : fast_(arguments.is_fast()),
      watchers_(arguments.watch, clock(), !fast_),
      bed_(clock()),
      state_service_(bed_, cameras_, [this](const std::string& camera, const std::string& act) {
          watchers_.note(cameras_.size() > 1 ? camera : "", "told by 'nyxus-sim do " + act + "'");
      })
{
    bed_.set_usbfs_memory(arguments.usbfs_memory_mib);
    FaultPlan faults;
    if (arguments.for_tests) {
        test_service_.emplace(
            TestService::House{bed_, cameras_, state_service_, virtual_clock(),
                               [this](const std::string& text) { return plug_for_test(text); }});
    }
    if (!arguments.fault_file.empty())
        faults = parse_faults(read_fault_text(arguments.fault_file), arguments.fault_file);
    plug(arguments, faults);
    if (!faults.empty())
        bed_.set_faults(faults);
    const std::string& socket = arguments.watch.state_socket;
    state_server_.emplace(
        socket.empty() ? bed_.folder() + "/state.sock" : socket, [this](const std::string& line) {
            return test_service_ ? test_service_->answer(line) : state_service_.answer(line);
        });
    watchers_.note("", "the cameras' state is to be had at " + state_socket());
}

Clock& Simulation::clock()
{
    return fast_ ? static_cast<Clock&>(virtual_clock_) : static_cast<Clock&>(real_clock_);
}

void Simulation::plug(const SimulationArguments& arguments, FaultPlan& faults)
{
    if (arguments.for_tests && arguments.cameras.empty())
        return;
    const auto requests = parse_cameras(arguments.cameras, arguments.rom_files);
    for (const CameraRequest& request : requests) {
        plug(request, requests.size() == 1);
        for (PlannedFault fault : request.model->faults) {
            fault.when.position = static_cast<unsigned>(cameras_.size());
            faults.push_back(std::move(fault));
        }
    }
}

PluggedCamera& Simulation::plug(const CameraRequest& request, bool is_only_one)
{
    const std::vector<uint8_t> rom = first_contents(request);
    PluggedCamera& camera =
        bed_.plug(*request.model, {.bus = request.bus,
                                   .serial = request.serial,
                                   .rom = rom,
                                   .has_kernel_driver = request.has_kernel_driver});
    camera.set_tracing(test_service_.has_value());
    camera.set_pacing(fast_ ? Pacing::kFlatOut : Pacing::kRealTime);
    watchers_.watch(camera, is_only_one ? "" : camera.serial());
    cameras_.push_back(&camera);
    if (!request.rom_file.empty())
        kept_.push_back({&camera, request.rom_file, rom});
    return camera;
}

// By its serial number a test names the camera, so no two have the same; without one it is the same
// in every test.
TestService::Camera Simulation::plug_for_test(const std::string& text)
{
    CameraRequest request = parse_camera(text);
    const auto is_there = [&](const std::string& serial) {
        return std::ranges::find(cameras_, serial, &PluggedCamera::serial) != cameras_.end();
    };
    if (is_there(request.serial))
        throw UsageError("there is a camera '" + request.serial + "' on the bus already");
    for (unsigned number = 1; request.serial.empty(); ++number) {
        const std::string serial = "SIM" + std::to_string(number);
        if (!is_there(serial))
            request.serial = serial;
    }
    FaultPlan faults = request.model->faults;
    for (PlannedFault& fault : faults)
        fault.when.serial = request.serial;
    return {&plug(request, false), std::move(faults)};
}

// Most often a mistake in a trigger, and the test would pass for nothing.
void Simulation::report_faults()
{
    const FaultPlan faults = bed_.faults();
    const std::vector<uint64_t> strikes = bed_.fault_strikes();
    for (size_t i = 0; i < faults.size(); ++i) {
        if (strikes[i] == 0) {
            std::fprintf(stderr, "nyxus-sim: %s never happened\n", faults[i].text.c_str());
            missed_a_fault_ = true;
        }
    }
}

// Every ROM is tried, so that one full disk does not cost the others.
bool Simulation::finish()
{
    state_server_.reset();
    bed_.settle();
    report_faults();
    bool saved = watchers_.finish();
    for (const KeptRom& rom : kept_) {
        const auto controller = rom.camera->controller();
        const std::span<const uint8_t> contents = controller->rom;
        try {
            if (!std::filesystem::exists(rom.file) || !std::ranges::equal(contents, rom.contents))
                files::replace_file(rom.file, contents);
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "nyxus-sim: the camera's ROM is lost: %s\n", error.what());
            saved = false;
        }
    }
    return saved;
}

Watchers::Watchers(const WatchArguments& arguments, Clock& clock, bool is_real_time)
    : log_all_(arguments.log_all)
{
    const RecordTime time(clock, is_real_time);
    if (!arguments.pcap_file.empty())
        pcap_.emplace(arguments.pcap_file, arguments.pcap_snaplen, time);
    if (!arguments.log_file.empty())
        log_.emplace(arguments.log_file, clock);
}

void Watchers::watch(PluggedCamera& camera, const std::string& name)
{
    if (pcap_)
        observe(camera, captures_.emplace_back(*pcap_));
    if (log_)
        observe(camera, camera_logs_.emplace_back(*log_, name, !log_all_));
}

void Watchers::observe(PluggedCamera& camera, UsbObserver& observer)
{
    camera.add_observer(observer);
    observed_.emplace_back(&camera, &observer);
}

void Watchers::note(const std::string& name, const std::string& text)
{
    if (log_)
        log_->add(name, text);
}

bool Watchers::finish()
{
    for (const auto& [camera, observer] : observed_)
        camera->usb()->observers().remove(*observer);
    observed_.clear();
    for (CameraLog& log : camera_logs_)
        log.finish();
    const bool captured = !pcap_ || pcap_->report();
    const bool logged = !log_ || log_->report();
    return captured && logged;
}

} // namespace sim
