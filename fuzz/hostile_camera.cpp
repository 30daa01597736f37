// SPDX-License-Identifier: Apache-2.0
// Feeds the probe and any sequence of public functions with a camera that answers as the fuzzer
// says. A camera of each model stays open below the unmodified libusb and libuvc.
//
// Input: model, settings, number of calls, the calls (function, two words, a byte), the answers.
#include <utility>

#include "operations.h"
#include "support/camera_script.h"
#include "support/open_cameras.h"

namespace {

enum Setting : uint8_t { kTraced = 1, kHonestProbe = 2, kProgress = 4 };
constexpr unsigned kMostCalls = 16;

class Bench {
public:
    Bench()
    {
        for (size_t model = 0; model < fuzz::kModelCount; ++model) {
            NyDevice* device = DEV_CreateObjectUsb(cameras_.usb_device(model));
            if (device == nullptr)
                std::abort();
            devices_.emplace_back(device, *device);
        }
    }

    void run(fuzz::Input input)
    {
        const size_t model = input.byte() % fuzz::kModelCount;
        const uint8_t settings = input.byte();
        const std::vector<uint8_t> calls = take_calls(input);

        auto& [device, as_probed] = devices_[model];
        *device = as_probed;
        library_.restore();
        ny_trace_param = (settings & kTraced) != 0 ? 0xFFFFFFFF : 0;
        nyxus_print_progress = settings & kProgress;

        fuzz::CameraScript script(input);
        cameras_.sim(model).set_fault(
            [&](const sim::Setup& setup, uint64_t) { return script.answer(setup); });
        if ((settings & kHonestProbe) == 0)
            (void)DEV_Init(device);
        call(device, fuzz::Input(calls.data(), calls.size()));
        cameras_.sim(model).set_fault({});
    }

private:
    static std::vector<uint8_t> take_calls(fuzz::Input& input)
    {
        const unsigned count = input.byte() % (kMostCalls + 1);
        return input.bytes(size_t{count} * fuzz::kCallBytes);
    }

    static void call(NyDevice* device, fuzz::Input calls)
    {
        const auto operations = fuzz::operations();
        while (!calls.empty()) {
            const fuzz::Operation& operation = operations[calls.byte() % operations.size()];
            fuzz::Numbers numbers{};
            numbers.a = calls.word();
            numbers.b = calls.word();
            numbers.c = calls.byte();
            operation.run(device, numbers);
        }
    }

    fuzz::LibraryState library_;
    fuzz::Cameras cameras_;
    std::vector<std::pair<NyDevice*, NyDevice>> devices_; ///< and what the probe has found
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static auto& bench = *new Bench;
    bench.run({data, size});
    return 0;
}
