// SPDX-License-Identifier: Apache-2.0
#include "recording.h"

#include "paired.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace bench {

void replay(libusb_device_handle* handle, const Recording& recording, Claim claim)
{
    uint8_t data[UINT16_MAX];
    must(libusb_claim_interface(handle, 0) == 0, "libusb_claim_interface");
    for (const Step& step : recording.steps) {
        if (step.pause_us > 0)
            usleep(step.pause_us);
        if (claim == Claim::kBeforeEachTransfer)
            must(libusb_claim_interface(handle, 0) == 0, "libusb_claim_interface");
        std::ranges::copy(step.data, data);
        must(libusb_control_transfer(handle, step.type, step.request, step.value, step.index, data,
                                     step.length, 0) == step.length,
             "a replayed transfer failed");
    }
}

void save(const Recording& recording, const std::string& path)
{
    std::ofstream file(path);
    file << recording.required_s << ' ' << recording.steps.size() << '\n';
    for (const Step& step : recording.steps) {
        file << step.pause_us << ' ' << +step.type << ' ' << +step.request << ' ' << step.value
             << ' ' << step.index << ' ' << step.length << ' ' << step.data.size();
        for (const uint8_t byte : step.data)
            file << ' ' << +byte;
        file << '\n';
    }
    file.close();
    if (!file)
        throw std::runtime_error("cannot write " + path);
}

Recording load(const std::string& path)
{
    std::ifstream file(path);
    Recording recording;
    size_t count = 0;
    file >> recording.required_s >> count;
    for (size_t i = 0; i < count && file; ++i) {
        Step step;
        unsigned type = 0;
        unsigned request = 0;
        size_t bytes = 0;
        file >> step.pause_us >> type >> request >> step.value >> step.index >> step.length >>
            bytes;
        step.type = static_cast<uint8_t>(type);
        step.request = static_cast<uint8_t>(request);
        for (size_t b = 0; b < bytes && file; ++b) {
            unsigned byte = 0;
            file >> byte;
            step.data.push_back(static_cast<uint8_t>(byte));
        }
        recording.steps.push_back(std::move(step));
    }
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return recording;
}

} // namespace bench
