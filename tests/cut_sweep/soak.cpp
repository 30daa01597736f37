// SPDX-License-Identifier: Apache-2.0
// Creates, probes and deletes device objects many times, and lets many probes fail, in one process:
// what grows?
//
//   soak [ROUNDS [FAILURES]]
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "bench.h"
#include "cameras/shipped.h"

namespace {

using namespace sweep;

constexpr int kWarmUp = 10; // rounds until caches and pools have their size

struct Usage {
    long files = 0;
    long threads = 0;
    long heap_bytes = 0;
    long resident_bytes = 0;
};

long count_entries(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

Usage measure()
{
    Usage usage;
    usage.files = count_entries("/proc/self/fd");
    usage.threads = count_entries("/proc/self/task");
    usage.heap_bytes = static_cast<long>(mallinfo2().uordblks);
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> usage.resident_bytes;
    usage.resident_bytes *= sysconf(_SC_PAGESIZE);
    return usage;
}

/// Threads end, and umockdev's answer a connection's end, a moment later: waits until no more is in
/// use than before, but not for ever.
Usage settled(const Usage& before)
{
    Usage usage = measure();
    for (int tries = 0; tries < 1000; ++tries) {
        if (usage.threads <= before.threads && usage.files <= before.files)
            break;
        sched_yield();
        usage = measure();
    }
    return usage;
}

class Soak {
public:
    explicit Soak(std::FILE* out) : out_(out) {}

    /// One kind of round, many times; it tells whether it went as it should.
    void run(const char* name, long rounds, const std::function<bool()>& round)
    {
        for (int i = 0; i < kWarmUp; ++i)
            check(name, round());
        const Usage before = measure();
        const auto start = std::chrono::steady_clock::now();
        for (long i = 0; i < rounds; ++i)
            check(name, round());
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        const Usage after = settled(before);
        const auto per_round = [rounds](long growth) {
            return static_cast<double>(growth) / static_cast<double>(rounds);
        };
        std::fprintf(out_,
                     "%-16s %6ld rounds, %5.1f s: files %ld -> %ld, threads %ld -> %ld, heap %+.1f "
                     "bytes a round, resident %ld -> %ld KiB\n",
                     name, rounds, elapsed.count(), before.files, after.files, before.threads,
                     after.threads, per_round(after.heap_bytes - before.heap_bytes),
                     before.resident_bytes / 1024, after.resident_bytes / 1024);
        passed_ = passed_ && after.files <= before.files && after.threads <= before.threads;
    }

    bool passed() const { return passed_; }

private:
    void check(const char* name, bool went_well)
    {
        if (!went_well && std::exchange(passed_, false))
            std::fprintf(out_, "%s: a round went wrong: %s\n", name, nyxus_errmsg);
    }

    std::FILE* out_;
    bool passed_ = true;
};

bool create_and_delete(libusb_device* usb)
{
    NyDevice* device = DEV_CreateObjectUsb(usb);
    DEV_DeleteObject(device);
    return device != nullptr;
}

bool fails(libusb_device* usb)
{
    return DEV_CreateObjectUsb(usb) == nullptr;
}

bool run(long rounds, long failures)
{
    std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
    setvbuf(out, nullptr, _IOLBF, 0);
    prepare_process();

    Bench bench(*sim::find_model("rowan-spi"));
    libusb_context* context = nullptr;
    libusb_init(&context);
    libusb_device** list = nullptr;
    const ssize_t devices = libusb_get_device_list(context, &list);
    libusb_device* usb = nullptr;
    for (ssize_t i = 0; i < devices; ++i) {
        if (libusb_get_device_address(list[i]) == bench.camera().address())
            usb = list[i];
    }

    Soak soak(out);
    std::fprintf(out, "a device object takes %zu bytes and is never freed\n", sizeof(NyDevice));
    soak.run("create, delete", rounds, [usb] { return create_and_delete(usb); });

    const Bytes firmware = bench.rom();
    bench.restart_with(Bytes(firmware.size(), 0xFF));
    soak.run("blank ROM", failures, [usb] { return fails(usb); });
    bench.restart_with(firmware);

    bench.camera().set_fault([](const sim::Setup& setup, uint64_t) {
        constexpr uint8_t kClassType = 1;
        return setup.type() == kClassType ? sim::Fault::stall() : sim::Fault::none();
    });
    soak.run("refused requests", failures, [usb] { return fails(usb); });
    bench.heal();

    libusb_device_handle* other = nullptr;
    libusb_open(usb, &other);
    libusb_claim_interface(other, 0);
    soak.run("camera in use", failures, [usb] { return fails(usb); });
    libusb_close(other);

    soak.run("create, delete", failures, [usb] { return create_and_delete(usb); });
    libusb_free_device_list(list, 1);
    libusb_exit(context);
    std::fclose(out);
    return soak.passed();
}

long number(const char* text)
{
    return std::max(1L, std::strtol(text, nullptr, 10));
}

} // namespace

int main(int count, char** arguments)
{
    const bool passed =
        run(count > 1 ? number(arguments[1]) : 10000, count > 2 ? number(arguments[2]) : 1000);
    // The device objects are never freed, on purpose: no leak check.
    _exit(passed ? 0 : 1);
}
