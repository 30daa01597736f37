// SPDX-License-Identifier: Apache-2.0
// Feeds the simulated camera with any control transfers, as a program below libusb, or a USB/IP
// peer, can send them. What the camera says has to fit the room that the host gave.
//
// Input: model, then transfers: eight bytes of setup packet, the data of those to the camera.
#include <array>
#include <cstdlib>
#include <mutex>

#include "cameras/shipped.h"
#include "chip/clock.h"
#include "support/input.h"
#include "support/open_cameras.h"
#include "usb/usb_camera.h"

namespace {

constexpr unsigned kMostTransfers = 200;

void transfer(sim::UsbCamera& camera, fuzz::Input& input)
{
    std::array<uint8_t, sim::kSetupBytes> wire{};
    for (uint8_t& byte : wire)
        byte = input.byte();
    const sim::Setup setup = sim::Setup::from_wire(wire);
    std::vector<uint8_t> data;
    if (!setup.is_in())
        data = input.bytes(setup.length);
    data.resize(setup.length);
    const sim::Outcome outcome = camera.control(setup, data);
    if (outcome.moved > data.size())
        std::abort();
    if (outcome.restart)
        camera.restart();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::Input input(data, size);
    sim::VirtualClock clock;
    sim::UsbCamera camera(*sim::find_model(fuzz::kModels[input.byte() % fuzz::kModelCount]), clock,
                          "FUZZ");
    const std::lock_guard lock(camera.mutex());
    for (unsigned i = 0; i < kMostTransfers && !input.empty(); ++i)
        transfer(camera, input);
    return 0;
}
