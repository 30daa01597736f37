// SPDX-License-Identifier: Apache-2.0
#include "usb/video_controls.h"

#include "usb/descriptors.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

constexpr uint8_t kProbeSelector = 0x01;
constexpr uint8_t kCommitSelector = 0x02;
constexpr uint8_t kInfoReadWrite = 0x03;

// Places in the record that host and camera negotiate a stream with.
constexpr size_t kFormatIndex = 2;
constexpr size_t kFrameIndex = 3;
constexpr size_t kInterval = 4;
constexpr size_t kMaxFrameBytes = 18;
constexpr size_t kMaxPayloadBytes = 22;

void put_u32(std::span<uint8_t> record, size_t at, uint32_t value)
{
    for (size_t i = 0; i < 4; ++i)
        record[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t get_u32(std::span<const uint8_t> record, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value |= static_cast<uint32_t>(record[at + i]) << (8 * i);
    return value;
}

int put_word(uint16_t value, std::span<uint8_t> room)
{
    const uint8_t bytes[] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
    return put_answer(bytes, room);
}

// 0: the host leaves it to the camera.
uint32_t nearest_interval(const FrameSize& size, uint32_t wanted_100ns)
{
    const auto& intervals = size.intervals_100ns;
    if (wanted_100ns == 0)
        return intervals.front();
    const auto distance = [wanted_100ns](uint32_t interval) {
        return interval > wanted_100ns ? interval - wanted_100ns : wanted_100ns - interval;
    };
    return *std::ranges::min_element(intervals, {}, distance);
}

} // namespace

VideoControls::VideoControls(const CameraModel& model)
    : isochronous_(model.streams_isochronously), probe_(negotiate({})), commit_(probe_)
{
}

bool VideoControls::is_commit(const Setup& setup)
{
    return setup.unit() == 0 && setup.interface() == kVideoInterface &&
           setup.selector() == kCommitSelector && setup.request == kSetCur;
}

StreamFormat VideoControls::committed() const
{
    return format_in(commit_).value();
}

std::optional<StreamFormat> VideoControls::format_in(std::span<const uint8_t> record)
{
    if (record.size() < kProbeBytes || record[kFrameIndex] < 1 ||
        record[kFrameIndex] > std::size(kFrameSizes))
        return std::nullopt;
    return StreamFormat{kFrameSizes[record[kFrameIndex] - 1], get_u32(record, kInterval),
                        get_u32(record, kMaxPayloadBytes)};
}

int VideoControls::processing_unit(const Setup& setup, std::span<uint8_t> data)
{
    if (setup.selector() != kBrightnessSelector)
        return kControlStall;
    switch (setup.request) {
        case kSetCur:
            if (data.size() != 2)
                return kControlStall;
            brightness_ = std::min<uint16_t>(static_cast<uint16_t>(data[0] | data[1] << 8), 255);
            return 2;
        case kGetCur:
            return put_word(brightness_, data);
        case kGetMin:
            return put_word(0, data);
        case kGetMax:
            return put_word(255, data);
        case kGetRes:
            return put_word(1, data);
        case kGetDef:
            return put_word(128, data);
        case kGetLen:
            return put_word(2, data);
        case kGetInfo:
            return put_answer(std::array{kInfoReadWrite}, data);
        default:
            return kControlStall;
    }
}

// The host may want smaller bulk payloads than one per frame. The isochronous payload is the
// smallest packet that carries the frames in time.
uint32_t VideoControls::payload_bytes(uint32_t wanted, const FrameSize& size,
                                      uint32_t interval_100ns) const
{
    if (!isochronous_) {
        const uint32_t largest = size.bytes() + kPayloadHeaderBytes;
        return wanted < kBulkPacketBytes || wanted > largest ? largest : wanted;
    }
    constexpr uint32_t kMicroframe100ns = 1250;
    const uint32_t packets = interval_100ns / kMicroframe100ns;
    for (const uint32_t packet_bytes : kIsoPacketBytes) {
        if (uint64_t{packets} * (packet_bytes - kPayloadHeaderBytes) >= size.bytes())
            return packet_bytes;
    }
    return *std::rbegin(kIsoPacketBytes);
}

VideoControls::Probe VideoControls::negotiate(std::span<const uint8_t> wanted) const
{
    Probe request{};
    std::copy_n(wanted.begin(), std::min(wanted.size(), request.size()), request.begin());
    Probe offer{request[0], request[1]};
    offer[kFormatIndex] = 1;
    offer[kFrameIndex] =
        static_cast<uint8_t>(std::clamp<size_t>(request[kFrameIndex], 1, std::size(kFrameSizes)));
    const FrameSize& size = kFrameSizes[offer[kFrameIndex] - 1];
    const uint32_t interval = nearest_interval(size, get_u32(request, kInterval));
    put_u32(offer, kInterval, interval);
    put_u32(offer, kMaxFrameBytes, size.bytes());
    put_u32(offer, kMaxPayloadBytes,
            payload_bytes(get_u32(request, kMaxPayloadBytes), size, interval));
    return offer;
}

VideoControls::Probe VideoControls::with_interval(uint32_t interval_100ns) const
{
    Probe wanted = probe_;
    put_u32(wanted, kInterval, interval_100ns);
    put_u32(wanted, kMaxPayloadBytes, 0);
    return negotiate(wanted);
}

int VideoControls::video_interface(const Setup& setup, std::span<uint8_t> data)
{
    const uint8_t selector = setup.selector();
    if (selector != kProbeSelector && selector != kCommitSelector)
        return kControlStall;
    Probe& record = selector == kProbeSelector ? probe_ : commit_;
    switch (setup.request) {
        case kSetCur:
            if (data.size() < kProbeBytes)
                return kControlStall;
            record = negotiate(data);
            return static_cast<int>(data.size());
        case kGetCur:
            return put_answer(record, data);
        case kGetMin:
            return put_answer(with_interval(1), data);
        case kGetMax:
            return put_answer(with_interval(UINT32_MAX), data);
        case kGetDef:
            return put_answer(negotiate({}), data);
        case kGetLen:
            return put_word(kProbeBytes, data);
        case kGetInfo:
            return put_answer(std::array{kInfoReadWrite}, data);
        default:
            return kControlStall;
    }
}

} // namespace sim
