// SPDX-License-Identifier: Apache-2.0
// The engine's queued reads beside bare libusb with as many requests under way, and beside itself
// with one at a time, in turns on one camera. For the virtual machine of tests/kernel/run.sh
// --bench: bench_kernel_dump 8|32
#include <nyxus/extensions.h>
#include <nyxus/engine/rom.hpp>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "bare_camera.h"
#include "paired.h"

namespace {

using bench::must;
namespace engine = nyxus::engine;

constexpr uint32_t kExchanges = 512;

engine::Camera open_camera(unsigned chunk)
{
    const auto cameras = engine::wait_for_cameras("", 10, {});
    must(cameras && !cameras->empty(), "no camera");
    auto camera = engine::Camera::open(cameras->front(), engine::Use::kTransfers);
    must(bool(camera), camera ? "" : camera.status().message().c_str());
    must(camera->exchange_bytes() == chunk && !engine::can_read_wide(*camera), "another camera");
    return *std::move(camera);
}

void measure(benchmark::State& state, unsigned chunk, unsigned depth)
{
    engine::Camera camera = open_camera(chunk);
    bench::BareCamera bare(nyxus_usb_context(camera.device()), camera.device()->usb_handle,
                           static_cast<uint8_t>(chunk));
    const uint32_t size = kExchanges * chunk;
    std::vector<uint8_t> expected(size), bytes(size);
    bare.read(expected, 1);
    const auto read_by_engine = [&](unsigned queue_depth) {
        camera.queue_depth = queue_depth;
        const auto read = engine::read_rom(camera, 0, size, {});
        must(read && *read == expected, "the engine has read something else");
        must(camera.queue_depth == queue_depth, "queueing has failed");
    };
    const auto read_by_bare = [&](unsigned bare_depth) {
        std::ranges::fill(bytes, uint8_t(0));
        bare.read(bytes, bare_depth);
        must(bytes == expected, "bare libusb has read something else");
    };
    bench::run_beside(state, 1, [&] { read_by_engine(depth); },
                      {{[&] { read_by_bare(depth); }, "queued_"},
                       {[&] { read_by_engine(1); }, "single_"},
                       {[&] { read_by_bare(1); }, "bare_single_"}});
}

} // namespace

int main(int argc, char** argv)
{
    must(argc > 1, "usage: bench_kernel_dump 8|32");
    const auto chunk = static_cast<unsigned>(std::atoi(argv[1]));
    for (const unsigned depth : {8u, 16u, 32u}) {
        const std::string name =
            "kernel_dump/" + std::to_string(chunk) + "/" + std::to_string(depth);
        benchmark::RegisterBenchmark(name.c_str(), measure, chunk, depth)
            ->UseManualTime()
            ->Iterations(bench::pairs(6));
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
