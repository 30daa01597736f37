// SPDX-License-Identifier: Apache-2.0
#include "watch/capture.h"

#include "watch/enumeration.h"

namespace sim {

namespace {

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
