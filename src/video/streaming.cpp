// SPDX-License-Identifier: Apache-2.0
// Uncompressed video: frames by callback, or one at a time.
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <pthread.h>
#include <cstdlib>
#include <ctime>
#include <new>

#include "safe_stop.h"
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

int64_t now_us()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

/// What a running callback stream keeps beside the record that callers know.
struct RunningStream {
    StreamCallbackRecord record; // first: the device object points here
    pthread_mutex_t mutex;       // held while the caller's callback runs
    bool silent;
};
static_assert(offsetof(RunningStream, record) == 0);

RunningStream* create_stream(const StreamCallbackRecord& record)
{
    void* memory = std::malloc(sizeof(RunningStream));
    return memory == nullptr ? nullptr
                             : new (memory) RunningStream{record, PTHREAD_MUTEX_INITIALIZER, false};
}

RunningStream* owned_stream(const NyDevice& device)
{
    return device.stream_record_owned ? reinterpret_cast<RunningStream*>(device.stream_callback)
                                      : nullptr;
}

void own(NyDevice* pDevObj, RunningStream* stream)
{
    pDevObj->stream_callback = &stream->record;
    pDevObj->stream_record_owned = 1;
}

bool is_complete(const uvc_frame_t& frame)
{
    return frame.data_bytes == frame.width * frame.height * 2;
}

void internal_cb(uvc_frame_t* frame, void* user)
{
    auto& stream = *static_cast<RunningStream*>(user);
    pthread_mutex_lock(&stream.mutex);
    if (!stream.silent && is_complete(*frame))
        stream.record.callback(frame, stream.record.param);
    pthread_mutex_unlock(&stream.mutex);
}

/// No call of the caller's callback is under way or follows, whatever libuvc is still at.
void silence(RunningStream& stream)
{
    pthread_mutex_lock(&stream.mutex);
    stream.silent = true;
    pthread_mutex_unlock(&stream.mutex);
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

/// What uvc_start_streaming() does inside, but for the end of a stream that does not start: libuvc
/// would close it itself, and not come back from that when the camera has just gone.
uvc_error_t start_once(NyDevice* pDevObj, uvc_stream_handle_t** stream,
                       uvc_frame_callback_t* callback, void* user)
{
    uvc_error_t rc = uvc_stream_open_ctrl(pDevObj->uvc_handle, stream, &pDevObj->stream_ctrl);
    if (rc < 0)
        return rc;
    pDevObj->stream_running = 1;
    rc = uvc_stream_start(*stream, callback, user, 0);
    if (rc < 0)
        (void)nyxus::stop_streams(pDevObj);
    return rc;
}

/// Starts the stream, once more with the camera's own payload size where no alternate setting of an
/// isochronous camera carries a whole frame.
uvc_error_t start_stream(NyDevice* pDevObj, uint32_t negotiated_payload,
                         uvc_stream_handle_t** stream, uvc_frame_callback_t* callback, void* user)
{
    uvc_error_t rc = start_once(pDevObj, stream, callback, user);
    if (rc == UVC_ERROR_INVALID_MODE && pDevObj->uvc_handle != nullptr) {
        pDevObj->stream_ctrl.dwMaxPayloadTransferSize = negotiated_payload;
        rc = start_once(pDevObj, stream, callback, user);
    }
    if (rc < 0)
        nyxus::report_uvc_error(rc, "start_streaming");
    return rc;
}

int32_t start_callback_stream(NyDevice* pDevObj, const VideoStreamParam& param,
                              RunningStream* stream)
{
    uint32_t negotiated_payload = 0;
    const uvc_error_t rc = negotiate(pDevObj, param, &negotiated_payload);
    uvc_stream_handle_t* handle = nullptr;
    return rc < 0 ? rc : start_stream(pDevObj, negotiated_payload, &handle, internal_cb, stream);
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
/// camera is gone.
bool retrigger(NyDevice* pDevObj)
{
    if (!nyxus::stop_streams(pDevObj))
        return false;
    (void)XuRegWrite(pDevObj, XDATA_SG_SENSOR_RESET_INIT, 1, &kSnapshotTrigger);
    return pDevObj->device_gone == 0;
}

} // namespace

int32_t startVideoStream(NyDevice* pDevObj, NyFrameCallback callback, VideoStreamParam* param)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(callback);
    NY_REQUIRE(param);
    RunningStream* stream = create_stream({param, callback});
    if (stream == nullptr)
        return UVC_ERROR_NO_MEM;
    RunningStream* former = owned_stream(*pDevObj);
    const bool former_runs = former != nullptr && pDevObj->stream_running;
    own(pDevObj, stream);
    const int32_t rc = start_callback_stream(pDevObj, *param, stream);
    if (former_runs) { // and libuvc has refused this one
        own(pDevObj, former);
        former = stream;
    }
    std::free(former);
    return rc;
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
        rc = start_stream(pDevObj, negotiated_payload, &stream, nullptr, nullptr);
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
    RunningStream* stream = owned_stream(*pDevObj);
    if (stream != nullptr)
        silence(*stream);
    if (!nyxus::stop_streams(pDevObj))
        return; // libuvc's threads may still look at the record
    std::free(stream);
    pDevObj->stream_record_owned = 0; // the pointer itself stays as it is
}
