// SPDX-License-Identifier: Apache-2.0
#include "watch/enumeration.h"

#include "usb/standard_request.h"

#include <cerrno>
#include <utility>

namespace sim {

namespace {

constexpr uint16_t kDeviceBytes = 18;
constexpr uint16_t kConfigurationHeaderBytes = 9;
constexpr uint16_t kStringBytes = 255;
constexpr uint16_t kEnglish = 0x0409;

void ask(std::vector<Transfer>& requests, const UsbCamera& camera, DescriptorType type,
         uint8_t index, uint16_t length, uint16_t language = 0)
{
    const Setup setup{.request_type = 0x80,
                      .request = kGetDescriptor,
                      .value = static_cast<uint16_t>(type << 8 | index),
                      .index = language,
                      .length = length};
    std::vector<uint8_t> answer(length);
    const int moved = camera.get_descriptor(setup, answer);
    answer.resize(moved < 0 ? 0 : static_cast<size_t>(moved));
    requests.push_back({setup.to_wire(), std::move(answer), moved < 0 ? -EPIPE : 0});
}

uint16_t total_length(const std::vector<uint8_t>& configuration)
{
    return configuration.size() < 4
               ? uint16_t{0}
               : static_cast<uint16_t>(configuration[2] | configuration[3] << 8);
}

} // namespace

std::vector<Transfer> enumeration(const UsbCamera& camera)
{
    std::vector<Transfer> requests;
    ask(requests, camera, kDevice, 0, kDeviceBytes);
    const std::vector<uint8_t> device = requests.back().data;
    ask(requests, camera, kConfiguration, 0, kConfigurationHeaderBytes);
    ask(requests, camera, kConfiguration, 0, total_length(requests.back().data));
    ask(requests, camera, kString, 0, kStringBytes);
    if (device.size() == kDeviceBytes) {
        for (const size_t place : {15U, 14U, 16U}) { // product, manufacturer, serial number
            if (device[place] != 0)
                ask(requests, camera, kString, device[place], kStringBytes, kEnglish);
        }
    }
    requests.push_back({Setup{.request = kSetConfiguration, .value = 1}.to_wire(), {}, 0});
    return requests;
}

} // namespace sim
