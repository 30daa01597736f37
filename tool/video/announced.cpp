// SPDX-License-Identifier: Apache-2.0
// What cameras announce in their descriptors, which the kernel has read.
#include "session/camera_list.h"
#include "video/video.h"

#include <libusb.h>

namespace tool {

namespace {

using Descriptor = std::span<const uint8_t>;

/// 0 beyond its end.
uint32_t number_in(Descriptor descriptor, size_t at, size_t bytes)
{
    uint32_t number = 0;
    for (size_t i = bytes; i-- > 0;)
        number = number << 8 | (at + i < descriptor.size() ? descriptor[at + i] : 0U);
    return number;
}

/// Of a format that is no MJPEG.
uint32_t fourcc_in(Descriptor descriptor)
{
    constexpr uint32_t kAnnouncedYuyv = NYXUS_FOURCC('Y', 'U', 'Y', '2');
    const uint32_t fourcc = number_in(descriptor, 5, 4);
    return fourcc == kAnnouncedYuyv ? NYXUS_FOURCC_YUYV : fourcc;
}

/// A size of the format that was announced before it.
NyStreamFormat frame_in(Descriptor descriptor, uint32_t fourcc, size_t place_of_intervals)
{
    NyStreamFormat frame{};
    frame.fourcc = fourcc;
    frame.width = number_in(descriptor, 5, 2);
    frame.height = number_in(descriptor, 7, 2);
    frame.interval_count =
        std::min<uint32_t>(number_in(descriptor, place_of_intervals, 1), NYXUS_MOST_INTERVALS);
    const size_t first = place_of_intervals + (place_of_intervals == 21 ? 5 : 1);
    for (size_t i = 0; i < frame.interval_count; ++i)
        frame.intervals[i] = number_in(descriptor, first + 4 * i, 4);
    frame.interval_min = number_in(descriptor, first, 4);
    frame.interval_max = number_in(descriptor, first + 4, 4);
    return frame;
}

void add_formats(const libusb_interface_descriptor& interface, std::vector<NyStreamFormat>& formats)
{
    constexpr uint8_t kClassInterface = 0x24;
    enum : uint8_t { kYuv = 0x04, kYuvFrame, kMjpeg, kMjpegFrame, kOther = 0x10, kOtherFrame };
    constexpr uint8_t kStreaming = 2;
    if (interface.bInterfaceClass != LIBUSB_CLASS_VIDEO ||
        interface.bInterfaceSubClass != kStreaming)
        return;
    Descriptor rest(interface.extra, static_cast<size_t>(std::max(interface.extra_length, 0)));
    uint32_t fourcc = 0;
    while (rest.size() > 2 && rest[0] > 2 && rest[0] <= rest.size()) {
        const Descriptor descriptor = rest.first(rest[0]);
        rest = rest.subspan(rest[0]);
        if (descriptor[1] != kClassInterface)
            continue;
        switch (descriptor[2]) {
            case kYuv:
            case kOther:
                fourcc = fourcc_in(descriptor);
                break;
            case kMjpeg:
                fourcc = NYXUS_FOURCC_MJPEG;
                break;
            case kYuvFrame:
            case kMjpegFrame:
            case kOtherFrame:
                formats.push_back(
                    frame_in(descriptor, fourcc, descriptor[2] == kOtherFrame ? 21 : 25));
                break;
            default:
                break;
        }
    }
}

} // namespace

std::vector<NyStreamFormat> formats_on_the_bus()
{
    std::vector<NyStreamFormat> formats;
    for (const CameraEntry& camera : list_cameras()) {
        libusb_config_descriptor* raw = nullptr;
        if (libusb_get_config_descriptor(camera.device.get(), 0, &raw) != 0)
            continue;
        const std::unique_ptr<libusb_config_descriptor, decltype(&libusb_free_config_descriptor)>
            config(raw, libusb_free_config_descriptor);
        for (const libusb_interface& interface :
             std::span(config->interface, config->bNumInterfaces)) {
            if (interface.num_altsetting > 0)
                add_formats(interface.altsetting[0], formats);
        }
    }
    return formats;
}

} // namespace tool
