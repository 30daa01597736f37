// SPDX-License-Identifier: Apache-2.0
// A ROM operation and its replay, as rom.cpp has them, on the camera of 'nyxus-sim run', which
// takes its time: bench_client_rom MODEL OPERATION IMAGE RECORDING
#include <cstdlib>
#include <string>

#include "paired.h"
#include "recording.h"
#include "rom_operation.h"
#include "usb_camera.h"

using bench::must;

static const bench::RomOperation& operation_named(std::string_view name)
{
    for (const bench::RomOperation& operation : bench::rom_operations)
        if (operation.name == name)
            return operation;
    throw std::invalid_argument("no such operation: " + std::string(name));
}

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    must(argc == 5, "usage: bench_client_rom MODEL OPERATION IMAGE RECORDING");
    const std::string name = std::string("real/") + argv[2] + "/" + argv[1];
    const bench::RomOperation& operation = operation_named(argv[2]);
    const char* const image = argv[3];
    const bench::Recording recording = bench::load(argv[4]);
    bench::set_up_library();

    const auto run = [&](benchmark::State& state) {
        bench::UsbCamera camera;
        must(MP_FwLoad(image) >= 0, nyxus_errmsg);
        if (operation.run != bench::upgrade) // there is something to read
            must(bench::upgrade(camera.device()) == 0, nyxus_errmsg);
        bench::run_pairs(
            state, 1, [&] { must(operation.run(camera.device()) == 0, nyxus_errmsg); },
            [&] { bench::replay(camera.device()->usb_handle, recording); });
        state.counters["transfers"] = static_cast<double>(recording.steps.size());
        state.counters["required_s"] = recording.required_s;
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime()->Iterations(bench::pairs(5));
    benchmark::RunSpecifiedBenchmarks();
}
