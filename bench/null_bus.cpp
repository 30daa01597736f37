// SPDX-License-Identifier: Apache-2.0
// The library's own instructions and allocations per transfer, on a bus that answers at once.
#include <nyxus/nyxus.h>

#include <cstdlib>

#include "allocations.h"
#include "paired.h"

namespace {

/// The published table has the lengths that cameras of this generation announce.
NyDevice make_device()
{
    static char no_handle; // never looked at: null_libusb.cpp takes it
    NyDevice device = {};
    device.state = 1;
    device.usb_handle = reinterpret_cast<libusb_device_handle*>(&no_handle);
    device.xu_table = uvc_xu_table_ver_0002;
    device.xu_table_count = uvc_xu_table_ver_0002_count;
    device.xFeatureXU = 1;
    device.bExtRomType = EXTROM_TYPE_SPI;
    return device;
}

template <typename Call>
void count(benchmark::State& state, double transfers_per_call, const Call& call)
{
    const int kCallsPerRun = static_cast<int>(2000 / transfers_per_call);
    NyDevice device = make_device();
    bench::Samples per_transfer_s;
    uint64_t allocations = 0;
    for (auto _ : state) {
        const uint64_t before = bench::allocations();
        const bench::Cost cost = bench::cost_of([&] {
            for (int i = 0; i < kCallsPerRun; ++i)
                if (call(&device) != 0)
                    std::abort();
        });
        allocations += bench::allocations() - before;
        state.SetIterationTime(cost.wall_s);
        per_transfer_s.add(cost.processor_s / kCallsPerRun / transfers_per_call);
    }
    const auto calls = static_cast<double>(state.iterations()) * kCallsPerRun;
    state.counters["allocations"] = static_cast<double>(allocations) / calls / transfers_per_call;
    per_transfer_s.report(state.counters, "per_transfer_s");
}

void query(benchmark::State& state)
{
    uint8_t record[11] = {};
    count(state, 1, [&](NyDevice* device) {
        return UvcXuCtrlQueryNYXU(device, ZRV_XU_REG, UVC_GET_CUR, record);
    });
}

void register_read(benchmark::State& state)
{
    uint8_t bytes[8] = {};
    count(state, 2, [&](NyDevice* device) { return XuRegRead(device, 0x0B00, 8, bytes); });
}

/// Three transfers each 32 bytes: the flash's status is asked for before each write.
void rom_write(benchmark::State& state)
{
    uint8_t bytes[256] = {};
    count(state, 24, [&](NyDevice* device) { return XuExtRomWrite(device, 0, 256, bytes); });
}

/// Two transfers and a progress mark each 32 bytes.
void rom_read(benchmark::State& state)
{
    uint8_t bytes[4096];
    count(state, 256, [&](NyDevice* device) { return XuExtRomRead(device, 0, 4096, bytes); });
}

} // namespace

int main(int argc, char** argv)
{
    const auto add = [](const char* name, void (*function)(benchmark::State&)) {
        benchmark::RegisterBenchmark(name, function)
            ->UseManualTime()
            ->Iterations(bench::pairs(2000));
    };
    add("null/query", query);
    add("null/register_read", register_read);
    add("null/rom_write", rom_write);
    add("null/rom_read", rom_read);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
