// SPDX-License-Identifier: Apache-2.0
#include "usb/video_controls.h"

#include "usb/descriptors.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>

namespace sim {

namespace {

constexpr uint8_t kProbeSelector = 0x01;
constexpr uint8_t kCommitSelector = 0x02;
constexpr size_t kLongestRecord = 8;

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

int put_word(int32_t value, std::span<uint8_t> room)
{
    const uint8_t bytes[] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
    return put_answer(bytes, room);
}

int64_t get_number(std::span<const uint8_t> bytes, bool has_sign)
{
    uint64_t number = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
        number |= uint64_t{bytes[i]} << (8 * i);
    const uint64_t sign = uint64_t{1} << (8 * bytes.size() - 1);
    return has_sign ? static_cast<int64_t>(number ^ sign) - static_cast<int64_t>(sign)
                    : static_cast<int64_t>(number);
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
    : model_(&model), probe_(negotiate({})), commit_(probe_)
{
    for (size_t control = 0; control < kPictureControls; ++control)
        values_[control] = model.controls[control].value_or(ControlRange{}).standard;
}

bool VideoControls::is_commit(const Setup& setup)
{
    return setup.unit() == 0 && setup.interface() == kVideoInterface &&
           setup.selector() == kCommitSelector && setup.request == kSetCur;
}

StreamFormat VideoControls::committed() const
{
    return format_in(*model_, commit_).value();
}

// Format 0 is the first one, as in what a host asks for that has no wish.
std::optional<StreamFormat> VideoControls::format_in(const CameraModel& model,
                                                     std::span<const uint8_t> record)
{
    if (record.size() < kProbeBytes || record[kFormatIndex] > model.formats.size())
        return std::nullopt;
    const FrameFormat& format = model.formats[std::max<size_t>(record[kFormatIndex], 1) - 1];
    if (record[kFrameIndex] < 1 || record[kFrameIndex] > format.sizes.size())
        return std::nullopt;
    return StreamFormat{format.pixels, format.sizes[record[kFrameIndex] - 1U],
                        get_u32(record, kInterval), get_u32(record, kMaxPayloadBytes), format.film};
}

std::optional<PictureControl> VideoControls::find(const Setup& setup)
{
    const auto place = std::ranges::find_if(kControlPlaces, [&setup](const ControlPlace& c) {
        return c.unit == setup.unit() && c.selector == setup.selector();
    });
    if (setup.interface() != kControlInterface || place == std::end(kControlPlaces))
        return std::nullopt;
    return static_cast<PictureControl>(place - std::begin(kControlPlaces));
}

std::optional<int32_t> VideoControls::value(PictureControl control) const
{
    return model_->controls[control] ? std::optional(values_[control]) : std::nullopt;
}

// -1 to 1: how far the host has turned a control from where it stands by itself. What an automatic
// chooses is right.
double VideoControls::deviation(PictureControl control) const
{
    const ControlRange range = model_->controls[control].value_or(ControlRange{});
    const double moved = static_cast<double>(values_[control]) - range.standard;
    const double room =
        std::abs((moved > 0 ? range.most : range.least) - static_cast<double>(range.standard));
    return moved == 0 || is_held_back(control) ? 0 : moved / room;
}

// To where it stands by itself.
double VideoControls::ratio(PictureControl control) const
{
    const ControlRange range = model_->controls[control].value_or(ControlRange{});
    if (values_[control] == range.standard || is_held_back(control))
        return 1;
    return std::max(values_[control], 1) / static_cast<double>(std::max(range.standard, 1));
}

PictureSettings VideoControls::picture_settings() const
{
    const ControlRange zoom = model_->controls[kZoom].value_or(ControlRange{});
    return {.brightness = deviation(kBrightness),
            .contrast = deviation(kContrast),
            .saturation = deviation(kSaturation),
            .hue = deviation(kHue),
            .gain = deviation(kGain),
            .warmth = deviation(kWhiteBalance),
            .zoom = std::max(values_[kZoom], 1) / static_cast<double>(std::max(zoom.least, 1)),
            .exposure = ratio(kExposureTime),
            .gamma = ratio(kGamma),
            .pan = deviation(kPan),
            .tilt = deviation(kTilt),
            .is_covered = values_[kPrivacy] != 0};
}

bool VideoControls::is_held_back(PictureControl control) const
{
    switch (control) {
        case kWhiteBalance:
            return values_[kWhiteBalanceAuto] != 0;
        case kHue:
            return values_[kHueAuto] != 0;
        case kFocus:
            return values_[kFocusAuto] != 0;
        case kExposureTime:
            return (values_[kExposureMode] & (kAutomatic | kAperturePriority)) != 0;
        case kIris:
            return (values_[kExposureMode] & (kAutomatic | kShutterPriority)) != 0;
        default:
            return false;
    }
}

std::vector<PictureControl> VideoControls::parts_of(const Setup& setup) const
{
    std::vector<PictureControl> parts;
    for (size_t control = 0; control < kPictureControls; ++control) {
        const ControlPlace& place = kControlPlaces[control];
        if (place.unit == setup.unit() && place.selector == setup.selector() &&
            model_->controls[control])
            parts.push_back(static_cast<PictureControl>(control));
    }
    return setup.interface() == kControlInterface ? parts : std::vector<PictureControl>();
}

int VideoControls::picture_control(const Setup& setup, std::span<uint8_t> data)
{
    const std::vector<PictureControl> parts = parts_of(setup);
    if (parts.empty())
        return kControlStall;
    switch (setup.request) {
        case kSetCur:
            return set_controls(parts, data);
        case kGetLen:
            return put_word(kControlPlaces[parts.front()].record_bytes, data);
        case kGetInfo: {
            const bool is_disabled = std::ranges::any_of(
                parts, [this](PictureControl part) { return is_held_back(part); });
            const uint8_t info = kInfoGetAndSet | (is_disabled ? kInfoDisabled : 0);
            return put_answer(std::array{info}, data);
        }
        default:
            return tell_controls(parts, setup.request, data);
    }
}

// As the class demands: a value beyond the range is refused. A host that reads the range first
// never meets that.
int VideoControls::set_controls(std::span<const PictureControl> parts,
                                std::span<const uint8_t> data)
{
    if (data.size() != kControlPlaces[parts.front()].record_bytes)
        return kControlStall;
    std::array<int32_t, kPictureControls> wanted = values_;
    for (const PictureControl part : parts) {
        const ControlPlace& place = kControlPlaces[part];
        const ControlRange& range = *model_->controls[part];
        const int64_t value = get_number(data.subspan(place.offset, place.bytes), range.least < 0);
        if (value < range.least || value > range.most || is_held_back(part) ||
            (part == kExposureMode &&
             (!std::has_single_bit(static_cast<uint8_t>(value)) || (value & range.step) == 0)))
            return kControlStall;
        const int64_t beyond_step = part == kExposureMode ? 0 : (value - range.least) % range.step;
        wanted[part] = static_cast<int32_t>(value - beyond_step);
    }
    values_ = wanted;
    return static_cast<int>(data.size());
}

int VideoControls::tell_controls(std::span<const PictureControl> parts, uint8_t request,
                                 std::span<uint8_t> room) const
{
    std::array<uint8_t, kLongestRecord> record{};
    for (const PictureControl part : parts) {
        const ControlPlace& place = kControlPlaces[part];
        const ControlRange& range = *model_->controls[part];
        int32_t value = 0;
        switch (request) {
            case kGetCur:
                value = values_[part];
                break;
            case kGetDef:
                value = range.standard;
                break;
            case kGetRes:
                value = range.step;
                break;
            case kGetMin:
            case kGetMax: // a choice of bits has neither
                if (part == kExposureMode)
                    return kControlStall;
                value = request == kGetMin ? range.least : range.most;
                break;
            default:
                return kControlStall;
        }
        for (size_t i = 0; i < place.bytes; ++i)
            record.at(place.offset + i) = static_cast<uint8_t>(value >> (8 * i));
    }
    return put_answer(std::span(record).first(kControlPlaces[parts.front()].record_bytes), room);
}

// The host may want smaller bulk payloads than the camera's. The isochronous payload is the
// smallest packet that carries the frames in time.
uint32_t VideoControls::payload_bytes(uint32_t wanted, const StreamFormat& format) const
{
    const uint32_t frame_bytes = format.size.bytes();
    if (!model_->streams_isochronously) {
        const uint32_t most = model_->bulk_payload_bytes;
        const uint32_t whole = frame_bytes + kPayloadHeaderBytes;
        const uint32_t largest = most == 0 ? whole : std::min(most, whole);
        return wanted < kBulkPacketBytes || wanted > largest ? largest : wanted;
    }
    constexpr uint32_t kMicroframe100ns = 1250;
    const uint32_t needed = bytes_on_the_bus(format.pixels, format.size);
    const uint32_t packets = format.interval_100ns / kMicroframe100ns;
    for (const uint32_t packet_bytes : model_->iso_packet_bytes) {
        if (uint64_t{packets} * (packet_bytes - kPayloadHeaderBytes) >= needed)
            return packet_bytes;
    }
    return model_->iso_packet_bytes.back();
}

VideoControls::Probe VideoControls::negotiate(std::span<const uint8_t> wanted) const
{
    Probe request{};
    std::copy_n(wanted.begin(), std::min(wanted.size(), request.size()), request.begin());
    const auto place = [](uint8_t wished, size_t count) {
        return static_cast<uint8_t>(std::clamp<size_t>(wished, 1, count));
    };
    Probe offer{request[0], request[1]};
    offer[kFormatIndex] = place(request[kFormatIndex], model_->formats.size());
    const FrameFormat& format = model_->formats[offer[kFormatIndex] - 1U];
    offer[kFrameIndex] = place(request[kFrameIndex], format.sizes.size());
    const FrameSize& size = format.sizes[offer[kFrameIndex] - 1U];
    const uint32_t interval = nearest_interval(size, get_u32(request, kInterval));
    put_u32(offer, kInterval, interval);
    put_u32(offer, kMaxFrameBytes, size.bytes());
    put_u32(offer, kMaxPayloadBytes,
            payload_bytes(get_u32(request, kMaxPayloadBytes), {format.pixels, size, interval, 0}));
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
            return put_answer(std::array{kInfoGetAndSet}, data);
        default:
            return kControlStall;
    }
}

} // namespace sim
