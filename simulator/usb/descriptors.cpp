// SPDX-License-Identifier: Apache-2.0
#include "usb/descriptors.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

using Bytes = std::vector<uint8_t>;

// clang-format off
constexpr uint8_t kControlInterfaceBytes[] = {
    0x08, 0x0b, 0x00, 0x02, 0x0e, 0x03, 0x00, 0x00,                    // both belong to one video function
    0x09, 0x04, 0x00, 0x00, 0x01, 0x0e, 0x01, 0x00, 0x00,
    0x0d, 0x24, 0x01, 0x00, 0x01, 0x6b, 0x00, 0x80, 0xc3, 0xc9, 0x01, 0x01, 0x01,
    0x12, 0x24, 0x02, 0x01, 0x01, 0x02, 0x00, 0x00,                    // camera terminal 1
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,
    0x0b, 0x24, 0x05, 0x02, 0x01, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00,  // processing unit 2
    0x1d, 0x24, 0x06, 0x06,                                            // extension unit 6: vendor
    0xb0, 0xd0, 0xbb, 0x68, 0xa4, 0x61, 0x83, 0x4b, 0x90, 0xb7, 0xa6, 0x21, 0x5f, 0x3c, 0x4f, 0x70,
    0x1f, 0x01, 0x02, 0x04, 0xff, 0xff, 0xff, 0x7f, 0x00,
    0x1b, 0x24, 0x06, 0x0c,                                            // extension unit 12: H.264
    0x41, 0x76, 0x9e, 0xa2, 0x04, 0xde, 0xe3, 0x47, 0x8b, 0x2b, 0xf4, 0x34, 0x1a, 0xff, 0x00, 0x3b,
    0x0f, 0x01, 0x06, 0x02, 0xff, 0x7f, 0x00,
    0x09, 0x24, 0x03, 0x03, 0x01, 0x01, 0x00, 0x0c, 0x00,              // output terminal 3
    0x07, 0x05, 0x83, 0x03, 0x10, 0x00, 0x08,                          // status, interrupt IN
    0x05, 0x25, 0x03, 0x10, 0x00,
};
// Where in it stands which of the standard controls the camera has.
constexpr size_t kTerminalControls = 45;
constexpr size_t kUnitControls = 56;
// What follows the index of a format and the number of its sizes.
constexpr uint8_t kYuyvFormat[] = {                                    // 16 bits per pixel
    0x59, 0x55, 0x59, 0x32, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71,
    0x10, 0x01, 0x00, 0x00, 0x00, 0x00,
};
constexpr uint8_t kMjpegFormat[] = {0x00, 0x01, 0x00, 0x00, 0x00, 0x00};
constexpr uint8_t kH264Format[] = {                                    // frames of any length
    0x48, 0x32, 0x36, 0x34, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71,
    0x10, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01,
};
constexpr uint8_t kColour[] = {0x06, 0x24, 0x0d, 0x01, 0x01, 0x04};
constexpr uint8_t kBulkEndpoint[] = {0x07, 0x05, kVideoEndpoint, 0x02, 0x00, 0x02, 0x00};
// clang-format on

struct FormatBytes {
    uint8_t subtype; ///< that of its sizes is the next one
    std::span<const uint8_t> details;
};
/// In the order of PixelFormat.
constexpr FormatBytes kFormatBytes[] = {
    {0x04, kYuyvFormat}, {0x06, kMjpegFormat}, {0x10, kH264Format}};

