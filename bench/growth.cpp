// SPDX-License-Identifier: Apache-2.0
// What a transfer costs as images and reads grow: it should be the same for all.
#include <algorithm>

#include "paired.h"
#include "recorder.h"
#include "rom_operation.h"

namespace {

using bench::must;
using bench::SimCamera;

void measure(benchmark::State& state, SimCamera& camera, const std::function<void()>& work)
{
    const auto transfers = static_cast<double>(bench::count_transfers(camera, work));
    bench::Samples per_transfer_s;
    for (auto _ : state) {
        const bench::Cost cost = bench::cost_of(work);
        state.SetIterationTime(cost.wall_s);
        per_transfer_s.add(cost.processor_s / transfers);
    }
    state.counters["transfers"] = transfers;
    per_transfer_s.report(state.counters, "per_transfer_s");
}

void upgrade(benchmark::State& state)
{
    const sim::CameraModel& model = bench::model_named("rowan-spi");
    SimCamera camera(model, SimCamera::Opened::kByLibusb);
    const auto image = bench::load_image(model, static_cast<uint32_t>(state.range(0)));
    measure(state, camera, [&] { must(bench::upgrade(camera.device()) == 0, nyxus_errmsg); });
    must(camera.rom(image.size()) == image, "the ROM does not hold the image");
}

void read_rom(benchmark::State& state, const char* model_name,
              int32_t (*function)(NyDevice*, uint32_t, uint32_t, uint8_t*))
{
    constexpr uint32_t kFlashBytes = 8U << 20;
    sim::CameraModel model = bench::model_named(model_name);
    model.flash.size_bytes = kFlashBytes;
    SimCamera camera(model, SimCamera::Opened::kByLibusb);
    std::vector<uint8_t> bytes(static_cast<size_t>(state.range(0)));
    measure(state, camera, [&] {
        must(XuSetFlashBlockIndex(camera.device(), 0) == 0, nyxus_errmsg);
        nyxus_rv = 0;
        const int32_t rv =
            function(camera.device(), 0, static_cast<uint32_t>(bytes.size()), bytes.data());
        must(rv == 0 && nyxus_rv == 0, nyxus_errmsg);
    });
    must(camera.rom(bytes.size()) == bytes, "what was read is not in the ROM");
}

template <typename... Arguments>
void add(const char* name, int64_t from, int64_t to, int multiplier, Arguments... arguments)
{
    benchmark::RegisterBenchmark(name, arguments...)
        ->RangeMultiplier(multiplier)
        ->Range(from, to)
        ->UseManualTime()
        ->Iterations(bench::pairs(20));
}

} // namespace

int main(int argc, char** argv)
{
    bench::set_up_library();
    const int64_t most = bench::is_quick() ? 128 << 10 : 8 << 20;
    add("growth/upgrade", 1 << 10, 32 << 10, 2, upgrade);
    add("growth/read", 16 << 10, most, 8, read_rom, "rowan-spi", XuExtRomRead);
    add("growth/read512", 16 << 10, most, 8, read_rom, "larch-large", XuExtRomRead512DW);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
