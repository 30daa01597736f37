// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/// What of the cameras' doings is shown, and where.
struct WatchArguments {
    std::string pcap_file; ///< empty: none; "-": standard output
    uint32_t pcap_snaplen = 262144;
    std::string log_file;     ///< empty: none; "-": standard error
    std::string state_socket; ///< empty: in a folder of the run
    bool log_all = false;     ///< what repeats itself is not counted, but told each time
};

/// Which cameras, and how they run.
struct SimulationArguments {
    std::vector<std::string> cameras;
    std::vector<std::string> rom_files;
    std::string speed = "real";
    unsigned usbfs_memory_mib = 0; ///< 0: no limit
    WatchArguments watch;
    std::string fault_file; ///< empty: nothing goes wrong
    bool for_tests = false; ///< a test suite plugs the cameras in

    bool is_fast() const { return speed == "fast"; }
};

struct RunArguments {
    SimulationArguments simulation;
    std::vector<std::string> program;
    bool strict = false; ///< a fault that never happened makes the run fail
};

struct ServeArguments {
    SimulationArguments simulation;
    std::string listen = "127.0.0.1:3240";
};

struct ImageArguments {
    std::string model;
    std::string version;
    uint32_t size_bytes = 0; ///< 0: as the model's factory image
    uint64_t seed = 1;
    bool mfi = false;
    std::string serial;
    std::string file;
};

struct DescribeArguments {
    std::string model; ///< empty: the keys of a description
    bool flash_parts = false;
    bool eeprom_parts = false;
};

/// Each returns the exit code and throws std::runtime_error, or UsageError for wrong arguments.
int run_program(const RunArguments& arguments);
int serve(const ServeArguments& arguments);
int attach(const SimulationArguments& arguments);
int list_models();
int describe(const DescribeArguments& arguments);
int make_image(const ImageArguments& arguments);

} // namespace sim
