// SPDX-License-Identifier: Apache-2.0
// What the library adds to a control transfer: its calls against the same transfers by
// libusb_control_transfer, on the same handle of the same simulated camera.
#include "paired.h"
#include "sim_camera.h"

namespace {

using bench::must;
using bench::SimCamera;

constexpr int kCallsPerRun = 100;
constexpr uint8_t kSet = 0x21;
constexpr uint8_t kGet = 0xA1;
constexpr uint16_t kVendorUnit = NY_UNIT_VENDOR << 8;
constexpr uint16_t kRecordBytes = 11; // of the register control

void bare(libusb_device_handle* handle, uint8_t type, uint8_t request, uint8_t selector,
          uint8_t* data, uint16_t length)
{
    must(libusb_control_transfer(handle, type, request, static_cast<uint16_t>(selector << 8),
                                 kVendorUnit, data, length, 0) == length,
         "libusb_control_transfer");
}

void query(benchmark::State& state, SimCamera::Opened opened)
{
    SimCamera camera(bench::model_named("rowan-spi"), opened);
    uint8_t record[kRecordBytes] = {};
    bench::run_pairs(
        state, kCallsPerRun,
        [&] {
            for (int i = 0; i < kCallsPerRun; ++i)
                must(UvcXuCtrlQueryNYXU(camera.device(), ZRV_XU_REG, UVC_GET_CUR, record) == 0,
                     "UvcXuCtrlQueryNYXU");
        },
        [&] {
            for (int i = 0; i < kCallsPerRun; ++i)
                bare(camera.usb(), kGet, UVC_GET_CUR, ZRV_XU_REG, record, sizeof record);
        });
}

/// The part of the library's cost that is libusb's: interface 0 is claimed before every transfer.
void claim(benchmark::State& state, SimCamera::Opened opened)
{
    SimCamera camera(bench::model_named("rowan-spi"), opened);
    uint8_t record[kRecordBytes] = {};
    const auto get = [&] {
        bare(camera.usb(), kGet, UVC_GET_CUR, ZRV_XU_REG, record, sizeof record);
    };
    bench::run_pairs(
        state, kCallsPerRun,
        [&] {
            for (int i = 0; i < kCallsPerRun; ++i) {
                must(libusb_claim_interface(camera.usb(), 0) == 0, "libusb_claim_interface");
                get();
            }
        },
        [&] {
            for (int i = 0; i < kCallsPerRun; ++i)
                get();
        });
}

/// Two transfers: the request, and the answer.
void register_read(benchmark::State& state, SimCamera::Opened opened)
{
    constexpr uint16_t kAddress = 0x0B00;
    constexpr uint8_t kBytes = 8;
    SimCamera camera(bench::model_named("rowan-spi"), opened);
    uint8_t bytes[kBytes] = {};
    uint8_t record[kRecordBytes] = {};
    bench::run_pairs(
        state, kCallsPerRun,
        [&] {
            for (int i = 0; i < kCallsPerRun / 2; ++i)
                must(XuRegRead(camera.device(), kAddress, kBytes, bytes) == 0, "XuRegRead");
        },
        [&] {
            for (int i = 0; i < kCallsPerRun / 2; ++i) {
                record[0] = kBytes;
                record[1] = kAddress >> 8;
                record[2] = kAddress & 0xFF;
                bare(camera.usb(), kSet, UVC_SET_CUR, ZRV_XU_REG, record, sizeof record);
                bare(camera.usb(), kGet, UVC_GET_CUR, ZRV_XU_REG, record, sizeof record);
            }
        });
}

} // namespace

int main(int argc, char** argv)
{
    const auto add = [](const char* name, auto function, SimCamera::Opened opened) {
        benchmark::RegisterBenchmark(name, function, opened)
            ->UseManualTime()
            ->Iterations(bench::pairs(opened == SimCamera::Opened::kByLibusb ? 4000 : 1000));
    };
    add("transfer/query/libusb", query, SimCamera::Opened::kByLibusb);
    add("transfer/query/libuvc", query, SimCamera::Opened::kByLibuvc);
    add("transfer/register_read/libusb", register_read, SimCamera::Opened::kByLibusb);
    add("transfer/register_read/libuvc", register_read, SimCamera::Opened::kByLibuvc);
    add("transfer/claim/libusb", claim, SimCamera::Opened::kByLibusb);
    add("transfer/claim/libuvc", claim, SimCamera::Opened::kByLibuvc);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