void add(Bytes& bytes, std::span<const uint8_t> more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void add_u16(Bytes& bytes, uint16_t word)
{
    bytes.push_back(static_cast<uint8_t>(word));
    bytes.push_back(static_cast<uint8_t>(word >> 8));
}

void add_u32(Bytes& bytes, uint32_t word)
{
    add_u16(bytes, static_cast<uint16_t>(word));
    add_u16(bytes, static_cast<uint16_t>(word >> 16));
}

uint32_t bits_per_second(const FrameSize& size, uint32_t interval_100ns)
{
    constexpr uint64_t kPerSecond = 10'000'000;
    return static_cast<uint32_t>(
        std::min<uint64_t>(uint64_t{size.bytes()} * 8 * kPerSecond / interval_100ns, UINT32_MAX));
}

void add_frame(Bytes& bytes, uint8_t subtype, uint8_t index, const FrameSize& size)
{
    const bool is_frame_based = subtype == 0x11;
    const auto& intervals = size.intervals_100ns;
    const auto count = static_cast<uint8_t>(intervals.size());
    add(bytes, Bytes{static_cast<uint8_t>(26 + 4 * count), 0x24, subtype, index, 0x00});
    add_u16(bytes, size.width);
    add_u16(bytes, size.height);
    add_u32(bytes, bits_per_second(size, intervals.back()));
    add_u32(bytes, bits_per_second(size, intervals.front()));
    if (!is_frame_based)
        add_u32(bytes, size.bytes());
    add_u32(bytes, intervals.front()); // unless the host asks for another one
    bytes.push_back(count);
    if (is_frame_based)
        add_u32(bytes, 0); // bytes to a line: they vary
    for (const uint32_t interval : intervals)
        add_u32(bytes, interval);
}

void add_video_interface(Bytes& bytes, uint8_t setting, bool has_endpoint)
{
    add(bytes, Bytes{0x09, 0x04, kVideoInterface, setting, has_endpoint, 0x0e, 0x02, 0x00, 0x00});
}

void add_format(Bytes& bytes, uint8_t index, const FrameFormat& format)
{
    const auto& [subtype, details] = kFormatBytes[static_cast<size_t>(format.pixels)];
    add(bytes, Bytes{static_cast<uint8_t>(5 + details.size()), 0x24, subtype, index,
                     static_cast<uint8_t>(format.sizes.size())});
    add(bytes, details);
    for (uint8_t place = 1; const FrameSize& size : format.sizes)
        add_frame(bytes, static_cast<uint8_t>(subtype + 1), place++, size);
    add(bytes, kColour);
}

// The header of the formats tells how long they are together.
void add_formats(Bytes& bytes, const CameraModel& model)
{
    Bytes formats;
    for (uint8_t index = 1; const FrameFormat& format : model.formats)
        add_format(formats, index++, format);

    const auto count = static_cast<uint8_t>(model.formats.size());
    const auto header_bytes = static_cast<uint8_t>(13 + count);
    add(bytes, Bytes{header_bytes, 0x24, 0x01, count});
    add_u16(bytes, static_cast<uint16_t>(header_bytes + formats.size()));
    add(bytes, Bytes{kVideoEndpoint, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01});
    bytes.resize(bytes.size() + count); // no format has controls of its own
    add(bytes, formats);
}

// Packets of up to 1024 bytes, up to three of them per microframe.
void add_iso_endpoint(Bytes& bytes, uint32_t packet_bytes)
{
    const uint32_t packets = (packet_bytes + kMostPacketBytes - 1) / kMostPacketBytes;
    add(bytes, Bytes{0x07, 0x05, kVideoEndpoint, 0x05});
    add_u16(bytes, static_cast<uint16_t>(packet_bytes / packets | (packets - 1) << 11));
    bytes.push_back(0x01);
}

void add_control_interface(Bytes& bytes, const CameraModel& model)
{
    const size_t first = bytes.size();
    add(bytes, kControlInterfaceBytes);
    for (size_t control = 0; control < kPictureControls; ++control) {
        const ControlPlace& place = kControlPlaces[control];
        const size_t at = place.unit == kCameraTerminal ? kTerminalControls : kUnitControls;
        if (model.controls[control])
            bytes[first + at + place.bit / 8] |= static_cast<uint8_t>(1 << place.bit % 8);
    }
}

} // namespace

// Class EF/02/01: an interface association tells which interfaces form the camera.
std::vector<uint8_t> device_descriptor(const CameraModel& model)
{
    Bytes bytes{0x12, 0x01, 0x00, 0x02, 0xef, 0x02, 0x01, 0x40};
    add_u16(bytes, model.usb_vendor_id);
    add_u16(bytes, model.usb_product_id);
    add(bytes, Bytes{0x00, 0x01, 0x01, 0x02, 0x03, 0x01});
    return bytes;
}

std::vector<uint8_t> device_qualifier(std::span<const uint8_t> device_descriptor)
{
    Bytes bytes{0x0a, 0x06};
    add(bytes, device_descriptor.subspan(2, 6)); // version, class, size of a packet
    add(bytes, Bytes{0x01, 0x00});               // one configuration
    return bytes;
}

std::vector<uint8_t> configuration_descriptor(const CameraModel& model)
{
    constexpr uint8_t kConfiguration[] = {0x09, 0x02, 0x00, 0x00, kInterfaceCount,
                                          0x01, 0x00, 0x80, 0xfa}; // 500 mA
    Bytes bytes;
    bytes.reserve(512); // what most models need
    add(bytes, kConfiguration);
    add_control_interface(bytes, model);
    add_video_interface(bytes, 0, !model.streams_isochronously);
    add_formats(bytes, model);
    if (model.streams_isochronously) {
        for (uint8_t setting = 1; const uint32_t packet_bytes : model.iso_packet_bytes) {
            add_video_interface(bytes, setting++, true);
            add_iso_endpoint(bytes, packet_bytes);
        }
    } else {
        add(bytes, kBulkEndpoint);
    }
    bytes[2] = static_cast<uint8_t>(bytes.size());
    bytes[3] = static_cast<uint8_t>(bytes.size() >> 8);
    return bytes;
}

std::vector<uint8_t> interface_descriptor(const CameraModel& model, unsigned number)
{
    constexpr uint8_t kInterfaceType = 4;
    const Bytes bytes = configuration_descriptor(model);
    std::span<const uint8_t> rest = bytes;
    while (!(rest[1] == kInterfaceType && rest[2] == number))
        rest = rest.subspan(rest[0]);
    return {rest.begin(), rest.begin() + rest[0]};
}

std::vector<uint8_t> language_descriptor()
{
    return {0x04, 0x03, 0x09, 0x04};
}

std::vector<uint8_t> string_descriptor(const std::string& text)
{
    const size_t characters = std::min<size_t>(text.size(), 126);
    std::vector<uint8_t> bytes{static_cast<uint8_t>(2 + 2 * characters), 0x03};
    for (const char character : text.substr(0, characters)) {
        bytes.push_back(static_cast<uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

} // namespace sim
