// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"
#include "camera_request.h"
#include "commands.h"
#include "testing/test_service.h"
#include "watch/capture.h"
#include "watch/line_server.h"
#include "watch/log.h"
#include "watch/state_service.h"

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Whoever looks at the cameras of an invocation. Make it before the bed; it outlives it.
class Watchers {
public:
    /// Throws std::runtime_error when a file cannot be made.
    Watchers(const WatchArguments& arguments, Clock& clock, bool is_real_time);

    /// `name`: in front of its lines; empty when it is the only one.
    void watch(PluggedCamera& camera, const std::string& name);
    /// A line in the log, if there is one; empty `name`: of no camera.
    void note(const std::string& name, const std::string& text);
    /// Looks no longer. False when something could not be written, which it has reported.
    bool finish();

private:
    void observe(PluggedCamera& camera, UsbObserver& observer);

    std::vector<std::pair<PluggedCamera*, UsbObserver*>> observed_;
    std::optional<PcapFile> pcap_;
    std::list<Capture> captures_;
    std::optional<LogFile> log_;
    bool log_all_;
    std::list<CameraLog> camera_logs_;
};

/// The cameras of one invocation, plugged in, with what the command line wants around them. Make it
/// before starting threads.
class Simulation {
public:
    /// Throws UsageError or std::runtime_error.
    explicit Simulation(const SimulationArguments& arguments);
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    TestBed& bed() { return bed_; }
    /// In the order of the command line.
    const std::vector<PluggedCamera*>& cameras() const { return cameras_; }
    /// nullptr when the cameras run in real time.
    VirtualClock* virtual_clock() { return fast_ ? &virtual_clock_ : nullptr; }

    /// Where the cameras' state is to be had.
    const std::string& state_socket() const { return state_server_->path(); }

    /// Waits until what is under way has happened, tells which faults never did, and keeps the ROMs
    /// that are to be kept. False when something of it is lost, which it has reported.
    bool finish();
    /// Whether one of the faults never happened; known once it has finished.
    bool missed_a_fault() const { return missed_a_fault_; }

private:
    struct KeptRom {
        PluggedCamera* camera;
        std::string file;
        std::vector<uint8_t> contents; ///< of the file; empty when it does not exist yet
    };

    Clock& clock();
    void plug(const SimulationArguments& arguments, FaultPlan& faults);
    PluggedCamera& plug(const CameraRequest& request, bool is_only_one);
    TestService::Camera plug_for_test(const std::string& text);
    void report_faults();

    bool fast_;
    RealClock real_clock_;
    VirtualClock virtual_clock_;
    Watchers watchers_; ///< before the bed, whose cameras tell them everything
    TestBed bed_;
    std::vector<PluggedCamera*> cameras_;
    std::vector<KeptRom> kept_;
    StateService state_service_;
    std::optional<TestService> test_service_; ///< on the bus of a test suite
    bool missed_a_fault_ = false;
    std::optional<LineServer> state_server_; ///< last: its thread uses the others
};

} // namespace sim
