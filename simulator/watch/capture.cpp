// SPDX-License-Identifier: Apache-2.0
#include "watch/capture.h"

#include "usb/standard_request.h"
#include "usb/usb_camera.h"

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

// Numbers of the requests that we tell of, apart from those of the camera's real transfers.
constexpr uint64_t kEnumeration = uint64_t{1} << 39;

// Periodic endpoints of a high-speed device: 2^(bInterval - 1) microframes.
std::map<uint8_t, int32_t> endpoint_intervals(std::span<const uint8_t> descriptors)
{
    constexpr uint8_t kEndpoint = 5;
    constexpr uint8_t kBulk = 2;
    constexpr uint8_t kLongestInterval = 16;
    std::map<uint8_t, int32_t> intervals;
    while (descriptors.size() >= 2 && descriptors[0] >= 2 && descriptors[0] <= descriptors.size()) {
        const auto one = descriptors.first(descriptors[0]);
        if (one[1] == kEndpoint && one.size() >= 7 && (one[3] & 3) != kBulk && one[6] > 0 &&
            one[6] <= kLongestInterval)
            intervals[one[2]] = 1 << (one[6] - 1);
        descriptors = descriptors.subspan(one.size());
    }
    return intervals;
}

} // namespace

void Capture::plugged(const UsbCamera& camera, unsigned bus, unsigned address)
{
    place_ = {.bus = static_cast<uint16_t>(bus), .address = static_cast<uint8_t>(address)};
    for (const Transfer& request : enumeration(camera)) {
        add_request(request);
        if (const auto intervals = endpoint_intervals(request.data); !intervals.empty())
            intervals_ = intervals;
    }
}

void Capture::add_request(const Transfer& request)
{
    BusTransfer transfer{.id = kEnumeration + ++requests_,
                         .setup = Setup::from_wire(request.setup)};
    transfer.endpoint = transfer.setup.is_in() ? 0x80 : 0;
    transfer.room = transfer.setup.length;
    add(UsbmonEvent::kSubmitted, transfer);
    transfer.status = request.status;
    transfer.moved = static_cast<uint32_t>(request.data.size());
    transfer.data = request.data;
    add(UsbmonEvent::kFinished, transfer);
}

void Capture::add(UsbmonEvent event, const BusTransfer& transfer)
{
    const auto interval = intervals_.find(transfer.endpoint);
    place_.interval = interval == intervals_.end() ? 0 : interval->second;
    file_.add(event, transfer, place_);
}

void Capture::submitted(const BusTransfer& transfer)
{
    add(UsbmonEvent::kSubmitted, transfer);
}

void Capture::finished(const BusTransfer& transfer)
{
    add(UsbmonEvent::kFinished, transfer);
}

void Capture::refused(const BusTransfer& transfer)
{
    BusTransfer error = transfer;
    error.room = 0;
    error.data = {};
    error.packets = {};
    add(UsbmonEvent::kRefused, error);
}

} // namespace sim
