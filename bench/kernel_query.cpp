// SPDX-License-Identifier: Apache-2.0
// A register read by the library, and the same two queries through the kernel's video driver, in
// turns on one camera. For the virtual machine of tests/kernel/run.sh --bench.
#include <fcntl.h>
#include <linux/uvcvideo.h>
#include <nyxus/memory.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "paired.h"
#include "usb_camera.h"

namespace {

using bench::must;

constexpr char kVideoNode[] = "/dev/video0";
constexpr int kReads = 200;
constexpr int kTransfers = 2 * kReads;
constexpr uint16_t kAddress = 0x0B00;
constexpr uint8_t kBytes = 8;

/// The record that asks for the registers.
void fill_request(uint8_t (&record)[11])
{
    record[0] = kBytes;
    record[1] = kAddress >> 8;
    record[2] = kAddress & 0xFF;
}

double by_library(NyDevice* device)
{
    uint8_t bytes[kBytes] = {};
    return bench::cost_of([&] {
               for (int i = 0; i < kReads; ++i)
                   must(XuRegRead(device, kAddress, kBytes, bytes) == 0, "XuRegRead");
           })
        .wall_s;
}

double by_libusb(libusb_device_handle* handle)
{
    uint8_t record[11] = {};
    const auto transfer = [&](uint8_t type, uint8_t request) {
        must(libusb_control_transfer(handle, type, request, ZRV_XU_REG << 8, NY_UNIT_VENDOR << 8,
                                     record, sizeof record, 0) == sizeof record,
             "libusb_control_transfer");
    };
    return bench::cost_of([&] {
               for (int i = 0; i < kReads; ++i) {
                   fill_request(record);
                   transfer(0x21, UVC_SET_CUR);
                   transfer(0xA1, UVC_GET_CUR);
               }
           })
        .wall_s;
}

/// The driver comes back a moment after the library has let go of the camera.
int open_video_node()
{
    for (int tries = 0; tries < 500; ++tries) {
        const int node = open(kVideoNode, O_RDWR | O_CLOEXEC);
        if (node >= 0)
            return node;
        usleep(10000);
    }
    throw std::runtime_error("there is no video node");
}

double by_kernel()
{
    const int node = open_video_node();
    uint8_t record[11] = {};
    const auto query = [&](uint8_t request) {
        uvc_xu_control_query arguments = {NY_UNIT_VENDOR, ZRV_XU_REG, request, sizeof record,
                                          record};
        must(ioctl(node, UVCIOC_CTRL_QUERY, &arguments) == 0, "UVCIOC_CTRL_QUERY");
    };
    const double seconds = bench::cost_of([&] {
                               for (int i = 0; i < kReads; ++i) {
                                   fill_request(record);
                                   query(UVC_SET_CUR);
                                   query(UVC_GET_CUR);
                               }
                           }).wall_s;
    close(node);
    return seconds;
}

void measure(benchmark::State& state)
{
    bench::Samples library_s, libusb_s, kernel_s, to_libusb, to_kernel;
    for (auto _ : state) {
        const double kernel = by_kernel() / kTransfers;
        bench::UsbCamera camera;
        const double library = by_library(camera.device()) / kTransfers;
        const double libusb = by_libusb(camera.device()->usb_handle) / kTransfers;
        state.SetIterationTime(library + libusb + kernel);
        library_s.add(library);
        libusb_s.add(libusb);
        kernel_s.add(kernel);
        to_libusb.add(library / libusb);
        to_kernel.add(library / kernel);
    }
    state.counters["pairs"] = static_cast<double>(library_s.size());
    library_s.report(state.counters, "library_s");
    libusb_s.report(state.counters, "libusb_s");
    kernel_s.report(state.counters, "kernel_s");
    to_libusb.report(state.counters, "to_libusb");
    to_kernel.report(state.counters, "to_kernel");
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::RegisterBenchmark("kernel/register_read", measure)
        ->UseManualTime()
        ->Iterations(bench::pairs(6));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
