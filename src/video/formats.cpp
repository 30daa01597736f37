// SPDX-License-Identifier: Apache-2.0
#include "formats.h"

#include <nyxus/device.h>

#include <algorithm>

#include "trace/failure.h"
#include "unit.h"
#include "usb/session_state.h"

namespace {

constexpr uint8_t kClassInterface = 0x24; // descriptor type
constexpr uint8_t kHeader = 0x01;         // its subtype
constexpr int kFirstStreaming = 12;       // its place of the first streaming interface
constexpr uint8_t kControlSubclass = 1;

/// The configuration's place of the first streaming interface, -1 when there is none.
int first_streaming(const libusb_config_descriptor& config)
{
    for (int number = 0; number < config.bNumInterfaces; ++number) {
        const libusb_interface& interface = config.interface[number];
        if (interface.num_altsetting < 1)
            continue;
        const libusb_interface_descriptor& first = interface.altsetting[0];
        if (first.bInterfaceClass != LIBUSB_CLASS_VIDEO ||
            first.bInterfaceSubClass != kControlSubclass)
            continue;
        const unsigned char* header = first.extra;
        const bool names_one = first.extra_length > kFirstStreaming &&
                               header[0] > kFirstStreaming && header[1] == kClassInterface &&
                               header[2] == kHeader;
        return names_one ? header[kFirstStreaming] : -1;
    }
    return -1;
}

const uvc_format_desc_t* offered_formats(uvc_device_handle_t* handle)
{
    return nyxus::streaming_interface(handle) < 0 ? nullptr : uvc_get_format_descs(handle);
}

uint32_t fourcc_of(const uvc_format_desc_t& format)
{
    constexpr uint32_t kAnnouncedYuyv = NYXUS_FOURCC('Y', 'U', 'Y', '2');
    const uint8_t* text = format.fourccFormat;
    const uint32_t fourcc = NYXUS_FOURCC(text[0], text[1], text[2], text[3]);
    return fourcc == kAnnouncedYuyv ? NYXUS_FOURCC_YUYV : fourcc;
}

NyStreamFormat record_of(const uvc_format_desc_t& format, const uvc_frame_desc_t& frame)
{
    NyStreamFormat record = {};
    record.fourcc = fourcc_of(format);
    record.width = frame.wWidth;
    record.height = frame.wHeight;
    if (frame.intervals == nullptr) {
        record.interval_min = frame.dwMinFrameInterval;
        record.interval_max = frame.dwMaxFrameInterval;
        record.interval_step = std::max(frame.dwFrameIntervalStep, 1U);
        return record;
    }
    uint32_t& count = record.interval_count;
    for (const uint32_t* interval = frame.intervals; *interval != 0 && count < NYXUS_MOST_INTERVALS;
         ++interval)
        record.intervals[count++] = *interval;
    const auto [least, most] = std::minmax_element(record.intervals, record.intervals + count);
    record.interval_min = *least;
    record.interval_max = *most;
    return record;
}

uint32_t distance(uint32_t a, uint32_t b)
{
    return a > b ? a - b : b - a;
}

/// Of a range.
uint32_t nearest_of_range(const NyStreamFormat& format, uint32_t wanted)
{
    if (format.interval_min > format.interval_max)
        return 0;
    const uint32_t within = std::clamp(wanted, format.interval_min, format.interval_max);
    const uint32_t beyond = (within - format.interval_min) % format.interval_step;
    return within - beyond;
}

/// 0 when there is none.
uint32_t nearest_interval(const NyStreamFormat& format, const uvc_frame_desc_t& frame,
                          uint32_t wanted)
{
    const bool is_range = frame.intervals == nullptr;
    if (wanted == 0) {
        return is_range ? nearest_of_range(format, frame.dwDefaultFrameInterval)
                        : format.intervals[0];
    }
    const auto* end = format.intervals + format.interval_count;
    const auto is_nearer = [wanted](uint32_t a, uint32_t b) {
        return distance(a, wanted) < distance(b, wanted);
    };
    const uint32_t nearest = is_range ? nearest_of_range(format, wanted)
                                      : *std::min_element(format.intervals, end, is_nearer);
    return uint64_t{distance(nearest, wanted)} * 100 <= wanted ? nearest : 0;
}

/// Calls `use` with each size of each format, until it returns true.
template <typename Use>
bool find_frame(uvc_device_handle_t* handle, const Use& use)
{
    const uvc_format_desc_t* format = offered_formats(handle);
    for (; format != nullptr; format = format->next) {
        for (const uvc_frame_desc_t* frame = format->frame_descs; frame != nullptr;
             frame = frame->next) {
            if (frame->wWidth != 0 && frame->wHeight != 0 && use(*format, *frame))
                return true;
        }
    }
    return false;
}

} // namespace

int nyxus::streaming_interface(uvc_device_handle_t* handle)
{
    libusb_device* device = libusb_get_device(uvc_get_libusb_handle(handle));
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(device, 0, &config) != 0)
        return -1;
    const int place = first_streaming(*config);
    const bool is_there =
        place >= 0 && place < config->bNumInterfaces && config->interface[place].num_altsetting > 0;
    const int number = is_there ? config->interface[place].altsetting[0].bInterfaceNumber : -1;
    libusb_free_config_descriptor(config);
    return number;
}

bool nyxus::choose_format(uvc_device_handle_t* handle, const NyStreamRequest& request,
                          uvc_stream_ctrl_t* control)
{
    constexpr uint16_t kKeepInterval = 1; // bmHint
    return find_frame(handle, [&](const uvc_format_desc_t& format, const uvc_frame_desc_t& frame) {
        const NyStreamFormat offered = record_of(format, frame);
        if (offered.fourcc != request.fourcc || offered.width != request.width ||
            offered.height != request.height)
            return false;
        const uint32_t interval = nearest_interval(offered, frame, request.interval);
        if (interval == 0)
            return false;
        *control = {};
        control->bmHint = kKeepInterval;
        control->bFormatIndex = format.bFormatIndex;
        control->bFrameIndex = frame.bFrameIndex;
        control->dwFrameInterval = interval;
        control->dwMaxVideoFrameSize = frame.dwMaxVideoFrameBufferSize;
        control->bInterfaceNumber = static_cast<uint8_t>(streaming_interface(handle));
        return true;
    });
}

bool nyxus::may_ask_libuvc(uvc_device_handle_t* handle, uint32_t width, uint32_t height,
                           uint32_t fps)
{
    return !find_frame(handle, [=](const uvc_format_desc_t& format, const uvc_frame_desc_t& frame) {
        return fourcc_of(format) == NYXUS_FOURCC_YUYV && frame.wWidth == width &&
               frame.wHeight == height && frame.intervals == nullptr &&
               (fps == 0 || frame.dwFrameIntervalStep == 0);
    });
}

int32_t nyxus_list_formats(NyDevice* pDevObj, NyStreamFormat* formats, uint32_t capacity)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (capacity > 0)
        NY_REQUIRE(formats);
    if (!nyxus::is_session_open(*pDevObj))
        return NY_FAIL(UVC_ERROR_NO_DEVICE, "the camera is not open");
    uint32_t count = 0;
    (void)find_frame(pDevObj->uvc_handle,
                     [&](const uvc_format_desc_t& format, const uvc_frame_desc_t& frame) {
                         if (count < capacity)
                             formats[count] = record_of(format, frame);
                         ++count;
                         return false;
                     });
    return static_cast<int32_t>(count);
}
