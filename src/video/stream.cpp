// SPDX-License-Identifier: Apache-2.0
// Streams of every format: frames by callback, or one at a time.
#include <nyxus/streaming.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>

#include "formats.h"
#include "frame_queue.h"
#include "payload.h"
#include "running_stream.h"
#include "safe_start.h"
#include "safe_stop.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/session_state.h"

using Clock = std::chrono::steady_clock;

struct NyStream : nyxus::RunningStream {
    libusb_device_handle* usb_handle; ///< while it is not silent
    NyStreamRequest request;
    uvc_stream_ctrl_t control;
    NyStreamCallback callback;
    void* user;
    nyxus::FrameQueue queue; ///< where there is no callback
    uint32_t last_sequence;
    std::atomic<uint64_t> frames, incomplete, late;
};

namespace {

constexpr char kStart[] = "nyxus_stream_start"; // its steps fail as it does
constexpr std::chrono::milliseconds kGlance{100};

NyStream* create(const NyStreamRequest& request, NyStreamCallback callback, void* user)
{
    void* memory = std::malloc(sizeof(NyStream));
    if (memory == nullptr)
        return nullptr;
    auto* stream = new (memory) NyStream{};
    stream->request = request;
    stream->callback = callback;
    stream->user = user;
    return stream;
}

void destroy(NyStream* stream)
{
    stream->queue.release();
    stream->~NyStream();
    std::free(stream);
}

size_t yuyv_bytes(const NyStreamRequest& request)
{
    return size_t{request.width} * request.height * 2;
}

bool is_good(const NyStream& stream, const NyStreamFrame& frame)
{
    if (frame.width != stream.request.width || frame.height != stream.request.height)
        return false;
    if (frame.fourcc == NYXUS_FOURCC_YUYV)
        return frame.size == yuyv_bytes(stream.request);
    if (frame.fourcc == NYXUS_FOURCC_MJPEG)
        return frame.size > 2 && frame.data[0] == 0xFF && frame.data[1] == 0xD8;
    return frame.size > 0;
}

NyStreamFrame record_of(const NyStream& stream, const uvc_frame_t& frame)
{
    const auto now = Clock::now().time_since_epoch();
    const auto now_us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    return {static_cast<const uint8_t*>(frame.data),
            frame.data_bytes,
            stream.request.fourcc,
            frame.width,
            frame.height,
            frame.sequence,
            static_cast<uint64_t>(now_us)};
}

/// libuvc numbers frames, and passes over those that come while the callback takes its time.
void count_gap(NyStream& stream, uint32_t sequence)
{
    if (stream.last_sequence != 0 && sequence > stream.last_sequence)
        stream.late += sequence - stream.last_sequence - 1;
    stream.last_sequence = sequence;
}

void hand_over(NyStream& stream, const NyStreamFrame& frame)
{
    if (stream.callback != nullptr) {
        ++stream.frames; // first: the callback may ask for the status
        stream.callback(&frame, stream.user);
        return;
    }
    if (!stream.queue.put(frame))
        ++stream.late;
    ++stream.frames; // last: whoever reads it finds the late ones counted
    stream.changed.notify_one();
}

void on_frame(uvc_frame_t* frame, void* user)
{
    auto& stream = *static_cast<NyStream*>(user);
    const std::lock_guard lock(stream.mutex);
    if (stream.silent)
        return;
    count_gap(stream, frame->sequence);
    const NyStreamFrame record = record_of(stream, *frame);
    const bool fits = stream.callback != nullptr || stream.queue.holds(record.size);
    if (fits && is_good(stream, record)) {
        hand_over(stream, record);
    } else {
        ++stream.incomplete;
    }
}

int32_t fail(int32_t code, const char* step)
{
    return nyxus::raise_failure(nyxus::FailureTag::kNyxus, code, {kStart, kUnit, __LINE__},
                                "%s FAILED, %s", step,
                                uvc_strerror(static_cast<uvc_error_t>(code)));
}

int32_t fail_not_offered(const NyStreamRequest& request)
{
    char name[5] = {};
    for (int place = 0; place < 4; ++place) {
        const auto character = static_cast<char>(request.fourcc >> 8 * place);
        name[place] = character >= ' ' && character <= '~' ? character : '?';
    }
    return nyxus::raise_failure(nyxus::FailureTag::kNyxus, UVC_ERROR_INVALID_MODE,
                                {kStart, kUnit, __LINE__}, "the camera offers no %s of %ux%u%s",
                                name, request.width, request.height,
                                request.interval != 0 ? " at this rate" : "");
}

/// Settles the stream in `control`.
int32_t negotiate(NyDevice* pDevObj, const NyStreamRequest& request,
                  const uvc_stream_ctrl_t& wanted, uvc_stream_ctrl_t& control)
{
    control = wanted;
    const uvc_error_t rc = uvc_probe_stream_ctrl(pDevObj->uvc_handle, &control);
    if (rc < 0)
        return fail(rc, "uvc_probe_stream_ctrl()");
    if (control.bFormatIndex != wanted.bFormatIndex || control.bFrameIndex != wanted.bFrameIndex)
        return fail(UVC_ERROR_INVALID_MODE, "uvc_probe_stream_ctrl()");
    if (control.dwMaxVideoFrameSize == 0)
        control.dwMaxVideoFrameSize = wanted.dwMaxVideoFrameSize;
    if (request.fourcc == NYXUS_FOURCC_YUYV) {
        const auto least = static_cast<uint32_t>(std::min<size_t>(yuyv_bytes(request), UINT32_MAX));
        control.dwMaxVideoFrameSize = std::max(control.dwMaxVideoFrameSize, least);
    }
    return nyxus::fit_payload(kStart, pDevObj, control);
}

int32_t start(NyDevice* pDevObj, NyStream* stream, const uvc_stream_ctrl_t& wanted)
{
    uvc_stream_ctrl_t& control = pDevObj->stream_ctrl;
    const int32_t rv = negotiate(pDevObj, stream->request, wanted, control);
    if (rv < 0)
        return rv;
    stream->control = control;
    if (stream->callback == nullptr && !stream->queue.allocate(control.dwMaxVideoFrameSize))
        return fail(UVC_ERROR_NO_MEM, "malloc()");
    stream->device = pDevObj;
    stream->usb_handle = uvc_get_libusb_handle(pDevObj->uvc_handle);
    nyxus::set_current_stream(pDevObj, stream, nyxus::kOwnedByCaller);
    uvc_stream_handle_t* handle = nullptr;
    const uvc_error_t rc = nyxus::start_safely(pDevObj, &handle, on_frame, stream);
    return rc < 0 ? fail(rc, "uvc_stream_start()") : 0;
}

/// The probe goes to the video interface, which Linux would claim for it unasked: libusb would not
/// know, and not get it for libuvc afterwards.
int32_t start_claimed(NyDevice* pDevObj, NyStream* stream)
{
    uvc_stream_ctrl_t wanted;
    if (!nyxus::choose_format(pDevObj->uvc_handle, stream->request, &wanted))
        return fail_not_offered(stream->request);
    libusb_device_handle* usb = uvc_get_libusb_handle(pDevObj->uvc_handle);
    const int claim = libusb_claim_interface(usb, wanted.bInterfaceNumber);
    if (claim < 0)
        return fail(claim, "libusb_claim_interface()");
    const int32_t rv = start(pDevObj, stream, wanted);
    if (rv < 0 && !pDevObj->stream_running)
        (void)libusb_release_interface(usb, wanted.bInterfaceNumber);
    return rv;
}

} // namespace

