// SPDX-License-Identifier: Apache-2.0
// Uncompressed video: frames by callback, or one at a time.
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <new>

#include "session.h"
#include "trace/failure.h"
#include "unit.h"

// Exported by libuvc, but declared in none of its public headers.
extern "C" uvc_frame_desc_t* uvc_find_frame_desc(uvc_device_handle_t* devh, uint16_t format_id,
                                                 uint16_t frame_id);

namespace {

constexpr uint32_t kPayloadHeaderBytes = 12;
constexpr int64_t kFrameWait_us = 1000000;
constexpr timespec kPollInterval = {0, 1000000};
constexpr int32_t kWithoutWaiting = -1;
constexpr uint8_t kSnapshotTrigger = 3;
constexpr int64_t kSilentFrames = 2;

int64_t now_us()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

/// What a running callback stream keeps beside the record that callers know.
struct RunningStream {
    StreamCallbackRecord record; // first: the device object points here
    int64_t frame_interval_us;
    std::atomic<int64_t> last_frame_us;
};
static_assert(offsetof(RunningStream, record) == 0);

bool is_complete(const uvc_frame_t& frame)
{
    return frame.data_bytes == frame.width * frame.height * 2;
}

void internal_cb(uvc_frame_t* frame, void* user)
{
    auto& stream = *static_cast<RunningStream*>(user);
    stream.last_frame_us = now_us();
    if (is_complete(*frame))
        stream.record.callback(frame, stream.record.param);
}

/// Negotiates the stream. The whole frame and its header are asked for as one transfer;
/// `negotiated_payload` keeps what the camera offered instead.
uvc_error_t negotiate(NyDevice* pDevObj, const VideoStreamParam& param,
                      uint32_t* negotiated_payload)
{
    uvc_stream_ctrl_t& control = pDevObj->stream_ctrl;
    const uvc_error_t rc = pDevObj->uvc_handle == nullptr
                               ? UVC_ERROR_NO_DEVICE
                               : uvc_get_stream_ctrl_format_size(
                                     pDevObj->uvc_handle, &control, UVC_FRAME_FORMAT_YUYV,
                                     static_cast<int>(param.width), static_cast<int>(param.height),
                                     static_cast<int>(param.fps));
    if (rc < 0) {
        nyxus::report_uvc_error(rc, "get stream ctrl");
        return rc;
    }
    *negotiated_payload = control.dwMaxPayloadTransferSize;
    const uvc_frame_desc_t* frame =
        uvc_find_frame_desc(pDevObj->uvc_handle, control.bFormatIndex, control.bFrameIndex);
    if (frame != nullptr)
        control.dwMaxVideoFrameSize = frame->dwMaxVideoFrameBufferSize;
    control.dwMaxPayloadTransferSize = control.dwMaxVideoFrameSize + kPayloadHeaderBytes;
    return rc;
}

/// Runs `start`, once more with the camera's own payload size where no alternate setting of an
/// isochronous camera carries a whole frame.
template <typename Start>
uvc_error_t start_with(NyDevice* pDevObj, uint32_t negotiated_payload, Start start)
{
    uvc_error_t rc = start();
    if (rc == UVC_ERROR_INVALID_MODE) {
        pDevObj->stream_ctrl.dwMaxPayloadTransferSize = negotiated_payload;
        rc = start();
    }
    if (rc < 0)
        nyxus::report_uvc_error(rc, "start_streaming");
    return rc;
}

uvc_error_t open_polled_stream(NyDevice* pDevObj, uvc_stream_handle_t** stream)
{
    uvc_error_t rc = uvc_stream_open_ctrl(pDevObj->uvc_handle, stream, &pDevObj->stream_ctrl);
    if (rc < 0)
        return rc;
    rc = uvc_stream_start(*stream, nullptr, nullptr, 0);
    if (rc < 0)
        uvc_stream_close(*stream);
    return rc;
}

/// The next frame, nullptr after a second without one. Debian's libuvc keeps its own lock when a
/// wait of its own runs out, so that stopping the stream would hang: it is asked again and again
/// instead.
uvc_error_t wait_for_frame(uvc_stream_handle_t* stream, uvc_frame_t** frame)
{
    const int64_t end_us = now_us() + kFrameWait_us;
    for (;;) {
        const uvc_error_t rc = uvc_stream_get_frame(stream, frame, kWithoutWaiting);
        if (rc != UVC_SUCCESS || *frame != nullptr || now_us() >= end_us)
            return rc;
        nanosleep(&kPollInterval, nullptr);
    }
}

/// After a bad frame: stops the stream and asks the board for another picture. False when the
/// camera is gone, whose stream must not be stopped.
bool retrigger(NyDevice* pDevObj)
{
    if (nyxus::camera_has_gone(pDevObj))
        return false;
    uvc_stop_streaming(pDevObj->uvc_handle);
    (void)XuRegWrite(pDevObj, XDATA_SG_SENSOR_RESET_INIT, 1, &kSnapshotTrigger);
    return pDevObj->device_gone == 0;
}

/// No frame for longer than frames are apart: the camera may be gone.
bool is_silent(const RunningStream& stream)
{
    return now_us() - stream.last_frame_us > kSilentFrames * stream.frame_interval_us;
}

} // namespace

