// SPDX-License-Identifier: Apache-2.0
// Upgrade, dump and compare of 32 KiB on every camera model, against a replay of the very same
// transfers by bare libusb. The cameras have a clock of their own, so no time passes but computing,
// and no event thread runs beside, with which it is a matter of luck who handles a transfer.
// With a folder as argument, what was recorded is kept there for bench_rom_client.
#include <string>

#include "cameras/shipped.h"
#include "paired.h"
#include "recorder.h"
#include "rom_operation.h"

namespace {

using bench::must;
using bench::SimCamera;

constexpr uint32_t kImageBytes = 32768;
std::string recordings_folder;

void rom(benchmark::State& state, const sim::CameraModel& model,
         const bench::RomOperation& operation)
{
    SimCamera camera(model, SimCamera::Opened::kByLibusb);
    const std::vector<uint8_t> image = bench::load_image(model, kImageBytes);
    if (model.gpio0_protects_eeprom)
        must(XU_GpioSet(camera.device(), 0, GPIO_LOW) == 0, "XU_GpioSet");
    must(bench::upgrade(camera.device()) == 0, "the first upgrade");

    const auto by_library = [&] { must(operation.run(camera.device()) == 0, nyxus_errmsg); };
    const bench::Recording recording = bench::record(camera, by_library);
    const auto by_libusb = [&] { bench::replay(camera.usb(), recording); };
    must(bench::moves_the_same(camera, by_library, by_libusb), "the replay is another");
    const auto by_claiming_libusb = [&] {
        bench::replay(camera.usb(), recording, bench::Claim::kBeforeEachTransfer);
    };
    bench::run_beside(state, 1, by_library, {{by_libusb}, {by_claiming_libusb, "claiming_"}});
    must(camera.rom(image.size()) == image, "the ROM does not hold the image");
    state.counters["transfers"] = static_cast<double>(recording.steps.size());
    state.counters["required_s"] = recording.required_s;
    if (!recordings_folder.empty())
        save(recording,
             recordings_folder + "/" + std::string(model.name) + "." + std::string(operation.name));
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc > 1)
        recordings_folder = argv[1];
    bench::set_up_library();
    for (const sim::CameraModel& model : sim::models()) {
        for (const bench::RomOperation& operation : bench::rom_operations)
            benchmark::RegisterBenchmark(
                ("rom/" + std::string(operation.name) + "/" + std::string(model.name)).c_str(), rom,
                model, operation)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(bench::pairs(60));
    }
    benchmark::RunSpecifiedBenchmarks();
}