int32_t nyxus_stream_start(NyDevice* pDevObj, const NyStreamRequest* request,
                           NyStreamCallback callback, void* user, NyStream** stream)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(request);
    NY_REQUIRE(stream);
    *stream = nullptr;
    if (!nyxus::is_session_open(*pDevObj))
        return fail(UVC_ERROR_NO_DEVICE, "uvc_open()");
    if (pDevObj->stream_running)
        return fail(UVC_ERROR_BUSY, "uvc_stream_start()");
    if (!nyxus::end_stream(pDevObj)) // what another start has left
        return fail(UVC_ERROR_NO_DEVICE, "uvc_stream_start()");
    NyStream* started = create(*request, callback, user);
    if (started == nullptr)
        return fail(UVC_ERROR_NO_MEM, "malloc()");
    const int32_t rv = start_claimed(pDevObj, started);
    if (rv < 0) {
        nyxus_stream_free(started);
        return rv;
    }
    *stream = started;
    return 0;
}

int32_t nyxus_stream_next(NyStream* stream, uint32_t timeout_ms, NyStreamFrame* frame)
{
    NY_REQUIRE(stream);
    NY_REQUIRE(frame);
    if (stream->callback != nullptr)
        return NY_FAIL(NYXUS_E_RANGE, "the stream has a callback");
    const auto end = Clock::now() + std::chrono::milliseconds(timeout_ms);
    std::unique_lock lock(stream->mutex);
    while (!stream->silent) {
        if (stream->queue.take(frame))
            return 0;
        if (nyxus::is_gone(stream->usb_handle)) // where it is not silent, its handle is open
            return UVC_ERROR_NO_DEVICE;
        const auto now = Clock::now();
        if (now >= end)
            return UVC_ERROR_TIMEOUT;
        stream->changed.wait_until(lock, std::min(end, now + kGlance));
    }
    return UVC_ERROR_INTERRUPTED;
}

int32_t nyxus_stream_status(NyStream* stream, NyStreamStatus* status)
{
    NY_REQUIRE(stream);
    NY_REQUIRE(status);
    *status = {stream->control.dwFrameInterval, stream->control.dwMaxPayloadTransferSize,
               stream->frames, stream->incomplete, stream->late};
    return 0;
}

void nyxus_stream_stop(NyStream* stream)
{
    if (stream == nullptr || stream->device == nullptr)
        return;
    const nyxus::DeviceScope scope(stream->device);
    (void)nyxus::end_stream(stream->device);
}

void nyxus_stream_free(NyStream* stream)
{
    nyxus_stream_stop(stream);
    if (stream == nullptr)
        return;
    if (!stream->is_abandoned) {
        destroy(stream);
        return;
    }
    const std::lock_guard lock(stream->mutex);
    stream->queue.release();
}