int32_t startVideoStream(NyDevice* pDevObj, NyFrameCallback callback, VideoStreamParam* param)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(callback);
    NY_REQUIRE(param);
    void* memory = std::malloc(sizeof(RunningStream));
    if (memory == nullptr)
        return UVC_ERROR_NO_MEM;
    auto* stream = new (memory) RunningStream{{param, callback}, 0, now_us()};
    pDevObj->stream_callback = &stream->record;
    pDevObj->stream_record_owned = 1;

    uint32_t negotiated_payload = 0;
    const uvc_error_t rc = negotiate(pDevObj, *param, &negotiated_payload);
    if (rc < 0)
        return rc;
    stream->frame_interval_us = pDevObj->stream_ctrl.dwFrameInterval / 10;
    return start_with(pDevObj, negotiated_payload, [&] {
        return uvc_start_streaming(pDevObj->uvc_handle, &pDevObj->stream_ctrl, internal_cb, stream,
                                   0);
    });
}

int32_t startVideoStream_snapshot(NyDevice* pDevObj, void* /*unused*/, VideoStreamParam* param)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(param);
    uint32_t negotiated_payload = 0;
    uvc_error_t rc = negotiate(pDevObj, *param, &negotiated_payload);
    if (rc < 0)
        return rc;
    for (;;) { // without a limit: a good frame ends it, or a stream that does not start
        uvc_stream_handle_t* stream = nullptr;
        rc = start_with(pDevObj, negotiated_payload,
                        [&] { return open_polled_stream(pDevObj, &stream); });
        if (rc < 0)
            return rc;
        param->frame = nullptr;
        rc = wait_for_frame(stream, &param->frame);
        if (rc == UVC_SUCCESS && param->frame != nullptr && is_complete(*param->frame))
            return 0;
        param->frame = nullptr;
        if (!retrigger(pDevObj)) {
            nyxus::report_uvc_error(UVC_ERROR_NO_DEVICE, "start_streaming");
            return UVC_ERROR_NO_DEVICE;
        }
    }
}

void stopVideoStream(NyDevice* pDevObj)
{
    if (pDevObj == nullptr) {
        (void)NY_FAIL_NULL(NYXUS_E_DEVICE_NULL, pDevObj);
        return;
    }
    const nyxus::DeviceScope scope(pDevObj);
    auto* stream = pDevObj->stream_record_owned
                       ? reinterpret_cast<RunningStream*>(pDevObj->stream_callback)
                       : nullptr;
    if (stream != nullptr && is_silent(*stream))
        nyxus::camera_has_gone(pDevObj);
    // libuvc frees transfers that are still under way, or waits for ever, when a stream of a camera
    // that is gone is stopped. What is left behind still uses the record.
    if (pDevObj->device_gone)
        return;
    if (pDevObj->uvc_handle != nullptr)
        uvc_stop_streaming(pDevObj->uvc_handle);
    std::free(stream);
    pDevObj->stream_record_owned = 0; // the pointer itself stays as it is
}
