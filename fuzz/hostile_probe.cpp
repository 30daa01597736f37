// SPDX-License-Identifier: Apache-2.0
// Feeds DEV_CreateObjectUsb() and DEV_DeleteObject() with a camera that answers as the fuzzer says:
// opening, probing and closing, through the unmodified libusb and libuvc. The camera never goes:
// the session of a camera that is gone is abandoned, with its thread.
//
// Input: model, settings, the answers.
#include "support/camera_script.h"
#include "support/open_cameras.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static auto& library = *new fuzz::LibraryState;
    static auto& cameras = *new fuzz::Cameras;
    fuzz::Input input(data, size);
    const size_t model = input.byte() % fuzz::kModelCount;
    library.restore();
    ny_trace_param = (input.byte() & 1) != 0 ? 0xFFFFFFFF : 0;

    fuzz::CameraScript script(input);
    cameras.sim(model).set_fault([&](const sim::Setup& setup, uint64_t) {
        const sim::Fault fault = script.answer(setup);
        return fault.kind == sim::Fault::Kind::kSubmitError ? sim::Fault::stall() : fault;
    });
    DEV_DeleteObject(DEV_CreateObjectUsb(cameras.usb_device(model)));
    cameras.sim(model).set_fault({});
    return 0;
}
