// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"
#include "faults/fault_plan.h"
#include "watch/state_service.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Answers what a test suite asks of its bus, and passes everything else on to the StateService.
/// Requests and replies are the same kind of lines; a camera is named by its serial number.
///
///   {"command": "plug", "description": "rowan-spi,serial=A1"}
///   {"command": "transfers", "camera": "A1"}
///   {"command": "advance", "us": 1500}
///
/// One thread at a time.
class TestService {
public:
    struct Camera {
        PluggedCamera* plugged;
        FaultPlan faults; ///< that its description has
    };
    struct House {
        TestBed& bed;
        std::vector<PluggedCamera*>& cameras; ///< those on the bus, or unplugged from it
        StateService& state_service;
        VirtualClock* clock; ///< nullptr: cameras run in real time
        /// Plugs in what a command line would call so. Throws std::runtime_error.
        std::function<Camera(const std::string& description)> plug;
    };

    explicit TestService(House house) : house_(std::move(house)) {}

    /// Never throws for what it is asked.
    std::string answer(const std::string& line);

private:
    using Json = nlohmann::ordered_json;
    struct Command {
        const char* name;
        void (TestService::*run)(const Json& request, Json& reply);
    };
    static const Command kCommands[];

    void plug(const Json& request, Json& reply);
    void remove(const Json& request, Json& reply);
    void replug(const Json& request, Json& reply);
    void reset(const Json& request, Json& reply);
    void plan_faults(const Json& request, Json& reply);
    void tell_strikes(const Json& request, Json& reply);
    void tell_transfers(const Json& request, Json& reply);
    void forget_transfers(const Json& request, Json& reply);
    void read_rom(const Json& request, Json& reply);
    void write_rom(const Json& request, Json& reply);
    void make_image(const Json& request, Json& reply);
    void settle(const Json& request, Json& reply);
    void tell_time(const Json& request, Json& reply);
    void advance(const Json& request, Json& reply);

    PluggedCamera& camera_of(const Json& request) const;
    void take_out(PluggedCamera& camera);
    void set_faults();

    House house_;
    std::map<std::string, FaultPlan> plans_; ///< by serial number; "": of the whole bus
    FaultPlan plan_;                         ///< all of them
};

} // namespace sim
